#include "repository/repository.h"
#include "repository/itemnotify.h"
#include "testing/packages.h"
#include "testing/testing.h"

#include <gtest/gtest.h>
#include <rpm/rpmlib.h>

#include <filesystem>
#include <tuple>

namespace {

const std::string k_sIndex = R"(<r:repomd xmlns:r='http://linux.duke.edu/metadata/repo'>
<data/><x><r:data type='primary'><r:location href='no'/><r:location href='repodata/p.gz'/>
<r:checksum type='sha'>1</r:checksum><r:open-checksum type='sha'>2</r:open-checksum>
<location href='no'/><r:timestamp>4294967297</r:timestamp></r:data></x>
<r:data type='primary'><r:location href='second'/></r:data></r:repomd>)";

TEST(Repomd, judgesTheIndex)
{
    const std::string sOk = "repodata/p.gz /c/p.gz 1 2 1";
    const std::string sFailed = "DEBUG: failed parsing 'data' element\n";
    const std::string sNoType = "DEBUG: no attribute 'type' for node 'data'\n";
    const std::string sNoSum = "DEBUG: failed parsing 'checksum' element\n";
    const std::string sBadTime = "DEBUG: failed parsing 'timestamp'\n" + sFailed;
    const std::tuple<std::string, std::string, std::string> vCases[] = {
        {"<data/>", "", "ok " + sOk},
        {"<data/>", "<r:data type='other'><r:location href='packages'/></r:data>",
         "ok packages /c/packages   0" + sOk},
        {"repo'>", "x'>", "DEBUG: bad top-level element, 'repomd' instead of 'rempomd'\n"},
        {"</r:repomd>", "", sOk},
        {" type='primary'", "",
         sNoType + "DEBUG: no 'type' attribute in 'data' element\n" + sFailed},
        {"4294967297", "12x", sBadTime},
        {"4294967297", "18446744073709551615", sBadTime},
        {">2<", "><", "DEBUG: no string list for node 'open-checksum'\n" + sNoSum + sFailed},
        {"a/p.gz", "/packages/",
         "DEBUG: 'location' of 'data' element takes a place of the cache\n" + sFailed},
        {"p.gz", "p.table",
         "DEBUG: 'location' of 'data' element takes a place of the cache\n" + sFailed},
        {"<r:repomd", "<!DOCTYPE r:repomd [<!ENTITY % p ''>]><r:repomd",
         "DEBUG: document type declaration in metadata\n"},
        {"p.gz", "p.tmp", "DEBUG: unusable file name 'p.tmp' in 'location'\n" + sFailed},
        {"a/p", "&#10;", "DEBUG: control character in 'location' of 'data' element\n" + sFailed}};
    const TempDir dir;
    std::filesystem::create_directory(dir.file("c"));
    for (const auto& [sPart, sNew, sExpected] : vCases) {
        dir.write("c/repomd.xml", replaced(k_sIndex, sPart, sNew));
        const LogCapture log;
        ResourceSet resources;
        std::string sResult = parseRepomd(dir.file("c/"), resources) ? "ok " : "";
        for (const RepoResource& found : resources) {
            sResult += found.location + " " + found.localPath.substr(dir.path().size()) + " " +
                       found.checksum.value + " " + found.openChecksum.value + " " +
                       std::to_string(found.timestamp);
        }
        EXPECT_EQ(sResult + log.text(), sExpected) << sPart << sNew;
    }
}

class RepositoryTest : public testing::Test {
protected:
    RepositoryTest()
    {
        rpmReadConfigFiles(nullptr, nullptr);
        std::filesystem::create_directories(dir.file("remote/repodata"));
        std::filesystem::create_directories(dir.file("base/packages"));
        config.cacheDir = dir.path() + "/";
        repoConfig.id = "base";
        repoConfig.uri = dir.file("remote");
        const LogCapture silence;  // the machine has no identity
        URLFetcher::setNetworkDefaults({});
    }

    TempDir dir;
    Config config;
    RepoConfig repoConfig;
    const std::string primary = "<metadata xmlns='http://linux.duke.edu/metadata/common'/>";
    const std::string sum = "cf293cb5a7213c5c1182cceb365e858ba2c733de";  // of it
};

