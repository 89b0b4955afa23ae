#include "net/localnetwork.h"

#include "testing/cases.h"

#include <memory>

TEST(LocalNetwork, comparesUnderTheMask)
{
    const auto address = [](const char* pText) {  // null for an empty text
        addrinfo hints = {};
        hints.ai_flags = AI_NUMERICHOST;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* pInfo = nullptr;
        getaddrinfo(pText, nullptr, &hints, &pInfo);
        return std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>(pInfo, freeaddrinfo);
    };
    const std::tuple<const char*, const char*, const char*, bool> vCases[] = {
        {"192.168.1.77", "192.168.1.1", "255.255.255.0", true},
        {"10.0.0.130", "10.0.0.1", "255.255.255.128", false},
        {"fd00::1:0:1", "fd00::2", "ffff:ffff:ffff:ffff::", true},
        {"fd00:0:0:1::1", "fd00::1", "ffff:ffff:ffff:ffff::", false},
        {"1d00::1", "fd00::1", "ffff:ffff:ffff:ffff::", false},
        {"::2", "::1", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", false},
        {"0.0.0.0", "::", "255.0.0.0", false},
        {"127.0.0.1", "127.0.0.1", "", false},
        {"127.0.0.1", "", "255.0.0.0", false},
        {"127.0.0.1", "127.0.0.1", "ffff::", false}};
    for (const auto& [pHost, pOwn, pMask, bLocal] : vCases) {
        const auto own = address(pOwn);
        const auto mask = address(pMask);
        const auto hosts = address("198.51.100.7");
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
