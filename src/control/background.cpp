#include "control/background.h"

#include "support/logger.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

namespace {

/// Keeps SIGHUP waiting during its life.
class HangupBlock {
public:
    HangupBlock()
    {
        sigemptyset(&m_hangup);
        sigaddset(&m_hangup, SIGHUP);
        sigprocmask(SIG_BLOCK, &m_hangup, &m_before);
    }
    ~HangupBlock() { sigprocmask(SIG_SETMASK, &m_before, nullptr); }
    HangupBlock(const HangupBlock&) = delete;
    HangupBlock& operator=(const HangupBlock&) = delete;

    /// Drops the one that waits.
    void drop() const
    {
        const timespec atOnce = {};
        sigtimedwait(&m_hangup, nullptr, &atOnce);
    }

private:
    sigset_t m_hangup = {};
    sigset_t m_before = {};
};

void detach(const HangupBlock& hangups)
{
    if (setsid() < 0) {
        logMessage(ERROR, "cannot create new session (%s)", errnoText().c_str());
    }
    hangups.drop();  // meant for the session that is left behind
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
    const HangupBlock hangups;
    const pid_t iPid = fork();
    if (iPid < 0) {
        logMessage(ERROR, "failed forking to background (%s)", errnoText().c_str());
        return Background::FAILED;
    }
    if (iPid == 0) {
        detach(hangups);
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
