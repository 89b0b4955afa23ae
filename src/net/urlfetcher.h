#pragma once

#include "config/config.h"
#include "net/identity.h"
#include "net/sessionhooks.h"

#include <ne_session.h>
#include <ne_socket.h>
#include <ne_uri.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// For the length of a transfer.
inline constexpr std::uint64_t k_uNoLimit = UINT64_MAX;

/// The connection to one origin: one scheme, host and port. Owns one neon session with all its
/// settings, or none for a file: origin. The decision for or against the proxy is made once, in the
/// constructor, which may look up the host and then takes as long as the resolver does.
class URLFetcher {
public:
    /// A receiver of session events.
    class Notifier {
    public:
        Notifier() = default;
        Notifier(const Notifier&) = delete;
        Notifier& operator=(const Notifier&) = delete;
        virtual ~Notifier();

        /// Called inside get(), on each event of the session. Must not throw. Here it does nothing.
        virtual void notify(ne_session_status status, const ne_session_status_info* pInfo);
    };

    /// Takes the settings of all fetchers, reads the device's identity and recovers the default
    /// credentials. Without it no fetcher is valid; calls behind the first change nothing. Failures
    /// are logged and leave the values concerned empty.
    static void setNetworkDefaults(const ProxyConfig& config);

    /// Ask isValid() for the outcome; a failure is logged at ERROR.
    explicit URLFetcher(const ne_uri& uri);
    ~URLFetcher();
    URLFetcher(const URLFetcher&) = delete;
    URLFetcher& operator=(const URLFetcher&) = delete;

    /// False if the construction failed; such a fetcher refuses all work.
    [[nodiscard]] bool isValid() const { return m_bValid; }

    /// True if a URI has this origin: scheme and host as exact texts. A port of 0 counts as the
    /// default port of the URI's scheme.
    [[nodiscard]] bool matches(const ne_uri& uri) const;

    /// @param pNotifier  receives the events of the session from now on; null for none. Not owned:
    ///                   must live as long as this object.
    void setNotifier(Notifier* pNotifier);

    /// Closes the connection, if there is one. The next request connects again.
    void closeConnection();

    /// Brings one resource into a file, with at most two retries.
    ///
    /// @param sPath          complete path on the server, or of a local file; goes out unchanged. One
    ///                       for a server must hold no control character and at most 8192 bytes.
    /// @param iFd            descriptor open for writing, at the start of an empty file; stays
    ///                       open.
    /// @param bBypassCaches  forbids HTTP caches to answer.
    /// @param sLabel         name of the resource in messages.
    /// @param uLimit         bytes that it may have; one that is longer fails.
    /// @return               true if the whole resource stands in the file. Otherwise the file
    ///                       holds whatever came last, and nothing if wasRedirected().
    [[nodiscard]] bool get(const std::string& sPath, int iFd, bool bBypassCaches,
                           const std::string& sLabel, std::uint64_t uLimit = k_uNoLimit);

    /// True if the last get() ended in a redirect, which is then not logged.
    [[nodiscard]] bool wasRedirected() const { return m_bRedirected; }

    /// Where the last get() was redirected to, or null. Valid until the next get().
    [[nodiscard]] const ne_uri* redirectLocation() const;

private:
    static void readCpuInfo();
    [[nodiscard]] static bool recoverDefaultCredentials();
    [[nodiscard]] static bool buildDefaultPassword();
    [[nodiscard]] static bool buildDefaultUser();

    static void notifySession(void* pThis, ne_session_status status,
                              const ne_session_status_info* pInfo);
    static int serverCredentials(void* pUserData, const char* pRealm, int iAttempt, char* pUser,
                                 char* pPassword);
    static int proxyCredentials(void* pUserData, const char* pRealm, int iAttempt, char* pUser,
                                char* pPassword);

    [[nodiscard]] bool openSession(const ne_uri& uri);
    void chooseProxy();
    [[nodiscard]] bool findLocalAddresses();
    void clearAddresses();
    [[nodiscard]] int request(const std::string& sPath, int iFd, bool bBypassCaches,
                              std::uint64_t uLimit, int& iStatusClass);

    static bool s_bInitialized;
    static ProxyConfig s_proxy;
    static std::string s_sUserAgent;
    static std::string s_sSerial;
    static std::string s_sRevision;
    static Board s_eBoard;
    static std::string s_sDefaultUser;
    static std::string s_sDefaultPassword;

    bool m_bValid = false;
    std::string m_sScheme;
    std::string m_sHost;  ///< an IPv6 literal keeps its square brackets
    unsigned m_uPort = 0;
    ne_session* m_pSession = nullptr;       ///< owned; null for a file: origin
    std::unique_ptr<SessionHooks> m_hooks;  ///< of the session
    Notifier* m_pNotifier = nullptr;        ///< not owned
    bool m_bRedirected = false;
    /// The host's addresses on a local network, owned; empty unless the proxy is bypassed. The
    /// session keeps these pointers.
    std::vector<ne_inet_addr*> m_vAddrs;
};
