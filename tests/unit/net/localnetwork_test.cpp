#include "net/localnetwork.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>

namespace {

/// A socket address from its text; null for an empty one, family AF_PACKET for no address.
struct Address {
    explicit Address(const std::string& sText) : pointer(sText.empty() ? nullptr : &address.plain)
    {
        const bool bV4 = inet_pton(AF_INET, sText.c_str(), &address.v4.sin_addr) == 1;
        const bool bV6 = !bV4 && inet_pton(AF_INET6, sText.c_str(), &address.v6.sin6_addr) == 1;
        address.plain.sa_family = bV4 ? AF_INET : bV6 ? AF_INET6 : AF_PACKET;
    }
    union {
        sockaddr_in6 v6;
        sockaddr_in v4;
        sockaddr plain;
    } address = {};
    sockaddr* pointer;
};

}  // namespace

TEST(LocalNetwork, comparesUnderTheMask)
{
    const struct {
        const char* host;
        const char* own;
        const char* mask;
        bool local;
    } vCases[] = {
        {"192.168.1.77", "192.168.1.1", "255.255.255.0", true},
        {"192.168.2.77", "192.168.1.1", "255.255.255.0", false},
        {"10.0.0.130", "10.0.0.1", "255.255.255.128", false},
        {"fd00::1:0:1", "fd00::2", "ffff:ffff:ffff:ffff::", true},
        {"fd00:0:0:1::1", "fd00::1", "ffff:ffff:ffff:ffff::", false},
        {"1d00::1", "fd00::1", "ffff:ffff:ffff:ffff::", false},
        {"fd00::1:0:1", "fd00::1", "ffff:ffff:ffff:ffff:ffff:ffff::", false},
        {"::2", "::1", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", false},
        {"0.0.0.0", "::", "255.0.0.0", false},
        {"::", "0.0.0.0", "ffff::", false},
        {"127.0.0.1", "127.0.0.1", "", false},
        {"127.0.0.1", "", "255.0.0.0", false},
        {"127.0.0.1", "127.0.0.1", "packet", false},
        {"packet", "packet", "packet", false},
    };
    for (const auto& test : vCases) {
        SCOPED_TRACE(std::string(test.host) + " in " + test.own + "/" + test.mask);
        Address host(test.host);
        Address own(test.own);
        Address mask(test.mask);
        Address other("198.51.100.7");
        addrinfo last = {};
        last.ai_addr = host.pointer;
        addrinfo first = {};
        first.ai_addr = other.pointer;
        first.ai_next = &last;
        ifaddrs entry = {};
        entry.ifa_addr = own.pointer;
        entry.ifa_netmask = mask.pointer;
        ifaddrs tunnel = {};  // has neither address nor netmask
        tunnel.ifa_next = &entry;
        const std::vector<const sockaddr*> vLocal(test.local ? 1 : 0, host.pointer);
        EXPECT_EQ(localAddresses(&first, &tunnel), vLocal);
    }
}
