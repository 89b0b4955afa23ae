#pragma once

#include "packages/packageset.h"
#include "packages/updateset.h"

#include <memory>
#include <string>

// What rpm makes of an update set, on values. Only rpm itself knows of files and conflicts.

/// Why rpm refuses a set for what is installed: a package that is there in the same or a newer
/// version. Empty if it does not.
[[nodiscard]] std::string refusalOf(const InstalledPackageSet& installed,
                                    const UpdateSet& updateSet);

/// What is installed when rpm has updated: each new package, unless another new one obsoletes it, in
/// place of all of its name and of what it obsoletes.
[[nodiscard]] std::unique_ptr<InstalledPackageSet> installedAfter(
    const InstalledPackageSet& installed, const UpdateSet& updateSet);
