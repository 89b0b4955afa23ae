#include "net/urlfetcher.h"

#include "net/request.h"
#include "net/tlstrust.h"
#include "net/uri.h"
#include "support/controls.h"
#include "support/logger.h"

#include <ne_auth.h>
#include <ne_request.h>
#include <unistd.h>

#include <memory>

namespace {

constexpr int k_iMaxRetries = 2;          ///< so a get() makes up to three attempts
constexpr int k_iConnectTimeout = 180;    ///< seconds
constexpr std::size_t k_uMaxPath = 8192;  ///< bytes of a request's path

/// Digest authentication, from servers with and without `qop`, and nothing else. NE_AUTH_DIGEST
/// would leave out the latter.
constexpr unsigned k_uDigestOnly = NE_AUTH_LEGACY_DIGEST;
static_assert(k_uDigestOnly == 2);

unsigned effectivePort(const ne_uri& uri)
{
    return uri.port != 0 ? uri.port : ne_uri_defaultport(uri.scheme);
}

}  // namespace

URLFetcher::Notifier::~Notifier() = default;

void URLFetcher::Notifier::notify(ne_session_status, const ne_session_status_info*) {}

URLFetcher::URLFetcher(const ne_uri& uri)
{
    if (!s_bInitialized) {
        logMessage(ERROR, "URLFetcher class not initialized before calling constructor");
        return;
    }
    if (uri.host == nullptr || uri.scheme == nullptr) {
        logMessage(ERROR, "URI missing host or scheme, cannot build fetcher");
        return;
    }
    if (hasControlCharacter(uri.host)) {
        logMessage(ERROR, "refused a host name with a control character");  // goes into a header
        return;
    }
    m_sScheme = uri.scheme;
    m_sHost = uri.host;
    m_uPort = uri.port;
    if (m_sScheme == "file") {
        if (!m_sHost.empty() && m_sHost != "localhost") {
            logMessage(ERROR, "only local file: URIs supported");
            return;
        }
    } else if (!openSession(uri)) {
        return;
    }
    m_bValid = true;
    logMessage(DEBUG, "URI fetcher %p for scheme '%s', host '%s', port %u created",
               static_cast<void*>(this), m_sScheme.c_str(), m_sHost.c_str(), m_uPort);
}

bool URLFetcher::openSession(const ne_uri& uri)
{
    if (m_uPort == 0) {
        m_uPort = ne_uri_defaultport(m_sScheme.c_str());
        if (m_uPort == 0) {
            logMessage(ERROR, "scheme '%s' not supported", m_sScheme.c_str());
            return false;
        }
    }
    const bool bTls = m_sScheme == "https";
    // To compare it with a certificate the library needs an IPv6 address without its brackets.
    const std::string sAddress = bTls ? bareAddress(m_sHost) : "";
    m_pSession = ne_session_create(m_sScheme.c_str(),
                                   sAddress.empty() ? m_sHost.c_str() : sAddress.c_str(), m_uPort);
    if (m_pSession == nullptr) {
        logMessage(ERROR, "could not open session for scheme '%s', host '%s', port %u",
                   m_sScheme.c_str(), m_sHost.c_str(), m_uPort);
        return false;
    }
    m_hooks = std::make_unique<SessionHooks>(m_pSession, uri);
    ne_set_notifier(m_pSession, &notifySession, this);
    if (bTls) {
        ne_set_server_auth(m_pSession, &serverCredentials, this);
    } else {
        ne_add_server_auth(m_pSession, k_uDigestOnly, &serverCredentials, this);
    }
    chooseProxy();
    ne_set_useragent(m_pSession, s_sUserAgent.c_str());
    m_hooks->followRedirects();
    ne_set_read_timeout(m_pSession, k_iReadTimeout);
    ne_set_connect_timeout(m_pSession, k_iConnectTimeout);
    if (bTls && !s_proxy.tlsTrust.empty()) {
        trustServers(m_pSession, s_proxy.tlsTrust);
    }
    return true;
}

URLFetcher::~URLFetcher()
{
    closeConnection();  // neon tells of it by a record that clearAddresses() releases
    clearAddresses();
    if (m_pSession != nullptr) {
        logMessage(DEBUG, "destroying session for %s://%s:%u", m_sScheme.c_str(), m_sHost.c_str(),
                   m_uPort);
        ne_session_destroy(m_pSession);
    }
}

