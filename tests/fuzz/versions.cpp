// Versions and dependencies: the laws that sorting and matching stand on. An input has a line for each
// dependency: a letter for its relation, one for its name, and the version.

#include "packages/packageset.h"

#include "target.h"

#include <algorithm>
#include <vector>

namespace {

int sign(int i)
{
    return (i > 0) - (i < 0);
}

std::vector<Dependency> parse(std::string_view sInput)
{
    std::vector<Dependency> vAll;
    while (sInput.size() > 2 && vAll.size() < 4) {
        const std::string_view sLine = sInput.substr(0, sInput.find('\n'));
        sInput.remove_prefix(std::min(sLine.size() + 1, sInput.size()));
        if (sLine.size() > 2 && sLine.find('\0') == std::string_view::npos) {
            vAll.push_back({sLine.substr(1, 1), parseEvr(std::string(sLine.substr(2))),
                            sLine[0] & (LESS | GREATER | EQUAL)});
        }
    }
    return vAll;
}

void requireLawsOfTwo(const Dependency& a, const Dependency& b)
{
    const int iOrder = sign(compareEvr(a.evr, b.evr));
    const int iBound = sign(compareEvrBound(a.evr, b.evr));
    require(iOrder == -sign(compareEvr(b.evr, a.evr)), "order is antisymmetric");
    require(iBound == -sign(compareEvrBound(b.evr, a.evr)), "order of bounds is antisymmetric");
    require(iBound == 0 || iBound == iOrder, "bounds are ordered like versions");
    require(!(a < b && b < a), "no dependency is in front of one that is in front of it");
    const bool bMatch = dependencyMatches(a, b);
    require(bMatch == dependencyMatches(b, a), "overlap is symmetric");
    require(rangesOverlap(iBound, a.flags, b.flags) == rangesOverlap(-iBound, b.flags, a.flags),
            "overlap of ranges is symmetric");
    require(a.name == b.name || !bMatch, "other names do not match");
}

void requireLawsOfThree(const Dependency& a, const Dependency& b, const Dependency& c)
{
    const int iAb = compareEvr(a.evr, b.evr);
    const int iBc = compareEvr(b.evr, c.evr);
    const int iAc = compareEvr(a.evr, c.evr);
    require(iAb > 0 || iBc > 0 || iAc <= 0, "order is transitive");
    require(iAb < 0 || iBc < 0 || iAc >= 0, "order is transitive");
}

void requireSorted(const std::vector<Dependency>& vAll)
{
    DependencySet set;
    set.insertAll(vAll);
    PackageSet packages;
    PackageRecord record;
    for (const Dependency& entry : vAll) {
        record.name = entry.name;
        record.evr = entry.evr;
        record.provides = vAll;
        packages.insertEqual(record);
        const auto it = set.lowerBound(entry);
        require(it != set.end() && !(entry < *it), "a set finds what was inserted");
    }
    require(std::adjacent_find(set.begin(), set.end(),
                               [](const auto& a, const auto& b) { return !(a < b); }) == set.end(),
            "a set is in order and holds nothing twice");
    packages.sort();
    std::vector<Dependency> vSorted = vAll;
    std::stable_sort(vSorted.begin(), vSorted.end(),
                     [](const auto& a, const auto& b) { return a.name.view() < b.name.view(); });
    for (std::uint32_t u = 0; u < packages.size(); ++u) {
        require(packages[u].name() == vSorted[u].name &&
                    packages[u].evr().version == vSorted[u].evr.version &&
                    packages[u].evr().release == vSorted[u].evr.release,
                "packages are ordered by name, then as they came");
        require(packages[u].provides().size() == set.size(), "a package keeps its lists");
    }
}

}  // namespace

void fuzz(std::string_view sInput)
{
    const std::vector<Dependency> vAll = parse(sInput);
    for (const Dependency& a : vAll) {
        require(compareEvr(a.evr, a.evr) == 0 && compareEvrBound(a.evr, a.evr) == 0,
                "a version is equal to itself");
        for (const Dependency& b : vAll) {
            requireLawsOfTwo(a, b);
            requireLawsOfThree(a, b, vAll[0]);
        }
    }
    requireSorted(vAll);
}
