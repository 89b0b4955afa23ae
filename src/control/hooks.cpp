#include "control/hooks.h"

#include "config/config.h"
#include "control/result.h"
#include "control/status.h"
#include "support/childprocess.h"
#include "support/logger.h"

int runHook(const std::string& sName, const char* pExtraArgument)
{
    ChildProcess hook("/usr/lib/updater/hook");
    logMessage(INFO, "running %s hook", sName.c_str());
    hook.addArgument(sName);
    hook.addArgument(k_pProgramVersion);
    if (pExtraArgument != nullptr) {
        hook.addArgument(pExtraArgument);
    }
    if (!hook.run()) {
        logMessage(WARNING, "failed starting hook, continuing anyways");
        return ResultOk;
    }
    if (!hook.exited) {
        logMessage(ERROR, "hook was interrupted");
        return ResultError;
    }
    if (hook.exitCode != 0) {
        logMessage(ERROR, "hook failed (exit code %i)", hook.exitCode);
        return ResultRetryUpdater;
    }
    return ResultOk;
}

bool rebootSystem()
{
    logMessage(INFO, "rebooting for upgrades to take full effect");
    ChildProcess telinit("telinit");
    telinit.addArgument("u");
    if (!telinit.run()) {
        logMessage(WARNING, "failed to call telinit");
    } else if (!telinit.exited) {
        logMessage(WARNING, "telinit was interrupted");
    } else if (telinit.exitCode != 0) {
        logMessage(WARNING, "failed re-execing init (exit code %i)", telinit.exitCode);
    }
    ChildProcess shutdown("shutdown");
    shutdown.addArgument("-r");
    shutdown.addArgument("+1");
    shutdown.addArgument("rebooting after upgrade");
    if (!shutdown.spawn()) {
        logMessage(FATAL, "failed to start reboot process");
        return false;
    }
    recordStatusSynced(REBOOTING);
    return true;
}
