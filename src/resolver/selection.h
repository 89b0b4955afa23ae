#pragma once

#include "packages/packageset.h"
#include "packages/updateset.h"

/// Which names and groups one pass may select.
struct SelectionRules {
    NameSet includeNames;   ///< if not empty, only these names can be selected
    NameSet excludeNames;   ///< never selected, nor what they obsolete
    NameSet excludeGroups;  ///< groups whose packages are never selected; whole strings
    NameSet pullNames;      ///< selected even if nothing of the name is installed
};

/// Selects the packages of a repository that are updates for a device. Of each name only the newest
/// version is a candidate (the first of equal ones); it is selected if it passes the rules and is
/// newer than every installed package of its name or, with nothing of its name installed, if it is
/// in the pull set or obsoletes an installed package. What an excluded package obsoletes is
/// excluded with it, and what a selected package obsoletes leaves the set.
///
/// @param available  everything the repository offers, several versions of a name in file order.
/// @return           the update set: handles into `available`, possibly none. Unfinished if a signal is noted.
[[nodiscard]] UpdateSet findNewerPackages(const InstalledPackageSet& installed,
                                          const PackageSet& available, const SelectionRules& rules);
