#include "resolver/resolver.h"

#include "rpmdb/rpmdb.h"
#include "support/logger.h"

#include <utility>
#include <vector>

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

bool isLeftToRpm(const Dependency& require)
{
    return require.name.view().starts_with('/') || require.name.view().starts_with('(');
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

bool Resolver::checkProvide(const Dependency& provide, const UpdateSet& packages,
                            DependencySet& failed)
{
    std::vector<Dependency> vFailed;
    for (const Package& package : packages) {
        const DependencySet needs = package.needs();
        for (auto it = needs.lowerBound(provide); it != needs.end() && it->name == provide.name;
             ++it) {
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
