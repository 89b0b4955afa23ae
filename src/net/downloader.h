#pragma once

#include "net/urlfetcher.h"

#include <ne_uri.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Fetches paths below one repository URI into local files, and follows redirects across origins.
/// Keeps one fetcher with its connection for each origin that it met. A local object of the
/// operation that uses it: make it, open it, set the notifier, download.
class Downloader {
public:
    Downloader() = default;
    ~Downloader();
    Downloader(const Downloader&) = delete;
    Downloader& operator=(const Downloader&) = delete;

    /// Sets the repository. Only its scheme, host, port and path count.
    ///
    /// @return false if it is open already, or if the URI cannot be used (logged at ERROR), which
    ///         leaves the object as it was.
    [[nodiscard]] bool open(const std::string& sUri);

    /// @param pNotifier  receives the events of all sessions, present and future; null for none.
    ///                   Not owned: must live as long as this object.
    void setNotifier(URLFetcher::Notifier* pNotifier);

    /// Fetches one resource under a temporary name (".tmp" behind the destination) and renames it
    /// when it is complete. Needs a successful open().
    ///
    /// @param sPath          relative to the repository URI.
    /// @param sDestination   local path; its directory must exist.
    /// @param bBypassCaches  forbids HTTP caches to answer.
    /// @param uLimit         bytes that it may have.
    /// @return               true if `sDestination` is the complete resource; false if the transfer
    ///                       failed (logged), which leaves `sDestination` as it was.
    [[nodiscard]] bool download(const std::string& sPath, const std::string& sDestination,
                                bool bBypassCaches, std::uint64_t uLimit = k_uNoLimit);

private:
    void close();
    [[nodiscard]] bool fetch(const std::string& sPath, const std::string& sResolved, int iFd,
                             bool bBypassCaches, std::uint64_t uLimit);
    [[nodiscard]] URLFetcher* followRedirect(URLFetcher& current, const std::string& sPath);

    ne_uri m_uri = {};
    std::vector<std::unique_ptr<URLFetcher>> m_vFetchers;  ///< first the repository's own origin
    std::string m_sBasePath;                               ///< ends in a slash
    URLFetcher::Notifier* m_pNotifier = nullptr;
};
