#pragma once

#include "packages/package.h"

#include <rpm/header.h>

/// Reads a tag that must be one string.
///
/// @param sValue  unchanged on failure.
/// @return        false if it is absent, of another type or a list (logged at ERROR).
[[nodiscard]] bool readStringTag(Header header, rpmTagVal tag, Text& sValue);

/// Reads the epoch, an integer of 8, 16 or 32 bits; 0 if there is none.
///
/// @param iEpoch  unchanged on failure.
/// @return        false if it is of another type or a list (logged at ERROR).
[[nodiscard]] bool readEpoch(Header header, std::int32_t& iEpoch);

/// Adds a list of dependencies, without those on features of rpm itself and those that
/// carry the old bit of a prerequisite. A package need not have the list.
///
/// @param nameTag  RPMTAG_REQUIRENAME, RPMTAG_PROVIDENAME or RPMTAG_OBSOLETENAME, which tells the list.
/// @param vEntries  unchanged on failure.
/// @return         false if the three tags of the list do not fit together (logged at ERROR).
[[nodiscard]] bool readDependencies(Header header, rpmTagVal nameTag,
                                    std::vector<Dependency>& vEntries);

/// Reads what the system keeps of an installed package.
///
/// @param package  a fresh record; in part filled on failure.
/// @return         false if a tag is missing or malformed (logged at ERROR).
[[nodiscard]] bool readPackage(Header header, PackageRecord& package);
