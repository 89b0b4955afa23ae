#pragma once

#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <vector>

/// The address inside a socket address of family AF_INET.
const in_addr* getIPv4Addr(const sockaddr* p);

/// The address inside a socket address of family AF_INET6.
const in6_addr* getIPv6Addr(const sockaddr* p);

/// True if an address lies in the network of an interface: the two are equal under the interface's
/// netmask. An entry without an address or a netmask, as tunnels and packet sockets have them, and
/// one of another family match nothing.
bool isInNetwork(const sockaddr* pAddress, const ifaddrs& entry);

/// Those of a host's IPv4 and IPv6 addresses that lie in the network of any interface.
///
/// @param pHost        what getaddrinfo(3) gives; may be null.
/// @param pInterfaces  what getifaddrs(3) gives; may be null. Flags do not count: the loopback
///                     interface and one that is down take part.
/// @return             in the order of `pHost`, and valid as long as that list.
std::vector<const sockaddr*> localAddresses(const addrinfo* pHost, const ifaddrs* pInterfaces);
