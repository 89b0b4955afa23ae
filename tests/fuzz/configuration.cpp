// A configuration file, as that of the defaults and then as the main one.

#include "config/configuration.h"
#include "support/controls.h"

#include "target.h"

#include <set>

void fuzz(std::string_view sInput)
{
    const std::string& sPath = fileOf(sInput);
    Config config;
    const bool bDefaults = parseConfigurationFile(config, sPath, true);
    CommandLineOptions options;
    options.confFile = const_cast<char*>(sPath.c_str());
    const bool bLoaded = loadConfiguration(options, config);
    std::set<std::string> ids;
    for (const RepoConfig& repo : config.repositories) {
        require(!repo.uri.empty() && ids.insert(repo.id).second, "repositories differ");
        require(!repo.id.empty() && repo.id != "." && repo.id != ".." &&
                    repo.id.find('/') == std::string::npos && !hasControlCharacter(repo.id),
                "a repository names a directory");
    }
    require(bDefaults || !bLoaded, "what is no file of defaults is no main file");
    require(!bLoaded || (countEnabled(config.repositories) <= 1 && config.cacheDir.ends_with('/') &&
                         (config.logToStderr || config.logToSyslog)),
            "settings are complete");
}
