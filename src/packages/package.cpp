#include "packages/package.h"

#include "packages/packageset.h"

namespace {

DependencySet dependencies(const PackageSet& set, std::span<const std::uint32_t> list)
{
    std::vector<Dependency> vEntries;
    vEntries.reserve(list.size());
    for (const std::uint32_t uEntry : list) {
        vEntries.push_back(set.dependency(uEntry));
    }
    DependencySet sorted;
    sorted.insertAll(std::move(vEntries));
    return sorted;
}

}  // namespace

Text Package::name() const
{
    return m_pSet->row(m_uPlace).name;
}

Text Package::group() const
{
    return m_pSet->row(m_uPlace).group;
}

const Evr& Package::evr() const
{
    return m_pSet->row(m_uPlace).evr;
}

DependencySet Package::needs() const
{
    return dependencies(*m_pSet, m_pSet->requiresOf(m_uPlace));
}

DependencySet Package::provides() const
{
    return dependencies(*m_pSet, m_pSet->providesOf(m_uPlace));
}

DependencySet Package::obsoletes() const
{
    return dependencies(*m_pSet, m_pSet->obsoletesOf(m_uPlace));
}

std::string_view Package::location() const
{
    return m_pSet->fileTexts(m_uPlace);
}

Checksum Package::checksum() const
{
    // Behind the location and its null byte stand type and value, each with one.
    const char* pType = location().data() + location().size() + 1;
    const std::string sType = pType;
    return {pType + sType.size() + 1, sType};
}

Dependency packageDependency(const Package& package)
{
    return {package.name(), package.evr(), EQUAL};
}

std::string packageText(const Package& package)
{
    return package.name().str() + "-" + evrText(package.evr());
}
