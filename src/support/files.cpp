#include "support/files.h"

#include "support/logger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <utility>

int FileDescriptor::release()
{
    const int iFd = m_iFd;
    m_iFd = -1;
    return iFd;
}

bool FileDescriptor::close()
{
    return !isOpen() || ::close(release()) == 0;
}

std::string baseName(std::string_view sPath)
{
    const std::size_t uEnd = sPath.find_last_not_of('/');
    if (uEnd == std::string_view::npos) {
        return {};
    }
    sPath = sPath.substr(0, uEnd + 1);
    const std::size_t uSlash = sPath.rfind('/');
    return std::string(uSlash == std::string_view::npos ? sPath : sPath.substr(uSlash + 1));
}

bool ensureDirectory(const std::string& sPath)
{
    bool bExists = mkdir(sPath.c_str(), 0700) == 0;
    if (!bExists && errno == EEXIST) {
        struct stat info = {};
        bExists = stat(sPath.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
        errno = EEXIST;  // the reason to report when something else stands there
    }
    if (!bExists) {
        logMessage(ERROR, "cannot create dir '%s' (%s)", sPath.c_str(), errnoText().c_str());
        return false;
    }
    logMessage(DEBUG, "successfully created dir '%s'", sPath.c_str());
    return true;
}

bool isReadable(const std::string& sPath)
{
    const FileDescriptor file(open(sPath.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.isOpen()) {
        logMessage(DEBUG, "file '%s' not readable (%s)", sPath.c_str(), errnoText().c_str());
    }
    return file.isOpen();
}

bool readFile(const std::string& sPath, std::string& sContents)
{
    return readFile(sPath, sContents, SIZE_MAX);
}

bool readFile(const std::string& sPath, std::string& sContents, std::size_t uLimit)
{
    const FileDescriptor file(open(sPath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file.isOpen()) {
        return false;
    }
    std::string sRead;
    std::array<char, 4096> vBuffer;
    ssize_t iRead = 0;
    while ((iRead = read(file.get(), vBuffer.data(), vBuffer.size())) != 0) {
        if (iRead > 0) {
            sRead.append(vBuffer.data(), static_cast<std::size_t>(iRead));
        } else if (errno != EINTR) {
            return false;
        }
        if (sRead.size() > uLimit) {
            errno = EFBIG;
            return false;
        }
    }
    sContents = std::move(sRead);
    return true;
}

bool replaceFile(const std::string& sPath, std::string_view sContents)
{
    const std::string sTemporary = sPath + ".tmp";
    FileDescriptor file(open(sTemporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    // Forced to disk before it gets its name: some file systems write the name first.
    if (file.isOpen() && writeAll(file.get(), sContents.data(), sContents.size()) &&
        fsync(file.get()) == 0 && file.close() && rename(sTemporary.c_str(), sPath.c_str()) == 0) {
        return true;
    }
    const int iError = errno;
    unlink(sTemporary.c_str());
    errno = iError;
    return false;
}

bool writeAll(int iFd, const char* pData, std::size_t uLength)
{
    while (uLength > 0) {
        const ssize_t iWritten = write(iFd, pData, uLength);
        if (iWritten < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        pData += iWritten;
        uLength -= static_cast<std::size_t>(iWritten);
    }
    return true;
}
