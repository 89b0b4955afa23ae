#include "config/configuration.h"

#include "testing/testing.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

/// What files and options can change, in short: the log level, then whatever is set.
std::string describe(const Config& config)
{
    std::string sAll = std::to_string(config.logLevel) + (config.logToStderr ? " stderr" : "");
    const auto add = [&](const std::string& sTitle, const std::string& sValue) {
        sAll += sValue.empty() ? "" : " " + sTitle + "=" + sValue;
    };
    add("cache", config.cacheDir == Config().cacheDir ? "" : config.cacheDir);
    add("syslog", config.logToSyslog ? std::to_string(config.syslogFacility) : "");
    add("product", config.productName);
    add("release", config.releasePackage);
    for (const std::string& sName : config.addonPackages) {
        add("addon", sName);
    }
    for (const std::string& sName : config.addonGroups) {
        add("group", sName);
    }
    add("agent", config.proxy.agentBase + config.proxy.agentProduct);
    add("tls", config.proxy.tlsTrust);
    for (const RepoConfig& repo : config.repositories) {
        add(repo.id, repo.name + "@" + repo.uri + (repo.enabled ? "" : " off") +
                         (repo.isDefault ? " default" : ""));
    }
    return sAll;
}

std::string inUpdater(const std::string& sBody)
{
    return "<updater xmlns:p='urn:p'>" + sBody + "</updater>";
}

const std::string k_sBase = "<repository id='base'><location href='b'/></repository>";
const std::string k_sExtra = "<repository id='extra'><location href='e'/></repository>";
const std::string k_sOff = "<repository id='off' enabled='false'><location href='o'/></repository>";
const std::string k_sDefaults = "/usr/share/resources/default/updater/defaults.conf";
const std::string k_sNoDefaults =
    "ERROR: could not open configuration file '" + k_sDefaults + "'\n";
const std::string k_sRelease = "<product><packages><release>";
const std::string k_sReleaseEnd = "</release></packages></product>";

}  // namespace

TEST(ParseConfigurationFile, readsElementsWhereverTheyStand)
{
    TempDir dir;
    LogCapture log(WARNING);
    Config config;
    const std::string sPem = dir.write("ca.pem", "");
    std::string sBody = R"(<tls trust='system'/><p:log level='debug'/><x level='debug'>
<log level='warn'><logger type='stderr'/><logger type='tape'/><p:logger/><tls trust='PEM'/>
 <logger type='syslog'><facility>user</facility><p:facility>local1</p:facility></logger></log>
</x><log level=''/>
<repository id='a' enabled='true'><name>A &amp; B</name><location href='x'/><p:location/>
 <location href='y'/><p:name>no</p:name><repository id='b' enabled='TRUE'><location href='z'/>
 </repository></repository>
<repository id='c' enabled='' xmlns='urn:p'><location xmlns='urn:p' href='c'/></repository>
<user-agent><base>B</base><prodname>P</prodname></user-agent>
<product><name> N </name><packages>
 <release><group>
 <name>g</name></group><package><name>rel</name></package></release>
 <addons><other><name>o</name></other><package><name>a</name><name>b</name><x>c</x></package>
 <group><name>g</name></group><package><name>a</name></package></addons></packages></product>)";
    sBody.replace(sBody.find("PEM"), 3, sPem);
    EXPECT_TRUE(parseConfigurationFile(config, dir.write("conf", inUpdater(sBody)), false));
    EXPECT_EQ(describe(config),
              "3 stderr syslog=136 product= N  release=rel addon=a addon=b"
              " addon=a group=g agent=BP tls=" +
                  sPem + " a=A & B@y b=@z off c=@c off");
    EXPECT_EQ(log.text(), "WARNING: ignoring package group named 'g' in config file line 11\n");
}

