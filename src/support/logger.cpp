#include "support/logger.h"

#include "support/controls.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace {

struct LevelNames {
    const char* prefix;
    const char* word;
    int priority;
};

constexpr std::array<LevelNames, 6> k_vLevels = {{{"TRACE", "trace", LOG_DEBUG},
                                                  {"DEBUG", "debug", LOG_DEBUG},
                                                  {"INFO", "info", LOG_INFO},
                                                  {"WARNING", "warn", LOG_WARNING},
                                                  {"ERROR", "error", LOG_ERR},
                                                  {"FATAL", "fatal", LOG_CRIT}}};

struct FacilityName {
    const char* word;
    int facility;
};

constexpr std::array<FacilityName, 10> k_vFacilities = {{{"daemon", LOG_DAEMON},
                                                         {"user", LOG_USER},
                                                         {"local0", LOG_LOCAL0},
                                                         {"local1", LOG_LOCAL1},
                                                         {"local2", LOG_LOCAL2},
                                                         {"local3", LOG_LOCAL3},
                                                         {"local4", LOG_LOCAL4},
                                                         {"local5", LOG_LOCAL5},
                                                         {"local6", LOG_LOCAL6},
                                                         {"local7", LOG_LOCAL7}}};

LevelNames levelNames(int iLevel)
{
    if (iLevel < TRACE || iLevel > FATAL) {
        return {"UNKNOWN", "", LOG_DEBUG};
    }
    return k_vLevels[static_cast<std::size_t>(iLevel)];
}

void writeLine(std::FILE* pStream, const char* pPrefix, const char* pFormat, va_list vArguments)
{
    std::fprintf(pStream, "%s: ", pPrefix);
    va_list vCopy;
    va_copy(vCopy, vArguments);
    std::vfprintf(pStream, pFormat, vCopy);
    va_end(vCopy);
    std::fputc('\n', pStream);
}

}  // namespace

Logger& Logger::instance()
{
    static Logger logger;
    return logger;
}

Logger::~Logger()
{
    for (const LogFile& file : m_vFiles) {
        std::fclose(file.stream);
    }
}

void Logger::setSyslog(bool bEnabled, int iOptions, int iFacility)
{
    m_bSyslog = bEnabled;
    if (bEnabled) {
        openlog(m_sName.c_str(), iOptions, iFacility);
    }
}

std::list<Logger::LogFile>::iterator Logger::findFile(const std::string& sPath)
{
    return std::find_if(m_vFiles.begin(), m_vFiles.end(),
                        [&](const LogFile& file) { return file.path == sPath; });
}

bool Logger::addFile(const std::string& sPath, int iLevel, bool bAppend)
{
    const auto it = findFile(sPath);
    if (it != m_vFiles.end()) {
        it->level = iLevel;
        return true;
    }
    std::FILE* pStream = std::fopen(sPath.c_str(), bAppend ? "ae" : "we");
    if (pStream == nullptr) {
        logMessage(ERROR, "cannot open log file %s: %s", sPath.c_str(), errnoText().c_str());
        return false;
    }
    m_vFiles.push_back({sPath, pStream, iLevel});
    return true;
}

bool Logger::removeFile(const std::string& sPath)
{
    const auto it = findFile(sPath);
    if (it == m_vFiles.end()) {
        return false;
    }
    std::fclose(it->stream);
    m_vFiles.erase(it);
    return true;
}

void Logger::write(int iLevel, const char* pFormat, ...)
{
    if (iLevel < m_iThreshold) {
        return;
    }
    const int iSavedErrno = errno;
    const LevelNames names = levelNames(iLevel);
    va_list vArguments;
    va_start(vArguments, pFormat);
    if (m_bSyslog) {
        va_list vCopy;
        va_copy(vCopy, vArguments);
        vsyslog(names.priority, pFormat, vCopy);
        va_end(vCopy);
    }
    if (m_bStderr) {
        writeLine(stderr, names.prefix, pFormat, vArguments);
    }
    for (const LogFile& file : m_vFiles) {
        if (iLevel >= file.level) {
            writeLine(file.stream, names.prefix, pFormat, vArguments);
            std::fflush(file.stream);
        }
    }
    va_end(vArguments);
    errno = iSavedErrno;
}

int logLevelFromName(const std::string& sWord)
{
    for (std::size_t u = 0; u < k_vLevels.size(); ++u) {
        if (sWord == k_vLevels[u].word) {
            return static_cast<int>(u);
        }
    }
    logMessage(ERROR, "unrecognized logger level '%s' using 'info'", printable(sWord).c_str());
    return INFO;
}

int syslogFacilityFromName(const std::string& sWord)
{
    for (const FacilityName& facility : k_vFacilities) {
        if (sWord == facility.word) {
            return facility.facility;
        }
    }
    logMessage(ERROR, "unrecognized syslog facility '%s' using 'daemon'", printable(sWord).c_str());
    return LOG_DAEMON;
}

std::string errnoText()
{
    std::array<char, 256> vBuffer;
    vBuffer[0] = '\0';
    return strerror_r(errno, vBuffer.data(), vBuffer.size());
}
