// The part of URLFetcher that decides for or against the proxy.

#include "net/localnetwork.h"
#include "net/urlfetcher.h"
#include "support/logger.h"

#include <ne_auth.h>

#include <memory>

namespace {

struct AddrinfoDeleter {
    void operator()(addrinfo* pList) const { freeaddrinfo(pList); }
};
struct IfaddrsDeleter {
    void operator()(ifaddrs* pList) const { freeifaddrs(pList); }
};

ne_inet_addr* makeAddress(const sockaddr* pAddress)
{
    if (pAddress->sa_family == AF_INET) {
        return ne_iaddr_make(ne_iaddr_ipv4,
                             reinterpret_cast<const unsigned char*>(getIPv4Addr(pAddress)));
    }
    return ne_iaddr_make(ne_iaddr_ipv6,
                         reinterpret_cast<const unsigned char*>(getIPv6Addr(pAddress)));
}

}  // namespace

void URLFetcher::chooseProxy()
{
    if (s_proxy.server.empty()) {
        logMessage(DEBUG, "no proxy configured");
        return;
    }
    if (s_proxy.bypassLocalNetwork && !findLocalAddresses()) {
        logMessage(WARNING,
                   "could not check if addresses for host '%s' are in local net, using proxy",
                   m_sHost.c_str());
    }
    if (m_vAddrs.empty()) {
        ne_session_proxy(m_pSession, s_proxy.server.c_str(), s_proxy.port);
        ne_set_proxy_auth(m_pSession, &proxyCredentials, this);
        logMessage(DEBUG, "using proxy for %s", m_sHost.c_str());
    } else {
        logMessage(DEBUG, "bypassing proxy since %s is local", m_sHost.c_str());
    }
}

bool URLFetcher::findLocalAddresses()
{
    std::string sHost = m_sHost;
    clearAddresses();
    addrinfo hints = {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    if (sHost.starts_with('[') && sHost.ends_with(']')) {
        sHost = sHost.substr(1, sHost.size() - 2);
        hints.ai_flags |= AI_NUMERICHOST;
    }
    addrinfo* pHost = nullptr;
    const int iError = getaddrinfo(sHost.c_str(), nullptr, &hints, &pHost);
    if (iError != 0) {
        logMessage(ERROR, "failed resolving address '%s' (%s)", m_sHost.c_str(),
                   gai_strerror(iError));
        return false;
    }
    const std::unique_ptr<addrinfo, AddrinfoDeleter> host(pHost);
    ifaddrs* pInterfaces = nullptr;
    if (getifaddrs(&pInterfaces) != 0) {
        logMessage(ERROR, "failed getting local network addresses (%s)", errnoText().c_str());
        return false;
    }
    const std::unique_ptr<ifaddrs, IfaddrsDeleter> interfaces(pInterfaces);
    for (const sockaddr* pAddress : localAddresses(host.get(), interfaces.get())) {
        ne_inet_addr* pMade = makeAddress(pAddress);
        if (pMade != nullptr) {
            m_vAddrs.push_back(pMade);
        }
    }
    if (m_pSession != nullptr && !m_vAddrs.empty()) {
        ne_set_addrlist(m_pSession, const_cast<const ne_inet_addr**>(m_vAddrs.data()),
                        m_vAddrs.size());
    }
    return true;
}

void URLFetcher::clearAddresses()
{
    if (m_pSession != nullptr) {
        ne_set_addrlist(m_pSession, nullptr, 0);
    }
    for (ne_inet_addr* pAddress : m_vAddrs) {
        ne_iaddr_free(pAddress);
    }
    m_vAddrs.clear();
}
