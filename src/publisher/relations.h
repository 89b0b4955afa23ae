#pragma once

#include "config/config.h"
#include "publisher/finding.h"
#include "publisher/packagefiles.h"
#include "repository/primary.h"

#include <vector>

// What can be said of a repository by its metadata, before any device comes in.

/// True if an entry of the name of a dependency overlaps with it.
[[nodiscard]] bool overlaps(const DependencySet& entries, const Dependency& dependency);

/// The paths that packages require, and none lists among its provides.
[[nodiscard]] NameSet requiredPaths(const PackageSet& packages);

/// True if a package provides what meets a require.
[[nodiscard]] bool isProvided(const PackageSet& packages, const Dependency& require);

/// Finds what devices leave out or take in another way than the publisher may think.
///
void checkOffered(const PrimaryContents& contents, const Listing& listing, Findings& findings);

/// Finds requires that only rpm sees to, and those that are never met as they are written.
///
/// @param vInstalled  what the devices' states have, none of them null.
void checkRequires(const PackageSet& packages, const std::vector<const PackageSet*>& vInstalled,
                   Findings& findings);

/// Finds add-ons, groups and a release package of the configuration that do not exist.
void checkConfiguredNames(const Config& config, const PackageSet& packages, Findings& findings);

/// Finds packages that went back, were built anew under the same version, or are gone.
void compareWithPrevious(const PackageSet& packages, const PackageSet& previous,
                         Findings& findings);

/// Finds an index whose revision is lower than that of the one before, by their paths.
void compareRevisions(const std::string& sIndex, const std::string& sPrevious, Findings& findings);
