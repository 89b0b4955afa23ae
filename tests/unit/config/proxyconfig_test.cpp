#include "config/proxyconfig.h"

#include "testing/testing.h"

#include <gtest/gtest.h>

namespace {

std::string proxyText(const ProxyConfig& proxy)
{
    return proxy.server + ":" + std::to_string(proxy.port) +
           (proxy.bypassLocalNetwork ? " bypass " : " ") + proxy.username + "/" + proxy.password;
}

std::string element(const std::string& sAttributes)
{
    return "<proxy server='s' " + sAttributes + "/>";
}

}  // namespace

TEST(ReadProxyConfig, readsElements)
{
    const std::string sPortError = "ERROR: no 'port' attribute in 'proxy' element\n";
    const std::string sServerError = "ERROR: no 'server' attribute in 'proxy' element\n";
    const std::string sMany =
        "WARNING: multiple proxy servers in configuration file, using last occurence\n";
    const struct {
        std::string body;
        bool ok;
        const char* proxy;
        std::string log;  ///< WARNING and above
    } vCases[] = {
        {"", true, ":0 /", ""},
        {element("port='0'"), true, "s:0 bypass /", ""},
        {element("port='65534'"), true, "s:65534 bypass /", ""},
        {element("port=' +8080'"), true, "s:8080 bypass /", ""},
        {element("port='65535'"), false, ":0 /", "ERROR: invalid port number '65535'\n"},
        {element("port='-1'"), false, ":0 /", "ERROR: invalid port number '-1'\n"},
        {element("port='80a'"), false, ":0 /", "ERROR: invalid port number '80a'\n"},
        {element("port=' '"), false, ":0 /", "ERROR: invalid port number ' '\n"},
        {element("port='99999999999999999999'"), false, ":0 /",
         "ERROR: invalid port number '99999999999999999999'\n"},
        {element("port=''"), false, ":0 /", sPortError},
        {element(""), false, ":0 /", sPortError},
        {"<proxy port='1'/>", false, ":0 /", sServerError},
        {"<proxy server='' port='1'/>", false, ":0 /", sServerError},
        {element("port='1' bypassLocalNetwork='off'"), true, "s:1 /", ""},
        {element("port='1' bypassLocalNetwork='false'"), true, "s:1 /", ""},
        {element("port='1' bypassLocalNetwork='False'"), true, "s:1 bypass /", ""},
        {"<a><b>" + element("port='1' username='u' password='p'") + "</b></a>", true,
         "s:1 bypass u/p", ""},
        {element("port='1' username='u' password='p'") + element("port='2' password='q'"), true,
         "s:2 bypass /q", sMany},
        {element("port='1' username='u' password='p'") + element("port='x'"), false,
         "s:1 bypass u/p", sMany + "ERROR: invalid port number 'x'\n"},
        {"<proxy server='s' port='1'><proxy server='no' port='2'/></proxy>", true, "s:1 bypass /",
         ""},
        {element("port='1'") + std::string(9999, ' ') + "<open>", false, "s:1 bypass /", ""},
    };
    TempDir dir;
    for (const auto& test : vCases) {
        SCOPED_TRACE(test.body);
        LogCapture log(WARNING);
        ProxyConfig proxy;
        const std::string sPath = dir.write("p", "<proxyconf>" + test.body + "</proxyconf>");
        EXPECT_EQ(readProxyConfig(sPath, proxy), test.ok);
        EXPECT_EQ(proxyText(proxy), test.proxy);
        EXPECT_EQ(log.text(), test.log);
    }
}

TEST(ReadProxyConfig, tellsWhatItDid)
{
    TempDir dir;
    LogCapture log;
    ProxyConfig proxy;
    EXPECT_TRUE(readProxyConfig(dir.file("none"), proxy));
    EXPECT_EQ(log.text(), "DEBUG: no proxy configuration file '" + dir.file("none") + "'\n");
    log.clear();
    EXPECT_FALSE(readProxyConfig(dir.write("bad", "<proxy server='s' port='1'/>"), proxy));
    EXPECT_EQ(log.text(), "ERROR: bad top-level element, 'proxy' instead of 'proxyconf'\n");
    EXPECT_EQ(proxy.server, "");
}
