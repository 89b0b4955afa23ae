#include "repository/repository.h"
#include "repository/itemnotify.h"
#include "testing/cases.h"
#include "testing/packages.h"

#include <rpm/rpmlib.h>

#include <filesystem>

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
    const std::string sPlace =
        "DEBUG: 'location' of 'data' element takes a place of the cache\n" + sFailed;
    const TempDir dir;
    std::filesystem::create_directory(dir.file("c"));
    const auto parse = [&](const auto& sPart, const auto& sNew) {
        dir.write("c/repomd.xml", replaced(k_sIndex, sPart, sNew));
        ResourceSet resources;
        std::string sResult = parseRepomd(dir.file("c/"), resources) ? "ok " : "";
        for (const RepoResource& found : resources) {
            sResult += found.location + " " + found.localPath.substr(dir.path().size()) + " " +
                       found.checksum.value + " " + found.openChecksum.value + " " +
                       std::to_string(found.timestamp);
        }
        return sResult;
    };
    expectEach<std::tuple<std::string, std::string>>(
        {{{"<data/>", ""}, "ok " + sOk},
         {{"<data/>", "<r:data type='other'><r:location href='packages'/></r:data>"},
          "ok packages /c/packages   0" + sOk},
         {{"repo'>", "x'>"}, "DEBUG: bad top-level element, 'repomd' instead of 'rempomd'\n"},
         {{"</r:repomd>", ""}, sOk},
         {{" type='primary'", ""},
          sNoType + "DEBUG: no 'type' attribute in 'data' element\n" + sFailed},
         {{"4294967297", "12x"}, sBadTime},
         {{"4294967297", "18446744073709551615"}, sBadTime},
         {{">2<", "><"}, "DEBUG: no string list for node 'open-checksum'\n" + sNoSum + sFailed},
         {{"a/p.gz", "/packages/"}, sPlace},
         {{"p.gz", "p.table"}, sPlace},
         {{"p.gz", "repomd.xml.revision"}, sPlace},
         {{"<r:repomd", "<!DOCTYPE r:repomd [<!ENTITY % p ''>]><r:repomd"},
          "DEBUG: document type declaration in metadata\n"},
         {{"p.gz", "p.tmp"}, "DEBUG: unusable file name 'p.tmp' in 'location'\n" + sFailed},
         {{"a/p", "&#10;"},
          "DEBUG: control character in 'location' of 'data' element\n" + sFailed}},
        parse);
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
    const LogCapture log(WARNING);
    EXPECT_TRUE(Repository(config, repoConfig).cleanPackages());
    EXPECT_FALSE(dir.exists("base/packages/a.rpm") || dir.exists("base/packages/z.rpm.tmp"));
    EXPECT_THAT(log.text(), testing::EndsWith("errors while cleaning package cache\n"));
    std::filesystem::remove_all(dir.file("base/packages"));
    EXPECT_TRUE(Repository(config, repoConfig).cleanPackages());  // nothing to do
}

TEST_F(RepositoryTest, acceptsThePrimaryFileByEitherChecksum)
{
    const std::string sSum = "<r:checksum type='sha'>1</r:checksum>";
    dir.write("remote/repodata/p.xml", primary);
    expectEach<std::tuple<std::string, std::string>>(
        {{{replaced(sSum, "1", sum), "x"}, ""},
         {{sSum, sum}, ""},
         {{"", sum}, "ERROR: attempted to check an empty checksum\n"}},
        [&](const auto& sElement, const auto& sOpenSum) {
            std::filesystem::remove(dir.file("base/p.xml"));
            const std::string sIndex =
                replaced(replaced(k_sIndex, sSum, sElement), "2<", sOpenSum + "<");
            dir.write("remote/repodata/repomd.xml", replaced(sIndex, "p.gz", "p.xml"));
            return Repository(config, repoConfig).update("") ? "" : "failed";
        },
        INFO);
}

TEST_F(RepositoryTest, readsTheSamePrimaryFileOnce)
{
    const auto packageOf = [](const std::string& sArch) {
        return "<package type='rpm'><name>n</name><arch>" + sArch +
               "</arch><version epoch='0' ver='1'/><checksum type='sha'>1</checksum>"
               "<location href='n.rpm'/></package>";
    };
    const auto publish = [&](const std::string& sPackages) {
        const std::string sPath = dir.write(
            "remote/repodata/p.xml", replaced(primary, "/>", ">" + sPackages + "</metadata>"));
        Sha1Digest digest;
        EXPECT_TRUE(fileDigest(sPath, digest, false));
        const std::string sSum = hexText(digest.data(), digest.size());
        dir.write("remote/repodata/repomd.xml",
                  replaced(replaced(k_sIndex, "p.gz", "p.xml"), "1<", sSum + "<"));
    };
    const auto logOf = [](bool bLoad, Repository& repository) {
        const LogCapture log;
        EXPECT_TRUE(bLoad ? repository.load() : repository.update(""));
        return log.text();
    };
    const auto saysXml = testing::HasSubstr("passing over compiled metadata");
    const auto saysSkipped =
        testing::HasSubstr("WARNING: skipping package 'n.rpm' of non-compatible arch 'vax'\n");
    publish(packageOf("vax"));
    dir.write("base/old.xml.table", "");
    Repository repository(config, repoConfig);
    EXPECT_THAT(logOf(false, repository), saysXml);
    EXPECT_FALSE(dir.exists("base/old.xml.table"));
    const std::string sTable = dir.read("base/p.xml.table");
    dir.write("base/p.xml.table", "damaged");
    EXPECT_THAT(logOf(true, repository), testing::AllOf(testing::Not(saysXml), saysSkipped));
    dir.write("base/p.xml.table", sTable);
    Repository another(config, repoConfig);
    EXPECT_THAT(logOf(true, another), testing::AllOf(testing::Not(saysXml), saysSkipped));

    std::string sMany;  // architectures: more than are kept in mind for another machine
    for (int i = 0; i < 1001; ++i) {
        sMany += packageOf("mips" + std::to_string(i));
    }
    publish(sMany);
    EXPECT_THAT(logOf(false, repository), testing::HasSubstr("(of another primary file)"));
    EXPECT_EQ(dir.read("base/p.xml.table"), sTable);
    dir.write("base/p.xml", "");
    EXPECT_FALSE(repository.load());
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
    EXPECT_EQ(dir.read("base/packages/damaged"), primary);
    EXPECT_EQ(dir.read("base/packages/missing"), primary);

    const LogCapture log(INFO);
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
