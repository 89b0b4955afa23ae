#pragma once

#include <cstdint>

/// Tells at a terminal how far a long work on packages is.
void showProgress(const char* pDoing, std::uint32_t uDone, std::uint32_t uAll);
