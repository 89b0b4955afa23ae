#include "net/downloader.h"

#include "testing/cases.h"

#include <sys/stat.h>
#include <unistd.h>

TEST(Downloader, opensARepositoryOnce)
{
    URLFetcher::setNetworkDefaults({});
    const std::pair<const char*, std::string> vCases[] = {
        {"http://h/ x", "ERROR: failed parsing repository URI 'http://h/ x'\n"},
        {"file:/srv", "ERROR: repository URI 'file:/srv' missing host, path or scheme\n"},
        {"gopher://h", "ERROR: scheme 'gopher' not supported\n"},
        {"http://h\nX: y", "ERROR: refused a host name with a control character\n"},
        {"gopher://127.0.0.1:70", "scheme 'gopher', host '127.0.0.1', port 70 created\n"},
        {"https://127.0.0.1", "scheme 'https', host '127.0.0.1', port 443 created\n"},
        {"file://localhost:7/", "for scheme 'file', host 'localhost', port 7 created\n"}};
    for (const auto& [pUri, sLog] : vCases) {
        const LogCapture log;
        Downloader downloader;
        EXPECT_NE(downloader.open(pUri), sLog.starts_with("ERROR")) << pUri;
        EXPECT_THAT(log.text(), testing::HasSubstr(sLog));
        EXPECT_NE(downloader.open("file:///srv"), !sLog.starts_with("ERROR")) << pUri;
    }
    ne_uri uri = {};  // without a port
    ASSERT_EQ(ne_uri_parse("http://203.0.113.1", &uri), 0);
    EXPECT_TRUE(URLFetcher(uri).matches(uri));
    ne_uri_free(&uri);
}

TEST(Downloader, copiesFilesUnderATemporaryName)
{
    const TempDir dir;
    URLFetcher::setNetworkDefaults({});
    Downloader downloader;
    ASSERT_TRUE(chdir(dir.path().c_str()) == 0 && downloader.open("file://" + dir.path()));
    const std::string sNew(10000, 'n');
    dir.write("p%20", sNew);
    mkdir("dir", 0777);
    ASSERT_EQ(symlink("/dev/null", "null"), 0);
    expectEach<std::tuple<const char*, const char*>>(
        {{{"missing", "to"}, "oldERROR: failed copying file (No such file or directory)\n"},
         {{".", "to"}, "oldERROR: failed copying file (Is a directory)\n"},
         {{"null", "to"}, "oldERROR: failed copying file (Invalid argument)\n"},
         {{"p%20", "no/to"},
          "oldERROR: failed creating file 'no/to.tmp' (No such file or directory)\n"},
         {{"p%20", "dir"}, "oldERROR: failed renaming 'dir.tmp' to 'dir' (Is a directory)\n"},
         {{"p%20", "to"}, sNew}},
        [&](const char* pPath, const std::string& sTo) {
            dir.write("to", "old");
            dir.write("to.tmp", sNew + "left by an earlier run");
            const bool bOk = downloader.download(pPath, sTo, true);
            EXPECT_EQ(bOk, dir.read("to") == sNew);
            EXPECT_FALSE(dir.exists(sTo + ".tmp"));
            return dir.read("to");
        },
        ERROR);
}
