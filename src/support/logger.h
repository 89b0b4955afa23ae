#pragma once

#include <cstdio>
#include <list>
#include <string>

/// Levels of a message, in rising order of gravity.
enum LogLevel : int { TRACE = 0, DEBUG = 1, INFO = 2, WARNING = 3, ERROR = 4, FATAL = 5 };

/// The one log of the process. Messages reach syslog, standard error and any number of files, each
/// of which has a lowest level of its own. Until configured, INFO and above go to standard error.
/// Failures to write are ignored: a full disk stops nothing. No locks: the process has one thread.
class Logger {
public:
    Logger() = default;
    ~Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    /// The process-wide instance; lives until the process exits and then closes its files.
    static Logger& instance();

    /// True if the process-wide instance logs messages of this level at all.
    static bool admits(int iLevel) { return iLevel >= instance().threshold(); }

    /// The lowest level that is logged at all.
    [[nodiscard]] int threshold() const { return m_iThreshold; }

    /// Sets the identity given to syslog. Call it before setSyslog(): syslog keeps the pointer.
    void setName(const std::string& sName) { m_sName = sName; }
    void setThreshold(int iLevel) { m_iThreshold = iLevel; }
    void setStderr(bool bEnabled) { m_bStderr = bEnabled; }

    /// @param iOptions   as for openlog(3), which is only called if `bEnabled`.
    /// @param iFacility  as for openlog(3), for instance LOG_DAEMON.
    void setSyslog(bool bEnabled, int iOptions, int iFacility);

    /// Adds a file output, or changes the level of the one that has exactly this path.
    ///
    /// @param iLevel   lowest level that this file receives, on top of the threshold.
    /// @param bAppend  false truncates a file that is opened anew.
    /// @return         false if the file cannot be opened (logged at ERROR); nothing is added then.
    bool addFile(const std::string& sPath, int iLevel, bool bAppend);

    /// Closes and forgets a file output. False if there is none of exactly this path.
    bool removeFile(const std::string& sPath);

    /// Writes one message, without its newline. Use logMessage(). Leaves errno alone.
    void write(int iLevel, const char* pFormat, ...) __attribute__((format(printf, 3, 4)));

private:
    struct LogFile {
        std::string path;
        std::FILE* stream;
        int level;
    };

    std::list<LogFile>::iterator findFile(const std::string& sPath);

    std::list<LogFile> m_vFiles;
    std::string m_sName;
    int m_iThreshold = INFO;
    bool m_bStderr = true;
    bool m_bSyslog = false;
};

/// Logs a message with a printf format. A macro, so that the arguments are worked out only if the
/// level passes the threshold.
#define logMessage(level, ...) \
    (Logger::admits(level) ? Logger::instance().write(level, __VA_ARGS__) : void())

/// The level of a configuration word: trace, debug, info, warn, error or fatal. Any other word is
/// logged at ERROR and gives INFO.
int logLevelFromName(const std::string& sWord);

/// The openlog(3) facility of a configuration word: daemon, user, local0 to local7. Any other word
/// is logged at ERROR and gives LOG_DAEMON.
int syslogFacilityFromName(const std::string& sWord);

/// The system's text for the present errno.
std::string errnoText();
