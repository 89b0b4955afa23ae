#include "resolver/providerindex.h"

#include <algorithm>
#include <map>
#include <numeric>

namespace {

constexpr std::uint32_t k_uBuckets = 1U << 16U;
constexpr std::uint32_t k_uNone = UINT32_MAX;
constexpr std::size_t k_uFew = 32;  ///< provides of a name that are looked at one by one

/// Calls for each package that is the newest of its name.
template <typename Visit>
void visitNewest(const PackageSet& packages, Visit visit)
{
    for (std::uint32_t u = 0; u < packages.size();) {
        visit(bestOfRun(packages, u, [](const Package&, const Package&, bool) {}).place());
    }
}

}  // namespace

ProviderIndex::ProviderIndex(const PackageSet& available)
    : m_available(available), m_vFirst(k_uBuckets + 1)
{
    visitNewest(available, [&](std::uint32_t uPlace) {
        for (const std::uint32_t uEntry : available.providesOf(uPlace)) {
            ++m_vFirst[bucketOf(available.dependency(uEntry).name) + 1];
        }
    });
    std::partial_sum(m_vFirst.begin(), m_vFirst.end(), m_vFirst.begin());
    m_vProvides.resize(m_vFirst.back());
    std::vector<std::uint32_t> vNext = m_vFirst;
    visitNewest(available, [&](std::uint32_t uPlace) {
        for (const std::uint32_t uEntry : available.providesOf(uPlace)) {
            m_vProvides[vNext[bucketOf(available.dependency(uEntry).name)]++] = {uEntry, uPlace};
        }
    });
}

std::size_t ProviderIndex::bucketOf(Text sName) const
{
    return static_cast<std::size_t>((sName.id() * textSecret()) >> 48U);
}

std::vector<ProviderIndex::Provide> ProviderIndex::providesOf(Text sName) const
{
    const std::size_t uBucket = bucketOf(sName);
    std::vector<Provide> vFound;
    std::copy_if(m_vProvides.begin() + m_vFirst[uBucket],
                 m_vProvides.begin() + m_vFirst[uBucket + 1], std::back_inserter(vFound),
                 [&](const Provide& provide) {
                     const Dependency& entry = m_available.dependency(provide.dependency);
                     return entry.name == sName && isFoundByName(entry);
                 });
    return vFound;
}

std::vector<ProviderIndex::Kind>& ProviderIndex::kindsOf(Text sName,
                                                         const std::vector<Provide>& vProvides)
{
    std::vector<Kind>& vKinds = m_kinds[sName];
    std::map<std::pair<std::int32_t, bool>, Kind> kinds;
    for (const Provide& provide : vProvides) {
        const Dependency& entry = m_available.dependency(provide.dependency);
        kinds[{matchesEveryVersion(entry) ? 0 : entry.flags, !entry.evr.release.empty()}]
            .provides.push_back(provide);
    }
    for (auto& [key, kind] : kinds) {
        std::sort(kind.provides.begin(), kind.provides.end(), [&](const auto& a, const auto& b) {
            return compareEvr(m_available.dependency(a.dependency).evr,
                              m_available.dependency(b.dependency).evr) < 0;
        });
        std::uint32_t uLeast = k_uNone;
        for (const Provide& provide : kind.provides) {
            kind.upTo.push_back(uLeast = std::min(uLeast, provide.package));
        }
        kind.from.resize(kind.provides.size());
        uLeast = k_uNone;
        for (std::size_t u = kind.provides.size(); u-- > 0;) {
            kind.from[u] = uLeast = std::min(uLeast, kind.provides[u].package);
        }
        vKinds.push_back(std::move(kind));
    }
    return vKinds;
}

std::uint32_t ProviderIndex::leastOf(const Kind& kind, const Dependency& require) const
{
    const auto entryOf = [&](const Provide& provide) -> const Dependency& {
        return m_available.dependency(provide.dependency);
    };
    const std::int32_t iFlags = entryOf(kind.provides.front()).flags;
    if (matchesEveryVersion(require) || matchesEveryVersion(entryOf(kind.provides.front()))) {
        return kind.from.front();
    }
    const auto begin = kind.provides.begin();
    const auto equal = std::partition_point(begin, kind.provides.end(), [&](const auto& provide) {
        return compareEvrBound(entryOf(provide).evr, require.evr) < 0;
    });
    const auto newer = std::partition_point(equal, kind.provides.end(), [&](const auto& provide) {
        return compareEvrBound(entryOf(provide).evr, require.evr) == 0;
    });
    std::uint32_t uLeast = k_uNone;
    if (equal != begin && rangesOverlap(-1, iFlags, require.flags)) {
        uLeast = kind.upTo[static_cast<std::size_t>(equal - begin) - 1];
    }
    if (newer != kind.provides.end() && rangesOverlap(1, iFlags, require.flags)) {
        uLeast = std::min(uLeast, kind.from[static_cast<std::size_t>(newer - begin)]);
    }
    if (rangesOverlap(0, iFlags, require.flags)) {
        for (auto it = equal; it != newer; ++it) {
            uLeast = std::min(uLeast, it->package);
        }
    }
    return uLeast;
}

std::optional<Package> ProviderIndex::providerOf(const Dependency& require)
{
    std::uint32_t uLeast = k_uNone;
    const auto crowded = m_kinds.find(require.name);
    std::vector<Provide> vProvides;
    if (crowded == m_kinds.end()) {
        vProvides = providesOf(require.name);
    }
    if (crowded == m_kinds.end() && vProvides.size() <= k_uFew) {
        for (const Provide& provide : vProvides) {
            if (dependencyMatches(m_available.dependency(provide.dependency), require)) {
                uLeast = std::min(uLeast, provide.package);
            }
        }
    } else {
        for (const Kind& kind :
             crowded != m_kinds.end() ? crowded->second : kindsOf(require.name, vProvides)) {
            uLeast = std::min(uLeast, leastOf(kind, require));
        }
    }
    return uLeast != k_uNone ? std::optional(m_available[uLeast]) : std::nullopt;
}
