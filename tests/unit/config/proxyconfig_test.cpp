#include "config/proxyconfig.h"

#include "testing/cases.h"

TEST(ReadProxyConfig, readsElements)
{
    const std::string sServer = "<proxy server='s' ";
    const std::string sFull = sServer + "port='1' username='u' password='p'/>";
    const std::string sMany =
        "WARNING: multiple proxy servers in configuration file, using last occurence\n";
    std::vector<std::pair<std::string, std::string>> vCases = {
        {sServer + "port='0'/>", "1 s:0 bypass /\n"},
        {sServer + "port='65534'/>", "1 s:65534 bypass /\n"},
        {sServer + "port=''/>", "0 :0 /\nERROR: no 'port' attribute in 'proxy' element\n"},
        {sServer + "port=' +1' bypassLocalNetwork='off'/>", "1 s:1 /\n"},
        {sServer + "port='1' bypassLocalNetwork='False'/>", "1 s:1 bypass /\n"},
        {"<a>" + sFull + "</a>" + sServer + "port='2' password='q'/>", "1 s:2 bypass /q\n" + sMany},
        {sFull + "<proxy server='' port='1'/>",
         "0 s:1 bypass u/p\n" + sMany + "ERROR: no 'server' attribute in 'proxy' element\n"},
        {sServer + "port='1'>" + sFull + "</proxy>", "1 s:1 bypass /\n"}};
    const auto refused = [&](const std::string& sPort) {
        return std::pair(sServer + "port='" + sPort + "'/>",
                         "0 :0 /\nERROR: invalid port number '" + sPort + "'\n");
    };
    for (const char* pPort : {"65535", "-1", "80a", " ", "4294967297"}) {
        vCases.push_back(refused(pPort));
    }
    const TempDir dir;
    const auto read = [&](const std::string& sBody) {
        ProxyConfig proxy;
        const std::string sPath = dir.write("p", "<proxyconf>" + sBody + "</proxyconf>");
        const std::string sOk = readProxyConfig(sPath, proxy) ? "1 " : "0 ";
        return sOk + proxy.server + ":" + std::to_string(proxy.port) +
               (proxy.bypassLocalNetwork ? " bypass " : " ") + proxy.username + "/" +
               proxy.password + "\n";
    };
    expectEach(vCases, read, WARNING);
}
