#pragma once

#include "publisher/devicelog.h"
#include "publisher/finding.h"
#include "publisher/listing.h"
#include "repository/repository.h"

#include <string>
#include <string_view>

/// What a repository offers, read as a device reads it, into a cache of its own.
class Offer {
public:
    /// @param sSource     a directory or a URL.
    /// @param sTemporary  a directory for all offers, with its slash.
    /// @param settings    its id names a directory in there; whether the index is to be signed counts.
    /// @param verify      tests the signature of the index.
    Offer(const std::string& sSource, const std::string& sTemporary, RepoConfig settings,
          SignatureVerifier verify = {});

    /// Fetches and reads the metadata.
    ///
    /// @return false if devices would refuse them; why is among the findings, then.
    [[nodiscard]] bool read(DeviceLog& log, Findings& findings);

    /// Fetches the packages of a URL, as far as it has them. Does nothing for a directory.
    void fetchPackages() const;

    /// Where the index lies once it was read.
    [[nodiscard]] std::string indexPath() const;

    [[nodiscard]] const PrimaryContents& contents() const { return m_repository.contents(); }
    [[nodiscard]] const PackageSet& packages() const { return m_repository.packages(); }

    /// What the metadata say of the packages' files.
    [[nodiscard]] const Listing& listing() const { return m_listing; }

    /// What they say of that of one package.
    [[nodiscard]] Listed listed(const Package& package) const;

    /// Where the file of a package lies, if it is there.
    [[nodiscard]] std::string fileOf(const Package& package) const;

    /// A path of the repository's directory, with its slash; empty for a URL. No other characters than
    /// those of the temporary directory are in it, as rpm and URIs give them a meaning.
    [[nodiscard]] const std::string& directory() const { return m_sDirectory; }

private:
    [[nodiscard]] Finding explainFailure(DeviceLog& log, std::vector<std::string> vLines) const;
    [[nodiscard]] std::string placeOf(const Package& package) const;
    [[nodiscard]] std::string reasonFor(DeviceLog& log, const std::string& sPrimary) const;

    std::string m_sSource;
    std::string m_sDirectory;
    std::string m_sCache;  ///< with its slash
    Config m_config;
    RepoConfig m_repoConfig;
    Repository m_repository;
    Listing m_listing;
};

/// The name of the compression of a file that devices cannot read; empty for plain files and gzip.
///
/// @param sBegin  the first bytes of the file.
[[nodiscard]] std::string foreignCompression(std::string_view sBegin);
