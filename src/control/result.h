#pragma once

/// How the run, its passes and the hooks report; in the end the exit code of the process.
enum Result : int {
    ResultRetryUpdater = -2,  ///< failed; a pass for the updater package alone may help
    ResultReboot = -1,        ///< packages were installed, the device must reboot
    ResultOk = 0,
    ResultError = 1,  ///< failed, with no sign of damage to the system
    ResultFatal = 2   ///< the system may be damaged, or a due reboot failed to start
};

/// The word of the exit line for a result that is not negative.
constexpr const char* exitWord(int iResult)
{
    return iResult == ResultOk      ? "OK"
           : iResult == ResultError ? "ERROR"
           : iResult == ResultFatal ? "FATAL"
                                    : "UNKNOWN";
}
