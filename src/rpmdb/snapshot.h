#pragma once

#include "packages/packageset.h"

#include <rpm/rpmtypes.h>

#include <memory>

// librpm tells a database that it cannot read on like the end of the database, and says nothing of
// records that an index does not name. So a list of packages counts only if the packages
// themselves and the index of their names agree.

/// All installed packages, the public keys among them, in the order of the database.
///
/// @return null if they cannot be read in full (logged).
[[nodiscard]] std::unique_ptr<InstalledPackageSet> readPackages(rpmts ts);

enum class PublicKeys { NONE, PRESENT, UNKNOWN };

/// Whether the database holds a public key; unknown (logged) if it cannot be read in full, or if
/// the keys that it holds are not those that librpm finds by their name.
[[nodiscard]] PublicKeys findPublicKeys(rpmts ts);
