#pragma once

#include <rpm/rpmpgp.h>
#include <rpm/rpmtypes.h>

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

struct SignatureDeleter {
    void operator()(pgpDigParams signature) const { pgpDigParamsFree(signature); }
};
/// What a signature packet says.
using Signature = std::unique_ptr<std::remove_pointer_t<pgpDigParams>, SignatureDeleter>;

/// Null if it is no signature that librpm can read.
[[nodiscard]] Signature readSignature(std::string_view sPacket);

/// The id of the key that made a signature, in 16 hexadecimal digits. The signature itself says so.
[[nodiscard]] std::string signerOf(pgpDigParams signature);

/// True if the database has the public key, or the subkey, of this id.
///
/// @param ts  with an open database.
[[nodiscard]] bool holdsKey(rpmts ts, const std::string& sId);

/// True if the database has any public key.
[[nodiscard]] bool holdsAnyKey(rpmts ts);
