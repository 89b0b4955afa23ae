#pragma once

#include <string>

/// Runs the hook program of the device, which can stop what comes next.
///
/// @param sName           "init", "download", "test" or "update".
/// @param pExtraArgument  null if the hook has none.
/// @return                a Result to pass on: ResultOk, also if it could not be started;
///                        ResultError if it was interrupted; ResultRetryUpdater if it failed or is
///                        missing.
[[nodiscard]] int runHook(const std::string& sName, const char* pExtraArgument);

/// Has init re-execute itself and starts a reboot in one minute, detached.
///
/// @return true if the reboot process was started; the status is REBOOTING then.
[[nodiscard]] bool rebootSystem();
