#include "support/signalnote.h"

volatile std::sig_atomic_t signalNoted = 0;
volatile std::sig_atomic_t notedSignal = 0;
