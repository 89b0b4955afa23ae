// Detached signatures in armoured form, as they come beside an index.

#include "rpmdb/armour.h"
#include "rpmdb/keys.h"

#include "target.h"

#include <rpm/rpmbase64.h>

#include <cstdlib>

namespace {

constexpr std::size_t k_uMost = 16;

std::string armoured(const std::string& sPacket)
{
    char* pEncoded = rpmBase64Encode(sPacket.data(), sPacket.size(), 64);
    const std::string sEncoded = pEncoded;
    std::free(pEncoded);
    return "-----BEGIN PGP SIGNATURE-----\n\n" + sEncoded + "-----END PGP SIGNATURE-----\n";
}

}  // namespace

void fuzz(std::string_view sInput)
{
    const std::vector<std::string> vPackets = armouredPackets(sInput, k_uMost);
    require(vPackets.size() <= k_uMost, "there are no more than asked for");
    std::string sAgain;
    std::size_t uBytes = 0;
    for (const std::string& sPacket : vPackets) {
        uBytes += sPacket.size();
        sAgain += armoured(sPacket);
        if (const Signature signature = readSignature(sPacket)) {
            require(signerOf(signature.get()).find_first_not_of("0123456789abcdef") ==
                        std::string::npos,
                    "an id is made of digits");
        }
    }
    require(4 * uBytes <= 3 * sInput.size(), "packets are no longer than what they stand for");
    require(armouredPackets(sAgain, k_uMost) == vPackets, "what is measured is measured again");
}