TEST_F(RepositoryTest, cleansAllFilesOfThePackageDirectory)
{
    std::filesystem::create_directories(dir.file("base/packages/sub"));
    dir.write("base/packages/a.rpm", "");
    dir.write("base/packages/z.rpm.tmp", "");
    LogCapture log(INFO);
    EXPECT_TRUE(Repository(config, repoConfig).cleanPackages());
    EXPECT_FALSE(dir.exists("base/packages/a.rpm") || dir.exists("base/packages/z.rpm.tmp"));
    EXPECT_EQ(log.text(), "ERROR: failed removing file '" + dir.file("base/packages/sub") +
                              "' (Is a directory)\n"
                              "WARNING: encountered errors while cleaning package cache\n");
    std::filesystem::remove_all(dir.file("base/packages"));
    EXPECT_TRUE(Repository(config, repoConfig).cleanPackages());  // nothing to do
    dir.write("base/packages", "");
    EXPECT_FALSE(Repository(config, repoConfig).cleanPackages());
}

TEST_F(RepositoryTest, acceptsThePrimaryFileByEitherChecksum)
{
    const std::tuple<std::string, std::string, std::string> vCases[] = {
        {sum, "x", ""}, {"x", sum, ""}, {"", sum, "ERROR: attempted to check an empty checksum\n"}};
    dir.write("remote/repodata/p.xml", primary);
    for (const auto& [sSum, sOpenSum, sLog] : vCases) {
        SCOPED_TRACE(sSum + " " + sOpenSum);
        std::filesystem::remove(dir.file("base/p.xml"));
        std::string sIndex = replaced(replaced(k_sIndex, "p.gz", "p.xml"), "2<", sOpenSum + "<");
        sIndex = sSum.empty() ? replaced(sIndex, "r:checksum", "r:x")
                              : replaced(sIndex, "1<", sSum + "<");
        dir.write("remote/repodata/repomd.xml", sIndex);
        Repository repository(config, repoConfig);
        LogCapture log(INFO);
        EXPECT_TRUE(repository.update(""));
        EXPECT_EQ(log.text(), sLog);
    }
}

TEST_F(RepositoryTest, readsTheSamePrimaryFileOnce)
{
    const std::string sPackage =
        "<package type='rpm'><name>n</name><arch>vax</arch><version epoch='0' ver='1'/>"
        "<checksum type='sha'>1</checksum><location href='n.rpm'/></package>";
    dir.write("remote/repodata/p.xml", replaced(primary, "/>", ">" + sPackage + "</metadata>"));
    const auto publish = [&] {
        Sha1Digest digest;
        EXPECT_TRUE(fileDigest(dir.file("remote/repodata/p.xml"), digest, false));
        const std::string sSum = hexText(digest.data(), digest.size());
        dir.write("remote/repodata/repomd.xml",
                  replaced(replaced(k_sIndex, "p.gz", "p.xml"), "1<", sSum + "<"));
    };
    publish();
    dir.write("base/old.xml.table", "");
    const std::string sSkipped = "WARNING: skipping package 'n.rpm' of non-compatible arch 'vax'\n";
    // How a reading of the XML, of the compiled form and of none of them begins.
    const std::string sXml = "passing over compiled metadata";
    const auto logOf = [](const auto& act) {
        const LogCapture log;
        EXPECT_TRUE(act());
        return log.text();
    };
    Repository repository(config, repoConfig);
    std::string sLog = logOf([&] { return repository.update(""); });
    EXPECT_NE(sLog.find(sXml), std::string::npos);
    EXPECT_FALSE(dir.exists("base/old.xml.table"));
    const std::string sTable = dir.read("base/p.xml.table");
    dir.write("base/p.xml.table", "damaged");
    sLog = logOf([&] { return repository.load(); });
    EXPECT_EQ(sLog.find(sXml), std::string::npos);
    EXPECT_TRUE(sLog.ends_with(sSkipped));

    dir.write("base/p.xml.table", sTable);
    sLog = logOf([&] { return Repository(config, repoConfig).load(); });
    EXPECT_EQ(sLog.find(sXml), std::string::npos);
    EXPECT_NE(sLog.find(sSkipped), std::string::npos);

    dir.write("remote/repodata/p.xml", primary);
    publish();
    sLog = logOf([&] { return repository.update(""); });  // another one
    EXPECT_NE(sLog.find("(of another primary file)"), std::string::npos);
    EXPECT_EQ(sLog.find(sSkipped), std::string::npos);

    std::string sMany;  // architectures: more than are kept in mind for another machine
    for (int i = 0; i < 1001; ++i) {
        sMany += replaced(sPackage, "vax", "vax" + std::to_string(i));
    }
    dir.write("remote/repodata/p.xml", replaced(primary, "/>", ">" + sMany + "</metadata>"));
    publish();
    std::filesystem::remove(dir.file("base/p.xml.table"));
    sLog = logOf([&] { return repository.update(""); });
    EXPECT_FALSE(dir.exists("base/p.xml.table"));
    dir.write("base/p.xml", "");
    const LogCapture log;
    EXPECT_FALSE(repository.load());
}

