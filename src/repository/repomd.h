#pragma once

#include "support/checksum.h"

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

/// One metadata file that the index of a repository names.
struct RepoResource {
    std::string type;       ///< "primary" and others; the key
    std::string location;   ///< relative to the base of the repository
    std::string localPath;  ///< where it lies in the cache
    Checksum checksum;      ///< of the stored file
    Checksum openChecksum;  ///< of its uncompressed contents
    std::uint32_t timestamp = 0;

    /// The one of the two checksums that the file in the cache fits, as a text that tells its contents
    /// from all others; empty if it fits neither.
    [[nodiscard]] std::string goodSum() const
    {
        return checksum.checkFile(localPath)           ? checksum.value
               : openChecksum.checkContents(localPath) ? "open " + openChecksum.value
                                                       : "";
    }
};

/// Orders by type, in plain byte order.
struct ByType {
    using is_transparent = void;
    bool operator()(const RepoResource& a, const RepoResource& b) const { return a.type < b.type; }
    bool operator()(const RepoResource& a, std::string_view sType) const { return a.type < sType; }
    bool operator()(std::string_view sType, const RepoResource& b) const { return sType < b.type; }
};

/// Unique by type: the first of a type stays.
using ResourceSet = std::set<RepoResource, ByType>;

/// Reads the index of a repository, repomd.xml of the repomd format.
///
/// @param sCacheDir  directory of the index and the resources in the cache, with its slash.
/// @param resources  what was read in front of a failure stays in it.
/// @return           true for a clean end of the document; the reason of a failure stands at DEBUG,
///                   but for syntax errors.
[[nodiscard]] bool parseRepomd(const std::string& sCacheDir, ResourceSet& resources);

/// Reads the `revision` that an index gives itself.
///
/// @param sPath      of the index.
/// @param sRevision  empty if it has none.
/// @return           as for parseRepomd().
[[nodiscard]] bool readRevision(const std::string& sPath, std::string& sRevision);

/// Path of the index, relative to the base of a repository.
inline constexpr const char* k_pIndexLocation = "repodata/repomd.xml";
