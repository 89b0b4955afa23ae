#pragma once

#include "packages/package.h"

#include <map>
#include <sstream>

/// Reads a list of "name", "name relation" or "name relation version", separated by commas; a
/// relation may be a number of bits.
inline std::vector<Dependency> parseDependencies(const std::string& sList)
{
    static const std::map<std::string, std::int32_t> vRelations = {
        {"", 0},        {"=", EQUAL},         {"<", LESS},
        {">", GREATER}, {"<=", LESS | EQUAL}, {">=", GREATER | EQUAL}};
    std::vector<Dependency> vEntries;
    std::istringstream list(sList);
    for (std::string sEntry; std::getline(list, sEntry, ',');) {
        std::istringstream words(sEntry);
        std::string sName, sRelation, sEvr;
        words >> sName >> sRelation >> sEvr;
        const auto it = vRelations.find(sRelation);
        vEntries.push_back({sName, sEvr.empty() ? Evr() : parseEvr(sEvr),
                            it == vRelations.end() ? std::stoi(sRelation) : it->second});
    }
    return vEntries;
}

inline Package makePackage(const std::string& sName, const std::string& sEvr)
{
    Package package;
    package.name = sName;
    package.evr = parseEvr(sEvr);
    return package;
}
