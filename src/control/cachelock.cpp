#include "control/cachelock.h"

#include "control/signals.h"
#include "support/files.h"
#include "support/logger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

namespace {

/// Opens the lock file, and makes it if need be. The directory is open to other users on many
/// systems: a link that they planted is never followed, and a file that they gave a second name here
/// is not changed.
///
/// @return a descriptor, or -1 with errno set.
int openLockFile(const std::string& sPath)
{
    FileDescriptor file(open(sPath.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, 0666));
    struct stat info = {};
    if (file.isOpen() && fstat(file.get(), &info) == 0 && info.st_nlink > 1) {
        file.close();
        errno = EMLINK;
    }
    return file.release();
}

/// Tries until the lock is held, the time is over or a signal is noted.
///
/// @param iAttempts  set to the number of attempts made.
/// @return           false with errno of the last attempt, unless a signal is noted.
bool waitForLock(int iFd, int iLockTimeout, int& iAttempts)
{
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    for (iAttempts = 1;; ++iAttempts) {
        if (fcntl(iFd, F_SETLK, &lock) == 0) {
            return true;
        }
        if ((errno != EAGAIN && errno != EACCES) || iLockTimeout < iAttempts) {
            return false;
        }
        if (iAttempts % 10 == 1) {
            logMessage(INFO, "cache lock held by another instance, will timeout in %i secs",
                       iLockTimeout - iAttempts + 1);
        }
        sleep(1);
        if (signalNoted != 0) {
            return false;
        }
    }
}

}  // namespace

bool acquireCacheLock(int iLockTimeout, const std::string& sPath)
{
    FileDescriptor file(openLockFile(sPath));
    if (!file.isOpen()) {
        logMessage(ERROR, "failed creating lock file '%s' (%s).", sPath.c_str(),
                   errnoText().c_str());
        return false;
    }
    fcntl(file.get(), F_SETFD, fcntl(file.get(), F_GETFD) | FD_CLOEXEC);

    int iAttempts = 0;
    if (!waitForLock(file.get(), iLockTimeout, iAttempts)) {
        if (signalNoted == 0) {
            logMessage(ERROR, "failed acquiring lock file '%s' (%s)", sPath.c_str(),
                       errnoText().c_str());
        }
        return false;
    }
    if (iAttempts > 1) {
        logMessage(INFO, "other instance terminated, got cache lock");
    }
    if (ftruncate(file.get(), 0) != 0) {
        logMessage(ERROR, "failed truncating lock file '%s' (%s)", sPath.c_str(),
                   errnoText().c_str());
        return false;
    }
    std::array<char, 32> vText;
    const int iLength = std::snprintf(vText.data(), vText.size(), "%10i\n", getpid());
    if (write(file.get(), vText.data(), static_cast<std::size_t>(iLength)) < iLength) {
        logMessage(WARNING, "failed writing PID to lock file '%s'.", sPath.c_str());
    }
    file.release();  // stays open, and so locked, until the process ends
    return true;
}

bool isCacheLockHeld(const std::string& sPath)
{
    const FileDescriptor file(open(sPath.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC));
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return file.isOpen() && fcntl(file.get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

bool gatherRandomBytes(void* pBuffer, std::size_t uLength)
{
    logMessage(DEBUG, "requesting %u random bytes", static_cast<unsigned>(uLength));
    const FileDescriptor file(open("/dev/urandom", O_RDONLY | O_CLOEXEC));
    if (!file.isOpen()) {
        logMessage(ERROR, "could not open '/dev/urandom' to gather random data (%s).",
                   errnoText().c_str());
        return false;
    }
    char* pNext = static_cast<char*>(pBuffer);
    while (uLength > 0) {
        const ssize_t iRead = read(file.get(), pNext, uLength);
        if (iRead == 0) {
            logMessage(ERROR,
                       "received end-of-file from from '/dev/urandom', failed gathering random "
                       "data.");
            return false;
        }
        if (iRead < 0) {
            if (errno == EINTR) {
                continue;
            }
            logMessage(ERROR, "failed reading from '/dev/urandom' (%s)", errnoText().c_str());
            return false;
        }
        pNext += iRead;
        uLength -= static_cast<std::size_t>(iRead);
    }
    return true;
}
