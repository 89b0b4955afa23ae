#include "config/config.h"

const char* const k_pProgramVersion = UPDATER_VERSION;
