#include "net/uri.h"

#include <ne_alloc.h>
#include <ne_socket.h>

#include <algorithm>
#include <array>
#include <memory>

bool parseUri(const std::string& sText, ne_uri& uri)
{
    std::string sUri = sText;
    const std::size_t uSlashes = sUri.find("//");
    if (uSlashes == 0 || (uSlashes != std::string::npos && sUri[uSlashes - 1] == ':')) {
        const std::size_t uEnd = std::min(sUri.find('/', uSlashes + 2), sUri.size());
        if (sUri[uEnd - 1] == ']') {
            sUri.insert(uEnd, ":");  // an empty port is the default one
        }
    }
    return ne_uri_parse(sUri.c_str(), &uri) == 0;
}

bool redirectTarget(const std::string& sLocation, const ne_uri& origin, const std::string& sPath,
                    ne_uri& target)
{
    const bool bRelative =
        sLocation.find("://") == std::string::npos && !sLocation.starts_with('/');
    const std::string sDirectory = bRelative ? sPath.substr(0, sPath.rfind('/') + 1) : "";
    if (!parseUri(sDirectory + sLocation, target)) {
        return false;
    }
    if (target.host == nullptr) {
        ne_free(target.scheme);
        target.scheme = ne_strdup(origin.scheme);
        target.host = ne_strdup(origin.host);
        target.port = origin.port;
    }
    return true;
}

std::string bareAddress(const std::string& sHost)
{
    if (!sHost.starts_with('[') || !sHost.ends_with(']')) {
        return "";
    }
    const std::string sInner = sHost.substr(1, sHost.size() - 2);
    const std::unique_ptr<ne_inet_addr, decltype(&ne_iaddr_free)> address(
        ne_iaddr_parse(sInner.c_str(), ne_iaddr_ipv6), &ne_iaddr_free);
    std::array<char, 64> vText = {};
    return address != nullptr ? ne_iaddr_print(address.get(), vText.data(), vText.size()) : "";
}

std::string withBrackets(std::string sRequest, const std::string& sAddress)
{
    for (const std::string& sBefore : {std::string("CONNECT "), std::string("\r\nHost: ")}) {
        const std::size_t uFound = sRequest.find(sBefore + sAddress);
        if (uFound != std::string::npos) {
            sRequest.replace(uFound + sBefore.size(), sAddress.size(), "[" + sAddress + "]");
        }
    }
    return sRequest;
}
