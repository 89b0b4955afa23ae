#include "net/downloader.h"

#include "net/uri.h"
#include "support/controls.h"
#include "support/files.h"
#include "support/logger.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int k_iMaxRedirects = 5;

/// A part of a URI, for a message.
const char* text(const char* pPart)
{
    return pPart != nullptr ? pPart : "";
}

std::string uriText(const ne_uri& uri)
{
    const std::unique_ptr<char, decltype(&std::free)> unparsed(ne_uri_unparse(&uri), &std::free);
    return unparsed.get();
}

}  // namespace

Downloader::~Downloader()
{
    close();
}

void Downloader::close()
{
    m_vFetchers.clear();
    ne_uri_free(&m_uri);
}

bool Downloader::open(const std::string& sUri)
{
    if (!m_vFetchers.empty()) {
        return false;
    }
    const std::string sShown = printable(sUri);
    if (!parseUri(sUri, m_uri)) {
        logMessage(ERROR, "failed parsing repository URI '%s'", sShown.c_str());
        close();
        return false;
    }
    if (m_uri.host == nullptr || m_uri.path == nullptr || m_uri.scheme == nullptr) {
        logMessage(ERROR, "repository URI '%s' missing host, path or scheme", sShown.c_str());
        close();
        return false;
    }
    logMessage(
        DEBUG, "opening repo downloader with URI scheme, host, port, path = '%s' '%s' %u '%s'",
        m_uri.scheme, printable(m_uri.host).c_str(), m_uri.port, printable(m_uri.path).c_str());
    assert(m_vFetchers.empty());
    m_vFetchers.push_back(std::make_unique<URLFetcher>(m_uri));
    URLFetcher& fetcher = *m_vFetchers.back();
    if (!fetcher.isValid()) {
        logMessage(ERROR, "cannot create fetcher for '%s'", sShown.c_str());
        close();
        return false;
    }
    if (m_pNotifier != nullptr) {
        fetcher.setNotifier(m_pNotifier);
    }
    m_sBasePath = m_uri.path;
    if (!m_sBasePath.ends_with('/')) {
        m_sBasePath += '/';
    }
    logMessage(DEBUG, "opened repo downloader with base URI '%s'", sShown.c_str());
    return true;
}

void Downloader::setNotifier(URLFetcher::Notifier* pNotifier)
{
    m_pNotifier = pNotifier;
    for (const auto& fetcher : m_vFetchers) {
        fetcher->setNotifier(pNotifier);
    }
}

bool Downloader::download(const std::string& sPath, const std::string& sDestination,
                          bool bBypassCaches, std::uint64_t uLimit)
{
    const std::string sTemporary = sDestination + ".tmp";
    logMessage(DEBUG, "downloading path '%s' to '%s'", sPath.c_str(), sDestination.c_str());
    const std::string sResolved = m_sBasePath + sPath;
    logMessage(DEBUG, "resolved URI path '%s' on '%s' to '%s'", sPath.c_str(), m_sBasePath.c_str(),
               sResolved.c_str());
    FileDescriptor file(::open(sTemporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!file.isOpen()) {
        logMessage(ERROR, "failed creating file '%s' (%s)", sTemporary.c_str(),
                   errnoText().c_str());
        return false;
    }
    bool bOk = fetch(sPath, sResolved, file.get(), bBypassCaches, uLimit);
    if (!file.close() && bOk) {
        logMessage(ERROR, "failed closing file '%s' (%s)", sTemporary.c_str(), errnoText().c_str());
        bOk = false;
    }
    if (bOk && std::rename(sTemporary.c_str(), sDestination.c_str()) != 0) {
        logMessage(ERROR, "failed renaming '%s' to '%s' (%s)", sTemporary.c_str(),
                   sDestination.c_str(), errnoText().c_str());
        bOk = false;
    }
    if (!bOk) {
        unlink(sTemporary.c_str());
        return false;
    }
    logMessage(DEBUG, "successfully downloaded path '%s' to '%s'", sPath.c_str(),
               sDestination.c_str());
    return true;
}

bool Downloader::fetch(const std::string& sPath, const std::string& sResolved, int iFd,
                       bool bBypassCaches, std::uint64_t uLimit)
{
    assert(!m_vFetchers.empty());
    URLFetcher* pCurrent = m_vFetchers.front().get();
    int iRedirects = 0;
    while (!pCurrent->get(sResolved, iFd, bBypassCaches, sPath, uLimit)) {
        if (!pCurrent->wasRedirected()) {
            return false;
        }
        if (++iRedirects > k_iMaxRedirects) {
            logMessage(ERROR, "maximum number of redirects (%i) exceeded", k_iMaxRedirects);
            return false;
        }
        pCurrent = followRedirect(*pCurrent, sPath);
        if (pCurrent == nullptr) {
            return false;
        }
    }
    if (pCurrent != m_vFetchers.front().get()) {
        pCurrent->closeConnection();
    }
    return true;
}

URLFetcher* Downloader::followRedirect(URLFetcher& current, const std::string& sPath)
{
    const ne_uri* pLocation = current.redirectLocation();
    if (pLocation == nullptr || hasControlCharacter(text(pLocation->host))) {
        logMessage(ERROR, "got redirect with unparseable location");
        return nullptr;
    }
    logMessage(DEBUG, "'%s' redirected to '%s://%s:%u%s", sPath.c_str(), text(pLocation->scheme),
               text(pLocation->host), pLocation->port, text(pLocation->path));
    const auto it = std::find_if(m_vFetchers.begin(), m_vFetchers.end(),
                                 [&](const auto& fetcher) { return fetcher->matches(*pLocation); });
    URLFetcher* pFound = it != m_vFetchers.end() ? it->get() : nullptr;
    if (pFound != &current) {
        current.closeConnection();
    }
    if (pFound != nullptr) {
        return pFound;
    }
    auto fetcher = std::make_unique<URLFetcher>(*pLocation);
    if (!fetcher->isValid()) {
        logMessage(ERROR, "cannot create fetcher for redirection to '%s'",
                   uriText(*pLocation).c_str());
        return nullptr;
    }
    fetcher->setNotifier(m_pNotifier);
    m_vFetchers.push_back(std::move(fetcher));
    return m_vFetchers.back().get();
}
