#include "repository/signedindex.h"

#include "repository/repomd.h"
#include "support/files.h"
#include "support/logger.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <system_error>
#include <thread>
#include <utility>

namespace {

constexpr const char* k_pSignatureLocation = "repodata/repomd.xml.asc";
constexpr const char* k_pNew = ".new";

constexpr std::size_t k_uMostIndex = 1U << 20U;       ///< bytes
constexpr std::size_t k_uMostSignature = 16U << 10U;  ///< bytes
constexpr std::size_t k_uMostRevision = 64;           ///< bytes

/// Seconds to wait behind each attempt, but for the last.
constexpr std::array<int, 3> k_vPauses = {1, 3, 0};

constexpr std::uint64_t k_uDay = 86400;  ///< seconds

/// What an index can look like between the upload of its two files.
bool mayBeHalfPublished(const SignatureVerdict& verdict)
{
    return verdict.kind == SignatureVerdict::BAD || verdict.kind == SignatureVerdict::NONE;
}

/// Tells why an index is not believed.
bool isGood(const SignatureVerdict& verdict)
{
    switch (verdict.kind) {
        case SignatureVerdict::GOOD:
            logMessage(DEBUG, "repository index is signed by key %s", verdict.key.c_str());
            return true;
        case SignatureVerdict::BAD:
            logMessage(ERROR, "bad signature of key %s on the repository index",
                       verdict.key.c_str());
            break;
        case SignatureVerdict::UNKNOWN_KEY:
            logMessage(ERROR,
                       "repository index is signed by key %s, which is not in the rpm database",
                       verdict.key.c_str());
            break;
        case SignatureVerdict::NONE:
            logMessage(ERROR, "no usable signature in '%s'", k_pSignatureLocation);
            break;
        case SignatureVerdict::NO_KEYS:
            logMessage(ERROR, "no key in the rpm database to verify the repository index with");
            break;
        case SignatureVerdict::NO_DATABASE:
            logMessage(ERROR, "failed opening rpm DB");
            break;
    }
    return false;
}

bool fetchFile(Downloader& downloader, const char* pLocation, const std::string& sPath,
               std::uint64_t uLimit)
{
    if (!downloader.download(pLocation, sPath, true, uLimit)) {
        logMessage(ERROR, "failed getting repository resource '%s'", pLocation);
        return false;
    }
    return true;
}

void tellUnreadable(const std::string& sPath)
{
    logMessage(ERROR, "cannot read '%s' to verify the repository index (%s)", sPath.c_str(),
               errnoText().c_str());
}

bool readBounded(const std::string& sPath, std::size_t uLimit, std::string& sContents)
{
    if (!readFile(sPath, sContents, uLimit)) {
        tellUnreadable(sPath);
        return false;
    }
    return true;
}

bool forceToDisk(const std::string& sPath)
{
    const FileDescriptor file(open(sPath.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.isOpen() || fsync(file.get()) != 0) {
        logMessage(ERROR, "failed writing '%s' (%s)", sPath.c_str(), errnoText().c_str());
        return false;
    }
    return true;
}

bool moveInPlace(const std::string& sPath)
{
    const std::string sNew = sPath + k_pNew;
    if (std::rename(sNew.c_str(), sPath.c_str()) != 0) {
        logMessage(ERROR, "failed renaming '%s' to '%s' (%s)", sNew.c_str(), sPath.c_str(),
                   errnoText().c_str());
        return false;
    }
    return true;
}

/// The highest revision that was accepted before; 0 if that is not known.
///
/// @return nothing (logged) if that cannot be told.
std::optional<std::uint64_t> keptRevision(const std::string& sPath)
{
    std::string sText;
    if (!readFile(sPath, sText, k_uMostRevision) && errno != EFBIG) {
        if (errno == ENOENT) {
            return 0;
        }
        tellUnreadable(sPath);
        return {};
    }
    const auto uRevision = sText.ends_with('\n')
                               ? revisionNumber(std::string_view(sText).substr(0, sText.size() - 1))
                               : std::nullopt;
    if (!uRevision) {
        logMessage(WARNING, "ignoring '%s', which holds no revision", sPath.c_str());
    }
    return uRevision.value_or(0);
}

std::uint64_t secondsNow()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::max<std::int64_t>(0, std::chrono::duration_cast<std::chrono::seconds>(now).count()));
}

}  // namespace

std::optional<std::uint64_t> revisionNumber(std::string_view sRevision)
{
    std::uint64_t uNumber = 0;
    const char* pEnd = sRevision.data() + sRevision.size();
    const auto [pRead, error] = std::from_chars(sRevision.data(), pEnd, uNumber);
    if (error != std::errc() || pRead != pEnd) {
        return {};
    }
    return uNumber;
}

bool isTooOld(std::uint64_t uRevision, std::uint64_t uNow, unsigned uDays)
{
    return uDays != 0 && uNow > uRevision && uNow - uRevision > uDays * k_uDay;
}

SignedIndex::SignedIndex(const RepoConfig& repoConfig, const std::string& sCacheDir,
                         SignatureVerifier verify)
    : m_pConfig(&repoConfig),
      m_sIndex(sCacheDir + baseName(k_pIndexLocation)),
      m_sSignature(sCacheDir + baseName(k_pSignatureLocation)),
      m_sRevision(m_sIndex + ".revision"),
      m_verify(std::move(verify))
{
}

