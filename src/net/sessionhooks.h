#pragma once

#include <ne_request.h>
#include <ne_session.h>
#include <ne_uri.h>

#include <string>

/// Most requests that one resource may cost: three attempts of four requests each (a tunnel, its
/// authentication, the resource, its authentication).
inline constexpr unsigned k_uMaxRequests = 12;

/// Seconds after which a single read or write on a connection fails.
inline constexpr int k_iReadTimeout = 120;

/// What neon does not do for a session by itself:
/// - reads and writes on the connection end after a time below TLS as well, where neon blocks;
/// - requests are counted, as a server can challenge without end;
/// - a proxy's answer to CONNECT is never taken for the origin's;
/// - headers on which the library would crash fail the request.
///
/// A response that is refused ends its request with NE_ERROR and the reason as the session's error.
class SessionHooks {
public:
    /// Registers with a session, which must not be used any more when the object is gone. Has to
    /// come before all authentication: the library calls in the order of registration.
    ///
    /// @param origin  scheme, host and port of the session, 0 for the default port; copied.
    SessionHooks(ne_session* pSession, const ne_uri& origin);
    ~SessionHooks();
    SessionHooks(const SessionHooks&) = delete;
    SessionHooks& operator=(const SessionHooks&) = delete;

    /// Makes redirects end a request with NE_REDIRECT. Comes behind all authentication.
    void followRedirects();

    /// To be told of each event of the session.
    void notify(ne_session_status status);

    /// Begins to count anew.
    void beginResource() { m_uRequests = 0; }

    /// False if another request, with its tunnel, could be more than k_uMaxRequests.
    [[nodiscard]] bool hasRequestsLeft() const;

    /// Where the last redirect leads; valid until the next request.
    [[nodiscard]] const ne_uri& redirect() const { return m_redirect; }

private:
    static void onCreate(ne_request* pRequest, void* pThis, const char* pMethod, const char* pPath);
    static void onSend(ne_request* pRequest, void* pThis, ne_buffer* pText);
    static int onResponse(ne_request* pRequest, void* pThis, const ne_status* pStatus);
    static int onRedirect(ne_request* pRequest, void* pThis, const ne_status* pStatus);

    ne_session* m_pSession;  ///< not owned
    ne_uri m_origin = {};
    ne_uri m_redirect = {};
    std::string m_sBareAddress;  ///< of an IPv6 origin that neon must know without its brackets
    std::string m_sPath;         ///< of the present request for a resource
    ne_request* m_pRequest = nullptr;  ///< that request; every other one asks for a tunnel
    bool m_bTunnel = false;            ///< a tunnel has been asked for
    unsigned m_uRequests = 0;          ///< sent for the present resource
    bool m_bConnected = false;
    bool m_bResent = false;  ///< the present request goes out again if a connection is made now
};
