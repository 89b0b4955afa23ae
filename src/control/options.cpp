#include "control/options.h"

#include <cstdlib>
#include <utility>

namespace {

poptOption row(const char* pName, char cShort, int* pField, const char* pHelp)
{
    return {pName, cShort, POPT_ARG_NONE, pField, 0, pHelp, nullptr};
}

poptOption row(const char* pName, int* pField, const char* pArgument, const char* pHelp)
{
    return {pName, '\0', POPT_ARG_INT, pField, 0, pHelp, pArgument};
}

poptOption row(const char* pName, char cShort, char** ppField, const char* pArgument,
               const char* pHelp)
{
    return {pName, cShort, POPT_ARG_STRING, ppField, 0, pHelp, pArgument};
}

}  // namespace

OptionTable optionTable(CommandLineOptions& options)
{
    return {{
        row("quiet", 'q', &options.quiet, "Do not output messages if nothing to be done."),
        row("log-level", 'l', &options.logLevel, nullptr,
            "Set the log level to one of trace, debug, info, warn, error or fatal."),
        row("repo", 'r', &options.repo, "repo-id",
            "Use the specified repo from the configuration file instead of the default."),
        row("repo-url", '\0', &options.repoUrl, "repo-id:url",
            "Override the URL for a specific repository ID."),
        row("log-to-stderr", '\0', &options.logToStderr,
            "Output logs to stderr in addition to the outputs in the config file."),
        row("log-to", '\0', &options.logTo, "file",
            "Output logs also to the given file (not truncated)"),
        row("check-only", 'n', &options.checkOnly,
            "Checks and reports if any updates are required, does not update any packages."),
        row("test", 'N', &options.test, "Tests the updates but does not install them."),
        row("no-sig-check", '\0', &options.noSigCheck, "disables checking of package signatures."),
        row("no-reboot", '\0', &options.noReboot,
            "Prevent reboot after updates, even if program determines that a reboot is necessary."),
        row("background", 'b', &options.background,
            "Background and detach process after initialization."),
        row("cache-only", 'C', &options.cacheOnly,
            "runs from the cache, but required packages are still downloaded."),
        row("no-cache-clean", '\0', &options.noCacheClean,
            "prevents the cleaning of cached packages at startup / exit, mostly intended for "
            "debugging."),
        row("check-db-headers", '\0', &options.checkDbHeaders,
            "Force checking of package headers in rpm database; these are not checked by default "
            "since it is fairly slow."),
        row("max-wait-time", &options.maxWaitTime, "seconds",
            "Specifies a maximum wait time before processing starts; the actual wait is a random "
            "duration between 0 and the specified value. Should be greater than zero or negative "
            "to disable."),
        row("lock-timeout", &options.lockTimeout, "seconds",
            "Specifies the timeout when waiting to obtain the cache lock. Should be greater than "
            "zero or negative to disable."),
        row("cache-dir", '\0', &options.cacheDir, "<dir>",
            "Specify a cache directory other than the default."),
        row("conf-file", '\0', &options.confFile, "<file>",
            "Specify a configuration file other than the default '/etc/updater.conf'."),
        {nullptr, '\0', POPT_ARG_INCLUDE_TABLE, poptHelpOptions, 0, "Help options:", nullptr},
        {nullptr, '\0', 0, nullptr, 0, nullptr, nullptr},
    }};
}

void freeTexts(CommandLineOptions& options)
{
    for (char** ppText : {&options.logLevel, &options.logTo, &options.repo, &options.repoUrl,
                          &options.cacheDir, &options.confFile}) {
        std::free(std::exchange(*ppText, nullptr));
    }
}
