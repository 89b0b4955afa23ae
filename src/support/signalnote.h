#pragma once

#include <csignal>

// Where a handler notes a termination signal, for all layers to see.

/// 1 as soon as a signal has been noted; never reset.
extern volatile std::sig_atomic_t signalNoted;

/// The number of the signal that was noted first.
extern volatile std::sig_atomic_t notedSignal;
