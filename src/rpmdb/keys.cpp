#include "rpmdb/keys.h"

#include "rpmdb/database.h"
#include "support/checksum.h"

#include <rpm/rpmts.h>

#include <cstdint>

namespace {

bool finds(rpmts ts, rpmDbiTagVal tag, const std::string& sValue)
{
    return RpmHandle<rpmdbMatchIterator>(rpmtsInitIterator(ts, tag, sValue.c_str(), 0)) != nullptr;
}

}  // namespace

Signature readSignature(std::string_view sPacket)
{
    pgpDigParams pRead = nullptr;
    const int iResult = pgpPrtParams(reinterpret_cast<const std::uint8_t*>(sPacket.data()),
                                     sPacket.size(), PGPTAG_SIGNATURE, &pRead);
    Signature signature(pRead);
    return iResult == 0 ? std::move(signature) : nullptr;
}

std::string signerOf(pgpDigParams signature)
{
    return hexText(pgpDigParamsSignID(signature), PGP_KEYID_LEN);
}

bool holdsKey(rpmts ts, const std::string& sId)
{
    // Each public key of the database provides its own id and those of its subkeys.
    return finds(ts, RPMDBI_PROVIDENAME, "gpg(" + sId + ")");
}

bool holdsAnyKey(rpmts ts)
{
    return finds(ts, RPMDBI_NAME, "gpg-pubkey");
}
