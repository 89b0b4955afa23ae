#pragma once

#include "packages/packageset.h"

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

/// True if an entry is found by its name. Provides and missing requires are looked for from the place
/// of the bare name on, and a version that begins with "~", or a negative epoch, lies in front of it.
[[nodiscard]] inline bool isFoundByName(const Dependency& dependency)
{
    return !(dependency < Dependency{dependency.name, {}, 0});
}

/// Which package of a repository is pulled for a require: of all names whose newest package provides
/// it, the least. Older packages of a name do not count.
class ProviderIndex {
public:
    /// Looks at each package once.
    ///
    /// @param available  must outlive the object.
    explicit ProviderIndex(const PackageSet& available);

    [[nodiscard]] std::optional<Package> providerOf(const Dependency& require);

private:
    struct Provide {
        std::uint32_t dependency;  ///< place in the set
        std::uint32_t package;
    };
    /// Provides of one name that stand to a bound of any form as they stand to each other, with the
    /// least package up to each of them and from each of them on.
    struct Kind {
        std::vector<Provide> provides;
        std::vector<std::uint32_t> upTo;
        std::vector<std::uint32_t> from;
    };

    [[nodiscard]] std::size_t bucketOf(Text sName) const;
    [[nodiscard]] std::vector<Provide> providesOf(Text sName) const;
    std::vector<Kind>& kindsOf(Text sName, const std::vector<Provide>& vProvides);
    [[nodiscard]] std::uint32_t leastOf(const Kind& kind, const Dependency& require) const;

    const PackageSet& m_available;
    std::vector<std::uint32_t> m_vFirst;                  ///< of each bucket, and one end
    std::vector<Provide> m_vProvides;                     ///< by bucket of the name
    std::unordered_map<Text, std::vector<Kind>> m_kinds;  ///< of crowded names, when asked for
};

/// The newest package of the run of equal names that begins at a place; the first of equal ones.
///
/// @param uPlace   moved behind the run.
/// @param compare  gets the best so far, the next one, and whether that is newer.
template <typename Compare>
Package bestOfRun(const PackageSet& packages, std::uint32_t& uPlace, Compare compare)
{
    const std::uint32_t uEnd = packages.endOfRun(uPlace);
    Package best = packages[uPlace];
    for (++uPlace; uPlace < uEnd; ++uPlace) {
        const Package next = packages[uPlace];
        const bool bNewer = compareEvr(next.evr(), best.evr()) > 0;
        compare(best, next, bNewer);
        best = bNewer ? next : best;
    }
    return best;
}
