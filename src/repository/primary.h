#pragma once

#include "packages/packageset.h"

#include <map>
#include <string>

/// What the primary file of a repository holds for this machine.
struct PrimaryContents {
    PackageSet packages;  ///< several versions of a name in file order

    /// The architectures that occur, and whether the machine can install them.
    std::map<std::string, bool, std::less<>> architectures;

    /// Of each package that the machine cannot install: base name of the file and architecture, each
    /// with a null byte.
    std::string skipped;

    bool architecturesKnown = true;  ///< `architectures` is complete
};

/// Reads a primary file, plain or gzip-compressed. Packages that the machine cannot install are
/// skipped with a WARNING; one malformed package fails the whole file.
///
/// Needs the rpm configuration, which knows the architectures of the machine.
///
/// @param contents  fresh. What was read in front of a failure is in it, then.
/// @return          true for a clean end of the document.
[[nodiscard]] bool parsePrimary(const std::string& sPath, PrimaryContents& contents);

/// The line about a package that the machine cannot install.
void logSkipped(const std::string& sFile, const std::string& sArchitecture);

/// The lines about skipped packages once more, for contents that were not read just now.
void logSkipped(const PrimaryContents& contents);

/// True if the machine can install packages of an architecture.
[[nodiscard]] bool isCompatible(const std::string& sArchitecture);
