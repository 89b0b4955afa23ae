#include "net/request.h"

#include "support/controls.h"
#include "support/files.h"
#include "support/logger.h"

#include <fcntl.h>
#include <ne_auth.h>
#include <ne_utils.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

namespace {

constexpr std::string_view k_sBlanks = " \t\r\n";

/// The parts between the commas of a header. As the library sees it, commas in a quoted string do
/// not count, and quotes count behind a "=" only.
std::vector<std::string_view> elementsOf(std::string_view sValue)
{
    std::vector<std::string_view> vElements;
    std::size_t uBegin = 0;
    bool bValue = false;
    bool bQuoted = false;
    for (std::size_t u = 0; u < sValue.size(); ++u) {
        if (sValue[u] == '"') {
            bQuoted = bValue && !bQuoted;
        } else if (sValue[u] == ',' && !bQuoted) {
            vElements.push_back(sValue.substr(uBegin, u - uBegin));
            uBegin = u + 1;
            bValue = false;
        } else if (sValue[u] == '=') {
            bValue = true;
        }
    }
    vElements.push_back(sValue.substr(uBegin));
    return vElements;
}

/// Parts of these headers go back out in a request, where a control character could end its line.
bool hasControlButTabs(std::string_view sValue)
{
    std::string sText(sValue);
    std::replace(sText.begin(), sText.end(), '\t', ' ');
    return hasControlCharacter(sText);
}

}  // namespace

int writeBody(void* pUserData, const char* pBlock, std::size_t uLength)
{
    auto* pContext = static_cast<BodyContext*>(pUserData);
    if (uLength > pContext->room) {
        ne_set_error(ne_get_session(pContext->request), "longer than it may be");
        return -1;
    }
    pContext->room -= uLength;
    if (!writeAll(pContext->fd, pBlock, uLength)) {
        ne_set_error(ne_get_session(pContext->request),
                     "failed writing downloaded data to file (%s)", errnoText().c_str());
        return -1;
    }
    return 0;
}

std::string neErrorText(int iResult, ne_session* pSession)
{
    switch (iResult) {
        case NE_OK:
            return pSession != nullptr ? ne_get_error(pSession) : "no error";
        case NE_ERROR:
            return pSession != nullptr ? ne_get_error(pSession) : "generic error";
        case NE_LOOKUP:
            return "server or proxy hostname lookup failed";
        case NE_AUTH:
            return "authentication failed on server";
        case NE_PROXYAUTH:
            return "authentication failed on proxy";
        case NE_CONNECT:
            return "could not connect to server";
        case NE_TIMEOUT:
            return "connection timed out";
        case NE_FAILED:
            return "the precondition failed";
        case NE_RETRY:
            return "retry the request";
        case NE_REDIRECT:
            return "received server redirect";
        default:
            return "<unknown error code>";
    }
}

bool isTransient(int iResult)
{
    return iResult == NE_ERROR || iResult == NE_CONNECT || iResult == NE_TIMEOUT;
}

bool isRedirect(int iStatus)
{
    return iStatus == 301 || iStatus == 302 || iStatus == 303 || iStatus == 307;
}

bool isGoodChallenge(std::string_view sValue)
{
    const auto isBlank = [](std::string_view sElement) {
        return sElement.find_first_not_of(k_sBlanks) == std::string_view::npos;
    };
    const std::vector<std::string_view> vElements = elementsOf(sValue);
    return !hasControlButTabs(sValue) &&
           std::none_of(vElements.begin(), vElements.end(), isBlank) &&
           k_sBlanks.find(sValue.back()) == std::string_view::npos;
}

bool isGoodAuthenticationInfo(std::string_view sValue)
{
    const std::vector<std::string_view> vElements = elementsOf(sValue);
    return !hasControlButTabs(sValue) &&
           std::all_of(vElements.begin(), vElements.end(), [](std::string_view sElement) {
               return sElement.find('=') != std::string_view::npos;
           });
}

int provideCredentials(const char* pLabel, const std::string& sUser, const std::string& sPassword,
                       int iAttempt, char* pUser, char* pPassword)
{
    if (iAttempt != 0) {
        logMessage(ERROR, "%s authentication as user '%s' failed", pLabel, sUser.c_str());
        return -1;
    }
    if (sUser.empty()) {
        logMessage(ERROR, "%s authentication requested but no credentials set", pLabel);
        return -1;
    }
    if (sUser.size() >= NE_ABUFSIZ) {
        logMessage(ERROR, "%s username length (%i) exceeds maximum supported (%i)", pLabel,
                   static_cast<int>(sUser.size()), NE_ABUFSIZ);
        return -1;
    }
    if (sPassword.size() >= NE_ABUFSIZ) {
        logMessage(ERROR, "%s password length (%i) exceeds maximum supported (%i)", pLabel,
                   static_cast<int>(sPassword.size()), NE_ABUFSIZ);
        return -1;
    }
    logMessage(TRACE, "attempting %s authentication as user '%s'", pLabel, sUser.c_str());
    std::memcpy(pUser, sUser.c_str(), sUser.size() + 1);
    std::memcpy(pPassword, sPassword.c_str(), sPassword.size() + 1);
    return 0;
}

bool copyFile(const std::string& sPath, int iFd, std::uint64_t uLimit)
{
    // A server may redirect to a file: it must not make us wait for a pipe or read a device.
    const FileDescriptor source(open(sPath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat info = {};
    bool bUsable = source.isOpen() && fstat(source.get(), &info) == 0;
    if (bUsable && S_ISREG(info.st_mode) && static_cast<std::uint64_t>(info.st_size) > uLimit) {
        errno = EFBIG;
        bUsable = false;
    } else if (bUsable && !S_ISREG(info.st_mode)) {
        errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
        bUsable = false;
    }
    if (!bUsable) {
        logMessage(ERROR, "failed copying file (%s)", errnoText().c_str());
        return false;
    }
    std::array<char, 4096> vBuffer;
    ssize_t iRead = 0;
    do {
        iRead = read(source.get(), vBuffer.data(), vBuffer.size());
    } while ((iRead < 0 && errno == EINTR) ||
             (iRead > 0 && writeAll(iFd, vBuffer.data(), static_cast<std::size_t>(iRead))));
    if (iRead != 0) {
        logMessage(ERROR, "failed copying file (%s)", errnoText().c_str());
    }
    return iRead == 0;
}
