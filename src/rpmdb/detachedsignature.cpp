#include "rpmdb/detachedsignature.h"

#include "rpmdb/armour.h"
#include "rpmdb/database.h"
#include "rpmdb/keys.h"

#include <rpm/rpmkeyring.h>
#include <rpm/rpmpgp.h>
#include <rpm/rpmts.h>

#include <cstddef>
#include <memory>

namespace {

constexpr std::size_t k_uMostSignatures = 16;

struct KeyringDeleter {
    void operator()(rpmKeyring keyring) const { rpmKeyringFree(keyring); }
};
using Keyring = std::unique_ptr<std::remove_pointer_t<rpmKeyring>, KeyringDeleter>;

bool isUsable(pgpDigParams signature)
{
    const unsigned uHash = pgpDigParamsAlgo(signature, PGPVAL_HASHALGO);
    return pgpSignatureType(signature) == PGPSIGTYPE_BINARY && uHash >= PGPHASHALGO_SHA256 &&
           uHash <= PGPHASHALGO_SHA224;
}

rpmRC verifyWith(rpmKeyring keyring, pgpDigParams signature, std::string_view sData)
{
    const auto iHash = static_cast<int>(pgpDigParamsAlgo(signature, PGPVAL_HASHALGO));
    DIGEST_CTX context = rpmDigestInit(iHash, RPMDIGEST_NONE);
    rpmDigestUpdate(context, sData.data(), sData.size());
    const rpmRC result = rpmKeyringVerifySig(keyring, signature, context);
    rpmDigestFinal(context, nullptr, nullptr, 0);
    return result;
}

SignatureVerdict judge(rpmts ts, rpmKeyring keyring, std::string_view sPacket,
                       std::string_view sData)
{
    const Signature signature = readSignature(sPacket);
    if (signature == nullptr || !isUsable(signature.get())) {
        return {SignatureVerdict::NONE, ""};
    }
    std::string sKey = signerOf(signature.get());
    const SignatureVerdict::Kind kind = verifyWith(keyring, signature.get(), sData) == RPMRC_OK
                                            ? SignatureVerdict::GOOD
                                        : holdsKey(ts, sKey) ? SignatureVerdict::BAD
                                                             : SignatureVerdict::UNKNOWN_KEY;
    return {kind, std::move(sKey)};
}

}  // namespace

SignatureVerdict verifyDetached(rpmts ts, std::string_view sData, std::string_view sArmour)
{
    const Keyring keyring(rpmtsGetKeyring(ts, 1));
    SignatureVerdict best = {SignatureVerdict::NONE, ""};
    for (const std::string& sPacket : armouredPackets(sArmour, k_uMostSignatures)) {
        SignatureVerdict verdict = judge(ts, keyring.get(), sPacket, sData);
        if (verdict.kind < best.kind) {
            best = std::move(verdict);
        }
    }
    if (best.kind >= SignatureVerdict::UNKNOWN_KEY && !holdsAnyKey(ts)) {
        return {SignatureVerdict::NO_KEYS, ""};
    }
    return best;
}
