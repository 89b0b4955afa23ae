// The process from entry to exit. Everything is driven from here.

#include "config/configuration.h"
#include "control/background.h"
#include "control/cachelock.h"
#include "control/hooks.h"
#include "control/libraries.h"
#include "control/options.h"
#include "control/result.h"
#include "control/signals.h"
#include "control/status.h"
#include "control/updaterun.h"
#include "net/urlfetcher.h"
#include "support/controls.h"
#include "support/logger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace {

constexpr const char* k_pNoRunFile = "/var/run/updater.norun";
constexpr const char* k_pLastLog = "/var/log/updater/lastlog";

/// What the whole process knows.
struct Process {
    Process() = default;
    ~Process() { freeTexts(options); }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    Config config;
    CommandLineOptions options;
    OptionTable optionTable = ::optionTable(options);
    NameSet packageNames;
    Libraries libraries;
};

/// Opens /dev/null on each standard stream that the caller has closed: a log file or the lock file
/// would take its number, and with it all that is written there.
void openStandardStreams()
{
    for (const int iFd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(iFd, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) {
            return;  // nothing to be done about it, and nowhere to tell it
        }
    }
}

/// Undoes what the caller may have set up for itself and would change what this program does.
void leaveTheCallersWays()
{
    std::signal(SIGCHLD, SIG_DFL);  // SIG_IGN would take the exit status of every child
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    umask(umask(0) | S_IWGRP | S_IWOTH);  // what is made here goes to rpm
    unsetenv("POSIXLY_CORRECT");          // options behind a package name would be names, too
}

/// From the first line to the working directory: a failure here ends the process without an exit
/// line.
[[nodiscard]] bool startUp(int argc, char* argv[], Process& process)
{
    const std::string_view sProgram = argc > 0 ? argv[0] : k_pProgramName;
    Logger& logger = Logger::instance();
    logger.setName(std::string(sProgram.substr(sProgram.rfind('/') + 1)));
    if (!installSignalHandlers() ||
        !process.libraries.start(argc, argv, process.optionTable.data(), process.packageNames)) {
        return false;
    }
    const CommandLineOptions& options = process.options;
    if (options.logTo != nullptr) {
        logger.addFile(options.logTo, TRACE, true);
    }
    const std::string sLevel = options.logLevel != nullptr ? options.logLevel : "";
    if (sLevel == "trace" || sLevel == "debug") {
        logger.setThreshold(sLevel == "trace" ? TRACE : DEBUG);  // while the files are read
    }
    if (!loadConfiguration(options, process.config)) {
        return false;
    }
    logger.setThreshold(process.config.logLevel);
    logger.setStderr(process.config.logToStderr);
    logger.setSyslog(process.config.logToSyslog, LOG_PID, process.config.syslogFacility);
    logMessage(DEBUG, "initialized OK");
    if (chdir("/") != 0) {
        logMessage(ERROR, "failed to change to the root directory (%s)", errnoText().c_str());
        return false;
    }
    return true;
}

bool isRunningDisabled()
{
    struct stat info = {};
    if (lstat(k_pNoRunFile, &info) != 0) {
        if (errno != EACCES) {
            return false;
        }
        logMessage(ERROR, "failed checking existence of '%s' (%s)", k_pNoRunFile,
                   errnoText().c_str());
    }
    logMessage(ERROR, "running is disabled by \"no run\" file '%s'", k_pNoRunFile);
    return true;
}

const char* modeWord(const Config& config)
{
    return config.checkOnly ? "check" : config.test ? "test" : "update";
}

void reportStart(const Config& config)
{
    if (config.quiet) {
        return;
    }
    logMessage(INFO, "%s version %s, product %s", k_pProgramName, k_pProgramVersion,
               printable(config.productName).c_str());
    logMessage(INFO, "--- MODE %s ---", modeWord(config));
    if (!config.proxy.server.empty()) {
        logMessage(INFO, "using HTTP proxy '%s' port %u", printable(config.proxy.server).c_str(),
                   config.proxy.port);
    }
}

/// The work of the process that holds the lock.
int runLocked(const Process& process)
{
    Logger::instance().addFile(k_pLastLog, INFO, false);
    reportStart(process.config);
    URLFetcher::setNetworkDefaults(process.config.proxy);
    Status status = READY;
    if (!readStatus(status)) {
        logMessage(ERROR, "cannot recover status, aborting");
        return ResultError;
    }
    int iRet = ResultError;
    if (!checkStartupStatus(status, iRet)) {
        return iRet;
    }
    iRet = runUpdate(process.config, process.packageNames);
    if (iRet == ResultRetryUpdater) {
        iRet = ResultError;  // the first hook refused the run
    }
    if (iRet != ResultFatal) {
        recordStatus(READY);
    }
    return iRet;
}

/// Reads and judges the status in front of the fork to the background, so that a system that may
/// not be updated is reported by the process that the caller started. UPDATING is no trace of a
/// power cut while another run holds the lock: nothing is judged then, and the child, which waits
/// for the lock, will do it.
///
/// @param iResult  the Result to end with if the status forbids to go on; else unchanged.
[[nodiscard]] bool checkBackgroundStatus(int& iResult)
{
    Status status = READY;
    bool bRead = readStatus(status);
    if (bRead && status == UPDATING) {
        if (isCacheLockHeld()) {
            return true;
        }
        bRead = readStatus(status);  // that run may have ended between the two looks
    }
    return bRead && checkStartupStatus(status, iResult);
}

/// From the working directory to the result of the run.
int run(const Process& process)
{
    if (isRunningDisabled()) {
        return ResultError;
    }
    if (process.config.background) {
        logMessage(DEBUG, "going to background");
        int iRet = ResultError;
        if (!checkBackgroundStatus(iRet)) {
            logMessage(ERROR, "cannot recover status, aborting");
            return iRet;
        }
        if (goToBackground(process.config, modeWord(process.config), process.options.logTo) ==
            Background::PARENT) {
            return ResultOk;
        }
    }
    return acquireCacheLock(process.config.lockTimeout) ? runLocked(process) : ResultError;
}

/// Shuts down and starts a due reboot.
///
/// @return the exit code. A run that did not end well dies of a signal that it had noted instead.
int shutDown(Process& process, int iRet)
{
    process.libraries.stop();
    if (iRet == ResultReboot) {
        iRet = rebootSystem() ? ResultOk : ResultFatal;
    }
    assert(iRet >= 0);
    if (!process.config.quiet) {
        logMessage(INFO, "--- EXIT %s ---", exitWord(iRet));
    }
    const bool bRestored = setTerminationSignalsEnabled(true);
    static_cast<void>(bRestored);  // the process ends in any case
    if (signalNoted != 0 && iRet != ResultOk) {
        logMessage(ERROR, "terminated by signal #%i: %s", static_cast<int>(notedSignal),
                   strsignal(notedSignal));
        raise(notedSignal);
    }
    return iRet;
}

}  // namespace

int main(int argc, char* argv[])
{
    openStandardStreams();
    leaveTheCallersWays();
    Process process;
    if (!startUp(argc, argv, process)) {
        return ResultError;
    }
    return shutDown(process, run(process));
}
