#pragma once

#include "packages/evr.h"

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/// The relation bits of a dependency, with the values of rpm's sense bits.
enum DependencyFlag : std::int32_t { LESS = 2, GREATER = 4, EQUAL = 8 };

/// One entry of a requires, provides or obsoletes list: a name and a range of versions.
struct Dependency {
    Text name;               ///< a file path if it begins with '/', a condition if with '('
    Evr evr;                 ///< the bound of the range
    std::int32_t flags = 0;  ///< DependencyFlag bits; 0 means no version condition
};

/// Orders by name in plain byte order, then by compareEvr(), then by flags: all entries of a name
/// lie side by side, older bounds first.
bool operator<(const Dependency& a, const Dependency& b);

/// An ordered set of dependencies, unique in that order; of two equal ones the first inserted
/// stays. A sorted vector: made once, read often, and as small as can be.
class DependencySet {
public:
    using const_iterator = std::vector<Dependency>::const_iterator;

    [[nodiscard]] const_iterator begin() const { return m_vEntries.begin(); }
    [[nodiscard]] const_iterator end() const { return m_vEntries.end(); }
    [[nodiscard]] std::size_t size() const { return m_vEntries.size(); }
    [[nodiscard]] bool empty() const { return m_vEntries.empty(); }

    /// The first element that is not less than `key`.
    [[nodiscard]] const_iterator lowerBound(const Dependency& key) const;

    /// Inserts elements, given in any order, at the cost of a sort of all: call it once for many.
    void insertAll(std::vector<Dependency> vEntries);

    void clear() { m_vEntries.clear(); }

private:
    std::vector<Dependency> m_vEntries;
};

/// Names of packages or groups, unique, in plain byte order.
using NameSet = std::set<std::string, std::less<>>;

/// True if the ranges of two dependencies of one name overlap. Symmetric. An entry without a
/// relation or without a version matches every version of its name; a bound without a release is
/// equal to every release of its version; epochs are always compared.
bool dependencyMatches(const Dependency& a, const Dependency& b);

// The parts of that rule, for those who look for matches among many.

/// True if an entry has no relation or no version.
inline bool matchesEveryVersion(const Dependency& dependency)
{
    return dependency.flags == 0 || dependency.evr.version.empty();
}

/// True if the ranges of two entries with relations and versions overlap.
///
/// @param iOrder  how the bound of the first stands to that of the other, see compareEvrBound().
bool rangesOverlap(int iOrder, std::int32_t iFlags, std::int32_t iOtherFlags);

/// "=", "<", ">", "<=" or ">="; "?" for any other combination.
const char* relationText(std::int32_t iFlags);

/// "libfoo >= 0:1.2-3", or the name alone if there is no version.
std::string dependencyText(const Dependency& dependency);
