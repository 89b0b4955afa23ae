#pragma once

#include "packages/dependency.h"
#include "packages/package.h"
#include "publisher/listing.h"
#include "rpmdb/database.h"

#include <string>
#include <vector>

/// The header of a package file, nothing of it verified.
///
/// @return null if the file cannot be read or is no package.
[[nodiscard]] RpmHandle<Header> readHeader(const std::string& sPath);

/// What a header says of its package, with its obsoletes. False if it is malformed.
[[nodiscard]] bool readOffered(Header header, PackageRecord& package);

/// All texts of a tag, "" for a header without it: of one text, of a list, or of file names.
[[nodiscard]] std::vector<std::string> textsOf(Header header, rpmTagVal tag);

/// How the package is signed.
enum class Signing { NONE, WEAK, SOUND };

/// @return WEAK if all that signs it is over MD5 or SHA-1.
[[nodiscard]] Signing signingOf(Header header);

/// In what the metadata of a package differ from its file, in words; empty if they agree. What
/// createrepo_c leaves out, as the package itself meets it, is no difference.
///
/// @param uSize  of the file.
[[nodiscard]] std::string differenceOf(const Package& package, const Listed& listed,
                                       std::uint64_t uSize, Header header);
