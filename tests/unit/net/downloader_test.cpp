#include "net/downloader.h"

#include "testing/testing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using testing::HasSubstr;

namespace {

/// A proxy that nobody listens on, bypassed for the local network.
void setDefaults()
{
    LogCapture log;
    ProxyConfig config;
    config.server = "127.0.0.1";
    config.port = 1;
    config.bypassLocalNetwork = true;
    config.agentBase = "base";
    URLFetcher::setNetworkDefaults(config);
}

}  // namespace

TEST(Downloader, opensARepositoryOnce)
{
    const struct {
        const char* uri;
        std::string log;  ///< a part of it; ERROR in front means that the URI is refused
    } vCases[] = {
        // Stands first: a process can see it only once.
        {"file:///srv",
         "ERROR: URLFetcher class not initialized before calling constructor\n"
         "ERROR: cannot create fetcher for 'file:///srv'\n"},
        {"http://h/ x", "ERROR: failed parsing repository URI 'http://h/ x'\n"},
        {"file:/srv", "ERROR: repository URI 'file:/srv' missing host, path or scheme\n"},
        {"file://h/", "ERROR: only local file: URIs supported\nERROR: cannot create fetcher for"},
        {"gopher://h", "ERROR: scheme 'gopher' not supported\n"},
        {"http://h\nX: y", "ERROR: refused a host name with a control character\n"},
        {"http://127.0.0.1", "bypassing proxy since 127.0.0.1 is local\n"},
        {"http://203.0.113.1", "DEBUG: using proxy for 203.0.113.1\n"},
        {"http://[::zz]/",
         "WARNING: could not check if addresses for host '[::zz]' are in local net, using proxy\n"},
        {"gopher://127.0.0.1:70", "scheme 'gopher', host '127.0.0.1', port 70 created\n"},
        {"https://127.0.0.1", "scheme 'https', host '127.0.0.1', port 443 created\n"},
        {"file://localhost:7/", "for scheme 'file', host 'localhost', port 7 created\n"},
    };
    for (const auto& test : vCases) {
        LogCapture log;
        Downloader downloader;
        EXPECT_NE(downloader.open(test.uri), test.log.starts_with("ERROR")) << test.uri;
        EXPECT_THAT(log.text(), HasSubstr(test.log));
        setDefaults();
        EXPECT_NE(downloader.open("file:///srv"), !test.log.starts_with("ERROR"));
    }
    ne_uri uri = {};  // without a port
    ASSERT_EQ(ne_uri_parse("http://203.0.113.1", &uri), 0);
    EXPECT_TRUE(URLFetcher(uri).matches(uri));
    ne_uri_free(&uri);
}

TEST(Downloader, copiesFilesUnderATemporaryName)
{
    setDefaults();
    TempDir dir;
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    const std::string sNew(10000, 'n');
    dir.write("p%20", sNew);
    mkdir("dir", 0777);
    const struct {
        const char* path;
        const char* to;
        std::string log;  ///< ERROR; empty for a success
    } vCases[] = {
        {"missing", "to", "ERROR: failed copying file (No such file or directory)\n"},
        {".", "to", "ERROR: failed copying file (Is a directory)\n"},
        {"p%20", "no/to", "ERROR: failed creating file 'no/to.tmp' (No such file or directory)\n"},
        {"p%20", "dir", "ERROR: failed renaming 'dir.tmp' to 'dir' (Is a directory)\n"},
        {"p%20", "to", ""},
    };
    Downloader downloader;
    ASSERT_TRUE(downloader.open("file://" + dir.path()));
    for (const auto& test : vCases) {
        dir.write("to", "old");
        dir.write("to.tmp", sNew + "left by an earlier run");
        LogCapture log(ERROR);
        EXPECT_EQ(downloader.download(test.path, test.to, true), test.log.empty());
        EXPECT_EQ(log.text(), test.log);
        EXPECT_EQ(dir.read("to"), test.log.empty() ? sNew : "old");
        EXPECT_FALSE(dir.exists(std::string(test.to) + ".tmp"));
    }
}
