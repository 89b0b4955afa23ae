#pragma once

#include "config/config.h"

#include <string>

/// Reads the proxy file into `proxy`. An absent file is no error.
///
/// @return false for a malformed file or an invalid `proxy` element (logged, but for syntax
///         errors). The record then holds the last valid element in front of it, if any.
[[nodiscard]] bool readProxyConfig(const std::string& sPath, ProxyConfig& proxy);
