#include "repository/itemnotify.h"
#include "repository/location.h"
#include "repository/repository.h"
#include "support/controls.h"
#include "support/files.h"
#include "support/logger.h"

namespace {

enum class Fetch { GOOD, NOT_TRANSFERRED, BAD_CHECKSUM };

/// Brings one file into the cache: a transfer and, if the file is not good, a second one that
/// passes by all HTTP caches. Logs what concerns the checksum.
///
/// @param isGood      tests the file in the cache.
/// @param sShownName  the name under which a failed checksum is logged.
template <typename Test>
Fetch fetchFile(Downloader& downloader, const std::string& sLocation, const std::string& sLocalPath,
                const std::string& sShownName, Test isGood)
{
    for (const bool bBypassCaches : {false, true}) {
        if (!downloader.download(sLocation, sLocalPath, bBypassCaches)) {
            return Fetch::NOT_TRANSFERRED;
        }
        if (isGood()) {
            return Fetch::GOOD;
        }
        if (!bBypassCaches) {
            logMessage(WARNING, "invalid checksum on '%s'; retrying with bypass of http caches",
                       sShownName.c_str());
        }
    }
    logMessage(ERROR, "invalid checksum on '%s'", sShownName.c_str());
    return Fetch::BAD_CHECKSUM;
}

void logResourceFailure(const std::string& sLocation)
{
    logMessage(ERROR, "failed getting repository resource '%s'", sLocation.c_str());
}

bool openDownloader(Downloader& downloader, const std::string& sUri)
{
    if (!downloader.open(sUri)) {
        logMessage(ERROR, "failed creating repository downloder from '%s'",
                   printable(sUri).c_str());
        return false;
    }
    return true;
}

}  // namespace

bool Repository::update(const std::string& sUri)
{
    if (!sUri.empty()) {
        setUri(sUri);
    }
    if (m_sUri.empty()) {
        logMessage(ERROR, "no repository URI set, cannot update");
        return false;
    }
    m_resources.clear();
    if (!ensureDirectory(m_sCacheDir)) {
        return false;
    }
    ItemNotify notifier(2);  // outlives the sessions that report to it
    Downloader downloader;
    if (!openDownloader(downloader, m_sUri)) {
        return false;
    }
    downloader.setNotifier(&notifier);
    if (!fetchIndex(downloader)) {
        return false;
    }
    notifier.itemDone();
    if (!readIndex()) {
        return false;
    }
    const RepoResource* pPrimary = findPrimary();
    if (pPrimary == nullptr) {
        return false;
    }
    const std::string sSum = fetchResource(downloader, *pPrimary);
    if (sSum.empty()) {
        logResourceFailure(pPrimary->location);
        return false;
    }
    notifier.itemDone();
    return loadPrimary(*pPrimary, sSum);
}

bool Repository::fetchIndex(Downloader& downloader)
{
    if (m_pConfig->isSigned) {
        return m_signedIndex.fetch(downloader);
    }
    const bool bFetched =
        downloader.download(k_pIndexLocation, m_sCacheDir + baseName(k_pIndexLocation), true);
    if (!bFetched) {
        logResourceFailure(k_pIndexLocation);
    }
    return bFetched;
}

/// Has the file in the cache, fetched if the one there does not fit the index.
///
/// @return the checksum that it fits; empty on failure.
std::string Repository::fetchResource(Downloader& downloader, const RepoResource& resource)
{
    std::string sSum = isReadable(resource.localPath) ? resource.goodSum() : "";
    if (!sSum.empty()) {
        logMessage(DEBUG, "cached copy '%s' of '%s' is valid", resource.localPath.c_str(),
                   resource.location.c_str());
        return sSum;
    }
    const auto isGood = [&] { return !(sSum = resource.goodSum()).empty(); };
    const Fetch fetch =
        fetchFile(downloader, resource.location, resource.localPath, resource.location, isGood);
    if (fetch == Fetch::NOT_TRANSFERRED) {
        logResourceFailure(resource.location);
    }
    return sSum;
}

bool Repository::fetchPackages(const UpdateSet& updateSet) const
{
    if (m_sUri.empty()) {
        logMessage(ERROR, "no repository URI set, cannot get packages");
        return false;
    }
    if (!isLiteralToRpm(m_sPackagesDir)) {
        logMessage(ERROR, "cannot use package directory '%s' (rpm would expand its name)",
                   m_sPackagesDir.c_str());
        return false;
    }
    if (!haveDistinctFiles(updateSet) || !ensureDirectory(m_sPackagesDir)) {
        return false;
    }
    ItemNotify notifier(static_cast<int>(updateSet.size()));
    Downloader downloader;
    if (!openDownloader(downloader, m_sUri)) {
        return false;
    }
    downloader.setNotifier(&notifier);
    for (const Package& package : updateSet) {
        const std::string sLocation(package.location());
        const std::string sPath = localPath(package);
        const Checksum checksum = package.checksum();
        const auto isGood = [&] { return checksum.checkFile(sPath); };
        if (isReadable(sPath) && isGood()) {
            continue;
        }
        const Fetch fetch = fetchFile(downloader, sLocation, sPath, sPath, isGood);
        if (fetch == Fetch::NOT_TRANSFERRED) {
            logMessage(ERROR, "failed getting package '%s' from repository", sLocation.c_str());
        }
        if (fetch != Fetch::GOOD) {
            return false;
        }
        notifier.itemDone();
    }
    return true;
}
