#include "publisher/offer.h"

#include "publisher/progress.h"
#include "support/files.h"
#include "support/logger.h"
#include "support/signalnote.h"

#include <sys/stat.h>
#include <unistd.h>
#include <array>
#include <filesystem>
#include <fstream>
#include <utility>

namespace {

constexpr const char* k_pCommand =
    "createrepo_c --checksum sha --general-compress-type gz --simple-md-filenames --no-database";

/// What devices log when there is no index at all.
constexpr const char* k_pNotFetched =
    "ERROR: failed getting repository resource 'repodata/repomd.xml'";

/// Makes a link to a directory, which may have any name.
///
/// @return the link with a slash at its end; empty for a URL.
std::string linkTo(const std::string& sSource, const std::string& sLink)
{
    const std::string sScheme = "file://";
    if (sSource.find("://") != std::string::npos && !sSource.starts_with(sScheme)) {
        return {};
    }
    std::error_code ignored;  // without the link there is no index, and that is told
    std::filesystem::create_directory_symlink(
        std::filesystem::absolute(
            sSource.starts_with(sScheme) ? sSource.substr(sScheme.size()) : sSource, ignored),
        sLink, ignored);
    return sLink + "/";
}

Config configWithCache(const std::string& sTemporary)
{
    Config config;
    config.cacheDir = sTemporary;
    return config;
}

Finding refused(const std::string& sId, const std::string& sSubject, const std::string& sText,
                const std::string& sMend)
{
    return {sId,
            Severity::ERROR,
            sSubject,
            sText,
            "end the run with an error, and install nothing",
            sMend,
            "",
            {}};
}

bool hasHashInName(const RepoResource& resource)
{
    const std::string sName = baseName(resource.location);
    const std::size_t uHash = sName.find_first_not_of("0123456789abcdef");
    return uHash != std::string::npos && uHash >= 32 && sName[uHash] == '-';
}

std::string firstBytes(const std::string& sPath)
{
    std::array<char, 8> vBytes = {};
    std::ifstream file(sPath, std::ios::binary);
    file.read(vBytes.data(), vBytes.size());
    return {vBytes.data(), static_cast<std::size_t>(file.gcount())};
}

/// Runs an action with DEBUG lines.
///
/// @return the last of them that is not an error of another kind.
template <typename Action>
std::string lastReason(DeviceLog& log, Action action)
{
    Logger& logger = Logger::instance();
    const int iThreshold = logger.threshold();
    static_cast<void>(log.take());
    logger.setThreshold(DEBUG);
    action();
    logger.setThreshold(iThreshold);
    const std::vector<std::string> vLines = log.take();
    for (auto it = vLines.rbegin(); it != vLines.rend(); ++it) {
        if (it->starts_with("DEBUG: ") && !it->starts_with("DEBUG: failed parsing ")) {
            return it->substr(7);
        }
    }
    return "it is not well-formed";
}

}  // namespace

std::string foreignCompression(std::string_view sBegin)
{
    static constexpr std::array<std::pair<std::string_view, const char*>, 3> k_vKinds = {
        {{"BZh", "bzip2"},
         {"\xfd"
          "7zXZ",
          "xz"},
         {"\x28\xb5\x2f\xfd", "zstd"}}};
    for (const auto& [sMagic, pName] : k_vKinds) {
        if (sBegin.starts_with(sMagic)) {
            return pName;
        }
    }
    return {};
}

Offer::Offer(const std::string& sSource, const std::string& sTemporary, RepoConfig settings,
             SignatureVerifier verify)
    : m_sSource(sSource),
      m_sDirectory(linkTo(sSource, sTemporary + settings.id + ".link")),
      m_sCache(sTemporary + settings.id + "/"),
      m_config(configWithCache(sTemporary)),
      m_repoConfig(std::move(settings)),
      m_repository(m_config, m_repoConfig, std::move(verify))
{
    m_repository.setUri(m_sDirectory.empty() ? sSource : m_sDirectory);
}

