#pragma once

#include "support/signalnote.h"

// The termination signals SIGHUP, SIGINT, SIGTERM and SIGQUIT have two states. Disabled, a handler
// only notes the signal and the program stops by itself at its next look at the note. Enabled, they
// act as they did before the program started, which normally ends it at once. SIGPIPE is ignored
// throughout. All functions are for the one thread of the process.

/// Disables the termination signals and ignores SIGPIPE. The start-up step.
///
/// @return false if a disposition cannot be set (logged), as for the other functions here.
[[nodiscard]] bool installSignalHandlers();

/// Switches the termination signals. A hangup that ignoreHangup() has taken out stays ignored.
[[nodiscard]] bool setTerminationSignalsEnabled(bool bEnabled);

/// Sleeps, but no longer than until a termination signal is noted, be it before the call.
///
/// @return false if one was.
[[nodiscard]] bool sleepUnlessSignalled(unsigned uSeconds);

/// Ignores SIGHUP from here on, for good.
[[nodiscard]] bool ignoreHangup();

/// Installs the noting handler for one signal or, with `bIgnore`, ignores it.
[[nodiscard]] bool setSignal(int iSignal, bool bIgnore);

/// Puts back the disposition that a signal had before setSignal(). True if there was none.
[[nodiscard]] bool restoreSignal(int iSignal);

/// True if setSignal() has set the signal to be ignored.
[[nodiscard]] bool isSignalIgnored(int iSignal);
