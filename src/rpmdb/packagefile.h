#pragma once

#include <rpm/rpmtypes.h>

#include <string>

/// True if all of a package file, its payload included, is as a key of the database signed it.
/// Every other outcome is logged at ERROR, with what is known of the reason in front.
///
/// @param ts  with an open database.
[[nodiscard]] bool verifyPackageFile(rpmts ts, const std::string& sPath);
