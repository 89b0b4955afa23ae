#include "control/packageinstall.h"

#include "control/hooks.h"
#include "control/signals.h"
#include "control/status.h"
#include "rpmdb/rpmdb.h"
#include "support/childprocess.h"
#include "support/logger.h"

#include <unistd.h>

#include <string>

namespace {

/// Gets the packages into the cache. A termination signal during the transfer simply ends the
/// process; from here on a hangup is ignored.
int downloadPackages(const Repository& repository, const UpdateSet& updateSet)
{
    if (signalNoted != 0 || !ignoreHangup()) {
        return ResultError;
    }
    const int iHook = runHook("download", nullptr);
    if (iHook != ResultOk) {
        return iHook;
    }
    if (!setTerminationSignalsEnabled(true) || signalNoted != 0) {
        return ResultError;
    }
    logMessage(INFO, "downloading %d packages", static_cast<int>(updateSet.size()));
    recordStatus(DOWNLOADING);
    const bool bFetched = repository.fetchPackages(updateSet);
    if (!setTerminationSignalsEnabled(false)) {
        return ResultError;
    }
    if (!bFetched) {
        logMessage(ERROR, "failed downloading packages");
        return ResultRetryUpdater;
    }
    return ResultOk;
}

/// Verifies the signatures, if the rpm database holds any public key to do it with.
int verifyPackages(const Config& config, const Repository& repository, const UpdateSet& updateSet)
{
    RpmDB database;
    // The reverse of how the list of packages is read: here headers are checked by default.
    const PublicKeys keys =
        database.open(config.checkDbHeaders) ? database.publicKeys() : PublicKeys::UNKNOWN;
    if (keys == PublicKeys::UNKNOWN) {
        logMessage(ERROR, "failed opening rpm DB");
        return ResultError;
    }
    if (keys == PublicKeys::NONE) {
        return ResultOk;
    }
    logMessage(INFO, "verifying package signatures");
    for (const Package& package : updateSet) {
        if (!database.verifyPackage(repository.localPath(package))) {
            return ResultRetryUpdater;
        }
    }
    return ResultOk;
}

ChildProcess rpmProcess(const Config& config, const Repository& repository,
                        const UpdateSet& updateSet)
{
    ChildProcess rpm("rpm");
    rpm.addArgument(config.test ? "--test" : "-v");
    rpm.addArgument("-U");
    for (const Package& package : updateSet) {
        rpm.addArgument(repository.localPath(package));
    }
    return rpm;
}

/// What the end of rpm means.
int judgeRpm(const Config& config, const ChildProcess& rpm)
{
    if (!rpm.exited) {
        if (config.test) {
            logMessage(WARNING, "rpm was interrupted while testing package(s) installation");
            return ResultError;
        }
        logMessage(FATAL,
                   "rpm was interrupted, installation may be incomplete; SYSTEM MAY BE CORRUPTED");
        recordStatus(CORRUPTED);
        return ResultFatal;
    }
    recordStatusSynced(PKGSDONE);
    if (rpm.exitCode != 0) {
        logMessage(ERROR, "package installation FAILED (exit code %i)", rpm.exitCode);
        return ResultRetryUpdater;
    }
    logMessage(INFO, "packages %s OK", config.test ? "tested" : "installed");
    return config.test || config.noReboot ? ResultOk : ResultReboot;
}

int runRpm(const Config& config, const Repository& repository, const UpdateSet& updateSet)
{
    logMessage(INFO, config.test ? "testing package(s) update" : "updating package(s)");
    ChildProcess rpm = rpmProcess(config, repository, updateSet);
    if (signalNoted != 0) {
        return ResultError;
    }
    // A signal that is noted from here on is not looked at until the pass has ended.
    if (!writeStatus(config.test ? TESTING : UPDATING) || !syncStatus()) {
        logMessage(ERROR, "failed setting status file for launching rpm, cannot continue");
        return ResultError;
    }
    if (!rpm.run()) {
        logMessage(ERROR, "failed starting rpm to install packages, no packages upgraded");
        recordStatusSynced(READY);
        return ResultRetryUpdater;
    }
    if (!config.test) {
        sync();  // what rpm installed must be on disk before the status says anything else
    }
    return judgeRpm(config, rpm);
}

}  // namespace

int installPackages(const Config& config, const Repository& repository, const UpdateSet& updateSet)
{
    int iRet = downloadPackages(repository, updateSet);
    if (iRet == ResultOk && !config.noSigCheck) {
        iRet = verifyPackages(config, repository, updateSet);
    }
    if (iRet == ResultOk) {
        const std::string sCountText = std::to_string(static_cast<unsigned>(updateSet.size()));
        iRet = runHook(config.test ? "test" : "update", sCountText.c_str());
    }
    return iRet == ResultOk ? runRpm(config, repository, updateSet) : iRet;
}
