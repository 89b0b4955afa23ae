#pragma once

#include "config/config.h"
#include "control/result.h"
#include "repository/repository.h"
#include "resolver/selection.h"

/// One attempt to bring the device up to date with one repository under one set of rules: gets the
/// metadata, works out and reports the update set and, unless it is a check, fetches, verifies and
/// has rpm test or install it.
///
/// @param config         the pass's own copy.
/// @param uPackageCount  set to the size of the update set once that is reported; else 0.
/// @return               ResultOk: nothing to do, or a check, a test or, with `noReboot`, an
///                       installation went well. ResultReboot: packages were installed.
///                       ResultError: failed, no use trying again. ResultFatal: the system may be
///                       corrupted, and the status file says so. ResultRetryUpdater: the set cannot
///                       be installed, which a newer updater package may mend.
[[nodiscard]] int runUpdatePass(const Config& config, const SelectionRules& rules,
                                Repository& repository, unsigned& uPackageCount);
