#include "rpmdb/armour.h"

#include <rpm/rpmbase64.h>

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace {

/// Takes the first line off a text, without what ends it: blanks, too.
std::string_view takeLine(std::string_view& sText)
{
    const std::size_t uEnd = sText.find('\n');
    std::string_view sLine = sText.substr(0, uEnd);
    sText.remove_prefix(uEnd == std::string_view::npos ? sText.size() : uEnd + 1);
    return sLine.substr(0, sLine.find_last_not_of(" \t\r") + 1);
}

/// Takes the text up to the end of the next block.
///
/// @param sBytes  what the block stands for; empty if it is damaged.
/// @return        false if there is no block any more that ends.
bool takeBlock(std::string_view& sText, std::string& sBytes)
{
    while (!sText.empty() && takeLine(sText) != "-----BEGIN PGP SIGNATURE-----") {
    }
    while (!sText.empty() && !takeLine(sText).empty()) {  // headers
    }
    std::string sEncoded;
    while (!sText.empty()) {
        const std::string_view sLine = takeLine(sText);
        if (sLine == "-----END PGP SIGNATURE-----") {
            void* pDecoded = nullptr;
            std::size_t uLength = 0;
            const int iResult = rpmBase64Decode(sEncoded.c_str(), &pDecoded, &uLength);
            const std::unique_ptr<void, decltype(&std::free)> decoded(pDecoded, &std::free);
            sBytes.assign(static_cast<const char*>(pDecoded), iResult == 0 ? uLength : 0);
            return true;
        }
        if (!sLine.starts_with('=')) {  // the check sum
            sEncoded += sLine;
        }
    }
    return false;
}

/// The length of the packet at the begin of some bytes, header included (RFC 4880, section 4.2).
///
/// @return 0 if it is not told, or goes beyond the bytes.
std::size_t packetLength(std::string_view sBytes)
{
    const auto byteAt = [&](std::size_t u) {
        return u < sBytes.size() ? static_cast<std::uint8_t>(sBytes[u]) : 0U;
    };
    const unsigned uTag = byteAt(0);
    const unsigned uFirst = byteAt(1);
    std::size_t uDigits = 0;  // bytes of the length
    std::size_t uHeader = 1;
    std::size_t uLength = 0;
    if ((uTag & 0x80U) == 0) {
        return 0;
    }
    if ((uTag & 0x40U) == 0) {  // old format
        uDigits = std::size_t{1} << (uTag & 3U);
        if (uDigits == 8) {
            return 0;  // as long as the file
        }
    } else if (uFirst < 192) {
        uDigits = 1;
    } else if (uFirst < 224) {
        uHeader = 3;
        uLength = ((uFirst - 192) << 8U) + byteAt(2) + 192;
    } else if (uFirst == 255) {
        uHeader = 2;
        uDigits = 4;
    } else {
        return 0;  // in parts
    }
    for (; uDigits > 0; --uDigits) {
        uLength = (uLength << 8U) | byteAt(uHeader++);
    }
    return uLength != 0 && uHeader <= sBytes.size() && uLength <= sBytes.size() - uHeader
               ? uHeader + uLength
               : 0;
}

}  // namespace

std::vector<std::string> armouredPackets(std::string_view sText, std::size_t uMost)
{
    std::vector<std::string> vPackets;
    std::string sBlock;
    while (takeBlock(sText, sBlock)) {
        std::string_view sBytes = sBlock;
        while (const std::size_t uLength = packetLength(sBytes)) {
            if (vPackets.size() == uMost) {
                return vPackets;
            }
            vPackets.emplace_back(sBytes.substr(0, uLength));
            sBytes.remove_prefix(uLength);
        }
    }
    return vPackets;
}
