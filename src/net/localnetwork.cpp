#include "net/localnetwork.h"

#include <cassert>

namespace {

bool equalUnder(const in_addr& mask, const in_addr& a, const in_addr& b)
{
    return (a.s_addr & mask.s_addr) == (b.s_addr & mask.s_addr);
}

bool equalUnder(const in6_addr& mask, const in6_addr& a, const in6_addr& b)
{
    for (std::size_t u = 0; u < 4; ++u) {
        if ((a.s6_addr32[u] & mask.s6_addr32[u]) != (b.s6_addr32[u] & mask.s6_addr32[u])) {
            return false;
        }
    }
    return true;
}

}  // namespace

const in_addr* getIPv4Addr(const sockaddr* p)
{
    assert(p->sa_family == 2);  // AF_INET
    return &reinterpret_cast<const sockaddr_in*>(p)->sin_addr;
}

const in6_addr* getIPv6Addr(const sockaddr* p)
{
    assert(p->sa_family == 10);  // AF_INET6
    return &reinterpret_cast<const sockaddr_in6*>(p)->sin6_addr;
}

bool isInNetwork(const sockaddr* pAddress, const ifaddrs& entry)
{
    const sockaddr* pOwn = entry.ifa_addr;
    const sockaddr* pMask = entry.ifa_netmask;
    if (pOwn == nullptr || pMask == nullptr || pOwn->sa_family != pAddress->sa_family ||
        pMask->sa_family != pAddress->sa_family) {
        return false;
    }
    switch (pAddress->sa_family) {
        case AF_INET:
            return equalUnder(*getIPv4Addr(pMask), *getIPv4Addr(pAddress), *getIPv4Addr(pOwn));
        case AF_INET6:
            return equalUnder(*getIPv6Addr(pMask), *getIPv6Addr(pAddress), *getIPv6Addr(pOwn));
        default:
            return false;
    }
}

std::vector<const sockaddr*> localAddresses(const addrinfo* pHost, const ifaddrs* pInterfaces)
{
    std::vector<const sockaddr*> vLocal;
    for (; pHost != nullptr; pHost = pHost->ai_next) {
        const sockaddr* pAddress = pHost->ai_addr;
        if (pAddress == nullptr) {
            continue;
        }
        const ifaddrs* pEntry = pInterfaces;
        while (pEntry != nullptr && !isInNetwork(pAddress, *pEntry)) {
            pEntry = pEntry->ifa_next;
        }
        if (pEntry != nullptr) {
            vLocal.push_back(pAddress);
        }
    }
    return vLocal;
}
