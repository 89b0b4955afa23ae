// The file with the proxy, which may hold a password.

#include "config/proxyconfig.h"

#include "target.h"

#include <sstream>

void fuzz(std::string_view sInput)
{
    ProxyConfig proxy = {"before", 1, false, "user", "password", "", "", ""};
    const bool bRead = readProxyConfig(fileOf(sInput), proxy);
    require(!proxy.server.empty() && proxy.port <= 65534, "a proxy has a server and a port");
    const std::string sLog = takeLog();
    judgeLog(sLog);
    require(bRead || !sLog.empty(), "a failure is told");
    // The password of the example. What stands in place of a port may be told, a document not.
    std::istringstream lines(sLog);
    for (std::string sLine; std::getline(lines, sLine);) {
        require(!sLine.starts_with("libxml2: ") || sLine.find("secret") == sLine.npos,
                "a syntax error quotes nothing");
    }
}
