#include "config/configuration.h"

#include "testing/cases.h"

namespace {

/// Log outputs, cache directory and repositories.
std::string describe(const Config& config)
{
    std::string sAll = std::to_string(config.logLevel) + (config.logToStderr ? " stderr " : " ") +
                       (config.logToSyslog ? std::to_string(config.syslogFacility) : "");
    sAll += config.cacheDir == Config().cacheDir ? "" : config.cacheDir;
    for (const RepoConfig& repo : config.repositories) {
        sAll += " " + repo.id + "=" + repo.name + "@" + repo.uri + (repo.enabled ? "" : " off") +
                (repo.isDefault ? " default" : "");
    }
    return sAll;
}

std::string inUpdater(const std::string& sBody)
{
    return "<updater xmlns:p='urn:p'>" + sBody + "</updater>";
}

const std::string k_sBase = "<repository id='base'><location href='b'/></repository>";
const std::string k_sExtra = "<repository id='extra'><location href='e'/></repository>";

TEST(ParseConfigurationFile, readsElementsWhereverTheyStand)
{
    TempDir dir;
    const LogCapture log(WARNING);
    Config config;
    const std::string sMain = R"(<tls trust='system'/><p:log level='debug'/><x level='debug'>
<log level='warn'><logger type='stderr'/><logger type='tape'/><p:logger/><tls trust='/dev/null'/>
 <logger type='syslog'><facility>user</facility><p:facility>local1</p:facility></logger></log>
</x><log level=''/>
<repository p:id='b' id='a' enabled='true'><name>A<i>I</i> &amp;<![CDATA[ <B]]></name><p:location/>
 <location href='x'/><location href='y'/><p:name>no</p:name>
 <repository id='kelo42' enabled='TRUE'><location href='z'/></repository></repository>
<repository id='c' enabled='' xmlns='urn:p'><location xmlns='urn:p' href='c'/></repository>
<user-agent><base>B</base><prodname>P</prodname></user-agent>
<product><name> N </name><packages>
 <release><group><name>g</name></group><package><name>rel</name></package></release>
 <addons><other><name>o</name></other><package><name>a</name><name>b</name><x>c</x></package>
 <group><name>g</name></group><package><name>a</name></package></addons></packages></product>)";
    const std::string sDefaults = dir.write("d", inUpdater(k_sBase + k_sBase + k_sExtra));
    EXPECT_TRUE(parseConfigurationFile(config, sDefaults, true));
    EXPECT_EQ(describe(config), "2  base=@b default extra=@e default");
    EXPECT_TRUE(parseConfigurationFile(config, dir.write("conf", inUpdater(sMain)), false));
    EXPECT_EQ(describe(config), "3 stderr 136 extra=@e default a=A & <B@y base=@z off c=@c off");
    EXPECT_EQ(config.addonPackages, (std::vector<std::string>{"a", "b", "a"}));
    EXPECT_EQ(config.addonGroups.at(0) + config.productName + config.releasePackage, "g N rel");
    EXPECT_EQ(config.proxy.agentBase + config.proxy.agentProduct + config.proxy.tlsTrust,
              "BP/dev/null");
    EXPECT_EQ(log.text(), "WARNING: ignoring package group named 'g' in config file line 11\n");
}

TEST(ParseConfigurationFile, failsAtTheFirstMalformedElement)
{
    const TempDir dir;
    const auto parse = [&](const std::string& sBody) {
        Config config;
        const std::string sPath = dir.write("conf", inUpdater(k_sBase + sBody + k_sExtra));
        EXPECT_FALSE(parseConfigurationFile(config, sPath, false)) << sBody;
        EXPECT_EQ(describe(config), "2  base=@b");  // what stood in front of the failure
        return "";
    };
    const std::string sBadId = "ERROR: bad 'id' attribute in 'repository' element\n";
    expectEach<std::string>(
        {{"<repository id='a'><location/></repository>",
          "ERROR: no 'href' attribute in 'location' element\n"},
         {"<repository id=''><location href='x'/></repository>", sBadId},
         {"<repository id='../a'/>", sBadId},
         {"<repository id='a'><location href=''/></repository>",
          "ERROR: no URI for repository 'a'\n"},
         {k_sBase, "ERROR: more than one repository with same ID\n"},
         {"<repository id='a'><name/><location href='x'/></repository>", ""},
         {"<log><logger/></log>", ""},
         {"<log><logger type='syslog'/></log>", ""},
         {"<product><packages><release/></packages></product>", ""},
         {"<product><packages><addons><group><name/></group></addons></packages></product>", ""},
         {"<tls/>", "ERROR: no 'trust' attribute in 'tls' element\n"},
         {"<tls trust='ca'/>", "ERROR: TLS trust 'ca' is neither 'system' nor an absolute path\n"},
         {"<tls trust='/'/>", "ERROR: cannot read TLS certificates '/' (Is a directory)\n"}},
        parse, WARNING);
}

TEST(LoadConfiguration, laysTheCommandLineOnTop)
{
    const std::string sLog = "<log level='debug'><logger type='stderr'/></log>";
    const char* const pNone = nullptr;  // not given
    const std::tuple<std::string, const char*, const char*, const char*> vCases[] = {
        {"", pNone, pNone, "2 stderr \nERROR: no log output! enabling stderr\n"},
        {"<log><logger type='syslog'><facility>user</facility></logger></log>", pNone, pNone,
         "2 8\n"},
        {sLog + k_sBase + k_sExtra, "base:u", pNone,
         "failed\nERROR: only one active repository supported\n"},
        {sLog + k_sBase, "kelo42:u", pNone,
         "1 stderr  base=@b\nWARNING: ignoring URL override for non-existing repo 'kelo42'\n"},
        {sLog + k_sBase, "base:u:/v", "/c/", "1 stderr /c/ base=@u:/v\n"},
        {sLog, ":", pNone, "failed\nERROR: missing ID in --repo-url option\n"},
        {sLog, "off:", pNone, "failed\nERROR: missing URL in --repo-url option\n"},
        {sLog, pNone, "", "1 stderr ./\nWARNING: cache dir empty, assuming './'\n"},
        {sLog, pNone, "c", "1 stderr c/\nWARNING: cache dir 'c' is not an absolute path\n"}};
    const TempDir dir;
    std::string sPath = dir.file("conf");
    for (const auto& [sBody, pUrl, pCache, pExpected] : vCases) {
        SCOPED_TRACE(sBody);
        dir.write("conf", inUpdater(sBody));
        CommandLineOptions options;
        options.confFile = sPath.data();
        options.repoUrl = const_cast<char*>(pUrl);
        options.cacheDir = const_cast<char*>(pCache);
        options.checkDbHeaders = 1;
        Config config;
        const LogCapture log(WARNING);
        std::string sResult = loadConfiguration(options, config) ? describe(config) : "failed";
        sResult += log.text().substr(log.text().find('\n'));  // the defaults file is missing
        EXPECT_EQ(sResult, pExpected);
        EXPECT_TRUE(config.checkDbHeaders && config.maxWaitTime + config.lockTimeout == 720);
    }
}

}  // namespace
