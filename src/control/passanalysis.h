#pragma once

#include "config/config.h"
#include "control/result.h"
#include "packages/packageset.h"
#include "packages/updateset.h"
#include "resolver/selection.h"

/// The first half of a pass, on values: works out the update set of a system and reports it.
///
/// @param available  must outlive `updateSet`.
/// @param updateSet  set to what is to be installed, possibly nothing; of no use on failure.
/// @return           ResultOk; ResultError if a signal is noted; ResultRetryUpdater: the set cannot
///                   be installed, which a newer updater package may mend.
[[nodiscard]] int analysePass(const Config& config, const SelectionRules& rules,
                              const InstalledPackageSet& installed, const PackageSet& available,
                              UpdateSet& updateSet);
