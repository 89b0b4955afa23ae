#include "repository/repository.h"
#include "repository/itemnotify.h"
#include "testing/testing.h"

#include <gtest/gtest.h>
#include <rpm/rpmlib.h>

#include <filesystem>

namespace {

std::string index(const std::string& sData)
{
    return "<repomd xmlns='http://linux.duke.edu/metadata/repo'>" + sData + "</repomd>";
}

std::string data(const std::string& sChildren)
{
    return index("<data type='primary'>" + sChildren + "</data>");
}

const std::string k_sPrimary = "<metadata xmlns='http://linux.duke.edu/metadata/common'/>";

TEST(Repomd, judgesTheIndex)
{
    const std::string sFailed = "DEBUG: failed parsing 'data' element\n";
    const struct {
        const char* title;
        std::string document;
        bool ok;
        std::string location;  ///< of the primary file
        std::string log;
    } vCases[] = {
        {"full",
         data("<location href='repodata/p.gz'/><checksum type='sha'>1</checksum>"
              "<open-checksum type='sha'>2</open-checksum><timestamp>4294967297</timestamp>"),
         true, "repodata/p.gz", ""},
        {"the first of a type, the last of a child",
         index("<x><data type='primary'><location href='a'/><location href='b'/></data></x>"
               "<data type='primary'><location href='c'/></data>"),
         true, "b", ""},
        {"without a namespace", "<repomd/>", false, "",
         "DEBUG: bad top-level element, 'repomd' instead of 'rempomd'\n"},
        {"syntax error", "<repomd", false, "", ""},
        {"no type", index("<data/>"), false, "",
         "DEBUG: no attribute 'type' for node 'data'\n"
         "DEBUG: no 'type' attribute in 'data' element\n" +
             sFailed},
        {"timestamp with letters", data("<timestamp>12x</timestamp>"), false, "",
         "DEBUG: failed parsing 'timestamp'\n" + sFailed},
        {"timestamp too large", data("<timestamp>18446744073709551615</timestamp>"), false, "",
         "DEBUG: failed parsing 'timestamp'\n" + sFailed},
        {"open checksum without text", data("<open-checksum type='sha'/>"), false, "",
         "DEBUG: no string list for node 'open-checksum'\n"
         "DEBUG: failed parsing 'checksum' element\n" +
             sFailed},
        {"control character", data("<location href='a&#10;b'/>"), false, "",
         "DEBUG: control character in 'location' of 'data' element\n" + sFailed},
    };
    const TempDir dir;
    LogCapture log;
    for (const auto& test : vCases) {
        SCOPED_TRACE(test.title);
        dir.write("repomd.xml", test.document);
        log.clear();
        ResourceSet resources;
        EXPECT_EQ(parseRepomd(dir.path() + "/", resources), test.ok);
        const auto primary = resources.find("primary");
        EXPECT_EQ(primary == resources.end() ? "" : primary->location, test.location);
        EXPECT_EQ(log.text(), test.log);
        if (test.title == std::string("full")) {
            EXPECT_EQ(primary->timestamp, 1U);
            EXPECT_EQ(primary->localPath, dir.file("p.gz"));
            EXPECT_EQ(primary->openChecksum.value, "2");
        }
    }
}

class RepositoryTest : public testing::Test {
protected:
    RepositoryTest()
    {
        rpmReadConfigFiles(nullptr, nullptr);
        std::filesystem::create_directories(dir.file("remote/repodata"));
        config.cacheDir = dir.path() + "/";
        repoConfig.id = "base";
        repoConfig.uri = dir.file("remote");
        const LogCapture silence;  // the machine has no identity
        URLFetcher::setNetworkDefaults({});
    }

    /// Publishes a primary file whose index gives these checksums.
    void publish(const std::string& sSum, const std::string& sOpenSum) const
    {
        dir.write("remote/repodata/p.xml", k_sPrimary);
        dir.write("remote/repodata/repomd.xml",
                  data("<location href='repodata/p.xml'/>" +
                       (sSum.empty() ? "" : "<checksum type='sha'>" + sSum + "</checksum>") +
                       (sOpenSum.empty()
                            ? ""
                            : "<open-checksum type='sha'>" + sOpenSum + "</open-checksum>")));
    }

