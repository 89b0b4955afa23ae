#include "support/checksum.h"

#include "support/controls.h"
#include "support/files.h"
#include "support/gzipfile.h"
#include "support/logger.h"

#include <cerrno>
#include <cstdio>
#include <memory>

namespace {

constexpr std::size_t k_uBufferSize = 1024;
constexpr std::size_t k_uReadAhead = 32768;  ///< of the stream: a page a call is dear

void logOpenFailure(const std::string& sPath)
{
    logMessage(ERROR, "failed opening '%s' for checksumming (%s)", sPath.c_str(),
               errnoText().c_str());
}

bool digestPlain(const std::string& sPath, unsigned char* pBuffer, Sha1Context& context)
{
    const auto readAhead = std::make_unique<char[]>(k_uReadAhead);  // outlives the stream
    const File file(std::fopen(sPath.c_str(), "rbe"));
    if (file == nullptr) {
        logOpenFailure(sPath);
        return false;
    }
    std::setvbuf(file.get(), readAhead.get(), _IOFBF, k_uReadAhead);
    while (std::feof(file.get()) == 0) {
        const std::size_t uRead = std::fread(pBuffer, 1, k_uBufferSize, file.get());
        if (uRead < k_uBufferSize && std::ferror(file.get()) != 0) {
            return false;
        }
        sha1Update(context, pBuffer, uRead);
    }
    return true;
}

bool digestContents(const std::string& sPath, unsigned char* pBuffer, Sha1Context& context)
{
    GzipFile file(sPath);
    if (!file.isOpen()) {
        logOpenFailure(sPath);
        return false;
    }
    int iRead = 0;
    while ((iRead = file.read(pBuffer, k_uBufferSize)) > 0) {
        sha1Update(context, pBuffer, static_cast<std::size_t>(iRead));
    }
    return iRead == 0;
}

}  // namespace

bool fileDigest(const std::string& sPath, Sha1Digest& digest, bool bDecompress)
{
    const auto buffer = std::make_unique<unsigned char[]>(k_uBufferSize);
    Sha1Context context;
    sha1Init(context);
    if (!(bDecompress ? digestContents : digestPlain)(sPath, buffer.get(), context)) {
        return false;
    }
    digest = sha1Final(context);
    return true;
}

std::string hexText(const unsigned char* pBytes, std::size_t uLength)
{
    static constexpr char k_sDigits[] = "0123456789abcdef";
    std::string sText;
    sText.reserve(2 * uLength);
    for (std::size_t u = 0; u < uLength; ++u) {
        sText += k_sDigits[pBytes[u] >> 4U];
        sText += k_sDigits[pBytes[u] & 0xfU];
    }
    return sText;
}

bool Checksum::check(const std::string& sPath, bool bDecompress) const
{
    if (value.empty()) {
        logMessage(ERROR, "attempted to check an empty checksum");
        return false;
    }
    if (type != "sha") {
        logMessage(ERROR, "unsupported checksum type '%s'", printable(type).c_str());
        return false;
    }
    Sha1Digest digest;
    if (!fileDigest(sPath, digest, bDecompress)) {
        logMessage(ERROR, "failed while reading from '%s'", sPath.c_str());
        return false;
    }
    const std::string sText = hexText(digest.data(), digest.size());
    const bool bEqual = sText == value;
    logMessage(DEBUG, "'%s' checksum of '%s' (%s) %s against %s", type.c_str(), sPath.c_str(),
               sText.c_str(), bEqual ? "checks" : "FAILS", printable(value).c_str());
    return bEqual;
}
