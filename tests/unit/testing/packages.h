#pragma once

#include "packages/packageset.h"

#include <sstream>

/// Reads a list of "name", "name relation" or "name relation version", separated by commas; a
/// relation may be a number of bits.
inline std::vector<Dependency> parseDependencies(const std::string& sList)
{
    std::vector<Dependency> vEntries;
    std::istringstream list(sList);
    for (std::string sEntry; std::getline(list, sEntry, ',');) {
        std::istringstream words(sEntry);
        std::string sName, sRelation, sEvr;
        words >> sName >> sRelation >> sEvr;
        std::int32_t iFlags = 0;
        for (const char c : sRelation) {
            iFlags |= c == '=' ? EQUAL : c == '<' ? LESS : c == '>' ? GREATER : c - '0';
        }
        vEntries.push_back({sName, sEvr.empty() ? Evr() : parseEvr(sEvr), iFlags});
    }
    return vEntries;
}

inline PackageRecord makePackage(const std::string& sName, const std::string& sEvr)
{
    PackageRecord package;
    package.name = sName;
    package.evr = parseEvr(sEvr);
    return package;
}
