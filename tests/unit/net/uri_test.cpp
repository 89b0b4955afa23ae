#include "net/uri.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

std::string partsOf(bool bParsed, ne_uri& uri)
{
    std::string sParts = "refused";
    if (bParsed) {
        sParts = std::string(uri.scheme != nullptr ? uri.scheme : "") + " " +
                 (uri.host != nullptr ? uri.host : "") + " " + std::to_string(uri.port) + " " +
                 uri.path;
    }
    ne_uri_free(&uri);
    return sParts;
}

TEST(Uri, takesNoPathForAPort)
{
    const std::pair<const char*, const char*> vCases[] = {
        {"http://[::1]", "http [::1] 0 /"},
        {"http://[::1]/8080/x", "http [::1] 0 /8080/x"},
        {"http://[::1]:81/x", "http [::1] 81 /x"},
        {"http://u@[::1]/9", "http [::1] 0 /9"},
        {"//[::1]/9", " [::1] 0 /9"},
        {"http://[::1", "refused"},
        {"http://h//[1]", "refused"},
        {"http://h:81/x]", "refused"},
        {"file:///srv", "file  0 /srv"},
    };
    for (const auto& [pText, pExpected] : vCases) {
        SCOPED_TRACE(pText);
        ne_uri uri = {};
        const bool bParsed = parseUri(pText, uri);
        EXPECT_EQ(partsOf(bParsed, uri), pExpected);
    }
}

TEST(Uri, tellsWhereARedirectLeads)
{
    const std::pair<const char*, const char*> vCases[] = {
        {"https://[::2]/9", "https [::2] 0 /9"},
        {"/x", "http [::1] 8080 /x"},
        {"y", "http [::1] 8080 /a/b/y"},
        {"file:/x", "http [::1] 8080 /a/b/file:/x"},
        {"file:///x", "file  0 /x"},
        {"", "http [::1] 8080 /a/b/"},
        {"http://[::1", "refused"},
    };
    ne_uri origin = {};
    ASSERT_TRUE(parseUri("http://[::1]:8080/never", origin));
    for (const auto& [pLocation, pExpected] : vCases) {
        SCOPED_TRACE(pLocation);
        ne_uri target = {};
        const bool bParsed = redirectTarget(pLocation, origin, "/a/b/c", target);
        EXPECT_EQ(partsOf(bParsed, target), pExpected);
    }
    ne_uri_free(&origin);
}

TEST(Uri, takesBracketsOffAndPutsThemOn)
{
    EXPECT_EQ(bareAddress("[2001:DB8:0::1]"), "2001:db8::1");
    EXPECT_EQ(
        bareAddress("[::1") + bareAddress("::1]") + bareAddress("[1.2.3.4]") + bareAddress("h"),
        "");
    EXPECT_EQ(
        withBrackets("CONNECT ::1:8443 HTTP/1.1\r\nUser-Agent: ::1\r\nHost: ::1:8443\r\n", "::1"),
        "CONNECT [::1]:8443 HTTP/1.1\r\nUser-Agent: ::1\r\nHost: [::1]:8443\r\n");
    EXPECT_EQ(withBrackets("GET /::1 HTTP/1.1\r\nHost: ::1\r\n", "::1"),
              "GET /::1 HTTP/1.1\r\nHost: [::1]\r\n");
}

}  // namespace
