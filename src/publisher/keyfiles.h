#pragma once

#include "publisher/devicelog.h"
#include "publisher/finding.h"

#include <string>
#include <string_view>
#include <vector>

/// What is wrong with a key by a line of `gpg --with-colons`: that it has expired or was revoked, in
/// words; empty for all other lines.
[[nodiscard]] std::string keyFault(std::string_view sLine);

/// Finds keys that gpg, if it is installed, takes for expired or revoked. librpm does not look.
///
/// @param vFiles      armoured public keys.
/// @param sTemporary  a directory, with its slash.
void inspectKeys(const std::vector<std::string>& vFiles, const std::string& sTemporary,
                 DeviceLog& log, Findings& findings);
