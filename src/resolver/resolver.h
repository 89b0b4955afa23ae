#pragma once

#include "config/config.h"
#include "packages/package.h"
#include "resolver/selection.h"

#include <memory>

/// Decides what gets installed: selects the updates, then closes the set under its dependencies. It
/// holds a snapshot of the installed packages for one pass, and no handle of the rpm database. All
/// operations decide only; nothing is fetched or installed.
///
/// The future system that the operations speak of is every installed package whose name has no
/// package in the update set, and every package of the update set.
class Resolver {
public:
    /// Takes the snapshot. Comes first, and only once.
    ///
    /// @return false if the rpm database cannot be read in full (logged).
    [[nodiscard]] bool init(const Config& config);

    /// selectNewerPackages() on the snapshot; needs init().
    [[nodiscard]] PackageSet findNewerPackages(const PackageSet& available,
                                               const SelectionRules& rules) const;

    /// missingRequires() on the snapshot; needs init().
    ///
    /// @return true if nothing is missing.
    [[nodiscard]] bool checkDependencies(const PackageSet& updateSet,
                                         DependencySet& unsatisfied) const;

    /// Pulls packages for what is missing: of each name that is not in the set, in byte order, the
    /// newest version, if it provides an entry of `unsatisfied`. No selection rule counts here.
    ///
    /// @param unsatisfied  loses the entries that the pulled packages provide.
    /// @return             true if at least one package was added to `updateSet`.
    [[nodiscard]] static bool resolveDependencies(const PackageSet& available,
                                                  DependencySet& unsatisfied,
                                                  PackageSet& updateSet);

    /// True if every entry is left to rpm, also for none at all.
    [[nodiscard]] static bool onlyFileRequires(const DependencySet& unsatisfied);

    /// Tests what the running program provides against the requires of that name in `packages`.
    /// Requires that sort in front of `provide` (a lower bound, or the same bound with lower flags)
    /// are not looked at.
    ///
    /// @param failed  emptied, then filled with the requires that `provide` does not meet.
    /// @return        true if there are none.
    [[nodiscard]] static bool checkProvide(const Dependency& provide, const PackageSet& packages,
                                           DependencySet& failed);

private:
    std::unique_ptr<InstalledPackageSet> m_installed;  ///< null until init() has succeeded
};

/// True if only rpm can tell whether a require is met: a file, as no file lists are known here, or a
/// condition in parentheses like "(foo or bar)", which stands for a name.
[[nodiscard]] bool isLeftToRpm(const Dependency& require);

/// Collects the requires that the future system does not meet. Only what is listed as a provide
/// counts: no package name, no file list.
///
/// @param unsatisfied  emptied, then filled; a require of several packages stands once.
void missingRequires(const InstalledPackageSet& installed, const PackageSet& updateSet,
                     DependencySet& unsatisfied);
