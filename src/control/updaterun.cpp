#include "control/updaterun.h"

#include "control/cachelock.h"
#include "control/hooks.h"
#include "control/passplan.h"
#include "control/signals.h"
#include "control/status.h"
#include "control/updatepass.h"
#include "repository/repository.h"
#include "rpmdb/rpmdb.h"
#include "support/controls.h"
#include "support/logger.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

/// The first enabled repository, or null (logged).
const RepoConfig* activeRepository(const Config& config)
{
    if (config.repositories.empty()) {
        logMessage(ERROR, "no repositories configured, nothing to do");
        return nullptr;
    }
    const auto it = std::find_if(config.repositories.begin(), config.repositories.end(),
                                 [](const RepoConfig& repoConfig) { return repoConfig.enabled; });
    if (it == config.repositories.end()) {
        logMessage(ERROR, "no active repository, nothing to do");
        return nullptr;
    }
    return &*it;
}

/// Waits a random time, so that many devices do not ask one server at once.
[[nodiscard]] bool delayRun(int iMaxWaitTime)
{
    unsigned uSeed = 0;
    if (!gatherRandomBytes(&uSeed, sizeof(uSeed))) {
        logMessage(ERROR, "could not gather random data");
        return false;
    }
    srand(uSeed);
    const auto uDelay = static_cast<unsigned>(randomDelay(iMaxWaitTime, rand()));
    logMessage(INFO, "waiting %u secs before connection", uDelay);
    recordStatus(DELAYING);
    if (!sleepUnlessSignalled(uDelay)) {
        logMessage(ERROR, "wait interrupted");
    }
    return true;
}

SignatureVerdict verifyIndex(std::string_view sIndex, std::string_view sArmour)
{
    RpmDB database;
    return database.open(false) ? database.verifyDetached(sIndex, sArmour) : SignatureVerdict{};
}

void cleanCache(const Config& config, const Repository& repository)
{
    if (!config.noCacheClean) {
        repository.cleanPackages();
    }
}

int runPasses(const Config& config, const NameSet& packageNames, Repository& repository)
{
    PassPlan plan(config, packageNames);
    int iResult = ResultOk;
    bool bAgain = true;
    while (bAgain) {
        recordStatus(ANALYZING);
        cleanCache(config, repository);
        const PassPlan::Pass pass = plan.beginPass();
        unsigned uPackageCount = 0;
        iResult = runUpdatePass(pass.config, pass.rules, repository, uPackageCount);
        bAgain = plan.endPass(pass, iResult, uPackageCount);
    }
    cleanCache(config, repository);
    if (signalNoted != 0 && iResult == ResultError && plan.result() != ResultError) {
        // The result is that of the passes before and will not tell of this one.
        logMessage(WARNING, "not going on with the update because of signal #%i: %s",
                   static_cast<int>(notedSignal), strsignal(notedSignal));
    }
    if (!plan.passesAddUp()) {
        logMessage(FATAL,
                   "failed passing all updates but update process succeeded, SYSTEM MAY BE "
                   "CORRUPTED\n");
        recordStatus(CORRUPTED);
        return ResultFatal;
    }
    return plan.result();
}

}  // namespace

int runUpdate(const Config& config, const NameSet& packageNames)
{
    const int iHook = runHook("init", nullptr);
    if (iHook != ResultOk) {
        return iHook;
    }
    const RepoConfig* pRepoConfig = activeRepository(config);
    if (pRepoConfig == nullptr) {
        return ResultError;
    }
    if (!config.quiet) {
        logMessage(INFO, "updating packages from repository '%s' (URI '%s')",
                   printable(pRepoConfig->name).c_str(), printable(pRepoConfig->uri).c_str());
    }
    Repository repository(config, *pRepoConfig, verifyIndex);
    if (!repository.isFileUri() && !config.cacheOnly && config.maxWaitTime > 0 &&
        !delayRun(config.maxWaitTime)) {
        return ResultError;
    }
    if (signalNoted != 0) {
        return ResultError;
    }
    return runPasses(config, packageNames, repository);
}
