#include "net/downloader.h"

#include "net/scriptedserver.h"
#include "testing/testing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <sstream>

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

/// A proxy that nobody listens on, bypassed for the local network and so for our servers.
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

std::string reply(const std::string& sStatus, const std::string& sHeader = "")
{
    return "HTTP/1.1 " + sStatus + "\r\nContent-Length: 3\r\n" + sHeader + "\r\nnew";
}

const std::string k_sNoCache = "Cache-Control: no-cache\r\nPragma: no-cache\r\n";

const std::map<std::string, std::string> k_vReplies = {
    {"close", ""},
    {"cut", "HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\nlonger than the rest"},
    {"ok", reply("200 OK")},
    {"404", reply("404 Not Found")},
    {"308", reply("308 Moved", "Location: /x\r\n")},
    {"401", reply("401 No", "WWW-Authenticate: Digest realm=r, nonce=n\r\n")},
    {"loop", reply("302 Found", "Location: /other\r\n")},
    {"file", reply("302 Found", "Location: file:///x\r\n")},
    {"far", reply("302 Found", "Location: file://h/x\r\n")},
};

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

TEST(Downloader, retriesAndFollowsRedirects)
{
    setDefaults();
    const std::string sFailed = "failed fetching 'p' (";
    const std::string sClosed =
        sFailed + "Could not read status line: connection was closed by server)";
    const std::string sCut =
        sFailed + "Could not read response body: connection was closed by server)";
    const struct {
        const char* replies;
        std::string log;  ///< INFO and above; a success has no ERROR
    } vCases[] = {
        {"ok", ""},
        {"close close ok", "WARNING: " + sClosed + "; retrying\nWARNING: " + sClosed +
                               "; retrying\nINFO: fetched 'p' in retry 2\n"},
        {"cut ok", "WARNING: " + sCut + "; retrying\nINFO: fetched 'p' in retry 1\n"},
        {"cut close cut ok", "WARNING: " + sCut + "; retrying\nWARNING: " + sClosed +
                                 "; retrying\nERROR: " + sCut + "\n"},
        {"loop 404 ok", "ERROR: " + sFailed + "404 Not Found)\n"},
        {"308 ok", "ERROR: " + sFailed + "308 Moved)\n"},
        {"401 ok", "ERROR: http authentication requested but no credentials set\nERROR: " +
                       sFailed + "authentication failed on server)\n"},
        {"loop loop loop close loop loop ok", "WARNING: " + sClosed + "; retrying\n"},
        {"loop loop loop loop loop loop ok", "ERROR: maximum number of redirects (5) exceeded\n"},
        {"file", ""},
        {"far ok",
         "ERROR: only local file: URIs supported\n"
         "ERROR: cannot create fetcher for redirection to 'file://h/x'\n"},
    };
    for (const auto& test : vCases) {
        SCOPED_TRACE(test.replies);
        TempDir dir;
        dir.write("p", "new");
        const std::string sTo = dir.write("to", "old");
        std::vector<std::string> vReplies;
        std::istringstream words(test.replies);
        for (std::string sWord; words >> sWord;) {
            vReplies.push_back(k_vReplies.at(sWord));
        }
        ScriptedServer server(vReplies);
        const bool bOk = test.log.find("ERROR") == std::string::npos;
        LogCapture log(INFO);
        Downloader downloader;
        ASSERT_TRUE(downloader.open(server.origin + dir.path()));
        EXPECT_EQ(downloader.download("p", sTo, true), bOk);
        EXPECT_EQ(log.text(), test.log);
        EXPECT_EQ(dir.read("to"), bOk ? "new" : "old");
        EXPECT_FALSE(dir.exists("to.tmp"));
        const std::string sStart = "GET " + dir.path() + "/p HTTP/1.1\r\nUser-Agent: base/1.1";
        EXPECT_THAT(server.stop(), Each(AllOf(StartsWith(sStart), HasSubstr(k_sNoCache))));
    }
}

TEST(Downloader, keepsOneFetcherForEachOrigin)
{
    setDefaults();
    struct Counter : URLFetcher::Notifier {
        void notify(ne_session_status status, const ne_session_status_info*) override
        {
            connected += status == ne_status_connected ? 1 : 0;
        }
        int connected = 0;
    } counter;
    TempDir dir;
    ScriptedServer target({reply("200 OK"), reply("200 OK")});
    const std::string sLocation = target.origin + "/elsewhere";
    const std::string sRedirect = reply("302 Found", "Location: " + sLocation + "\r\n");
    ScriptedServer server({sRedirect, sRedirect});
    Downloader downloader;
    ASSERT_TRUE(downloader.open(server.origin + "/base"));
    downloader.setNotifier(&counter);
    LogCapture log;
    EXPECT_TRUE(downloader.download("p", dir.file("a"), false));
    EXPECT_THAT(log.text(),
                AllOf(HasSubstr("'p' redirected to '" + sLocation + "\n"), HasSubstr("created\n")));
    log.clear();
    EXPECT_TRUE(downloader.download("/q", dir.file("b"), false));
    EXPECT_FALSE(downloader.download("p HTTP/1.1\r\nX: y", dir.file("c"), false));
    EXPECT_THAT(log.text(),
                AllOf(HasSubstr("ERROR: refused to request a path with a control character\n"),
                      Not(HasSubstr("created\n"))));
    EXPECT_EQ(counter.connected, 4);
    EXPECT_THAT(target.stop(),
                ElementsAre(StartsWith("GET /base/p "), StartsWith("GET /base//q ")));
    EXPECT_THAT(server.stop(), Each(Not(HasSubstr("no-cache"))));
}
