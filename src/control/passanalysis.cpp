#include "control/passanalysis.h"

#include "resolver/closure.h"
#include "resolver/resolver.h"
#include "support/files.h"
#include "support/logger.h"
#include "support/signalnote.h"

#include <string>

namespace {

/// Closes the update set under its dependencies.
///
/// @param unsatisfied  filled with the requires that are missing in the end.
/// @return             true if the set can be installed. What only rpm can judge, see
///                     isLeftToRpm(), may be missing. A noted signal ends the work early.
[[nodiscard]] bool closeUpdateSet(Closure closure, DependencySet& unsatisfied)
{
    while (!closure.checkDependencies()) {
        if (!closure.resolveDependencies()) {
            unsatisfied = closure.unsatisfied();
            if (!Resolver::onlyFileRequires(unsatisfied)) {
                return false;
            }
            logMessage(DEBUG,
                       "only file dependencies are left unsatisfied, assuming all are satisfied");
            return true;
        }
        if (signalNoted != 0) {
            return false;
        }
    }
    return true;
}

void logUnsatisfied(const DependencySet& unsatisfied)
{
    logMessage(ERROR, "unsatisfied non-file dependencies:");
    for (const Dependency& require : unsatisfied) {
        if (!require.name.empty() && !isLeftToRpm(require)) {
            logMessage(ERROR, "\t%s", dependencyText(require).c_str());
        }
    }
    logMessage(ERROR, "cannot update");
}

/// True if this program is new enough for the set.
bool isRunningNewEnough(const UpdateSet& updateSet)
{
    const Dependency running = {"updater-running", parseEvr(k_pProgramVersion), EQUAL};
    DependencySet failed;
    if (Resolver::checkProvide(running, updateSet, failed)) {
        return true;
    }
    for (const Dependency& require : failed) {
        logMessage(ERROR, "newer updater required to install: %s", dependencyText(require).c_str());
    }
    return false;
}

/// Tells what kind of update the set is: of the firmware, or else of this program.
void reportKind(const UpdateSet& updateSet, const std::string& sReleasePackage)
{
    const auto release = updateSet.find(sReleasePackage);
    if (release) {
        logMessage(INFO, "--- FIRMWARE %s-%s ---", release->evr().version.c_str(),
                   release->evr().release.c_str());
        return;
    }
    const auto updater = updateSet.find(k_pProgramName);
    if (updater) {
        logMessage(INFO, "--- UPDATER %s-%s ---", updater->evr().version.c_str(),
                   updater->evr().release.c_str());
    }
}

void listUpdateSet(const Config& config, const UpdateSet& updateSet)
{
    logMessage(INFO, "%s update (%u packages):",
               config.checkOnly ? "need to"
               : config.test    ? "testing"
                                : "starting",
               static_cast<unsigned>(updateSet.size()));
    for (const Package& package : updateSet) {
        logMessage(INFO, "\t%s", baseName(package.location()).c_str());
    }
}

}  // namespace

int analysePass(const Config& config, const SelectionRules& rules,
                const InstalledPackageSet& installed, const PackageSet& available,
                UpdateSet& updateSet)
{
    updateSet = findNewerPackages(installed, available, rules);
    if (signalNoted != 0) {
        return ResultError;
    }
    if (updateSet.empty()) {
        if (!config.quiet) {
            logMessage(INFO, "--- 0 UPDATE(S) ---");
            logMessage(INFO, "no updates");
        }
        return ResultOk;
    }
    DependencySet unsatisfied;
    const bool bSatisfied = closeUpdateSet({installed, available, updateSet}, unsatisfied);
    if (signalNoted != 0) {
        return ResultError;
    }
    if (!bSatisfied) {
        logUnsatisfied(unsatisfied);
        return ResultRetryUpdater;
    }
    if (!isRunningNewEnough(updateSet)) {
        return ResultRetryUpdater;
    }
    if (!config.quiet) {
        logMessage(INFO, "--- %u UPDATE(S) ---", static_cast<unsigned>(updateSet.size()));
        reportKind(updateSet, config.releasePackage);
    }
    listUpdateSet(config, updateSet);
    return ResultOk;
}
