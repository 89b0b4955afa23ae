#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

/// What a primary file says of a package's file beyond what devices keep of it.
struct Listed {
    std::string arch;
    std::uint64_t size = 0;  ///< bytes of the file
};

/// By location; of two packages at one location the first.
using Listing = std::map<std::string, Listed, std::less<>>;

/// Reads all packages of a primary file, those for other machines included.
///
/// @return false (logged) if it cannot be read to its end; what was read stays in `listing`.
[[nodiscard]] bool readListing(const std::string& sPrimary, Listing& listing);
