// The downloader, as client of whatever answers. The first byte of an input chooses the repository, or
// "u" that its URI comes first; the rest is what the peer of each connection sends, in their order, with
// "\n----\n" between them.

#include "net/downloader.h"

#include "support/files.h"

#include "target.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <list>

namespace {

constexpr std::string_view k_sBetween = "\n----\n";
constexpr std::string_view k_sSecret = "c3cr3t";

std::string_view g_sAnswers;        ///< of connections to come
std::list<FileDescriptor> g_peers;  ///< the other ends of all connections of the run

/// Takes the answer of the next connection out of the input.
std::string_view nextAnswer()
{
    const std::size_t uEnd = std::min(g_sAnswers.find(k_sBetween), g_sAnswers.size());
    const std::string_view sAnswer = g_sAnswers.substr(0, uEnd);
    g_sAnswers.remove_prefix(std::min(uEnd + k_sBetween.size(), g_sAnswers.size()));
    return sAnswer;
}

}  // namespace

// In place of the C library's, for all libraries of the process: nothing gets out of it.

/// Makes a connection to a peer that has said all already.
extern "C" int connect(int iSocket, const sockaddr* /*pAddress*/, socklen_t /*uLength*/)
{
    std::array<int, 2> vEnds = {};
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, vEnds.data()) == 0, "socket pairs");
    const FileDescriptor& peer = g_peers.emplace_back(vEnds[1]);
    const FileDescriptor own(vEnds[0]);
    const std::string_view sAnswer = nextAnswer();
    require(writeAll(peer.get(), sAnswer.data(), sAnswer.size()) &&
                shutdown(peer.get(), SHUT_WR) == 0 && dup3(own.get(), iSocket, O_CLOEXEC) >= 0,
            "a peer can answer");
    return 0;
}

/// Knows one host on the local network and takes all others for strangers.
extern "C" int getaddrinfo(const char* pHost, const char* /*pService*/, const addrinfo* pHints,
                           addrinfo** ppResult)
{
    const auto real = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    addrinfo hints = *pHints;
    hints.ai_family = AF_INET;
    hints.ai_flags = AI_NUMERICHOST;
    return real(std::string_view(pHost) == "local" ? "127.0.0.1" : "192.0.2.1", nullptr, &hints,
                ppResult);
}

/// One interface, which is on the network of "local".
extern "C" int getifaddrs(ifaddrs** ppList) noexcept
{
    static sockaddr_in s_address = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    static sockaddr_in s_mask = {AF_INET, 0, {htonl(0xff000000)}, {}};
    static ifaddrs s_interface = {};
    s_interface.ifa_addr = reinterpret_cast<sockaddr*>(&s_address);
    s_interface.ifa_netmask = reinterpret_cast<sockaddr*>(&s_mask);
    *ppList = &s_interface;
    return 0;
}
extern "C" void freeifaddrs(ifaddrs* /*pList*/) noexcept {}

/// Gives the device an identity, which makes the user and the password for servers.
extern "C" std::FILE* fopen(const char* pPath, const char* pMode)
{
    const std::string_view sPath = pPath;
    const auto real = reinterpret_cast<decltype(&fopen)>(dlsym(RTLD_NEXT, "fopen64"));
    if (sPath == "/proc/cpuinfo") {
        return real(fileOf("Serial : 5\nRevision : 7\n", "cpuinfo").c_str(), pMode);
    }
    if (sPath.find("EEPROM") != sPath.npos) {
        return real(fileOf("abcdefghijklmnopqrstuvwxyz", "block").c_str(), pMode);
    }
    return real(pPath, pMode);
}

namespace {

/// True if a word, in whatever case, occurs.
bool mentions(std::string_view sText, std::string_view sWord)
{
    return std::search(sText.begin(), sText.end(), sWord.begin(), sWord.end(),
                       [](char a, char b) { return (a | ' ') == b; }) != sText.end();
}

/// Requires that a peer was sent nothing but requests of the program, with no line that others chose.
void judgeRequests(int iPeer, std::string_view sInput)
{
    std::string sSent;
    std::array<char, 4096> vBuffer;
    ssize_t iRead = 0;
    while ((iRead = recv(iPeer, vBuffer.data(), vBuffer.size(), MSG_DONTWAIT)) > 0) {
        sSent.append(vBuffer.data(), static_cast<std::size_t>(iRead));
    }
    require(sSent.find(k_sSecret) == sSent.npos || sInput.find(k_sSecret) != sInput.npos,
            "no password goes out in clear");
    while (!sSent.empty() && sSent[0] != '\x16') {  // the first byte of TLS
        const std::size_t uEnd = sSent.find("\r\n");
        require(uEnd != std::string::npos, "requests consist of lines");
        const std::string_view sLine = std::string_view(sSent).substr(0, uEnd);
        require(std::ranges::all_of(sLine, [](unsigned char c) { return c >= ' ' || c == '\t'; }),
                "no line holds a control character");
        bool bOurs = sLine.empty();
        for (const std::string_view sBegin :
             {"GET ", "CONNECT ", "User-Agent: base/", "Connection: ", "Keep-Alive: ", "TE: ",
              "Host: ", "Cache-Control: no-cache", "Pragma: no-cache",
              "Proxy-Authorization: ", "Authorization: Digest ", "Proxy-Connection: "}) {
            bOurs = bOurs || sLine.starts_with(sBegin);
        }
        require(bOurs, "each line is one of the program's");
        sSent.erase(0, uEnd + 2);
    }
}

}  // namespace

void fuzz(std::string_view sInput)
{
    static const rlimit s_few = {64,
                                 64};  // the program looks at each descriptor behind a connect()
    static const bool s_bReady = [] {
        URLFetcher::setNetworkDefaults(
            {"proxy", 3128, true, "user", std::string(k_sSecret), "base", "product", ""});
        return setrlimit(RLIMIT_NOFILE, &s_few) == 0;
    }();
    require(s_bReady && sInput.size() < 65536, "an answer fits a socket");
    const char cOrigin = sInput.empty() ? 'l' : sInput[0];
    g_sAnswers = sInput.substr(std::min<std::size_t>(1, sInput.size()));
    static const std::string s_sTo = fileOf("old", "to");
    {
        Downloader downloader;
        const bool bOpen = downloader.open(cOrigin == 'u'   ? std::string(nextAnswer())
                                           : cOrigin == 's' ? "https://origin/base"
                                           : cOrigin == 'h' ? "http://origin/base"
                                                            : "http://local/base");
        require(bOpen || cOrigin == 'u', "a repository can be opened");
        const bool bOk = bOpen && downloader.download("a/b", s_sTo, cOrigin == 'l');
        std::string sGot;
        require(readFile(s_sTo, sGot) && (bOk || sGot == "old"),
                "a failure leaves the destination as it was");
        require(!bOk || sInput.find(sGot) != sInput.npos || mentions(sInput, "chunked") ||
                    mentions(sInput, "file"),
                "a file is a piece of one answer");
        require(access((s_sTo + ".tmp").c_str(), F_OK) != 0, "no temporary file stays");
        if (bOk) {
            fileOf("old", "to");
        }
    }
    require(g_peers.size() <= 6 * 12, "requests are limited");
    for (const FileDescriptor& peer : g_peers) {
        judgeRequests(peer.get(), sInput);
    }
    g_peers.clear();
}
