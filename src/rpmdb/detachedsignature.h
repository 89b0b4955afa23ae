#pragma once

#include "support/verdict.h"

#include <rpm/rpmtypes.h>

#include <string>
#include <string_view>

/// Tests bytes against a detached signature in armoured form. It may hold several, of which the first
/// 16 are looked at. A usable signature is one of a binary document with a hash function of the SHA-2
/// family that librpm can read. As everywhere in rpm, keys count until they are removed, expired and
/// revoked ones too.
///
/// @param ts  with an open database.
[[nodiscard]] SignatureVerdict verifyDetached(rpmts ts, std::string_view sData,
                                              std::string_view sArmour);
