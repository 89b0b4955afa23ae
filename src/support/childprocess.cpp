#include "support/childprocess.h"

#include "support/childoutput.h"
#include "support/files.h"
#include "support/logger.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// What follows runs in the freshly forked child. Failures go to standard error, whatever that is by
// then, and never to the log, whose streams the child shares with the parent. It ends by _exit():
// what the parent has registered for its own end must not run here.

[[noreturn]] void failChild(const char* pText)
{
    std::perror(pText);
    _exit(1);
}

/// The parent ignores SIGPIPE, which a program would inherit.
void resetSigpipe()
{
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    if (sigaction(SIGPIPE, &action, nullptr) != 0) {
        std::perror("failed resetting SIGPIPE");
    }
}

}  // namespace

ChildProcess::ChildProcess(const std::string& sProgram) : m_sProgram(sProgram)
{
    const std::size_t uSlash = sProgram.rfind('/');
    addArgument(uSlash == std::string::npos ? sProgram : sProgram.substr(uSlash));
}

void ChildProcess::start()
{
    if (m_iPid != 0) {
        logMessage(WARNING, "Did not wait on previously spawned helper");
    }
    exitCode = -1;
    m_iPid = 0;
    exited = false;
    signalled = false;
}

void ChildProcess::execute() const
{
    std::vector<char*> vArguments;
    for (const std::string& sArgument : m_vArguments) {
        vArguments.push_back(const_cast<char*>(sArgument.c_str()));
    }
    vArguments.push_back(nullptr);
    execvp(m_sProgram.c_str(), vArguments.data());
    failChild(m_sProgram.c_str());
}

bool ChildProcess::run()
{
    start();
    std::array<int, 2> vPipe;
    if (pipe(vPipe.data()) != 0) {
        logMessage(ERROR, "failed creating pipe to run '%s' (%s)", m_sProgram.c_str(),
                   errnoText().c_str());
        return false;
    }
    m_iPid = fork();
    if (m_iPid < 0) {
        logMessage(ERROR, "failed forking to run '%s' (%s)", m_sProgram.c_str(),
                   errnoText().c_str());
        ::close(vPipe[0]);
        ::close(vPipe[1]);
        m_iPid = 0;
        return false;
    }
    if (m_iPid == 0) {
        ::close(vPipe[0]);
        resetSigpipe();
        const int iNull = open("/dev/null", O_RDONLY);
        if (iNull < 0) {
            failChild("failed opening /dev/null");
        }
        if (dup2(iNull, STDIN_FILENO) < 0) {
            failChild("failed redirecting stdin to /dev/null");
        }
        if (iNull > STDERR_FILENO) {
            ::close(iNull);
        }
        if (dup2(vPipe[1], STDOUT_FILENO) < 0 || dup2(vPipe[1], STDERR_FILENO) < 0) {
            failChild("failed redirecting stdout/stderr to pipe");
        }
        if (vPipe[1] > STDERR_FILENO) {
            ::close(vPipe[1]);
        }
        execute();
    }
    logMessage(DEBUG, "started child '%s' with PID %i", m_sProgram.c_str(), m_iPid);
    ::close(vPipe[1]);
    logChildOutput(vPipe[0], m_iPid, m_sProgram);
    ::close(vPipe[0]);
    wait();
    return true;
}

void ChildProcess::wait()
{
    int iStatus = 0;
    pid_t iResult = 0;
    do {
        iResult = waitpid(m_iPid, &iStatus, 0);
    } while (iResult < 0 && errno == EINTR);
    m_iPid = 0;
    if (iResult < 0) {
        logMessage(ERROR, "failed recovering child exit status (%s)", errnoText().c_str());
    } else if (WIFEXITED(iStatus)) {
        exited = true;
        exitCode = WEXITSTATUS(iStatus);
        logMessage(DEBUG, "child '%s' exited with code %i", m_sProgram.c_str(), exitCode);
    } else if (!WIFSIGNALED(iStatus)) {
        logMessage(ERROR, "child '%s' terminated by unknown reason", m_sProgram.c_str());
    } else {
        signalled = true;
        exitCode = WTERMSIG(iStatus);
        logMessage(ERROR, "child '%s' terminated by signal %i", m_sProgram.c_str(), exitCode);
    }
}

bool ChildProcess::spawn()
{
    start();
    m_iPid = fork();
    if (m_iPid < 0) {
        logMessage(ERROR, "failed forking to run '%s' (%s)", m_sProgram.c_str(),
                   errnoText().c_str());
        m_iPid = 0;
        return false;
    }
    if (m_iPid == 0) {
        if (setsid() < 0) {
            std::perror("setting a new session");
        }
        resetSigpipe();
        const int iNull = open("/dev/null", O_RDWR);
        if (iNull < 0) {
            failChild("failed opening /dev/null");
        }
        for (const int iFd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            if (dup2(iNull, iFd) < 0) {
                failChild("failed redirecting stdin/stdout/stderr to /dev/null");
            }
        }
        if (iNull > STDERR_FILENO) {
            ::close(iNull);
        }
        execute();
    }
    logMessage(DEBUG, "started background child '%s' with PID %i", m_sProgram.c_str(), m_iPid);
    return true;
}
