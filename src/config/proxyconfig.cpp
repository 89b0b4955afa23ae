#include "config/proxyconfig.h"

#include "support/controls.h"
#include "support/logger.h"
#include "support/xml.h"

#include <cstdlib>
#include <string_view>

namespace {

constexpr long k_iMaxPort = 65534;

/// @param sPort  not empty.
bool readPort(const std::string& sPort, unsigned& uPort)
{
    char* pEnd = nullptr;
    const long iPort = std::strtol(sPort.c_str(), &pEnd, 10);
    if (*pEnd != '\0' || iPort < 0 || iPort > k_iMaxPort) {
        logMessage(ERROR, "invalid port number '%s'", printable(sPort).c_str());
        return false;
    }
    uPort = static_cast<unsigned>(iPort);
    return true;
}

bool readProxyElement(const xmlNode* pElement, ProxyConfig& proxy)
{
    if (!proxy.server.empty()) {
        logMessage(WARNING, "multiple proxy servers in configuration file, using last occurence");
    }
    std::string sServer;
    if (!getAttribute(pElement, "server", sServer) || sServer.empty()) {
        logMessage(ERROR, "no 'server' attribute in 'proxy' element");
        return false;
    }
    std::string sPort;
    if (!getAttribute(pElement, "port", sPort) || sPort.empty()) {
        logMessage(ERROR, "no 'port' attribute in 'proxy' element");
        return false;
    }
    unsigned uPort = 0;
    if (!readPort(sPort, uPort)) {
        return false;
    }
    std::string sBypass;
    const bool bBypass = !getAttribute(pElement, "bypassLocalNetwork", sBypass) ||
                         (sBypass != "off" && sBypass != "false");
    proxy.server = sServer;
    proxy.port = uPort;
    proxy.bypassLocalNetwork = bBypass;
    logMessage(DEBUG, "configured proxy '%s' port %u bypass %i", printable(proxy.server).c_str(),
               proxy.port, proxy.bypassLocalNetwork ? 1 : 0);

    // Credentials are optional, and those of an earlier element must not survive.
    for (const auto& [pName, pValue] :
         {std::pair("username", &proxy.username), std::pair("password", &proxy.password)}) {
        pValue->clear();
        static_cast<void>(getAttribute(pElement, pName, *pValue));
    }
    return true;
}

}  // namespace

bool readProxyConfig(const std::string& sPath, ProxyConfig& proxy)
{
    const XmlReader reader = openXmlReader(sPath);
    if (reader == nullptr) {
        logMessage(DEBUG, "no proxy configuration file '%s'", sPath.c_str());
        return true;
    }
    quoteNothing(*reader);  // it may hold a password
    int iRead = xmlTextReaderRead(reader.get());
    while (iRead == 1) {
        bool bProxy = false;
        if (xmlTextReaderNodeType(reader.get()) == XML_READER_TYPE_ELEMENT) {
            const std::string_view sName = chars(xmlTextReaderConstName(reader.get()));
            if (xmlTextReaderDepth(reader.get()) == 0 && sName != "proxyconf") {
                logMessage(ERROR, "bad top-level element, '%s' instead of 'proxyconf'",
                           sName.data());
                return false;
            }
            bProxy = sName == "proxy";
        }
        if (bProxy) {
            const xmlNode* pElement = xmlTextReaderExpand(reader.get());
            if (pElement == nullptr || !readProxyElement(pElement, proxy)) {
                return false;
            }
        }
        iRead = bProxy ? xmlTextReaderNext(reader.get()) : xmlTextReaderRead(reader.get());
    }
    return iRead == 0;
}
