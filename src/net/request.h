#pragma once

#include <ne_request.h>
#include <ne_session.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct RequestDeleter {
    void operator()(ne_request* pRequest) const { ne_request_destroy(pRequest); }
};
using Request = std::unique_ptr<ne_request, RequestDeleter>;

/// Where the body of a response goes. User data of writeBody().
struct BodyContext {
    ne_request* request;  ///< not owned
    int fd;               ///< not owned
    std::uint64_t room;   ///< bytes that may still come
};

/// A body reader of neon: writes a block to the descriptor of a BodyContext. On a failure it sets
/// the session's error and returns -1, which ends the request.
int writeBody(void* pUserData, const char* pBlock, std::size_t uLength);

/// The text for a result of neon.
///
/// @param pSession  has the text of some results; may be null.
std::string neErrorText(int iResult, ne_session* pSession);

/// True if a request that ended like this is worth another try.
bool isTransient(int iResult);

/// True for the statuses whose "Location" is followed: 301, 302, 303, 307.
bool isRedirect(int iStatus);

/// False for a challenge (RFC 9110, 11.6.1) with an empty element, on which the library crashes, or
/// with a control character, which it would send back.
bool isGoodChallenge(std::string_view sValue);

/// False if an element of a list of parameters (RFC 9110, 11.6.3) has no "=", on which the library
/// crashes, or if there is a control character.
bool isGoodAuthenticationInfo(std::string_view sValue);

/// Answers a request for authentication, in the way of neon's credentials callbacks.
///
/// @param pLabel     "http" or "proxy", for messages.
/// @param iAttempt   0 for the first try of a request; there is no second one.
/// @param pUser      receives the user name; a buffer of NE_ABUFSIZ bytes, like `pPassword`.
/// @return           0 to send the credentials, or -1 to give up (logged at ERROR), which leaves
///                   both buffers alone.
int provideCredentials(const char* pLabel, const std::string& sUser, const std::string& sPassword,
                       int iAttempt, char* pUser, char* pPassword);

/// Copies a file into a descriptor, which stays open.
///
/// @return false if it cannot be opened, read or written (logged at ERROR); the descriptor has
///         received a part of it then.
[[nodiscard]] bool copyFile(const std::string& sPath, int iFd, std::uint64_t uLimit);
