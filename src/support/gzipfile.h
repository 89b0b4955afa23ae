#pragma once

#include <zlib.h>

#include <cstddef>
#include <string>

/// Reads the contents of a gzip file (RFC 1952), or a file of another form as it is.
class GzipFile {
public:
    /// On failure isOpen() is false, with errno set.
    explicit GzipFile(const std::string& sPath);
    ~GzipFile() { close(); }
    GzipFile(const GzipFile&) = delete;
    GzipFile& operator=(const GzipFile&) = delete;

    [[nodiscard]] bool isOpen() const { return m_pFile != nullptr; }

    /// True if the file does not begin like a gzip file and is read as it is.
    [[nodiscard]] bool isPlain() { return gzdirect(m_pFile) != 0; }

    /// Reads on.
    ///
    /// @return bytes read, 0 at the end; negative, and so for good, if the file cannot be read, is
    ///         damaged or is cut. zlib by itself gives a cut file whole if only its end is missing.
    [[nodiscard]] int read(void* pBuffer, unsigned uLength);

private:
    int close();

    gzFile m_pFile;
    int m_iEnd = -1;  ///< what read() gives once the file is closed
};
