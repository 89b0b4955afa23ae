#pragma once

#include <ne_session.h>

#include <string>
#include <vector>

/// The certificates in a text of the PEM format (RFC 7468), in their order, each as base64 on one
/// line. Whatever stands around them is passed over, other objects and a cut certificate too.
std::vector<std::string> pemCertificates(const std::string& sText);

/// Makes a session of scheme https trust servers.
///
/// @param sTrust  "system": certificates that the system's store vouches for; else the path of a
///                PEM file: those whose chain ends in one of its certificates, which are
///                authorities or signed by themselves. If it cannot be read or has none (logged at
///                ERROR), the session goes on trusting nobody.
void trustServers(ne_session* pSession, const std::string& sTrust);
