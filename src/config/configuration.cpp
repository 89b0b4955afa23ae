#include "config/configuration.h"

#include "config/elements.h"
#include "config/proxyconfig.h"
#include "support/logger.h"
#include "support/xml.h"

#include <string_view>

namespace {

constexpr const char* k_pDefaultsFile = "/usr/share/resources/default/updater/defaults.conf";
constexpr const char* k_pMainFile = "/etc/updater.conf";
constexpr const char* k_pProxyFile = "/etc/network/orvproxy.conf";

/// Acts on the node that the reader stands on. Leaves the reader there, so that the children of an
/// element that has been read are visited as well.
bool readNode(xmlTextReader* pReader, bool bDefaults, Config& config)
{
    if (xmlTextReaderNodeType(pReader) != XML_READER_TYPE_ELEMENT) {
        return true;
    }
    const std::string_view sName = chars(xmlTextReaderConstName(pReader));
    if (xmlTextReaderDepth(pReader) == 0 && sName != "updater") {
        logMessage(ERROR, "bad top-level element, '%s' instead of 'updater'", sName.data());
        return false;
    }
    const ElementReader read = elementReader(sName);
    if (read == nullptr) {
        return true;
    }
    xmlNode* pElement = xmlTextReaderExpand(pReader);
    return pElement != nullptr && read(pElement, bDefaults, config);
}

bool readDocument(Config& config, const std::string& sPath, bool bDefaults)
{
    const XmlReader reader = openXmlReader(sPath);
    if (reader == nullptr) {
        logMessage(ERROR, "could not open configuration file '%s'", sPath.c_str());
        return false;
    }
    int iRead = 0;
    while ((iRead = xmlTextReaderRead(reader.get())) == 1) {
        if (!readNode(reader.get(), bDefaults, config)) {
            return false;
        }
    }
    return iRead == 0;
}

/// The command line can turn a flag on and never off.
void applyOptions(const CommandLineOptions& options, Config& config)
{
    config.quiet |= options.quiet != 0;
    config.logToStderr |= options.logToStderr != 0;
    config.cacheOnly |= options.cacheOnly != 0;
    config.checkOnly |= options.checkOnly != 0;
    config.test |= options.test != 0;
    config.noSigCheck |= options.noSigCheck != 0;
    config.noReboot |= options.noReboot != 0;
    config.background |= options.background != 0;
    config.checkDbHeaders |= options.checkDbHeaders != 0;
    config.noCacheClean |= options.noCacheClean != 0;
    if (options.logLevel != nullptr) {
        config.logLevel = logLevelFromName(options.logLevel);
    }
    if (options.maxWaitTime != 0) {
        config.maxWaitTime = options.maxWaitTime;
    }
    if (options.lockTimeout != 0) {
        config.lockTimeout = options.lockTimeout;
    }
    if (options.cacheDir != nullptr) {
        config.cacheDir = options.cacheDir;
    }
}

void normaliseCacheDir(std::string& sCacheDir)
{
    if (sCacheDir.empty()) {
        sCacheDir = "./";
        logMessage(WARNING, "cache dir empty, assuming '%s'", sCacheDir.c_str());
    } else if (!sCacheDir.starts_with('/')) {
        logMessage(WARNING, "cache dir '%s' is not an absolute path", sCacheDir.c_str());
    }
    if (!sCacheDir.ends_with('/')) {
        sCacheDir += '/';
    }
}

/// @param sOverride  "id:url", split at the first colon.
bool overrideUrl(const std::string& sOverride, std::vector<RepoConfig>& vRepositories)
{
    const std::size_t uColon = sOverride.find(':');
    if (uColon == std::string::npos) {
        logMessage(ERROR, "missing ':' in --repo-url option");
        return false;
    }
    if (uColon == 0) {
        logMessage(ERROR, "missing ID in --repo-url option");
        return false;
    }
    if (uColon + 1 == sOverride.size()) {
        logMessage(ERROR, "missing URL in --repo-url option");
        return false;
    }
    const std::string sId = sOverride.substr(0, uColon);
    if (RepoConfig* pRepo = findRepository(vRepositories, sId)) {
        pRepo->uri = sOverride.substr(uColon + 1);
    } else {
        logMessage(WARNING, "ignoring URL override for non-existing repo '%s'", sId.c_str());
    }
    return true;
}

/// @param pId  the repository to use, even a disabled one; null for the one that is enabled.
bool chooseRepository(const char* pId, std::vector<RepoConfig>& vRepositories)
{
    if (pId == nullptr) {
        if (countEnabled(vRepositories) > 1) {
            logMessage(ERROR, "only one active repository supported");
            return false;
        }
        return true;
    }
    RepoConfig* pRepo = findRepository(vRepositories, pId);
    if (pRepo == nullptr) {
        logMessage(ERROR, "no repository with ID '%s'", pId);
        return false;
    }
    setAllEnabled(vRepositories, false);
    pRepo->enabled = true;
    return true;
}

}  // namespace

bool parseConfigurationFile(Config& config, const std::string& sPath, bool bDefaults)
{
    if (!readDocument(config, sPath, bDefaults)) {
        return false;
    }
    if (!bDefaults) {
        // A faulty proxy file is reported there and stops nothing.
        static_cast<void>(readProxyConfig(k_pProxyFile, config.proxy));
    }
    return true;
}

bool loadConfiguration(const CommandLineOptions& options, Config& config)
{
    if (!parseConfigurationFile(config, k_pDefaultsFile, true)) {
        logMessage(DEBUG, "missing or incorrect defaults file '%s'", k_pDefaultsFile);
    }
    const char* pMainFile = options.confFile != nullptr ? options.confFile : k_pMainFile;
    if (!parseConfigurationFile(config, pMainFile, false)) {
        logMessage(ERROR, "failed parsing configuration file '%s'", pMainFile);
        return false;
    }
    applyOptions(options, config);
    normaliseCacheDir(config.cacheDir);
    if (!config.logToStderr && !config.logToSyslog) {
        logMessage(ERROR, "no log output! enabling stderr");
        config.logToStderr = true;
    }
    if (options.repoUrl != nullptr && !overrideUrl(options.repoUrl, config.repositories)) {
        return false;
    }
    return chooseRepository(options.repo, config.repositories);
}
