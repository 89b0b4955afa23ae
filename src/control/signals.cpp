#include "control/signals.h"

#include "control/rpmsignal.h"
#include "support/logger.h"

#include <poll.h>

#include <array>
#include <map>
#include <string>

namespace {

/// A signal that this file has changed.
struct SignalEntry {
    int signal;
    rpmsignal::Handler handler;  ///< null for a signal that is ignored
    struct sigaction saved;      ///< in force before the change
};

std::map<int, SignalEntry> signalTable;

constexpr std::array<int, 4> k_vTerminationSignals = {SIGHUP, SIGINT, SIGTERM, SIGQUIT};

void noteSignal(int iSignal, siginfo_t* /*pInfo*/, void* /*pContext*/)
{
    if (signalNoted == 0) {
        signalNoted = 1;
        notedSignal = iSignal;
    }
}

}  // namespace

bool setSignal(int iSignal, bool bIgnore)
{
    const rpmsignal::Handler pHandler = bIgnore ? nullptr : noteSignal;
    const auto it = signalTable.find(iSignal);
    if (it != signalTable.end()) {
        if (it->second.handler == pHandler) {
            return true;
        }
        if (!restoreSignal(iSignal)) {
            logMessage(ERROR, "failed uninstalling signal handler to install new one for signal %i",
                       iSignal);
            return false;
        }
    }
    if (rpmsignal::enable(iSignal, pHandler) > 1) {
        logMessage(ERROR, "handler for signal %i was already installed in rpmlib", iSignal);
        return false;
    }
    struct sigaction action = {};
    sigemptyset(&action.sa_mask);
    if (bIgnore) {
        action.sa_handler = SIG_IGN;
        action.sa_flags = SA_RESTART;
    } else {
        action.sa_sigaction = noteSignal;
        action.sa_flags = SA_RESTART | SA_SIGINFO;
    }
    SignalEntry entry = {iSignal, pHandler, {}};
    if (sigaction(iSignal, &action, &entry.saved) != 0) {
        const std::string sReason = errnoText();
        rpmsignal::enable(-iSignal, nullptr);
        logMessage(ERROR, "failed installing handler for signal %i (%s)", iSignal, sReason.c_str());
        return false;
    }
    signalTable.emplace(iSignal, entry);
    return true;
}

bool restoreSignal(int iSignal)
{
    const auto it = signalTable.find(iSignal);
    if (it == signalTable.end()) {
        return true;
    }
    bool bOk = true;
    if (sigaction(iSignal, &it->second.saved, nullptr) != 0) {
        logMessage(ERROR, "failed uninstalling handler for signal %i (%s)", iSignal,
                   errnoText().c_str());
        bOk = false;
    }
    if (rpmsignal::enable(-iSignal, nullptr) != 0) {
        logMessage(ERROR, "could not uninstall handler for signal %i from rpm", iSignal);
        bOk = false;
    }
    signalTable.erase(it);
    return bOk;
}

bool isSignalIgnored(int iSignal)
{
    const auto it = signalTable.find(iSignal);
    return it != signalTable.end() && it->second.handler == nullptr;
}

bool setTerminationSignalsEnabled(bool bEnabled)
{
    const bool bSkipHangup = isSignalIgnored(SIGHUP);
    for (const int iSignal : k_vTerminationSignals) {
        if (iSignal == SIGHUP && bSkipHangup) {
            continue;
        }
        if (!(bEnabled ? restoreSignal(iSignal) : setSignal(iSignal, false))) {
            logMessage(ERROR, bEnabled ? "failed enabling termination signals"
                                       : "failed disabling termination signals");
            return false;
        }
    }
    return true;
}

bool sleepUnlessSignalled(unsigned uSeconds)
{
    sigset_t termination;
    sigemptyset(&termination);
    for (const int iSignal : k_vTerminationSignals) {
        sigaddset(&termination, iSignal);
    }
    // Between the look at the note and the sleep no signal comes: one would be slept over.
    sigset_t before;
    sigprocmask(SIG_BLOCK, &termination, &before);
    const timespec time = {static_cast<time_t>(uSeconds), 0};
    const bool bSlept = signalNoted == 0 && ppoll(nullptr, 0, &time, &before) == 0;
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return bSlept;
}

bool ignoreHangup()
{
    if (isSignalIgnored(SIGHUP)) {
        return true;
    }
    if (!setSignal(SIGHUP, true)) {
        logMessage(ERROR, "failed setting SIGHUP to be ignored");
        return false;
    }
    return true;
}

bool installSignalHandlers()
{
    bool bOk = true;
    for (const int iSignal : k_vTerminationSignals) {
        bOk = bOk && setSignal(iSignal, false);
    }
    if (!bOk || !setSignal(SIGPIPE, true)) {
        logMessage(ERROR, "failed intializing signal handlers");
        return false;
    }
    return true;
}