bool Offer::read(DeviceLog& log, Findings& findings)
{
    static_cast<void>(log.take());
    const bool bRead = m_repository.update("");
    std::vector<std::string> vLines = log.take();
    if (!bRead) {
        findings.push_back(explainFailure(log, std::move(vLines)));
        return false;
    }
    ResourceSet resources;
    if (!parseRepomd(m_sCache, resources) ||
        !readListing(resources.find("primary")->localPath, m_listing)) {
        return true;  // devices have read both
    }
    if (hasHashInName(*resources.find("primary"))) {
        findings.push_back({"hashed-names",
                            Severity::WARNING,
                            resources.find("primary")->location,
                            "its name holds its checksum",
                            "keep one more file at each change of the repository, for good",
                            "createrepo_c --simple-md-filenames",
                            "",
                            {}});
    }
    return true;
}

/// Why the metadata that lie in the cache are refused.
Finding Offer::explainFailure(DeviceLog& log, std::vector<std::string> vLines) const
{
    ResourceSet resources;
    Finding finding;
    const bool bIndex = isReadable(indexPath());
    const bool bFetched = vLines.empty() || vLines.back() != k_pNotFetched;
    if (!bIndex && m_repoConfig.isSigned && bFetched) {
        finding = refused("index-signature", k_pIndexLocation, "the index is not believed",
                          "run createrepo_c, sign the index with a key that devices have, and "
                          "publish both together");
    } else if (!bIndex) {
        finding = refused("no-index", m_sSource, "the index repodata/repomd.xml cannot be fetched",
                          m_sDirectory.empty() ? "see what the server answers" : k_pCommand);
    } else if (!parseRepomd(m_sCache, resources)) {
        const std::string sReason = lastReason(log, [&] {
            ResourceSet again;
            static_cast<void>(parseRepomd(m_sCache, again));
        });
        finding = refused("index-refused", k_pIndexLocation, sReason, k_pCommand);
    } else if (!resources.contains("primary")) {
        finding = refused("no-primary", k_pIndexLocation, "it names no primary file", k_pCommand);
    } else {
        const RepoResource& primary = *resources.find("primary");
        const std::string& sPath = primary.localPath;
        const std::string sKind = foreignCompression(firstBytes(sPath));
        if (!isReadable(sPath)) {
            finding =
                refused("no-primary", primary.location, "the index names it and it is missing",
                        "publish the metadata as a whole, the index last");
        } else if (primary.checksum.type != "sha" && primary.openChecksum.type != "sha") {
            finding = refused("checksum-type", primary.location,
                              "its checksum is of type '" + primary.checksum.type + "'",
                              "createrepo_c --checksum sha");
        } else if (!sKind.empty()) {
            finding = refused("compression", primary.location, "it is compressed by " + sKind,
                              "createrepo_c --general-compress-type gz");
        } else if (primary.goodSum().empty()) {
            finding = refused("primary-differs", primary.location,
                              "it does not fit its checksum in the index",
                              "publish the metadata as a whole, or run createrepo_c again");
        } else {
            finding = refused("primary-refused", primary.location, reasonFor(log, sPath), "");
        }
    }
    finding.lines = std::move(vLines);
    return finding;
}

/// What is wrong in a primary file, as the reader tells it.
std::string Offer::reasonFor(DeviceLog& log, const std::string& sPrimary) const
{
    return lastReason(log, [&] {
        PrimaryContents contents;
        static_cast<void>(parsePrimary(sPrimary, contents));
    });
}

std::string Offer::indexPath() const
{
    return m_sCache + baseName(k_pIndexLocation);
}

Listed Offer::listed(const Package& package) const
{
    const auto it = m_listing.find(package.location());
    return it != m_listing.end() ? it->second : Listed{};
}

void Offer::fetchPackages() const
{
    if (!m_sDirectory.empty()) {
        return;
    }
    Downloader downloader;
    if (!ensureDirectory(m_sCache + "packages/") || !downloader.open(m_sSource)) {
        return;
    }
    for (const Package& package : packages()) {
        if (signalNoted != 0) {
            return;
        }
        // A missing one is found when it is looked at.
        static_cast<void>(
            ensureDirectory(placeOf(package)) &&
            downloader.download(std::string(package.location()), fileOf(package), false));
        showProgress("fetched", package.place() + 1, packages().size());
    }
}

std::string Offer::fileOf(const Package& package) const
{
    return m_sDirectory.empty() ? placeOf(package) + baseName(package.location())
                                : m_sDirectory + std::string(package.location());
}

/// A directory for the file of a package alone: others may have the same file name.
std::string Offer::placeOf(const Package& package) const
{
    return m_sCache + "packages/" + std::to_string(package.place()) + "/";
}
