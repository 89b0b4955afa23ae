#include "resolver/resolver.h"

#include "rpmdb/rpmdb.h"
#include "support/logger.h"

#include <utility>
#include <vector>

namespace {

/// The packages of the future system, in the order in which their requires are looked at. The
/// pointers are good as long as both sets stay unchanged.
std::vector<const InstalledPackage*> futureSystem(const InstalledPackageSet& installed,
                                                  const PackageSet& updateSet)
{
    std::vector<const InstalledPackage*> vFuture;
    for (const InstalledPackage& package : installed) {
        if (updateSet.find(package.name) == updateSet.end()) {
            vFuture.push_back(&package);
        }
    }
    for (const Package& package : updateSet) {
        vFuture.push_back(&package);
    }
    return vFuture;
}

bool isProvided(const DependencySet& provides, const Dependency& require)
{
    for (auto it = provides.lowerBound({require.name, {}, 0});
         it != provides.end() && it->name == require.name; ++it) {
        if (dependencyMatches(*it, require)) {
            return true;
        }
    }
    return false;
}

/// Marks the entries of `unsatisfied` that one provide of `package` meets and no other did before.
///
/// @param vMet  one mark for each entry.
/// @return      true if there were any; the package is in `updateSet` then.
bool pullFor(const Package& package, const Dependency& provide, const DependencySet& unsatisfied,
             std::vector<bool>& vMet, PackageSet& updateSet)
{
    bool bPulled = false;
    for (auto it = unsatisfied.lowerBound({provide.name, {}, 0});
         it != unsatisfied.end() && it->name == provide.name; ++it) {
        const auto uPlace = static_cast<std::size_t>(it - unsatisfied.begin());
        if (vMet[uPlace]) {
            continue;
        }
        logMessage(DEBUG, "checking provide %s", dependencyText(provide).c_str());
        if (!dependencyMatches(provide, *it)) {
            continue;
        }
        if (!bPulled) {
            logMessage(DEBUG, "pulling package %s to satisfy '%s'", packageText(package).c_str(),
                       dependencyText(*it).c_str());
            updateSet.insertUnique(package);
            bPulled = true;
        }
        logMessage(DEBUG, "removing require '%s', provided by pulled package",
                   dependencyText(*it).c_str());
        vMet[uPlace] = true;
    }
    return bPulled;
}

}  // namespace

bool Resolver::init(const Config& config)
{
    if (m_installed != nullptr) {
        logMessage(ERROR, "attempted to reinitilize a resolver");
        return false;
    }
    RpmDB database;
    if (!database.open(!config.checkDbHeaders)) {
        logMessage(ERROR, "failed opening rpm database");
        return false;
    }
    m_installed = database.installedPackages();
    if (m_installed == nullptr) {
        logMessage(ERROR, "failed getting list of installed packages");
        return false;
    }
    return true;
}

PackageSet Resolver::findNewerPackages(const PackageSet& available,
                                       const SelectionRules& rules) const
{
    return selectNewerPackages(*m_installed, available, rules);
}

bool Resolver::checkDependencies(const PackageSet& updateSet, DependencySet& unsatisfied) const
{
    missingRequires(*m_installed, updateSet, unsatisfied);
    return unsatisfied.empty();
}

bool isLeftToRpm(const Dependency& require)
{
    return require.name.view().starts_with('/') || require.name.view().starts_with('(');
}

void missingRequires(const InstalledPackageSet& installed, const PackageSet& updateSet,
                     DependencySet& unsatisfied)
{
    logMessage(DEBUG, "checking dependencies for %u new packages",
               static_cast<unsigned>(updateSet.size()));
    unsatisfied.clear();
    const std::vector<const InstalledPackage*> vFuture = futureSystem(installed, updateSet);

    std::vector<Dependency> vProvides;
    for (const InstalledPackage* pPackage : vFuture) {
        vProvides.insert(vProvides.end(), pPackage->provides.begin(), pPackage->provides.end());
    }
    DependencySet provides;
    provides.insertAll(std::move(vProvides));
    if (Logger::admits(TRACE)) {
        for (const Dependency& provide : provides) {
            logMessage(TRACE, "dep %s", dependencyText(provide).c_str());
        }
    }

    std::vector<Dependency> vMissing;
    for (const InstalledPackage* pPackage : vFuture) {
        for (const Dependency& require : pPackage->requires_) {
            if (!isProvided(provides, require)) {
                vMissing.push_back(require);
                logMessage(DEBUG, "failed dep: %s is needed by %s", dependencyText(require).c_str(),
                           packageText(*pPackage).c_str());
            }
        }
    }
    unsatisfied.insertAll(std::move(vMissing));
}

bool Resolver::resolveDependencies(const PackageSet& available, DependencySet& unsatisfied,
                                   PackageSet& updateSet)
{
    logMessage(DEBUG, "resolving dependencies");
    unsigned uPulled = 0;
    std::vector<bool> vMet(unsatisfied.size());
    for (auto it = available.begin(); it != available.end();) {
        if (updateSet.find(it->name) != updateSet.end()) {
            logMessage(TRACE, "package %s already in", packageText(*it).c_str());
            ++it;
            continue;
        }
        logMessage(TRACE, "checking package %s", packageText(*it).c_str());
        const auto best = bestOfRun(it, available.end(), [](const auto&, const auto&, bool) {});
        logMessage(TRACE, "found %s as best", packageText(*best).c_str());
        for (const Dependency& provide : best->provides) {
            logMessage(TRACE, "check prov %s", dependencyText(provide).c_str());
            if (pullFor(*best, provide, unsatisfied, vMet, updateSet)) {
                ++uPulled;
            }
        }
    }
    unsatisfied.eraseMarked(vMet);
    logMessage(DEBUG, "pulled %u packages", uPulled);
    return uPulled != 0;
}

bool Resolver::onlyFileRequires(const DependencySet& unsatisfied)
{
    logMessage(DEBUG, "checking for file-only requires");
    for (const Dependency& require : unsatisfied) {
        if (!isLeftToRpm(require)) {
            return false;
        }
    }
    return true;
}

bool Resolver::checkProvide(const Dependency& provide, const PackageSet& packages,
                            DependencySet& failed)
{
    std::vector<Dependency> vFailed;
    for (const Package& package : packages) {
        for (auto it = package.requires_.lowerBound(provide);
             it != package.requires_.end() && it->name == provide.name; ++it) {
            if (!dependencyMatches(provide, *it)) {
                vFailed.push_back(*it);
                logMessage(DEBUG, "failed satisfy of '%s': %s is needed by %s",
                           dependencyText(provide).c_str(), dependencyText(*it).c_str(),
                           packageText(package).c_str());
            }
        }
    }
    failed.clear();
    failed.insertAll(std::move(vFailed));
    return failed.empty();
}
