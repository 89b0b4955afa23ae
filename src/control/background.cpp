#include "control/background.h"

#include "support/logger.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

void detach()
{
    if (setsid() < 0) {
        logMessage(ERROR, "cannot create new session (%s)", errnoText().c_str());
    }
    const int iNull = open("/dev/null", O_RDWR);
    if (iNull < 0) {
        logMessage(WARNING, "cannot open /dev/null to redirect stdin/out/err (%s)",
                   errnoText().c_str());
        return;
    }
    bool bOk = true;
    for (const int iFd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        bOk = dup2(iNull, iFd) >= 0 && bOk;  // closes what was there
    }
    if (!bOk) {
        logMessage(WARNING, "failed redirecting stdin/out/err to /dev/null (%s)",
                   errnoText().c_str());
    }
    if (iNull > STDERR_FILENO) {
        close(iNull);
    }
}

}  // namespace

Background goToBackground(const Config& config, const char* pMode, const char* pLogTo)
{
    const pid_t iPid = fork();
    if (iPid < 0) {
        logMessage(ERROR, "failed forking to background (%s)", errnoText().c_str());
        return Background::FAILED;
    }
    if (iPid == 0) {
        detach();
        return Background::CHILD;
    }
    if (!config.quiet) {
        logMessage(INFO, "--- MODE %s ---", pMode);
        logMessage(INFO, "%s switched to background", k_pProgramName);
        logMessage(INFO, "--- BACKGROUND PID %i ---", iPid);
    }
    if (pLogTo != nullptr) {
        Logger::instance().removeFile(pLogTo);
    }
    return Background::PARENT;
}
