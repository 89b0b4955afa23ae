#pragma once

#include "packages/packageset.h"
#include "packages/updateset.h"

#include <string>
#include <vector>

/// Why no pass came to a package that the check announced, in words.
///
/// @param before  what was installed at the begin of the run.
/// @param after   what is at its end.
[[nodiscard]] std::string whyLeft(const Package& package, const UpdateSet& announced,
                                  const InstalledPackageSet& before,
                                  const InstalledPackageSet& after);

/// For each require that the device's lines name as missing: which packages have it.
[[nodiscard]] std::vector<std::string> whoNeeds(const std::vector<std::string>& vLines,
                                                const InstalledPackageSet& installed,
                                                const UpdateSet& updateSet);
