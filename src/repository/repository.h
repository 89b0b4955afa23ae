#pragma once

#include "config/config.h"
#include "net/downloader.h"
#include "packages/updateset.h"
#include "repository/primary.h"
#include "repository/repomd.h"
#include "repository/signedindex.h"

#include <string>

/// The local side of one configured repository: its cache, its metadata, and the transfer of both
/// metadata and packages into the cache. No failure leaves it but as a false result with log lines.
///
/// Below `Config::cacheDir`, which must exist, the cache holds a directory of the repository's id
/// with "repomd.xml", the primary file under the name that the index gives it, its compiled form beside
/// it, and "packages/"; see SignedIndex for what else a signed repository has. Nothing is ever half written under a final name.
class Repository {
public:
    /// Touches no file. Both records must outlive the object.
    ///
    /// @param verify  tests the index of a repository that is to be signed; without it no such index
    ///                is believed.
    Repository(const Config& config, const RepoConfig& repoConfig, SignatureVerifier verify = {});
    ~Repository();
    Repository(const Repository&) = delete;
    Repository& operator=(const Repository&) = delete;

    /// Sets the URI in force; an absolute path becomes a file: URI.
    void setUri(const std::string& sUri);
    [[nodiscard]] bool isFileUri() const { return m_sUri.starts_with("file:"); }

    /// Reads the metadata that lie in the cache, and tests them against the index.
    [[nodiscard]] bool load();

    /// Refreshes the metadata from the repository and reads them: the index always, past all HTTP
    /// caches, and the primary file if the cached one does not fit the index.
    ///
    /// @param sUri  a new URI, or empty for the one in force.
    [[nodiscard]] bool update(const std::string& sUri);

    /// Brings packages into the cache; a cached file that fits its checksum is used as it is. Stops
    /// at the first failure and leaves in the cache what it has. Nothing is transferred if rpm would
    /// not find just these files under their paths.
    ///
    /// @return true if every package stands at its localPath() and fits its checksum.
    [[nodiscard]] bool fetchPackages(const UpdateSet& updateSet) const;

    /// Where the file of a package lies in the cache, if it is there.
    [[nodiscard]] std::string localPath(const Package& package) const;

    /// Removes all files of the package directory; goes on past one that cannot be removed.
    ///
    /// @return false if the directory cannot be read (a missing one is fine).
    bool cleanPackages() const;

    /// What the repository offers, several versions of a name in file order. Complete after a
    /// successful load() or update(), else of no use.
    [[nodiscard]] const PackageSet& packages() const { return m_contents.packages; }

    /// The same with what this machine cannot install.
    [[nodiscard]] const PrimaryContents& contents() const { return m_contents; }

private:
    [[nodiscard]] bool fetchIndex(Downloader& downloader);
    [[nodiscard]] bool readIndex();
    [[nodiscard]] const RepoResource* findPrimary() const;  ///< null (logged) if there is none
    [[nodiscard]] bool loadPrimary(const RepoResource& primary, const std::string& sSum);
    void keepTable(const std::string& sPath, const std::string& sSum) const;
    [[nodiscard]] static std::string fetchResource(Downloader& downloader,
                                                   const RepoResource& resource);

    const RepoConfig* m_pConfig;  ///< not owned
    std::string m_sCacheDir;      ///< ends in a slash
    std::string m_sPackagesDir;   ///< ends in a slash
    std::string m_sUri;
    SignedIndex m_signedIndex;   ///< only if it is to be signed
    ResourceSet m_resources;     ///< of the index last read
    PrimaryContents m_contents;  ///< of the primary file last read
    std::string m_sContentsSum;  ///< the checksum of that file; empty if it was not read to its end
};
