#include "publisher/progress.h"

#include <unistd.h>

#include <cstdio>

void showProgress(const char* pDoing, std::uint32_t uDone, std::uint32_t uAll)
{
    constexpr std::uint32_t uStep = 64;
    if (isatty(STDERR_FILENO) == 1 && (uDone % uStep == 0 || uDone == uAll)) {
        std::fprintf(stderr, "\r%s: %u of %u packages%s", pDoing, uDone, uAll,
                     uDone == uAll ? "\n" : "");
    }
}
