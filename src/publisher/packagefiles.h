#pragma once

#include "packages/dependency.h"
#include "publisher/devicelog.h"
#include "publisher/finding.h"
#include "publisher/offer.h"

#include <string>
#include <vector>

/// What the files of a repository's packages told.
struct PackageFiles {
    NameSet owned;    ///< the paths among those asked for that a package owns
    NameSet wrong;    ///< locations whose file is missing or does not fit its checksum
    NameSet refused;  ///< locations of the others whose signature the keys do not let through
};

/// The newest package of each name: what devices look at.
[[nodiscard]] std::vector<Package> newestOf(const PackageSet& packages);

/// Looks at the file of each package: whether it is there and fits its checksum, whether its header
/// says what the metadata say, and how it is signed. Says at a terminal how far it is.
///
/// @param asked  paths that packages require.
/// @param sKeys  directory of an rpm database with the devices' keys, or empty.
[[nodiscard]] PackageFiles inspectFiles(const Offer& offer, const NameSet& asked,
                                        const std::string& sKeys, DeviceLog& log,
                                        Findings& findings);

/// Names the packages in the repository's directory that its metadata don't.
void findUnnamedFiles(const Offer& offer, Findings& findings);
