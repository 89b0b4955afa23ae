#pragma once

#include "config/config.h"
#include "packages/packageset.h"
#include "packages/updateset.h"

#include <memory>

/// Holds a snapshot of the installed packages for one pass, and no handle of the rpm database; and
/// judges what a closed update set lacks. Nothing is fetched or installed.
class Resolver {
public:
    /// Takes the snapshot. Comes first, and only once.
    ///
    /// @return false if the rpm database cannot be read in full (logged).
    [[nodiscard]] bool init(const Config& config);

    /// The snapshot; needs init().
    [[nodiscard]] const InstalledPackageSet& installed() const { return *m_installed; }

    /// True if every entry is left to rpm, also for none at all.
    [[nodiscard]] static bool onlyFileRequires(const DependencySet& unsatisfied);

    /// Tests what the running program provides against the requires of that name in `packages`.
    /// Requires that sort in front of `provide` (a lower bound, or the same bound with lower flags)
    /// are not looked at.
    ///
    /// @param failed  emptied, then filled with the requires that `provide` does not meet.
    /// @return        true if there are none.
    [[nodiscard]] static bool checkProvide(const Dependency& provide, const UpdateSet& packages,
                                           DependencySet& failed);

private:
    std::unique_ptr<InstalledPackageSet> m_installed;  ///< null until init() has succeeded
};

/// True if only rpm can tell whether a require is met: a file, as no file lists are known here, or a
/// condition in parentheses like "(foo or bar)", which stands for a name.
[[nodiscard]] bool isLeftToRpm(const Dependency& require);
