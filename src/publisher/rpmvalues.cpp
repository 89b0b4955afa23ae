#include "publisher/rpmvalues.h"

#include "publisher/devicestate.h"
#include "publisher/relations.h"

#include <vector>

namespace {

/// The obsoletes of a set; those of a package's own name do not count for rpm.
DependencySet obsoletesOf(const UpdateSet& updateSet)
{
    std::vector<Dependency> vAll;
    for (const Package& package : updateSet) {
        for (const Dependency& entry : package.obsoletes()) {
            if (entry.name != package.name()) {
                vAll.push_back(entry);
            }
        }
    }
    DependencySet all;
    all.insertAll(std::move(vAll));
    return all;
}

}  // namespace

std::string refusalOf(const InstalledPackageSet& installed, const UpdateSet& updateSet)
{
    for (const Package& package : updateSet) {
        const auto [uFirst, uEnd] = installed.range(package.name());
        for (std::uint32_t u = uFirst; u < uEnd; ++u) {
            if (compareEvr(installed[u].evr(), package.evr()) >= 0) {
                return packageText(installed[u]) + " is installed, which is not older than " +
                       packageText(package);
            }
        }
    }
    return {};
}

std::unique_ptr<InstalledPackageSet> installedAfter(const InstalledPackageSet& installed,
                                                    const UpdateSet& updateSet)
{
    const DependencySet obsoletes = obsoletesOf(updateSet);
    auto after = std::make_unique<InstalledPackageSet>();
    for (const Package& package : installed) {
        if (!updateSet.find(package.name()) && !overlaps(obsoletes, packageDependency(package))) {
            after->insertEqual(installedRecord(package));
        }
    }
    for (const Package& package : updateSet) {
        if (!overlaps(obsoletes, packageDependency(package))) {
            after->insertEqual(installedRecord(package));
        }
    }
    after->sort();
    return after;
}
