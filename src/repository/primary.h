#pragma once

#include "packages/packageset.h"

#include <string>

/// Reads the primary file of a repository, plain or gzip-compressed, and adds its packages with
/// insertEqual(). Packages that the machine cannot install are skipped with a WARNING; one
/// malformed package fails the whole file. Only accepted packages stay in memory.
///
/// Needs the rpm configuration, which knows the architectures of the machine.
///
/// @param packages  empty. What was read in front of a failure is in it, then.
/// @return          true for a clean end of the document.
[[nodiscard]] bool parsePrimary(const std::string& sPath, PackageSet& packages);