TEST_F(RepositoryTest, tellsWhyARefreshCannotBegin)
{
    repoConfig.uri = "";
    Repository repository(config, repoConfig);
    LogCapture log(INFO);
    EXPECT_FALSE(repository.update(""));
    EXPECT_FALSE(repository.fetchPackages({}));
    EXPECT_FALSE(repository.update("file://elsewhere/srv"));
    EXPECT_EQ(log.text(),
              "ERROR: no repository URI set, cannot update\n"
              "ERROR: no repository URI set, cannot get packages\n"
              "ERROR: only local file: URIs supported\n"
              "ERROR: cannot create fetcher for 'file://elsewhere/srv'\n"
              "ERROR: failed creating repository downloder from 'file://elsewhere/srv'\n");
}

TEST_F(RepositoryTest, fetchesWhatTheCacheLacks)
{
    PackageSet packages;
    for (const std::string sName : {"cached", "damaged", "missing", "twin"}) {
        PackageRecord package = makePackage(sName, "1");
        package.location = sName == "twin" ? "other/missing" : "repodata/" + sName;
        package.checksum = {sum, "sha"};
        packages.insertEqual(package);
        dir.write("base/packages/" + sName, sName == "cached" ? primary : "old");
        dir.write("remote/repodata/" + sName, primary);
    }
    packages.sort();
    UpdateSet updateSet;
    for (std::uint32_t u = 0; u < 3; ++u) {
        updateSet.insertUnique(packages[u]);
    }
    std::filesystem::remove(dir.file("base/packages/missing"));
    std::filesystem::remove(dir.file("remote/repodata/cached"));
    EXPECT_TRUE(Repository(config, repoConfig).fetchPackages(updateSet));
    EXPECT_EQ(dir.read("base/packages/damaged") + dir.read("base/packages/missing"),
              primary + primary);

    LogCapture log(INFO);
    updateSet.insertUnique(packages[3]);
    EXPECT_FALSE(Repository(config, repoConfig).fetchPackages(updateSet));
    repoConfig.id = "b*se";
    EXPECT_FALSE(Repository(config, repoConfig).fetchPackages({}));
    EXPECT_EQ(replaced(log.text(), dir.path(), ""),
              "ERROR: packages missing-0:1 and twin-0:1 have the same file name 'missing'\n"
              "ERROR: cannot use package directory '/b*se/packages/' "
              "(rpm would expand its name)\n");
}

TEST(ItemNotify, reportsOnceAMinuteAndAtTheEndOfALongJob)
{
    const LogCapture log;
    ItemNotify job(2, {});
    ItemNotify reused(5, {});
    reused.done = 3;  // two were in the cache
    for (const int iSecond : {59, 60, 119, 120, 121, 500}) {
        job.done = iSecond < 60 ? 0 : iSecond < 121 ? 1 : 2;
        job.report(ItemNotify::Clock::time_point{} + std::chrono::seconds(iSecond));
    }
    reused.report(ItemNotify::Clock::time_point{} + std::chrono::seconds(61));
    EXPECT_EQ(log.text(),
              "INFO: downloading... (1/2)\nINFO: downloading... (1/2)\nINFO: downloaded (2/2)\n"
              "INFO: downloading... (3/5)\n");
}

}  // namespace
