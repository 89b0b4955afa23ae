#pragma once

#include <ne_uri.h>

#include <string>

/// ne_uri_parse() that copes with an IPv6 address in brackets that no port follows: there the
/// library takes what stands a byte behind the authority for a port.
///
/// @param uri  ne_uri_free() releases it, also after a failure.
/// @return     false if the text is no URI (RFC 3986) as the library reads them.
[[nodiscard]] bool parseUri(const std::string& sText, ne_uri& uri);

/// Where a redirect leads. A location without "://" that does not begin with a slash is relative to
/// the directory of the request's path.
///
/// @param sLocation  value of the header of that name.
/// @param origin     scheme, host and port to take if the location names no host.
/// @param sPath      path of the request that was answered.
/// @param target     ne_uri_free() releases it, also after a failure.
/// @return           false if the location cannot be parsed.
[[nodiscard]] bool redirectTarget(const std::string& sLocation, const ne_uri& origin,
                                  const std::string& sPath, ne_uri& target);

/// The text of an IPv6 address in brackets without them, in the form in which the library shows
/// addresses of certificates ("2001:db8::1"); empty for any other host.
std::string bareAddress(const std::string& sHost);

/// A request (RFC 9112) in which an IPv6 address stands in brackets again, in the header "Host" and
/// as target of CONNECT.
std::string withBrackets(std::string sRequest, const std::string& sAddress);
