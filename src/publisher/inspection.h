#pragma once

#include "config/config.h"
#include "publisher/devicelog.h"
#include "publisher/options.h"
#include "publisher/report.h"

#include <string>

/// Looks at a repository by itself, and at what devices would do with it.
///
/// @param config      the devices' settings.
/// @param sTemporary  a directory to work in, with its slash.
/// @param sFailure    set to why nothing can be said.
/// @return            false if what was given to compare with cannot be used.
[[nodiscard]] bool inspect(const CheckOptions& options, const Config& config,
                           const std::string& sTemporary, DeviceLog& log, Report& report,
                           std::string& sFailure);
