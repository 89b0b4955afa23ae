#include "config/elements.h"

#include "config/packagelist.h"
#include "support/controls.h"
#include "support/files.h"
#include "support/logger.h"
#include "support/xml.h"

#include <array>
#include <charconv>
#include <string_view>
#include <system_error>
#include <utility>

namespace {

constexpr unsigned k_uMostDays = 9999;

bool sameNamespace(const xmlNode* a, const xmlNode* b)
{
    if (a->ns == nullptr || b->ns == nullptr) {
        return a->ns == b->ns;
    }
    return xmlStrEqual(a->ns->href, b->ns->href) != 0;
}

/// The next child element in the namespace of its parent, from `pChild` on; null behind the last.
xmlNode* skipForeign(xmlNode* pChild)
{
    while (pChild != nullptr && !sameNamespace(pChild, pChild->parent)) {
        pChild = xmlNextElementSibling(pChild);
    }
    return pChild;
}

xmlNode* firstChild(xmlNode* pElement)
{
    return skipForeign(xmlFirstElementChild(pElement));
}

xmlNode* nextChild(xmlNode* pChild)
{
    return skipForeign(xmlNextElementSibling(pChild));
}

bool isNamed(const xmlNode* pElement, std::string_view sName)
{
    return chars(pElement->name) == sName;
}

bool readRepositoryChildren(xmlNode* pElement, RepoConfig& repo)
{
    for (xmlNode* pChild = firstChild(pElement); pChild != nullptr; pChild = nextChild(pChild)) {
        if (isNamed(pChild, "name") && !getText(pChild, repo.name)) {
            return false;
        }
        if (isNamed(pChild, "location") && !getAttribute(pChild, "href", repo.uri)) {
            logMessage(ERROR, "no 'href' attribute in 'location' element");
            return false;
        }
    }
    if (repo.uri.empty()) {
        logMessage(ERROR, "no URI for repository '%s'", repo.id.c_str());
        return false;
    }
    return true;
}

/// A repository whose index is to be signed must not be taken for one of the other kind, so nothing
/// in these attributes is passed over.
bool readSigning(xmlNode* pElement, RepoConfig& repo)
{
    std::string sSigned = "false";
    if (getAttribute(pElement, "signed", sSigned) && sSigned != "true" && sSigned != "false") {
        logMessage(ERROR, "'signed' attribute of repository '%s' is neither 'true' nor 'false'",
                   repo.id.c_str());
        return false;
    }
    repo.isSigned = sSigned == "true";
    std::string sMaxAge;
    if (!getAttribute(pElement, "max-age", sMaxAge)) {
        return true;
    }
    const char* pEnd = sMaxAge.data() + sMaxAge.size();
    const auto [pRead, error] = std::from_chars(sMaxAge.data(), pEnd, repo.maxAge);
    if (!repo.isSigned || pRead != pEnd || error != std::errc() || repo.maxAge == 0 ||
        repo.maxAge > k_uMostDays) {
        logMessage(ERROR, "bad 'max-age' attribute of repository '%s'", repo.id.c_str());
        return false;
    }
    return true;
}

bool readRepository(xmlNode* pElement, bool bDefaults, Config& config)
{
    RepoConfig repo;
    if (!getAttribute(pElement, "id", repo.id)) {
        logMessage(ERROR, "no 'id' attribute in 'repository' element");
        return false;
    }
    if (repo.id == "kelo42") {
        logMessage(DEBUG, "replacing repo ID '%s' by 'base' for backwards compatibility",
                   repo.id.c_str());
        repo.id = "base";
    }
    if (repo.id.empty() || repo.id == "." || repo.id == ".." ||
        repo.id.find('/') != std::string::npos || hasControlCharacter(repo.id)) {
        logMessage(ERROR, "bad 'id' attribute in 'repository' element");  // it names a directory
        return false;
    }
    std::string sEnabled;
    if (getAttribute(pElement, "enabled", sEnabled)) {
        repo.enabled = sEnabled == "true";
    }
    if (!readSigning(pElement, repo) || !readRepositoryChildren(pElement, repo)) {
        return false;
    }
    repo.isDefault = bDefaults;
    if (const RepoConfig* pPresent = findRepository(config.repositories, repo.id)) {
        if (!pPresent->isDefault) {
            logMessage(ERROR, "more than one repository with same ID");
            return false;
        }
        logMessage(DEBUG, "replacing default definition of repo '%s'", repo.id.c_str());
        config.repositories.erase(config.repositories.begin() +
                                  (pPresent - config.repositories.data()));
    }
    config.repositories.push_back(std::move(repo));
    return true;
}

/// A logger of type "syslog" has to name its facility; the last one counts.
bool readSyslogLogger(xmlNode* pLogger, Config& config)
{
    std::string sFacility;
    for (xmlNode* pChild = xmlFirstElementChild(pLogger); pChild != nullptr;
         pChild = xmlNextElementSibling(pChild)) {
        if (isNamed(pChild, "facility") && !getText(pChild, sFacility)) {
            return false;
        }
    }
    if (sFacility.empty()) {
        return false;
    }
    config.syslogFacility = syslogFacilityFromName(sFacility);
    config.logToSyslog = true;
    return true;
}

bool readLogger(xmlNode* pLogger, Config& config)
{
    std::string sType;
    if (!getAttribute(pLogger, "type", sType)) {
        return false;
    }
    if (sType == "syslog") {
        return readSyslogLogger(pLogger, config);
    }
    if (sType == "stderr") {
        config.logToStderr = true;
    } else {
        logMessage(DEBUG, "ignoring unknown '%s' logger type", printable(sType).c_str());
    }
    return true;
}

bool readLog(xmlNode* pElement, bool /*bDefaults*/, Config& config)
{
    std::string sLevel;
    if (getAttribute(pElement, "level", sLevel) && !sLevel.empty()) {
        config.logLevel = logLevelFromName(sLevel);
    }
    for (xmlNode* pChild = firstChild(pElement); pChild != nullptr; pChild = nextChild(pChild)) {
        if (isNamed(pChild, "logger") && !readLogger(pChild, config)) {
            return false;
        }
    }
    return true;
}

bool readProductPackages(xmlNode* pElement, Config& config)
{
    for (xmlNode* pChild = firstChild(pElement); pChild != nullptr; pChild = nextChild(pChild)) {
        if (isNamed(pChild, "release")) {
            std::vector<std::string> vPackages;
            if (!parsePackageList(pChild, vPackages, nullptr) || vPackages.size() != 1) {
                return false;
            }
            config.releasePackage = vPackages.front();
        } else if (isNamed(pChild, "addons") &&
                   !parsePackageList(pChild, config.addonPackages, &config.addonGroups)) {
            return false;
        }
    }
    return true;
}

bool readProduct(xmlNode* pElement, bool /*bDefaults*/, Config& config)
{
    for (xmlNode* pChild = firstChild(pElement); pChild != nullptr; pChild = nextChild(pChild)) {
        if (isNamed(pChild, "name") && !getText(pChild, config.productName)) {
            return false;
        }
        if (isNamed(pChild, "packages") && !readProductPackages(pChild, config)) {
            return false;
        }
    }
    return true;
}

bool readUserAgent(xmlNode* pElement, bool /*bDefaults*/, Config& config)
{
    for (xmlNode* pChild = firstChild(pElement); pChild != nullptr; pChild = nextChild(pChild)) {
        if (isNamed(pChild, "base") && !getText(pChild, config.proxy.agentBase)) {
            return false;
        }
        if (isNamed(pChild, "prodname") && !getText(pChild, config.proxy.agentProduct)) {
            return false;
        }
    }
    return true;
}

bool readTls(xmlNode* pElement, bool /*bDefaults*/, Config& config)
{
    std::string sTrust;
    if (!getAttribute(pElement, "trust", sTrust)) {
        logMessage(ERROR, "no 'trust' attribute in 'tls' element");
        return false;
    }
    if (sTrust != "system") {
        if (!sTrust.starts_with('/')) {
            logMessage(ERROR, "TLS trust '%s' is neither 'system' nor an absolute path",
                       printable(sTrust).c_str());
            return false;
        }
        std::string sCertificates;
        if (!readFile(sTrust, sCertificates)) {
            logMessage(ERROR, "cannot read TLS certificates '%s' (%s)", printable(sTrust).c_str(),
                       errnoText().c_str());
            return false;
        }
    }
    config.proxy.tlsTrust = sTrust;
    return true;
}

struct NamedReader {
    std::string_view name;
    ElementReader read;
};

constexpr std::array<NamedReader, 5> k_vReaders = {{{"repository", readRepository},
                                                    {"log", readLog},
                                                    {"product", readProduct},
                                                    {"user-agent", readUserAgent},
                                                    {"tls", readTls}}};

}  // namespace

ElementReader elementReader(std::string_view sName)
{
    for (const NamedReader& reader : k_vReaders) {
        if (reader.name == sName) {
            return reader.read;
        }
    }
    return nullptr;
}
