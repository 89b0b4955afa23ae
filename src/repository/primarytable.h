#pragma once

#include "repository/primary.h"

#include <string>

// The compiled form of a primary file: what it holds for this machine, as the arrays that a
// PackageTable is. It lies beside the primary file and is never needed: one that is missing, of
// another version, byte order or primary file, of a machine with other architectures, cut or damaged
// in any byte is passed over.
//
// A file is a head and these parts: texts, dependencies, lists, packages, file texts, skipped
// packages, architectures. All numbers are in the machine's byte order; texts end in a null byte and
// are told by their number. The head names the length of each part and carries the CRC-32 of all
// that is behind it.

/// What the name of a compiled form ends in, behind that of the primary file.
inline constexpr const char* k_pTableSuffix = ".table";

/// Reads a compiled form.
///
/// @param sSum      tells the primary file that it has to come from.
/// @param contents  fresh; unchanged on failure (told at DEBUG).
[[nodiscard]] bool readPrimaryTable(const std::string& sPath, const std::string& sSum,
                                    PrimaryContents& contents);

/// Writes a compiled form, for the owner only, if at least as much room is left behind it.
///
/// @return false (told at DEBUG) if it is not there now.
bool writePrimaryTable(const std::string& sPath, const std::string& sSum,
                       const PrimaryContents& contents);
