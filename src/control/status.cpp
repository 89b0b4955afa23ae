#include "control/status.h"

#include "control/result.h"
#include "support/files.h"
#include "support/logger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

constexpr std::array<const char*, 9> k_vWords = {"READY",       "DELAYING",  "ANALYZING",
                                                 "DOWNLOADING", "TESTING",   "UPDATING",
                                                 "PKGSDONE",    "CORRUPTED", "REBOOTING"};

/// Fills the temporary file, forces it to disk and closes it. False if any of it failed (logged).
bool fillTemporaryFile(FileDescriptor& file, const std::string& sLine)
{
    const ssize_t iWritten = write(file.get(), sLine.data(), sLine.size());
    if (iWritten < 0) {
        logMessage(DEBUG, "failed writing status to temp file: %s", errnoText().c_str());
        return false;
    }
    if (static_cast<std::size_t>(iWritten) != sLine.size()) {
        logMessage(DEBUG, "incomplete write to status temp file");
        return false;
    }
    if (fchmod(file.get(), 0644) != 0) {
        logMessage(DEBUG, "failed setting perms on status temporary file: %s", errnoText().c_str());
        return false;
    }
    // Before the file gets its name: some file systems write the name first, and a power cut
    // between the two would leave an empty status.
    if (fsync(file.get()) != 0) {
        logMessage(DEBUG, "failed writing status to temp file: %s", errnoText().c_str());
        return false;
    }
    if (!file.close()) {
        logMessage(DEBUG, "failed on closing status temporary file: %s", errnoText().c_str());
        return false;
    }
    return true;
}

/// Forces a directory to disk, as far as its file system can do that for directories.
bool syncDirectory(int iFd)
{
    return fsync(iFd) == 0 || errno == EINVAL;
}

}  // namespace

bool readStatus(Status& status, const std::string& sPath)
{
    const File file(std::fopen(sPath.c_str(), "re"));
    if (file == nullptr) {
        if (errno == ENOENT) {
            status = READY;
            return true;
        }
        logMessage(DEBUG, "cannot read from status file: %s", errnoText().c_str());
        return false;
    }
    std::array<char, 32> vToken = {};
    if (std::fscanf(file.get(), "%31s", vToken.data()) != 1) {
        logMessage(DEBUG, "failed reading from status file");
        return false;
    }
    const auto it = std::find_if(k_vWords.begin(), k_vWords.end(), [&](const char* pWord) {
        return std::string_view(pWord) == vToken.data();
    });
    if (it == k_vWords.end()) {
        logMessage(ERROR, "unknown status '%s'", vToken.data());
        return false;
    }
    status = static_cast<Status>(it - k_vWords.begin());
    return true;
}

bool writeStatus(Status status, const std::string& sPath)
{
    if (static_cast<unsigned>(status) >= k_vWords.size()) {
        logMessage(ERROR, "invalid status value %i", static_cast<int>(status));
        return false;
    }
    std::array<char, PATH_MAX> vTemporary = {};
    std::snprintf(vTemporary.data(), vTemporary.size(), "%s.XXXXXX", sPath.c_str());
    FileDescriptor file(mkostemp(vTemporary.data(), O_CLOEXEC));
    if (!file.isOpen()) {
        logMessage(DEBUG, "failed creating status temporary file: %s", errnoText().c_str());
        return false;
    }
    const std::string sLine = std::string(k_vWords[static_cast<std::size_t>(status)]) + "\n";
    bool bOk = fillTemporaryFile(file, sLine);
    if (bOk && rename(vTemporary.data(), sPath.c_str()) != 0) {
        logMessage(DEBUG, "failed saving status: %s", errnoText().c_str());
        bOk = false;
    }
    if (!bOk) {
        file.close();
        unlink(vTemporary.data());
    }
    return bOk;
}

bool syncStatus(const std::string& sPath)
{
    const FileDescriptor file(open(sPath.c_str(), O_RDONLY | O_CLOEXEC));
    const std::string sDirectory = sPath.substr(0, sPath.rfind('/') + 1);
    const FileDescriptor directory(open(sDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // The directory as well: not on every file system does a file bring its new name along.
    if (!file.isOpen() || fsync(file.get()) != 0 || !directory.isOpen() ||
        !syncDirectory(directory.get())) {
        logMessage(ERROR, "failed to sync status file: %s", errnoText().c_str());
        return false;
    }
    logMessage(TRACE, "synced status file");
    return true;
}

void recordStatus(Status status)
{
    if (!writeStatus(status)) {
        logMessage(WARNING, "failed updating status file");
    }
}

void recordStatusSynced(Status status)
{
    if (!writeStatus(status) || !syncStatus()) {
        logMessage(WARNING, "failed updating status file");
    }
}

bool checkStartupStatus(Status status, int& iResult)
{
    switch (status) {
        case CORRUPTED:
            logMessage(FATAL, "system is corrupted cannot update");
            iResult = ResultFatal;
            return false;
        case UPDATING:
            logMessage(FATAL,
                       "a previous update was interrupted; SYSTEM MAY BE CORRUPTED! Aborting");
            recordStatus(CORRUPTED);
            iResult = ResultFatal;
            return false;
        case REBOOTING:
            logMessage(INFO, "machine is rebooting after update, cannot start");
            iResult = ResultError;
            return false;
        default:
            return true;
    }
}
