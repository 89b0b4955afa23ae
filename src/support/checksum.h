#pragma once

#include "support/sha1.h"

#include <string>

/// An expected digest, as repository metadata give it. A plain value.
struct Checksum {
    std::string value;  ///< the digest as hexadecimal text, unchanged from the metadata
    std::string type;   ///< the algorithm's name; only "sha" (SHA-1) can be checked

    /// True if the digest of the bytes of a file is exactly `value`, case included. Every other
    /// outcome, an unreadable file and an unknown type among them, is false and logged.
    [[nodiscard]] bool checkFile(const std::string& sPath) const { return check(sPath, false); }

    /// The same for the contents of a gzip file; a file that is not in gzip form is taken as it is.
    [[nodiscard]] bool checkContents(const std::string& sPath) const { return check(sPath, true); }

private:
    [[nodiscard]] bool check(const std::string& sPath, bool bDecompress) const;
};

/// Computes the SHA-1 digest of a file, read once and in small blocks.
///
/// @param bDecompress  digest the contents of a gzip file instead of its bytes.
/// @return             false if it cannot be opened (logged at ERROR) or read (not logged);
///                     `digest` is unchanged then.
[[nodiscard]] bool fileDigest(const std::string& sPath, Sha1Digest& digest, bool bDecompress);

/// Two lower-case hexadecimal digits a byte, high nibble first.
std::string hexText(const unsigned char* pBytes, std::size_t uLength);
