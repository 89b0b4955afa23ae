#pragma once

#include "support/logger.h"

#include <string>
#include <vector>

/// The name and the version of this program, as log lines, hooks, dependencies and the user agent
/// give them. The version, which the build defines, stands in a file of its own.
inline constexpr const char* k_pProgramName = "updater";
extern const char* const k_pProgramVersion;

/// What the command line gave. The option parser writes into it; loadConfiguration() and the start
/// of the process read it. Texts are null if not given, and belong to whoever had them parsed;
/// flags are 0.
struct CommandLineOptions {
    int quiet = 0;
    char* logLevel = nullptr;
    char* logTo = nullptr;
    char* repo = nullptr;
    char* repoUrl = nullptr;
    int logToStderr = 0;
    int cacheOnly = 0;
    int checkOnly = 0;
    int test = 0;
    int noSigCheck = 0;
    int noReboot = 0;
    int background = 0;
    int checkDbHeaders = 0;
    int noCacheClean = 0;
    int maxWaitTime = 0;
    int lockTimeout = 0;
    char* cacheDir = nullptr;
    char* confFile = nullptr;
};

/// One repository of the configuration.
struct RepoConfig {
    std::string id;    ///< unique; also names the directory of the repository in the cache
    std::string name;  ///< display name
    std::string uri;
    bool enabled = true;
    bool isSigned = false;   ///< its index counts only if a key of the rpm database has signed it
    unsigned maxAge = 0;     ///< days that a signed index may be old; 0: any number
    bool isDefault = false;  ///< from the defaults file: may be replaced by a later definition
};

/// The network settings. No proxy is configured if `server` is empty.
struct ProxyConfig {
    std::string server;               ///< host name or address
    unsigned port = 0;                ///< 0 to 65534
    bool bypassLocalNetwork = false;  ///< reach hosts on a local network without the proxy
    std::string username;
    std::string password;
    std::string agentBase;     ///< leading word of the user agent
    std::string agentProduct;  ///< product word of the user agent and of the default user
    std::string tlsTrust;  ///< empty: no server is trusted; "system": the system's store; else the
                           ///< absolute path of a PEM file
};

/// All settings. Read-only once loaded, but for the copies that a pass works on.
struct Config {
    bool quiet = false;
    bool cacheOnly = false;
    bool checkOnly = false;
    bool test = false;
    bool noSigCheck = false;
    bool noReboot = false;
    bool checkDbHeaders = false;
    bool noCacheClean = false;
    int lockTimeout = 120;                         ///< seconds; 0 and less: a single attempt
    std::string cacheDir = "/var/cache/updater/";  ///< ends in a slash once loaded
    int maxWaitTime = 600;                         ///< seconds; 0 and less: no wait
    bool background = false;
    int logLevel = INFO;
    bool logToStderr = false;
    bool logToSyslog = false;
    int syslogFacility = 0;  ///< as for openlog(3); only meaningful with `logToSyslog`
    std::string productName;
    std::string releasePackage;
    std::vector<std::string> addonPackages;
    std::vector<std::string> addonGroups;
    std::vector<RepoConfig> repositories;  ///< in order of definition
    ProxyConfig proxy;
};

/// The first repository of an id, or null.
RepoConfig* findRepository(std::vector<RepoConfig>& vRepositories, const std::string& sId);
std::size_t countEnabled(const std::vector<RepoConfig>& vRepositories);
void setAllEnabled(std::vector<RepoConfig>& vRepositories, bool bEnabled);
