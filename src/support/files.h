#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

/// A file descriptor that closes itself; -1 holds none.
class FileDescriptor {
public:
    explicit FileDescriptor(int iFd = -1) : m_iFd(iFd) {}
    ~FileDescriptor() { close(); }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    [[nodiscard]] int get() const { return m_iFd; }
    [[nodiscard]] bool isOpen() const { return m_iFd >= 0; }

    /// Gives the descriptor to the caller, who closes it.
    int release();

    /// Closes now. False, with errno set, if close(2) reports an error; closed in any case.
    bool close();

private:
    int m_iFd;
};

/// The last component of a path, slashes at its end ignored: "b" for "a/b/". Empty for a path of
/// slashes only.
std::string baseName(std::string_view sPath);

/// Makes sure that a directory exists: creates its last component if need be, for its owner only,
/// and no parents.
///
/// @return false if it does not exist afterwards (logged at ERROR).
[[nodiscard]] bool ensureDirectory(const std::string& sPath);

/// True if the file can be opened for reading; otherwise why not is logged at DEBUG.
[[nodiscard]] bool isReadable(const std::string& sPath);

/// Reads a whole file into memory; for files of the device's own only.
///
/// @return false, with errno set, if it cannot be opened or read; `sContents` is unchanged then.
[[nodiscard]] bool readFile(const std::string& sPath, std::string& sContents);

/// The same for a file that may be longer than memory has room for.
///
/// @param uLimit  bytes that it may have; a longer one fails with EFBIG.
[[nodiscard]] bool readFile(const std::string& sPath, std::string& sContents, std::size_t uLimit);

/// Replaces a file in one step (a temporary file, ".tmp" behind its name, forced to disk and renamed):
/// the old contents or the new ones are found, also behind a power cut.
///
/// @return false, with errno set, if that failed; the file is as it was, and nothing is left over.
[[nodiscard]] bool replaceFile(const std::string& sPath, std::string_view sContents);

/// Writes a whole block, going on after a partial write and after EINTR.
///
/// @return false, with errno set, on any other error.
[[nodiscard]] bool writeAll(int iFd, const char* pData, std::size_t uLength);

struct FileCloser {
    void operator()(std::FILE* pFile) const { std::fclose(pFile); }
};
/// A stdio stream that closes itself.
using File = std::unique_ptr<std::FILE, FileCloser>;
