#pragma once

#include "config/config.h"
#include "control/result.h"
#include "packages/dependency.h"

/// The run: chooses the active repository, waits a random time, and runs update passes in a fixed
/// plan. Without package names that is a check of everything, then all but the add-ons and the
/// release package, then the rest; with names, or for a check, a single pass. A pass that fails in
/// a way that a newer updater may mend is followed by a last one for the `updater` package alone.
///
/// @param packageNames  if not empty, only these packages are considered.
/// @return              ResultOk, ResultError, ResultFatal or ResultReboot, or what a failed
///                      first hook returned.
[[nodiscard]] int runUpdate(const Config& config, const NameSet& packageNames);
