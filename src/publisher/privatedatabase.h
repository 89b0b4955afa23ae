#pragma once

#include "publisher/offer.h"

#include <rpm/rpmtypes.h>

#include <functional>
#include <string>
#include <vector>

/// Directs librpm, in the lifetime of the object, to the rpm database of a directory; to that of the
/// system if the directory is empty.
class DatabaseScope {
public:
    explicit DatabaseScope(const std::string& sDirectory);
    ~DatabaseScope();
    DatabaseScope(const DatabaseScope&) = delete;
    DatabaseScope& operator=(const DatabaseScope&) = delete;

private:
    bool m_bSet;
};

/// Puts the header of one installed package into a database. False if that failed.
using AddHeader = std::function<bool(Header)>;

/// Makes an rpm database with these keys in a new directory.
///
/// @param fill  hands over the headers of what is installed; false gives up.
/// @return      false if that failed (logged).
[[nodiscard]] bool makeDatabase(const std::string& sDirectory,
                                const std::vector<std::string>& vKeyFiles,
                                const std::function<bool(const AddHeader&)>& fill);

/// Copies the rpm database below a root directory, in whichever of the usual places it lies.
///
/// @return false if there is none that can be copied.
[[nodiscard]] bool copyDatabase(const std::string& sRoot, const std::string& sDirectory);
