#pragma once

#include "packages/text.h"

#include <cstdint>
#include <string>

/// One version of a package, or one version bound of a dependency: epoch, version, release as rpm
/// defines them. A missing epoch is 0; an empty version means that there is no version at all.
struct Evr {
    std::int32_t epoch = 0;
    Text version;
    Text release;
};

/// Reads text of the form [epoch:]version[-release]. Always yields a value: problems are logged at
/// ERROR, and what could be read stays in the result.
Evr parseEvr(const std::string& sText);

/// Three-way comparison: negative, zero or positive for `a` older than, equal to or newer than `b`.
/// A missing release is compared as it stands and is the oldest.
int compareEvr(const Evr& a, const Evr& b);

/// Compares like compareEvr(), except that a side without a release equals every release.
int compareEvrBound(const Evr& a, const Evr& b);

/// "0:1.2-3": the epoch is always there. Empty if there is no version.
std::string evrText(const Evr& evr);