    TempDir dir;
    Config config;
    RepoConfig repoConfig;
    const std::string good = "cf293cb5a7213c5c1182cceb365e858ba2c733de";
};

TEST_F(RepositoryTest, cleansAllFilesOfThePackageDirectory)
{
    Repository repository(config, repoConfig);
    EXPECT_TRUE(repository.cleanPackages());  // no directory, nothing to do
    std::filesystem::create_directories(dir.file("base/packages/sub"));
    dir.write("base/packages/a.rpm", "");
    dir.write("base/packages/z.rpm.tmp", "");
    LogCapture log(INFO);
    EXPECT_TRUE(repository.cleanPackages());
    EXPECT_FALSE(dir.exists("base/packages/a.rpm"));
    EXPECT_FALSE(dir.exists("base/packages/z.rpm.tmp"));
    EXPECT_EQ(log.text(), "ERROR: failed removing file '" + dir.file("base/packages/sub") +
                              "' (Is a directory)\n"
                              "WARNING: encountered errors while cleaning package cache\n");
    std::filesystem::remove_all(dir.file("base/packages"));
    dir.write("base/packages", "");
    EXPECT_FALSE(repository.cleanPackages());
}

TEST_F(RepositoryTest, acceptsThePrimaryFileByEitherChecksum)
{
    const std::string sTwice =
        "WARNING: invalid checksum on 'repodata/p.xml'; retrying with bypass of http caches\n"
        "ERROR: invalid checksum on 'repodata/p.xml'\n"
        "ERROR: failed getting repository resource 'repodata/p.xml'\n";
    const std::string sEmpty = "ERROR: attempted to check an empty checksum\n";
    const struct {
        const char* title;
        std::string sum;
        std::string openSum;
        bool ok;
        std::string log;
    } vCases[] = {
        {"both", good, good, true, ""},
        {"of the file", good, "1", true, ""},
        {"of the contents", "1", good, true, ""},
        {"contents only", "", good, true, sEmpty},
        {"capital letters", "CF293CB5A7213C5C1182CCEB365E858BA2C733DE", "1", false, sTwice},
    };
    for (const auto& test : vCases) {
        SCOPED_TRACE(test.title);
        std::filesystem::remove_all(dir.file("base"));
        publish(test.sum, test.openSum);
        Repository repository(config, repoConfig);
        LogCapture log(INFO);
        EXPECT_EQ(repository.update(""), test.ok);
        EXPECT_EQ(log.text(), test.log);
    }
}

TEST_F(RepositoryTest, transfersTheIndexOnlyWhenNothingChanged)
{
    publish(good, good);
    Repository repository(config, repoConfig);
    ASSERT_TRUE(repository.update(""));
    std::filesystem::remove(dir.file("remote/repodata/p.xml"));
    LogCapture log;
    EXPECT_TRUE(repository.update(""));
    EXPECT_NE(log.text().find("DEBUG: cached copy '" + dir.file("base/p.xml") +
                              "' of 'repodata/p.xml' is valid\n"),
              std::string::npos);

    // A failed refresh leaves the new index beside the old primary file, which load() refuses.
    publish(std::string(40, '0'), "");
    std::filesystem::remove(dir.file("remote/repodata/p.xml"));
    EXPECT_FALSE(repository.update(""));
    EXPECT_EQ(dir.read("base/p.xml"), k_sPrimary);
    log.clear();
    EXPECT_FALSE(repository.load());
    EXPECT_TRUE(log.text().ends_with("ERROR: invalid checksum on 'repodata/p.xml'\n"));
}

TEST_F(RepositoryTest, tellsWhyARefreshCannotBegin)
{
    const struct {
        std::string uri;
        std::string log;
    } vCases[] = {
        {"", "ERROR: no repository URI set, cannot update\n"},
        {"relative/path",
         "ERROR: repository URI 'relative/path' missing host, path or scheme\n"
         "ERROR: failed creating repository downloder from 'relative/path'\n"},
        {"file://elsewhere/srv",
         "ERROR: only local file: URIs supported\n"
         "ERROR: cannot create fetcher for 'file://elsewhere/srv'\n"
         "ERROR: failed creating repository downloder from 'file://elsewhere/srv'\n"},
        {dir.file("none"),
         "ERROR: failed copying file (No such file or directory)\n"
         "ERROR: failed getting repository resource 'repodata/repomd.xml'\n"},
    };
    for (const auto& test : vCases) {
        repoConfig.uri = test.uri;
        Repository repository(config, repoConfig);
        LogCapture log(INFO);
        EXPECT_FALSE(repository.update(""));
        EXPECT_EQ(log.text(), test.log);
    }
}

TEST_F(RepositoryTest, fetchesWhatTheCacheLacks)
{
    Repository repository(config, repoConfig);
    std::filesystem::create_directories(dir.file("base/packages"));
    PackageSet updateSet;
    for (const char* pName : {"cached", "damaged", "missing"}) {
        Package package;
        package.name = pName;
        package.location = std::string("pool/") + pName;
        package.localPath = dir.file("base/packages/") + pName;
        package.checksum = {good, "sha"};
        updateSet.insertEqual(package);
    }
    dir.write("base/packages/cached", k_sPrimary);
    dir.write("base/packages/damaged", "old");
    std::filesystem::create_directories(dir.file("remote/pool"));
    dir.write("remote/pool/damaged", k_sPrimary);
    dir.write("remote/pool/missing", k_sPrimary);
    EXPECT_TRUE(repository.fetchPackages(updateSet));  // "cached" cannot be transferred
    EXPECT_EQ(dir.read("base/packages/missing"), k_sPrimary);

    dir.write("remote/pool/cached", "wrong");
    dir.write("base/packages/cached", "old");
    LogCapture log(INFO);
    EXPECT_FALSE(repository.fetchPackages(updateSet));
    EXPECT_EQ(log.text(), "WARNING: invalid checksum on '" + dir.file("base/packages/cached") +
                              "'; retrying with bypass of http caches\n"
                              "ERROR: invalid checksum on '" +
                              dir.file("base/packages/cached") + "'\n");
}

TEST(ItemNotify, reportsOnceAMinuteAndAtTheEndOfALongJob)
{
    using std::chrono::seconds;
    const ItemNotify::Clock::time_point start{};
    LogCapture log;
    ItemNotify job(2, start);
    job.report(start + seconds(59));
    job.done = 1;
    job.report(start + seconds(60));
    job.report(start + seconds(119));
    job.report(start + seconds(120));
    job.done = 2;
    job.report(start + seconds(121));
    job.report(start + seconds(500));
    EXPECT_EQ(log.text(),
              "INFO: downloading... (1/2)\nINFO: downloading... (1/2)\nINFO: downloaded (2/2)\n");

    log.clear();
    ItemNotify reused(5, start);
    reused.done = 3;  // two were in the cache
    reused.report(start + seconds(61));
    reused.report(start + seconds(62));
    EXPECT_EQ(log.text(), "INFO: downloading... (3/5)\n");
}

}  // namespace
