#include "net/uri.h"

#include "testing/cases.h"

namespace {

std::string partsOf(bool bParsed, ne_uri& uri)
{
    const auto text = [](const char* pPart) { return std::string(pPart != nullptr ? pPart : ""); };
    const std::string sParts = !bParsed ? "refused"
                                        : text(uri.scheme) + " " + text(uri.host) + " " +
                                              std::to_string(uri.port) + " " + uri.path;
    ne_uri_free(&uri);
    return sParts;
}

TEST(Uri, isReadAndTellsWhereARedirectLeads)
{
    expectEach<const char*>({{"http://[::1]", "http [::1] 0 /"},
                             {"http://[::1]/8080/x", "http [::1] 0 /8080/x"},  // no port
                             {"http://[::1]:81/x", "http [::1] 81 /x"},
                             {"http://u@[::1]/9", "http [::1] 0 /9"},
                             {"//[::1]/9", " [::1] 0 /9"},
                             {"http://[::1", "refused"},
                             {"http://h//[1]", "refused"},
                             {"file:///srv", "file  0 /srv"}},
                            [](const char* pText) {
                                ne_uri uri = {};
                                const bool bParsed = parseUri(pText, uri);
                                return partsOf(bParsed, uri);
                            });
    ne_uri origin = {};
    ASSERT_TRUE(parseUri("http://[::1]:8080/never", origin));
    expectEach<const char*>({{"https://[::2]/9", "https [::2] 0 /9"},
                             {"/x", "http [::1] 8080 /x"},
                             {"y", "http [::1] 8080 /a/b/y"},
                             {"file:/x", "http [::1] 8080 /a/b/file:/x"},
                             {"file:///x", "file  0 /x"},
                             {"", "http [::1] 8080 /a/b/"}},
                            [&](const char* pLocation) {
                                ne_uri target = {};
                                const bool bOk =
                                    redirectTarget(pLocation, origin, "/a/b/c", target);
                                return partsOf(bOk, target);
                            });
    ne_uri_free(&origin);
}

TEST(Uri, takesBracketsOffAndPutsThemOn)
{
    EXPECT_EQ(bareAddress("[2001:DB8:0::1]"), "2001:db8::1");
    for (const char* pOther : {"[::1", "::1]", "[1.2.3.4]", "h"}) {
        EXPECT_EQ(bareAddress(pOther), "");
    }
    const std::string sEnd = " HTTP/1.1\r\nUser-Agent: ::1\r\nHost: ";
    EXPECT_EQ(withBrackets("CONNECT ::1:8443" + sEnd + "::1:8443\r\n", "::1"),
              "CONNECT [::1]:8443" + sEnd + "[::1]:8443\r\n");
    EXPECT_EQ(withBrackets("GET /::1" + sEnd + "::1\r\n", "::1"), "GET /::1" + sEnd + "[::1]\r\n");
}

}  // namespace