TEST(ParseConfigurationFile, failsAtTheFirstMalformedElement)
{
    TempDir dir;
    const std::string sDir = dir.path();
    const std::string sTwice = "ERROR: more than one repository with same ID\n";
    const std::pair<std::string, std::string> vCases[] = {
        {"<repository><location href='x'/></repository>",
         "ERROR: no 'id' attribute in 'repository' element\n"},
        {"<repository id='a'><location/></repository>",
         "ERROR: no 'href' attribute in 'location' element\n"},
        {"<repository id='a'><location href=''/></repository>",
         "ERROR: no URI for repository 'a'\n"},
        {"<repository id='a'><name/><location href='x'/></repository>", ""},
        {k_sBase, sTwice},
        {"<repository id='kelo42'><location href='x'/></repository>", sTwice},
        {"<log><logger/></log>", ""},
        {"<log><logger type='syslog'/></log>", ""},
        {"<log><logger type='syslog'><facility/></logger></log>", ""},
        {k_sRelease + "<package><name>a</name><name>b</name></package>" + k_sReleaseEnd, ""},
        {k_sRelease + k_sReleaseEnd, ""},
        {"<product><packages><addons><group><name/></group></addons></packages></product>", ""},
        {"<user-agent><base/></user-agent>", ""},
        {"<user-agent><prodname/></user-agent>", ""},
        {"<tls/>", "ERROR: no 'trust' attribute in 'tls' element\n"},
        {"<tls trust='ca'/>", "ERROR: TLS trust 'ca' is neither 'system' nor an absolute path\n"},
        {"<tls trust='/none'/>",
         "ERROR: cannot read TLS certificates '/none' (No such file or directory)\n"},
        {"<tls trust='" + sDir + "'/>",
         "ERROR: cannot read TLS certificates '" + sDir + "' (Is a directory)\n"},
    };
    for (const auto& [sBody, sLog] : vCases) {
        SCOPED_TRACE(sBody);
        LogCapture log(WARNING);
        Config config;
        const std::string sAll = inUpdater(k_sBase + sBody + k_sExtra);
        EXPECT_FALSE(parseConfigurationFile(config, dir.write("conf", sAll), false));
        EXPECT_EQ(describe(config), "2 base=@b");  // what stood in front of the failure
        EXPECT_EQ(log.text(), sLog);
    }
}

TEST(ParseConfigurationFile, refusesDocuments)
{
    std::string sDeep = "<updater>";
    for (int i = 0; i < 100000; ++i) {
        sDeep += "<log>";
    }
    const std::string sLoop =
        "<!DOCTYPE updater [<!ENTITY a 'x'><!ENTITY b '&a;&b;'>]>"
        "<updater><product><name>&b;</name></product></updater>";
    const std::string sCut = "<updater>" + k_sBase + std::string(9999, ' ') + "<log></updater>";
    const std::tuple<std::string, const char*, const char*> vCases[] = {
        {"", "2", ""},
        {sDeep, "2", ""},
        {sLoop, "2", ""},
        {sCut, "2 base=@b", ""},
        {"<update>" + k_sBase + "</update>", "2",
         "ERROR: bad top-level element, 'update' instead of 'updater'\n"}};
    TempDir dir;
    for (const auto& [sText, pConfig, pLog] : vCases) {
        SCOPED_TRACE(sText.substr(0, 80));
        LogCapture log(WARNING);
        Config config;
        EXPECT_FALSE(parseConfigurationFile(config, dir.write("conf", sText), false));
        EXPECT_EQ(describe(config), pConfig);
        EXPECT_EQ(log.text(), pLog);
    }
}

TEST(ParseConfigurationFile, mainFileReplacesRepositoriesAndAddsToLists)
{
    const std::string sAddons =
        "<product><packages><addons><package><name>a</name></package></addons></packages></"
        "product>";
    TempDir dir;
    LogCapture log;
    Config config;
    const std::string sDefaults =
        "<log><logger type='stderr'/></log>" + sAddons + k_sBase + k_sBase + k_sExtra;
    EXPECT_TRUE(parseConfigurationFile(config, dir.write("d", inUpdater(sDefaults)), true));
    EXPECT_EQ(describe(config), "2 stderr addon=a base=@b default extra=@e default");
    EXPECT_EQ(log.text().find("proxy"), std::string::npos);
    log.clear();

    const std::string sMain = "<repository id='kelo42'><location href='m'/></repository><log/>";
    EXPECT_TRUE(parseConfigurationFile(config, dir.write("m", inUpdater(sAddons + sMain)), false));
    EXPECT_EQ(describe(config), "2 stderr addon=a addon=a extra=@e default base=@m");
    EXPECT_EQ(log.text(),
              "DEBUG: replacing repo ID 'kelo42' by 'base' for backwards compatibility\n"
              "DEBUG: no attribute 'enabled' for node 'repository'\n"
              "DEBUG: replacing default definition of repo 'base'\n"
              "DEBUG: no attribute 'level' for node 'log'\n"
              "DEBUG: no proxy configuration file '/etc/network/orvproxy.conf'\n");
}

