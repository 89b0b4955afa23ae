#include "repository/repository.h"

#include "repository/primarytable.h"
#include "support/files.h"
#include "support/logger.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <utility>

namespace {

struct DirectoryCloser {
    void operator()(DIR* pDirectory) const { closedir(pDirectory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

/// Removes all entries of an open directory.
///
/// @return false if the directory cannot be read to its end (logged).
bool removeEntries(DIR* pDirectory, const std::string& sPath)
{
    bool bRemoved = true;
    errno = 0;
    while (const dirent* pEntry = readdir(pDirectory)) {
        const std::string_view sName = pEntry->d_name;
        if (sName != "." && sName != "..") {
            const std::string sFile = sPath + pEntry->d_name;
            if (unlink(sFile.c_str()) != 0) {
                logMessage(ERROR, "failed removing file '%s' (%s)", sFile.c_str(),
                           errnoText().c_str());
                bRemoved = false;
            }
        }
        errno = 0;
    }
    const bool bRead = errno == 0;
    if (!bRead) {
        logMessage(ERROR, "failed reading directory '%s' (%s)", sPath.c_str(), errnoText().c_str());
    }
    if (!bRemoved) {
        logMessage(WARNING, "encountered errors while cleaning package cache");
    }
    return bRead;
}

}  // namespace

Repository::Repository(const Config& allConfig, const RepoConfig& repoConfig,
                       SignatureVerifier verify)
    : m_pConfig(&repoConfig),
      m_sCacheDir(allConfig.cacheDir + repoConfig.id + "/"),
      m_sPackagesDir(m_sCacheDir + "packages/"),
      m_signedIndex(repoConfig, m_sCacheDir, std::move(verify))
{
    setUri(repoConfig.uri);
}

Repository::~Repository()
{
    logMessage(DEBUG, "destroyed repository '%s' with cache dir '%s'", m_pConfig->id.c_str(),
               m_sCacheDir.c_str());
}

void Repository::setUri(const std::string& sUri)
{
    m_sUri = sUri.starts_with('/') ? "file://" + sUri : sUri;
}

bool Repository::load()
{
    m_resources.clear();
    if (m_pConfig->isSigned && !m_signedIndex.checkCached()) {
        return false;
    }
    if (!readIndex()) {
        return false;
    }
    const RepoResource* pPrimary = findPrimary();
    if (pPrimary == nullptr) {
        return false;
    }
    const std::string sSum = pPrimary->goodSum();
    if (sSum.empty()) {
        logMessage(ERROR, "invalid checksum on '%s'", pPrimary->location.c_str());
        return false;
    }
    return loadPrimary(*pPrimary, sSum);
}

bool Repository::readIndex()
{
    if (!parseRepomd(m_sCacheDir, m_resources)) {
        logMessage(ERROR, "failed parsing repository metadata from '%s'", k_pIndexLocation);
        return false;
    }
    return true;
}

const RepoResource* Repository::findPrimary() const
{
    const auto primary = m_resources.find("primary");
    if (primary == m_resources.end()) {
        logMessage(ERROR, "no 'primary' entry in repository metadata");
        return nullptr;
    }
    return &*primary;
}

/// Has the contents of the primary file in memory: from the pass before, from their compiled form or
/// from the file itself.
///
/// @param sSum  the checksum that the file fits.
bool Repository::loadPrimary(const RepoResource& primary, const std::string& sSum)
{
    const std::string sTable = primary.localPath + k_pTableSuffix;
    if (m_sContentsSum == sSum) {
        logSkipped(m_contents);
        return true;
    }
    m_sContentsSum.clear();
    m_contents = {};
    if (readPrimaryTable(sTable, sSum, m_contents)) {
        logSkipped(m_contents);
    } else if (parsePrimary(primary.localPath, m_contents)) {
        keepTable(sTable, sSum);
    } else {
        logMessage(ERROR, "failed parsing repository resource '%s'", primary.location.c_str());
        return false;
    }
    m_sContentsSum = sSum;
    return true;
}

/// Writes the compiled form of what was read, and removes those of other primary files.
void Repository::keepTable(const std::string& sPath, const std::string& sSum) const
{
    if (!m_contents.architecturesKnown || !writePrimaryTable(sPath, sSum, m_contents)) {
        return;
    }
    const Directory directory(opendir(m_sCacheDir.c_str()));
    while (const dirent* pEntry = directory != nullptr ? readdir(directory.get()) : nullptr) {
        const std::string sFile = m_sCacheDir + pEntry->d_name;
        if (sFile.ends_with(k_pTableSuffix) && sFile != sPath && unlink(sFile.c_str()) == 0) {
            logMessage(DEBUG, "removed compiled metadata '%s'", sFile.c_str());
        }
    }
}

std::string Repository::localPath(const Package& package) const
{
    return m_sPackagesDir + baseName(package.location());
}

bool Repository::cleanPackages() const
{
    logMessage(DEBUG, "removing packages from repository cache '%s'", m_sPackagesDir.c_str());
    const Directory directory(opendir(m_sPackagesDir.c_str()));
    if (directory == nullptr) {
        if (errno == ENOENT) {
            return true;
        }
        logMessage(ERROR, "could not clean packages from '%s' (%s)", m_sPackagesDir.c_str(),
                   errnoText().c_str());
        return false;
    }
    return removeEntries(directory.get(), m_sPackagesDir);
}
