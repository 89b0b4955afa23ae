#include "publisher/whyleft.h"

#include "publisher/relations.h"

#include <optional>
#include <set>

namespace {

/// The first package of a set that provides what a require asks for.
std::optional<Package> providerOf(const PackageSet& packages, const Dependency& require)
{
    for (const Package& package : packages) {
        if (overlaps(package.provides(), require)) {
            return package;
        }
    }
    return {};
}

}  // namespace

std::string whyLeft(const Package& package, const UpdateSet& announced,
                    const InstalledPackageSet& before, const InstalledPackageSet& after)
{
    const std::string sName = packageText(package);
    for (const Dependency& entry : package.obsoletes()) {
        const auto [uFirst, uEnd] = before.range(entry.name);
        for (std::uint32_t u = uFirst; u < uEnd; ++u) {
            const auto [uNow, uNowEnd] = after.range(entry.name);
            if (dependencyMatches(entry, packageDependency(before[u])) &&
                (uNow == uNowEnd || compareEvr(after[uNow].evr(), before[u].evr()) != 0)) {
                return sName + " was due because it obsoletes " + packageText(before[u]) +
                       ", which the first pass has replaced";
            }
        }
    }
    for (const Package& other : announced) {
        for (const Dependency& require : other.needs()) {
            if (other == package || !overlaps(package.provides(), require)) {
                continue;
            }
            if (const auto met = providerOf(after, require)) {
                return sName + " was due for '" + dependencyText(require) + "' of " +
                       packageText(other) + ", which " + packageText(*met) + " has met";
            }
        }
    }
    return sName + " was due in the check, and in no pass";
}

std::vector<std::string> whoNeeds(const std::vector<std::string>& vLines,
                                  const InstalledPackageSet& installed, const UpdateSet& updateSet)
{
    std::set<std::string> missing;
    const std::string sPrefix = "ERROR: \t";
    for (const std::string& sLine : vLines) {
        if (sLine.starts_with(sPrefix)) {
            missing.insert(sLine.substr(sPrefix.size()));
        }
    }
    std::vector<std::string> vWho;
    const auto look = [&](const Package& package, const char* pWhere) {
        for (const Dependency& require : package.needs()) {
            if (missing.contains(dependencyText(require))) {
                vWho.push_back(dependencyText(require) + " is needed by " + packageText(package) +
                               pWhere);
            }
        }
    };
    if (missing.empty()) {
        return vWho;
    }
    for (const Package& package : installed) {
        if (!updateSet.find(package.name())) {
            look(package, " (installed)");
        }
    }
    for (const Package& package : updateSet) {
        look(package, "");
    }
    return vWho;
}
