#pragma once

#include <csignal>

/// The table of signal handlers that rpmlib kept until version 4.17, with its contract: references
/// are counted, a signal that is ignored stays ignored, and the last release puts back what stood
/// there before. Today's rpmlib installs no handlers as long as nobody asks it to.
namespace rpmsignal {

using Handler = void (*)(int iSignal, siginfo_t* pInfo, void* pContext);

/// Enables a signal (positive number) or releases it (negative number).
///
/// @param iSignal   SIGHUP, SIGINT, SIGQUIT, SIGTERM or SIGPIPE.
/// @param pHandler  null for a handler that does nothing.
/// @return          the references behind the call: 1 for a new handler, more if one was installed
///                  already and nothing changed, 0 when released; -1 for another signal or a
///                  failure.
int enable(int iSignal, Handler pHandler);

}  // namespace rpmsignal
