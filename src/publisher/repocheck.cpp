// The second program: looks at a repository as devices will, before they do.

#include "config/configuration.h"
#include "control/libraries.h"
#include "control/signals.h"
#include "net/urlfetcher.h"
#include "publisher/devicelog.h"
#include "publisher/inspection.h"
#include "publisher/options.h"
#include "publisher/report.h"
#include "publisher/workplace.h"
#include "support/logger.h"

#include <cstdio>
#include <string>

namespace {

constexpr int k_iFailed = 2;  ///< as for errors: nothing good can be said

int fail(const std::string& sText)
{
    std::fprintf(stderr, "updater-repocheck: %s\n", sText.c_str());
    return k_iFailed;
}

/// The devices' configuration; without one nothing is configured.
bool readConfiguration(const CheckOptions& options, Config& config)
{
    return (options.defaults.empty() || parseConfigurationFile(config, options.defaults, true)) &&
           (options.confFile.empty() || parseConfigurationFile(config, options.confFile, false));
}

int run(const CheckOptions& options)
{
    Workplace place;
    DeviceLog log;
    if (!place.make() || !log.open(place.path() + "log")) {
        return fail("no temporary directory can be made: " + errnoText());
    }
    Config config;
    if (!readConfiguration(options, config)) {
        for (const std::string& sLine : log.take()) {
            std::fprintf(stderr, "%s\n", sLine.c_str());
        }
        return fail("the configuration cannot be read");
    }
    URLFetcher::setNetworkDefaults(config.proxy);
    Report report;
    report.repository = options.repository;
    std::string sFailure;
    const bool bInspected = inspect(options, config, place.path(), log, report, sFailure);
    if (signalNoted != 0) {
        return fail("interrupted");
    }
    if (!bInspected) {
        return fail(sFailure);
    }
    const std::string sReport = options.json ? jsonReport(report) : textReport(report);
    if (std::fputs(sReport.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
        return fail("the report cannot be written: " + errnoText());
    }
    return exitCodeOf(report);
}

}  // namespace

int main(int argc, char* argv[])
{
    CheckOptions options;
    if (!parseOptions(argc, argv, options)) {
        return k_iFailed;
    }
    Logger::instance().setName("updater-repocheck");
    poptOption end = {};
    NameSet none;
    Libraries libraries;
    if (!installSignalHandlers() || !libraries.start(1, argv, &end, none)) {
        return k_iFailed;
    }
    return run(options);
}
