#pragma once

#include "config/config.h"
#include "net/downloader.h"
#include "support/verdict.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// Tests the bytes of an index against a text with detached signatures, by the keys of the device.
using SignatureVerifier =
    std::function<SignatureVerdict(std::string_view sIndex, std::string_view sArmour)>;

/// The number that a revision is: decimal digits only, less than 2^64.
[[nodiscard]] std::optional<std::uint64_t> revisionNumber(std::string_view sRevision);

/// True if a revision, taken for seconds since 1970, lies more than so many days in the past.
///
/// @param uDays  0: never.
[[nodiscard]] bool isTooOld(std::uint64_t uRevision, std::uint64_t uNow, unsigned uDays);

/// The index of a repository that is to be signed. Beside "repomd.xml" the directory of the repository
/// in the cache then has "repomd.xml.asc" and, in "repomd.xml.revision", the highest revision that was
/// ever accepted; either of the two, index and number, keeps an older index out. Index and signature
/// are written under other names, and forced to disk and renamed when they have passed all tests; the
/// number follows. A power cut between the renames leaves a pair that does not fit: it is refused like
/// any other, and replaced by the next fetch().
class SignedIndex {
public:
    /// @param repoConfig  must outlive the object.
    /// @param sCacheDir   the directory of the repository in the cache, with its slash.
    SignedIndex(const RepoConfig& repoConfig, const std::string& sCacheDir,
                SignatureVerifier verify);

    /// Brings index and signature into the cache, past all HTTP caches. If they do not fit each other,
    /// as around a publication, both are fetched anew, twice at most.
    ///
    /// @return false (logged) if there is no pair that is to be believed; the cached one stays.
    [[nodiscard]] bool fetch(Downloader& downloader);

    /// Tests the pair that lies in the cache; what has passed before is not tested again.
    ///
    /// @return false (logged) if it is not to be believed.
    [[nodiscard]] bool checkCached();

private:
    [[nodiscard]] bool fetchPair(Downloader& downloader, std::string& sIndex) const;
    [[nodiscard]] std::optional<SignatureVerdict> verify(const std::string& sIndexPath,
                                                         const std::string& sSignaturePath,
                                                         std::string& sIndex) const;
    [[nodiscard]] std::uint64_t cachedRevision() const;
    [[nodiscard]] std::optional<std::uint64_t> acceptableRevision(const std::string& sIndexPath,
                                                                  std::uint64_t uCached) const;
    [[nodiscard]] bool keepRevision(std::uint64_t uRevision) const;

    const RepoConfig* m_pConfig;  ///< not owned
    std::string m_sIndex;         ///< paths in the cache
    std::string m_sSignature;
    std::string m_sRevision;
    SignatureVerifier m_verify;
    std::string m_sBelieved;  ///< the index that has passed last
};
