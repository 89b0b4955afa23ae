#include "net/localnetwork.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>

namespace {

using Info = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

/// An address from its text; null for an empty one.
Info address(const char* pText)
{
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* pInfo = nullptr;
    getaddrinfo(pText, nullptr, &hints, &pInfo);
    return {pInfo, freeaddrinfo};
}

}  // namespace

TEST(LocalNetwork, comparesUnderTheMask)
{
    const std::tuple<const char*, const char*, const char*, bool> vCases[] = {
        {"192.168.1.77", "192.168.1.1", "255.255.255.0", true},
        {"10.0.0.130", "10.0.0.1", "255.255.255.128", false},
        {"fd00::1:0:1", "fd00::2", "ffff:ffff:ffff:ffff::", true},
        {"fd00:0:0:1::1", "fd00::1", "ffff:ffff:ffff:ffff::", false},
        {"1d00::1", "fd00::1", "ffff:ffff:ffff:ffff::", false},
        {"fd00::1:0:1", "fd00::1", "ffff:ffff:ffff:ffff:ffff:ffff::", false},
        {"::2", "::1", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", false},
        {"0.0.0.0", "::", "255.0.0.0", false},
        {"127.0.0.1", "127.0.0.1", "", false},
        {"127.0.0.1", "", "255.0.0.0", false},
        {"127.0.0.1", "127.0.0.1", "ffff::", false}};
    for (const auto& [pHost, pOwn, pMask, bLocal] : vCases) {
        SCOPED_TRACE(std::string(pHost) + " from " + pOwn + "/" + pMask);
        const Info own = address(pOwn);
        const Info mask = address(pMask);
        const Info hosts = address("198.51.100.7");
        hosts->ai_next = address(pHost).release();
        ifaddrs entry = {};
        entry.ifa_addr = own ? own->ai_addr : nullptr;
        entry.ifa_netmask = mask ? mask->ai_addr : nullptr;
        ifaddrs tunnel = {};  // has neither address nor netmask
        tunnel.ifa_next = &entry;
        const std::vector<const sockaddr*> vLocal(bLocal ? 1 : 0, hosts->ai_next->ai_addr);
        EXPECT_EQ(localAddresses(hosts.get(), &tunnel), vLocal) << pHost << " in " << pOwn << pMask;
    }
}
