#pragma once

#include "packages/updateset.h"

#include <string_view>

/// True if rpm takes a path in its arguments as it is: there it expands wildcards and strips quotes
/// and backslashes.
[[nodiscard]] bool isLiteralToRpm(std::string_view sPath);

/// True if the file that a `location` names can have that name in the cache: rpm takes it as it is,
/// and it is no name that a transfer under way has. Otherwise told at DEBUG.
///
/// @param sLocation  without control characters.
[[nodiscard]] bool hasUsableFileName(std::string_view sLocation);

/// True if no two packages would take each other's place in the cache; otherwise logged at ERROR.
[[nodiscard]] bool haveDistinctFiles(const UpdateSet& packages);
