#pragma once

#include <rpm/header.h>
#include <rpm/rpmdb.h>
#include <rpm/rpmio.h>
#include <rpm/rpmtypes.h>

#include <memory>
#include <string>
#include <type_traits>

struct RpmCloser {
    void operator()(rpmdbMatchIterator iterator) const { rpmdbFreeIterator(iterator); }
    void operator()(rpmdbIndexIterator iterator) const { rpmdbIndexIteratorFree(iterator); }
    void operator()(FD_t file) const { Fclose(file); }
    void operator()(Header header) const { headerFree(header); }
};

/// A handle of librpm that closes itself.
template <typename Handle>
using RpmHandle = std::unique_ptr<std::remove_pointer_t<Handle>, RpmCloser>;

/// The directory of the rpm database, as rpm's macros name it; they may name it in any way.
std::string databaseDirectory();

/// Opens the rpm database for reading, if it is not open. Comes in front of everything else that
/// reads it: librpm would create a missing one, and take the device for an empty one.
///
/// @return false if there is none, or it cannot be opened (logged); nothing is created.
[[nodiscard]] bool openDatabase(rpmts ts);