bool SignedIndex::fetch(Downloader& downloader)
{
    const std::string sNewIndex = m_sIndex + k_pNew;
    const std::string sNewSignature = m_sSignature + k_pNew;
    std::string sIndex;
    std::optional<std::uint64_t> uRevision;
    if (fetchPair(downloader, sIndex)) {
        uRevision = acceptableRevision(sNewIndex, cachedRevision());
    }
    if (!uRevision || !forceToDisk(sNewIndex) || !forceToDisk(sNewSignature) ||
        !moveInPlace(m_sSignature) || !moveInPlace(m_sIndex)) {
        unlink(sNewIndex.c_str());
        unlink(sNewSignature.c_str());
        return false;
    }
    m_sBelieved = std::move(sIndex);
    return keepRevision(*uRevision);
}

bool SignedIndex::checkCached()
{
    std::string sIndex;
    if (!readBounded(m_sIndex, k_uMostIndex, sIndex)) {
        return false;
    }
    if (!m_sBelieved.empty() && sIndex == m_sBelieved) {
        return true;
    }
    const auto verdict = verify(m_sIndex, m_sSignature, sIndex);
    if (!verdict || !isGood(*verdict)) {
        return false;
    }
    const auto uRevision = acceptableRevision(m_sIndex, 0);
    if (!uRevision || !keepRevision(*uRevision)) {
        return false;
    }
    m_sBelieved = std::move(sIndex);
    return true;
}

/// Has a pair under its temporary names whose signature is good.
bool SignedIndex::fetchPair(Downloader& downloader, std::string& sIndex) const
{
    const std::string sNewIndex = m_sIndex + k_pNew;
    const std::string sNewSignature = m_sSignature + k_pNew;
    for (const int iPause : k_vPauses) {
        if (!fetchFile(downloader, k_pIndexLocation, sNewIndex, k_uMostIndex)) {
            return false;
        }
        if (!fetchFile(downloader, k_pSignatureLocation, sNewSignature, k_uMostSignature)) {
            logMessage(ERROR, "repository index cannot be verified without its signature");
            return false;
        }
        const auto verdict = verify(sNewIndex, sNewSignature, sIndex);
        if (!verdict) {
            return false;
        }
        if (iPause == 0 || !mayBeHalfPublished(*verdict)) {
            return isGood(*verdict);
        }
        logMessage(WARNING, "the signature does not fit the repository index; fetching both anew");
        std::this_thread::sleep_for(std::chrono::seconds(iPause));
    }
    return false;
}

/// @param sIndex  set to the bytes that were tested.
/// @return nothing (logged) if there is something that cannot be read.
std::optional<SignatureVerdict> SignedIndex::verify(const std::string& sIndexPath,
                                                    const std::string& sSignaturePath,
                                                    std::string& sIndex) const
{
    std::string sArmour;
    if (!readBounded(sIndexPath, k_uMostIndex, sIndex) ||
        !readBounded(sSignaturePath, k_uMostSignature, sArmour)) {
        return {};
    }
    return m_verify ? m_verify(sIndex, sArmour) : SignatureVerdict{};
}

/// The revision of the pair that lies in the cache; 0 if none does that is to be believed.
std::uint64_t SignedIndex::cachedRevision() const
{
    std::string sIndex;
    std::string sArmour;
    std::string sRevision;
    const bool bGood = readFile(m_sIndex, sIndex, k_uMostIndex) &&
                       readFile(m_sSignature, sArmour, k_uMostSignature) && m_verify &&
                       m_verify(sIndex, sArmour).kind == SignatureVerdict::GOOD &&
                       readRevision(m_sIndex, sRevision);
    return bGood ? revisionNumber(sRevision).value_or(0) : 0;
}

/// The revision of an index whose signature is good.
///
/// @param uCached  that of the index that it would replace.
/// @return nothing (logged) if the index is not to be used.
std::optional<std::uint64_t> SignedIndex::acceptableRevision(const std::string& sIndexPath,
                                                             std::uint64_t uCached) const
{
    std::string sRevision;
    if (!readRevision(sIndexPath, sRevision)) {
        logMessage(ERROR, "failed parsing repository metadata from '%s'", k_pIndexLocation);
        return {};
    }
    const auto uRevision = revisionNumber(sRevision);
    if (!uRevision) {
        logMessage(ERROR, "the signed repository index has no revision that is a number");
        return {};
    }
    const auto uKept = keptRevision(m_sRevision);
    if (!uKept) {
        return {};
    }
    const unsigned long long uHighest = std::max(*uKept, uCached);
    const unsigned long long uThis = *uRevision;
    const unsigned long long uNow = secondsNow();
    if (uThis < uHighest) {
        logMessage(
            ERROR,
            "repository index is older than one before: revision %llu, accepted before: %llu",
            uThis, uHighest);
        return {};
    }
    if (isTooOld(uThis, uNow, m_pConfig->maxAge)) {
        logMessage(ERROR, "repository index is older than %u days: revision %llu, now: %llu",
                   m_pConfig->maxAge, uThis, uNow);
        return {};
    }
    logMessage(DEBUG, "accepted signed repository index of revision %llu", uThis);
    return uRevision;
}

/// Keeps the revision of the index that has come into the cache.
bool SignedIndex::keepRevision(std::uint64_t uRevision) const
{
    const std::string sText = std::to_string(uRevision) + "\n";
    std::string sKept;
    if (readFile(m_sRevision, sKept, k_uMostRevision) && sKept == sText) {
        return true;
    }
    if (!replaceFile(m_sRevision, sText)) {
        logMessage(ERROR, "failed writing '%s' (%s)", m_sRevision.c_str(), errnoText().c_str());
        return false;
    }
    return true;
}
