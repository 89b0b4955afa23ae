// The file with the proxy, which may hold a password.

#include "config/proxyconfig.h"

#include "target.h"

void fuzz(std::string_view sInput)
{
    ProxyConfig proxy = {"before", 1, false, "user", "password", "", "", ""};
    const bool bRead = readProxyConfig(fileOf(sInput), proxy);
    require(!proxy.server.empty() && proxy.port <= 65534, "a proxy has a server and a port");
    const std::string sLog = takeLog();
    judgeLog(sLog);
    require(bRead || !sLog.empty(), "a failure is told");
    // What a server or a port holds is told.
    constexpr std::string_view k_sSecret = "S3cret";
    require(proxy.password.find(k_sSecret) == std::string::npos ||
                sInput.find(k_sSecret) != sInput.rfind(k_sSecret) ||
                sLog.find(k_sSecret) == std::string::npos,
            "the password is not logged");
}
