#include "resolver/dependencyindex.h"

namespace {

constexpr std::int32_t k_iMatchesAll = -1;
constexpr std::size_t k_uFew = 8;  ///< entries of a name that are looked at one by one

}  // namespace

bool DependencyIndex::Less::operator()(const Entry& a, const Entry& b) const
{
    if (a.kind != b.kind) {
        return a.kind < b.kind;
    }
    const int iOrder = compareEvr(a.evr, b.evr);
    return iOrder != 0 ? iOrder < 0 : a.flags < b.flags;
}

bool DependencyIndex::Less::operator()(const Entry& entry, const Bound& bound) const
{
    if (entry.kind != bound.kind || bound.evr == nullptr) {
        return entry.kind < bound.kind;
    }
    const int iOrder = compareEvrBound(entry.evr, *bound.evr);
    return iOrder < 0 || (iOrder == 0 && bound.behind);
}

bool DependencyIndex::Less::operator()(const Bound& bound, const Entry& entry) const
{
    return !(*this)(entry, bound);
}

DependencyIndex::Entry DependencyIndex::entryOf(const Dependency& dependency)
{
    const Evr& evr = dependency.evr;
    return {evr, dependency.flags,
            matchesEveryVersion(dependency) ? k_iMatchesAll
                                            : dependency.flags * 2 + (evr.release.empty() ? 0 : 1),
            1};
}

bool DependencyIndex::add(const Dependency& dependency)
{
    const auto [it, bAdded] = m_names[dependency.name].insert(entryOf(dependency));
    it->count += bAdded ? 0 : 1;
    m_uSize += bAdded ? 1 : 0;
    return bAdded;
}

bool DependencyIndex::remove(const Dependency& dependency)
{
    const auto name = m_names.find(dependency.name);
    if (name == m_names.end()) {
        return false;
    }
    const auto it = name->second.find(entryOf(dependency));
    if (it == name->second.end() || --it->count > 0) {
        return false;
    }
    name->second.erase(it);
    --m_uSize;
    return true;
}

bool DependencyIndex::contains(const Dependency& dependency) const
{
    const auto name = m_names.find(dependency.name);
    return name != m_names.end() && name->second.contains(entryOf(dependency));
}

/// @param visit  gets each entry that overlaps; false ends the visit.
template <typename Visit>
void DependencyIndex::visitMatching(const Dependency& dependency, Visit visit) const
{
    const auto name = m_names.find(dependency.name);
    if (name == m_names.end()) {
        return;
    }
    const Entries& entries = name->second;
    const auto visitAll = [&](auto it, auto end) {
        while (it != end) {
            if (!visit(*it++)) {
                return false;
            }
        }
        return true;
    };
    if (entries.size() <= k_uFew) {
        for (const Entry& entry : entries) {
            if (dependencyMatches({dependency.name, entry.evr, entry.flags}, dependency) &&
                !visit(entry)) {
                return;
            }
        }
        return;
    }
    const bool bAll = matchesEveryVersion(dependency);
    for (auto it = entries.begin(); it != entries.end();) {
        const std::int32_t iKind = it->kind;
        const std::int32_t iFlags = it->flags;
        const auto first = it;
        it = entries.lower_bound(Bound{iKind + 1, nullptr, false});
        if (bAll || iKind == k_iMatchesAll) {
            if (!visitAll(first, it)) {
                return;
            }
            continue;
        }
        const auto equal = entries.lower_bound(Bound{iKind, &dependency.evr, false});
        const auto newer = entries.lower_bound(Bound{iKind, &dependency.evr, true});
        const auto overlaps = [&](int iOrder) {
            return rangesOverlap(iOrder, iFlags, dependency.flags);
        };
        if ((overlaps(-1) && !visitAll(first, equal)) || (overlaps(0) && !visitAll(equal, newer)) ||
            (overlaps(1) && !visitAll(newer, it))) {
            return;
        }
    }
}

bool DependencyIndex::matches(const Dependency& dependency) const
{
    bool bFound = false;
    visitMatching(dependency, [&](const Entry&) {
        bFound = true;
        return false;
    });
    return bFound;
}

std::vector<Dependency> DependencyIndex::allMatching(const Dependency& dependency) const
{
    std::vector<Dependency> vFound;
    visitMatching(dependency, [&](const Entry& entry) {
        vFound.push_back({dependency.name, entry.evr, entry.flags});
        return true;
    });
    return vFound;
}
