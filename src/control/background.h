#pragma once

#include "config/config.h"

/// Who goes on with the work behind a background start.
enum class Background {
    CHILD,   ///< this process, detached
    PARENT,  ///< another one: this process has reported it and ends
    FAILED   ///< this process, in the foreground, as the fork failed (logged)
};

/// Forks to the background. The child gets a session of its own and /dev/null for its standard
/// streams, and is spared a hangup that the end of the caller's session sends it on the way there;
/// the parent reports the mode and the PID of the child.
///
/// @param pMode   the mode word to report.
/// @param pLogTo  the log file that the parent is to let go; null for none.
[[nodiscard]] Background goToBackground(const Config& config, const char* pMode,
                                        const char* pLogTo);
