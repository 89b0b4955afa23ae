#pragma once

#include "config/config.h"
#include "control/result.h"
#include "packages/package.h"
#include "repository/repository.h"

/// The second half of a pass: fetches the packages of the update set, verifies their signatures,
/// runs the hooks, and has rpm test or install them. The only place where installed software
/// changes. The status file says UPDATING on disk before rpm starts, and leaves that word only when
/// rpm has ended or could not be started.
///
/// @return as for runUpdatePass().
[[nodiscard]] int installPackages(const Config& config, const Repository& repository,
                                  const UpdateSet& updateSet);
