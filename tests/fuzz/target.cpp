#include "target.h"

#include "control/libraries.h"
#include "control/options.h"
#include "support/files.h"
#include "support/logger.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/// One processor, as far as the standard library knows: no thread is started for each document.
extern "C" int get_nprocs()
{
    return 1;
}

namespace {

std::string g_sLog;
bool g_bTaken = false;

/// The one text of two lines that the program has.
constexpr std::string_view k_sTwoLines =
    "make sure that a network gateway and DNS servers are configured\n"
    "and that the unit is connected to the network";

/// Takes what one call has printed. A newline inside, which begins a forged line, becomes a byte that
/// judgeLog() does not let pass.
ssize_t keepLog(void* /*pCookie*/, const char* pBytes, std::size_t uLength)
{
    const std::size_t uBegin = g_sLog.size();
    g_sLog.append(pBytes, uLength);
    if (g_sLog.compare(uBegin, uLength, k_sTwoLines) != 0) {
        std::replace(g_sLog.begin() + static_cast<std::ptrdiff_t>(uBegin), g_sLog.end() - 1, '\n',
                     '\1');
    }
    return static_cast<ssize_t>(uLength);
}

/// Puts memory in place of the stream of standard error, and starts the libraries.
class Setting {
public:
    Setting()
    {
        std::FILE* pLog = fopencookie(nullptr, "w", {nullptr, keepLog, nullptr, nullptr});
        std::setvbuf(pLog, nullptr, _IONBF, 0);
        stderr = pLog;
        std::array<char*, 2> vArguments = {const_cast<char*>(k_pProgramName), nullptr};
        NameSet names;
        require(m_libraries.start(1, vArguments.data(), m_table.data(), names),
                "the libraries start");
        Logger::instance().setThreshold(TRACE);
    }

private:
    CommandLineOptions m_options;
    OptionTable m_table = optionTable(m_options);
    Libraries m_libraries;
};

bool isOurs(std::string_view sLine)
{
    static constexpr std::array<std::string_view, 7> k_vPrefixes = {
        "TRACE: ", "DEBUG: ", "INFO: ", "WARNING: ", "ERROR: ", "FATAL: ", "libxml2: "};
    return std::any_of(k_vPrefixes.begin(), k_vPrefixes.end(),
                       [&](std::string_view sPrefix) { return sLine.starts_with(sPrefix); }) ||
           sLine == k_sTwoLines.substr(k_sTwoLines.find('\n') + 1);
}

}  // namespace

void require(bool bHolds, const char* pLaw)
{
    if (!bHolds) {
        dprintf(STDERR_FILENO, "%s\nbroken: %s\n", g_sLog.c_str(), pLaw);
        std::abort();
    }
}

const TempDir& directory()
{
    static const TempDir s_directory;
    return s_directory;
}

std::string fileOf(std::string_view sBytes, const char* pName)
{
    return directory().write(pName, std::string(sBytes));
}

std::string takeLog()
{
    g_bTaken = true;
    return g_sLog;
}

void judgeLog(std::string_view sLog)
{
    static const bool s_bShown = std::getenv("FUZZ_LOG") != nullptr;
    require(!s_bShown || writeAll(STDERR_FILENO, sLog.data(), sLog.size()), "a log can be shown");
    require(std::ranges::none_of(
                sLog, [](unsigned char c) { return (c < ' ' && c != '\n') || c == 0x7f; }),
            "no control character is logged");
    while (!sLog.empty()) {
        const std::size_t uEnd = sLog.find('\n');
        require(uEnd != std::string_view::npos, "the log ends with a line");
        require(isOurs(sLog.substr(0, uEnd)), "each line of the log is ours");
        sLog.remove_prefix(uEnd + 1);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize)
{
    static const Setting s_setting;
    g_sLog.clear();
    g_bTaken = false;
    fuzz({reinterpret_cast<const char*>(pData), uSize});
    if (!g_bTaken) {
        judgeLog(g_sLog);
    }
    return 0;
}
