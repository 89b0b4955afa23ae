#include "net/identity.h"

#include "config/config.h"
#include "support/files.h"
#include "support/logger.h"

#include <cstddef>  // which the next one needs

#include <rpm/rpmcrypto.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

constexpr std::size_t k_uLineSize = 128;  ///< longer lines count as several

/// Within a data block: the revision stamp, two digits, a hyphen, two digits.
constexpr std::size_t k_uStampOffset = 11;
constexpr std::size_t k_uStampLength = 5;
constexpr std::size_t k_uMendOffset = 14;  ///< the stamp's last two digits

/// A pair of blocks with these stamps, in the first and the second block, counts as one whose first
/// stamp ends in the mended digits.
constexpr std::string_view k_sFaultyCoreStamp = "02-00";
constexpr std::string_view k_sFaultyBaseStamp = "02-12";
constexpr std::string_view k_sMendedDigits = "12";

constexpr std::size_t k_uPasswordLength = 12;

/// The characters of a password, by the low six bits of a digest byte. Whoever computes the
/// password of a device needs this very order.
constexpr std::string_view k_sAlphabet =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-";
static_assert(k_sAlphabet.size() == 64);

/// The third word of a line, behind the key and the colon. Empty if there is none.
///
/// @param uMost  the most characters that count, below 64.
std::string thirdWord(const char* pLine, std::size_t uMost)
{
    std::array<char, 64> vWord = {};
    const int iRead = std::sscanf(pLine, "%*s %*s %63s", vWord.data());
    return iRead == 1 ? std::string(vWord.data()).substr(0, uMost) : "";
}

Board boardFromName(const std::string& sName)
{
    if (sName == "Quorax") {
        return BoardQuorax;
    }
    if (sName == "Velmir") {
        return BoardVelmir;
    }
    logMessage(WARNING, "unknown hardware '%s'", sName.c_str());
    return BoardOther;
}

void readCpuInfoLine(const char* pLine, const char* pPath, CpuInfo& info)
{
    const std::string_view sLine = pLine;
    if (sLine.starts_with("Serial")) {
        const std::string sWord = thirdWord(pLine, 63);
        if (sWord.empty()) {
            logMessage(DEBUG, "malformed Serial line in '%s'", pPath);
        } else {
            info.serial = sWord;
        }
    } else if (sLine.starts_with("Revision")) {
        const std::string sWord = thirdWord(pLine, 8);
        if (sWord.empty()) {
            logMessage(DEBUG, "malformed Revision line in '%s'", pPath);
        } else {
            info.revision = sWord;
        }
    } else if (sLine.starts_with("Hardware")) {
        const std::string sWord = thirdWord(pLine, 15);
        if (sWord.empty()) {
            logMessage(DEBUG, "malformed Hardware line in '%s'", pPath);
        } else {
            info.board = boardFromName(sWord);
        }
    }
}

std::string_view stampOf(const std::string& sBlocks, std::size_t uBlock)
{
    return std::string_view(sBlocks).substr(uBlock * k_uBlockSize + k_uStampOffset, k_uStampLength);
}

}  // namespace

void readCpuInfoFile(const std::string& sPath, CpuInfo& info)
{
    File file(std::fopen(sPath.c_str(), "rbe"));
    if (file == nullptr) {
        logMessage(ERROR, "failed opening '%s' for initialization: '%s'", sPath.c_str(),
                   errnoText().c_str());
        return;
    }
    std::array<char, k_uLineSize> vLine = {};
    while (std::fgets(vLine.data(), static_cast<int>(vLine.size()), file.get()) != nullptr) {
        readCpuInfoLine(vLine.data(), sPath.c_str(), info);
    }
    if (std::ferror(file.get()) != 0) {
        logMessage(DEBUG, "failed reading from '%s'", sPath.c_str());
    }
    file.reset();
    if (info.serial.empty()) {
        logMessage(ERROR, "no Serial in '%s'", sPath.c_str());
    }
    if (info.revision.empty()) {
        logMessage(ERROR, "no Revision in '%s'", sPath.c_str());
    }
}

std::string userAgentText(const std::string& sAgentBase, const std::string& sAgentProduct,
                          const std::string& sSerial)
{
    std::string sText = sAgentBase + "/" + k_pProgramVersion;
    if (!sSerial.empty()) {
        sText += " (" + sAgentProduct + "-" + sSerial + ")";
    }
    return sText;
}

std::size_t requiredBlocks(Board eBoard)
{
    return eBoard == BoardVelmir ? 1 : 2;
}

bool readDataBlocks(const std::vector<std::string>& vPaths, std::size_t uCount,
                    std::string& sBlocks)
{
    std::string sRead;
    for (const std::string& sPath : vPaths) {
        if (sRead.size() >= uCount * k_uBlockSize) {
            break;
        }
        const File file(std::fopen(sPath.c_str(), "rbe"));
        if (file == nullptr) {
            logMessage(DEBUG, "failed opening secret data file '%s': %s", sPath.c_str(),
                       errnoText().c_str());
            continue;
        }
        std::array<char, k_uBlockSize> vBlock;
        if (std::fread(vBlock.data(), 1, vBlock.size(), file.get()) != vBlock.size()) {
            logMessage(DEBUG, "failed reading data from '%s'", sPath.c_str());
            continue;
        }
        sRead.append(vBlock.data(), vBlock.size());
    }
    if (sRead.size() < uCount * k_uBlockSize) {
        logMessage(DEBUG, "failed reading secret data");
        return false;
    }
    sBlocks = sRead;
    return true;
}

void mendDataBlocks(Board eBoard, std::string& sBlocks)
{
    if (eBoard == BoardQuorax && stampOf(sBlocks, 1) == k_sFaultyBaseStamp &&
        stampOf(sBlocks, 0) == k_sFaultyCoreStamp) {
        logMessage(TRACE, "bad core EEPROM data, using workaround for HW rev 2.12");
        sBlocks.replace(k_uMendOffset, k_sMendedDigits.size(), k_sMendedDigits);
    }
}

bool passwordFromBlocks(const std::string& sBlocks, std::string& sPassword)
{
    DIGEST_CTX pContext = rpmDigestInit(RPM_HASH_MD5, RPMDIGEST_NONE);
    if (pContext == nullptr) {
        logMessage(DEBUG, "failed initializing hash function");
        return false;
    }
    const bool bUpdated = rpmDigestUpdate(pContext, sBlocks.data(), sBlocks.size()) == 0;
    void* pResult = nullptr;
    std::size_t uLength = 0;
    const bool bFinished = rpmDigestFinal(pContext, &pResult, &uLength, 0) == 0;  // frees it, too
    const std::unique_ptr<void, decltype(&std::free)> digest(pResult, &std::free);
    if (!bUpdated || !bFinished || digest == nullptr || uLength < k_uPasswordLength) {
        logMessage(DEBUG, "failed computing hash");
        return false;
    }
    sPassword.clear();
    for (std::size_t u = 0; u < k_uPasswordLength; ++u) {
        sPassword += k_sAlphabet[static_cast<const unsigned char*>(digest.get())[u] & 0x3fU];
    }
    return true;
}