bool URLFetcher::matches(const ne_uri& uri) const
{
    return uri.scheme != nullptr && uri.host != nullptr && m_sScheme == uri.scheme &&
           m_sHost == uri.host && m_uPort == effectivePort(uri);
}

void URLFetcher::setNotifier(Notifier* pNotifier)
{
    m_pNotifier = pNotifier;
}

void URLFetcher::notifySession(void* pThis, ne_session_status status,
                               const ne_session_status_info* pInfo)
{
    const auto* pFetcher = static_cast<URLFetcher*>(pThis);
    pFetcher->m_hooks->notify(status);
    if (pFetcher->m_pNotifier != nullptr) {
        pFetcher->m_pNotifier->notify(status, pInfo);
    }
}

void URLFetcher::closeConnection()
{
    if (m_pSession != nullptr) {
        ne_close_connection(m_pSession);
    }
}

const ne_uri* URLFetcher::redirectLocation() const
{
    return m_bRedirected ? &m_hooks->redirect() : nullptr;
}

bool URLFetcher::get(const std::string& sPath, int iFd, bool bBypassCaches,
                     const std::string& sLabel, std::uint64_t uLimit)
{
    if (!m_bValid) {
        return false;
    }
    m_bRedirected = false;
    logMessage(TRACE, "URLFetcher::get() this = %p", static_cast<void*>(this));
    if (m_pSession == nullptr) {
        return copyFile(sPath, iFd, uLimit);
    }
    if (hasControlCharacter(sPath)) {
        // It would add lines of its own to the header of the request.
        logMessage(ERROR, "refused to request a path with a control character");
        return false;
    }
    if (sPath.size() > k_uMaxPath) {
        logMessage(ERROR, "refused to request a path of more than %i bytes",
                   static_cast<int>(k_uMaxPath));
        return false;
    }
    m_hooks->beginResource();
    int iResult = NE_OK;
    int iStatusClass = 0;
    int iRetries = 0;
    while (true) {
        iResult = request(sPath, iFd, bBypassCaches, uLimit, iStatusClass);
        if (iResult == NE_REDIRECT) {
            m_bRedirected = true;
            return false;
        }
        if (iRetries >= k_iMaxRetries || !isTransient(iResult) || !m_hooks->hasRequestsLeft()) {
            break;
        }
        ++iRetries;
        logMessage(WARNING, "failed fetching '%s' (%s); retrying", sLabel.c_str(),
                   neErrorText(iResult, m_pSession).c_str());
        if (lseek(iFd, 0, SEEK_SET) != 0 || ftruncate(iFd, 0) != 0) {
            logMessage(ERROR, "failed rewinding, cannot retry");
            break;
        }
    }
    if (iResult == NE_OK && iStatusClass == 2) {
        if (iRetries != 0) {
            logMessage(INFO, "fetched '%s' in retry %i", sLabel.c_str(), iRetries);
        }
        return true;
    }
    logMessage(ERROR, "failed fetching '%s' (%s)", sLabel.c_str(),
               neErrorText(iResult, m_pSession).c_str());
    if (iResult == NE_LOOKUP) {
        logMessage(ERROR,
                   "make sure that a network gateway and DNS servers are configured\n"
                   "and that the unit is connected to the network");
    } else if (iResult == NE_PROXYAUTH) {
        logMessage(ERROR,
                   "make sure the proper username and password are configured in the proxy "
                   "settings");
    }
    return false;
}

int URLFetcher::request(const std::string& sPath, int iFd, bool bBypassCaches, std::uint64_t uLimit,
                        int& iStatusClass)
{
    iStatusClass = 0;
    const Request request(ne_request_create(m_pSession, "GET", sPath.c_str()));
    BodyContext context = {request.get(), iFd, uLimit};
    ne_add_response_body_reader(request.get(), &ne_accept_2xx, &writeBody, &context);
    if (bBypassCaches) {
        ne_add_request_header(request.get(), "Cache-Control", "no-cache");
        ne_add_request_header(request.get(), "Pragma", "no-cache");
    }
    const int iResult = ne_request_dispatch(request.get());
    if (iResult == NE_OK) {
        iStatusClass = ne_get_status(request.get())->klass;
    } else if (m_sScheme == "https" && iResult != NE_REDIRECT) {
        // Behind a refused tunnel the library would send the next request in clear.
        closeConnection();
    }
    return iResult;
}
