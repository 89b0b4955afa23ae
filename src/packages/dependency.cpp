#include "packages/dependency.h"

#include <algorithm>
#include <utility>

bool operator<(const Dependency& a, const Dependency& b)
{
    if (a.name != b.name) {
        return a.name < b.name;
    }
    const int iOrder = compareEvr(a.evr, b.evr);
    return iOrder != 0 ? iOrder < 0 : a.flags < b.flags;
}

DependencySet::const_iterator DependencySet::lowerBound(const Dependency& key) const
{
    return std::lower_bound(m_vEntries.begin(), m_vEntries.end(), key);
}

void DependencySet::insertAll(std::vector<Dependency> vEntries)
{
    // Stable, and the present elements in front: of equal ones the first inserted stays.
    vEntries.insert(vEntries.begin(), m_vEntries.begin(), m_vEntries.end());
    std::stable_sort(vEntries.begin(), vEntries.end());
    const auto equal = [](const Dependency& a, const Dependency& b) { return !(a < b); };
    vEntries.erase(std::unique(vEntries.begin(), vEntries.end(), equal), vEntries.end());
    m_vEntries.assign(vEntries.begin(), vEntries.end());
    m_vEntries.shrink_to_fit();
}

bool dependencyMatches(const Dependency& a, const Dependency& b)
{
    if (a.name != b.name) {
        return false;
    }
    return matchesEveryVersion(a) || matchesEveryVersion(b) ||
           rangesOverlap(compareEvrBound(a.evr, b.evr), a.flags, b.flags);
}

bool rangesOverlap(int iOrder, std::int32_t iFlags, std::int32_t iOtherFlags)
{
    if (iOrder < 0) {
        return (iFlags & GREATER) != 0 || (iOtherFlags & LESS) != 0;
    }
    if (iOrder > 0) {
        return (iFlags & LESS) != 0 || (iOtherFlags & GREATER) != 0;
    }
    return (iFlags & iOtherFlags & (LESS | EQUAL | GREATER)) != 0;
}

const char* relationText(std::int32_t iFlags)
{
    switch (iFlags) {
        case EQUAL:
            return "=";
        case LESS:
            return "<";
        case GREATER:
            return ">";
        case LESS | EQUAL:
            return "<=";
        case GREATER | EQUAL:
            return ">=";
        default:
            return "?";
    }
}

std::string dependencyText(const Dependency& dependency)
{
    if (dependency.evr.version.empty()) {
        return dependency.name.str();
    }
    return dependency.name.str() + " " + relationText(dependency.flags) + " " +
           evrText(dependency.evr);
}