TEST(LoadConfiguration, laysTheCommandLineOnTop)
{
    const std::string sLog = "<log level='debug'><logger type='stderr'/></log>";
    const std::string sTwo = sLog + k_sBase + k_sOff + k_sExtra;
    const struct {
        std::string body;
        std::vector<const char*> options;  ///< level, repository, URL, cache; null: not given
        std::string config;                ///< empty: the load fails
        std::string log;  ///< WARNING and above, behind the line about the defaults file
    } vCases[] = {
        {"", {}, "2 stderr", "ERROR: no log output! enabling stderr\n"},
        {"<log><logger type='syslog'><facility>user</facility></logger></log>",
         {},
         "2 syslog=8",
         ""},
        {sLog, {"trace"}, "0 stderr", ""},
        {sLog, {"X"}, "2 stderr", "ERROR: unrecognized logger level 'X' using 'info'\n"},
        {sTwo, {}, "", "ERROR: only one active repository supported\n"},
        {sTwo, {nullptr, "off"}, "1 stderr base=@b off off=@o extra=@e off", ""},
        {sLog + k_sBase,
         {nullptr, "kelo42", "kelo42:u"},
         "",
         "WARNING: ignoring URL override for non-existing repo 'kelo42'\n"
         "ERROR: no repository with ID 'kelo42'\n"},
        {sLog + k_sOff, {nullptr, nullptr, "off:http://h:1/"}, "1 stderr off=@http://h:1/ off", ""},
        {sLog, {nullptr, nullptr, "off"}, "", "ERROR: missing ':' in --repo-url option\n"},
        {sLog, {nullptr, nullptr, ":"}, "", "ERROR: missing ID in --repo-url option\n"},
        {sLog, {nullptr, nullptr, "off:"}, "", "ERROR: missing URL in --repo-url option\n"},
        {sLog, {nullptr, nullptr, nullptr, "/c"}, "1 stderr cache=/c/", ""},
        {sLog, {nullptr, nullptr, nullptr, "/c/"}, "1 stderr cache=/c/", ""},
        {sLog,
         {nullptr, nullptr, nullptr, ""},
         "1 stderr cache=./",
         "WARNING: cache dir empty, assuming './'\n"},
        {sLog,
         {nullptr, nullptr, nullptr, "c"},
         "1 stderr cache=c/",
         "WARNING: cache dir 'c' is not an absolute path\n"},
    };
    TempDir dir;
    for (auto test : vCases) {
        SCOPED_TRACE(test.config + test.log);
        std::string sPath = dir.write("conf", inUpdater(test.body));
        test.options.resize(4);
        CommandLineOptions options;
        options.confFile = sPath.data();
        options.logLevel = const_cast<char*>(test.options[0]);
        options.repo = const_cast<char*>(test.options[1]);
        options.repoUrl = const_cast<char*>(test.options[2]);
        options.cacheDir = const_cast<char*>(test.options[3]);
        LogCapture log(WARNING);
        Config config;
        EXPECT_EQ(loadConfiguration(options, config) ? describe(config) : "", test.config);
        EXPECT_EQ(log.text(), k_sNoDefaults + test.log);
    }
}

TEST(LoadConfiguration, copiesFlagsAndNumbers)
{
    using Options = CommandLineOptions;
    const std::pair<int Options::*, bool Config::*> vFlags[] = {
        {&Options::quiet, &Config::quiet},
        {&Options::cacheOnly, &Config::cacheOnly},
        {&Options::checkOnly, &Config::checkOnly},
        {&Options::test, &Config::test},
        {&Options::noSigCheck, &Config::noSigCheck},
        {&Options::noReboot, &Config::noReboot},
        {&Options::background, &Config::background},
        {&Options::noCacheClean, &Config::noCacheClean},
        {&Options::checkDbHeaders, &Config::checkDbHeaders},
        {&Options::logToStderr, &Config::logToStderr}};
    TempDir dir;
    std::string sPath = dir.write(
        "conf",
        "<updater><log><logger type='syslog'><facility>user</facility></logger></log></updater>");
    for (const auto& [pOption, pField] : vFlags) {
        LogCapture log(WARNING);
        Options options;
        options.confFile = sPath.data();
        options.*pOption = 1;
        Config config;
        EXPECT_TRUE(loadConfiguration(options, config));
        EXPECT_EQ(config.maxWaitTime, 600);  // 0 is not given
        EXPECT_EQ(config.lockTimeout, 120);
        options.*pOption = 0;
        options.maxWaitTime = -3;
        options.lockTimeout = 7;
        EXPECT_TRUE(loadConfiguration(options, config));  // and what is not given turns nothing off
        EXPECT_EQ(config.maxWaitTime, -3);
        EXPECT_EQ(config.lockTimeout, 7);
        for (const auto& [pUnused, pOther] : vFlags) {
            EXPECT_EQ(config.*pOther, pOther == pField);
        }
    }
}

TEST(LoadConfiguration, stopsAtAMainFileThatIsNotThere)
{
    TempDir dir;
    std::string sPath = dir.file("none");
    CommandLineOptions options;
    options.confFile = sPath.data();
    options.logToStderr = 1;
    LogCapture log;
    Config config;
    EXPECT_FALSE(loadConfiguration(options, config));
    EXPECT_FALSE(config.logToStderr);  // no option is applied
    EXPECT_EQ(log.text(), k_sNoDefaults + "DEBUG: missing or incorrect defaults file '" +
                              k_sDefaults + "'\nERROR: could not open configuration file '" +
                              sPath + "'\nERROR: failed parsing configuration file '" + sPath +
                              "'\n");
}
