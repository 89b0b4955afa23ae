#include "net/sessionhooks.h"

#include "net/request.h"
#include "net/uri.h"

#include <fcntl.h>
#include <ne_string.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

namespace {

/// Bounds the search where thousands may be open: a new descriptor gets the lowest free number.
constexpr int k_iHighestDescriptor = 1023;

/// Sets the time after which a single read or write on a connection fails. neon hands out no
/// descriptor, but every TCP socket that the process has not inherited is one of its connections.
void limitConnections()
{
    const timeval limit = {k_iReadTimeout, 0};
    const int iEnd = std::min(getdtablesize() - 1, k_iHighestDescriptor);
    for (int iFd = STDERR_FILENO + 1; iFd <= iEnd; ++iFd) {
        int iProtocol = 0;
        socklen_t uLength = sizeof(iProtocol);
        const int iFlags = fcntl(iFd, F_GETFD);
        if (iFlags >= 0 && (iFlags & FD_CLOEXEC) != 0 &&
            getsockopt(iFd, SOL_SOCKET, SO_PROTOCOL, &iProtocol, &uLength) == 0 &&
            iProtocol == IPPROTO_TCP) {
            setsockopt(iFd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
            setsockopt(iFd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
        }
    }
}

/// Whether the library can be trusted with the headers of authentication.
bool areHeadersSafe(ne_request* pRequest)
{
    const auto isSafe = [&](const char* pName, bool (*isGood)(std::string_view)) {
        const char* pValue = ne_get_response_header(pRequest, pName);
        return pValue == nullptr || isGood(pValue);
    };
    return isSafe("WWW-Authenticate", &isGoodChallenge) &&
           isSafe("Proxy-Authenticate", &isGoodChallenge) &&
           isSafe("Authentication-Info", &isGoodAuthenticationInfo) &&
           isSafe("Proxy-Authentication-Info", &isGoodAuthenticationInfo);
}

SessionHooks& hooksOf(void* pThis)
{
    return *static_cast<SessionHooks*>(pThis);
}

}  // namespace

SessionHooks::SessionHooks(ne_session* pSession, const ne_uri& origin) : m_pSession(pSession)
{
    ne_uri_copy(&m_origin, &origin);
    if (m_origin.port == 0) {
        m_origin.port = ne_uri_defaultport(m_origin.scheme);
    }
    if (std::string_view(origin.scheme) == "https") {
        m_sBareAddress = bareAddress(origin.host);
    }
    ne_hook_create_request(pSession, &onCreate, this);
    ne_hook_pre_send(pSession, &onSend, this);
    ne_hook_post_send(pSession, &onResponse, this);
}

SessionHooks::~SessionHooks()
{
    ne_uri_free(&m_origin);
    ne_uri_free(&m_redirect);
}

void SessionHooks::followRedirects()
{
    ne_hook_post_send(m_pSession, &onRedirect, this);
}

bool SessionHooks::hasRequestsLeft() const
{
    return m_uRequests + (m_bTunnel ? 2 : 1) <= k_uMaxRequests;
}

void SessionHooks::notify(ne_session_status status)
{
    if (status == ne_status_connected) {
        limitConnections();
        m_bConnected = true;
        if (m_bResent) {
            ++m_uRequests;
            m_bResent = false;
        }
    } else if (status == ne_status_disconnected) {
        m_bConnected = false;
    }
}

void SessionHooks::onCreate(ne_request* pRequest, void* pThis, const char* pMethod,
                            const char* pPath)
{
    SessionHooks& hooks = hooksOf(pThis);
    if (std::string_view(pMethod) == "CONNECT") {
        hooks.m_bTunnel = true;
    } else {
        hooks.m_pRequest = pRequest;
        hooks.m_sPath = pPath;
    }
}

void SessionHooks::onSend(ne_request* /*pRequest*/, void* pThis, ne_buffer* pText)
{
    SessionHooks& hooks = hooksOf(pThis);
    ++hooks.m_uRequests;
    if (!hooks.hasRequestsLeft()) {
        ne_close_connection(hooks.m_pSession);  // on a fresh one the library sends nothing twice
    }
    hooks.m_bResent = hooks.m_bConnected;
    if (!hooks.m_sBareAddress.empty()) {
        const std::string sText = withBrackets(pText->data, hooks.m_sBareAddress);
        ne_buffer_clear(pText);
        ne_buffer_append(pText, sText.data(), sText.size());
    }
}

int SessionHooks::onResponse(ne_request* pRequest, void* pThis, const ne_status* pStatus)
{
    SessionHooks& hooks = hooksOf(pThis);
    if (pRequest != hooks.m_pRequest && pStatus->klass != 2 && pStatus->code != 407) {
        return NE_ERROR;  // the status line of the proxy is the reason
    }
    if (!areHeadersSafe(pRequest)) {
        ne_set_error(hooks.m_pSession, "malformed authentication header");
        return NE_ERROR;
    }
    if ((pStatus->code == 401 || pStatus->code == 407) && !hooks.hasRequestsLeft()) {
        ne_set_error(hooks.m_pSession, "maximum number of requests (%u) exceeded", k_uMaxRequests);
        return NE_ERROR;
    }
    return NE_OK;
}

int SessionHooks::onRedirect(ne_request* pRequest, void* pThis, const ne_status* pStatus)
{
    SessionHooks& hooks = hooksOf(pThis);
    const char* pLocation = ne_get_response_header(pRequest, "Location");
    if (!isRedirect(pStatus->code) || pLocation == nullptr) {
        return NE_OK;
    }
    ne_uri_free(&hooks.m_redirect);
    if (!redirectTarget(pLocation, hooks.m_origin, hooks.m_sPath, hooks.m_redirect)) {
        ne_set_error(hooks.m_pSession, "Could not parse redirect destination URL");
        return NE_ERROR;
    }
    return NE_REDIRECT;
}
