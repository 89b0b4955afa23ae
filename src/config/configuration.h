#pragma once

#include "config/config.h"

#include <string>

/// Builds the settings: on top of the defaults in `config` the defaults file, the main file with
/// the proxy file, and the command line; then normalises and checks them.
///
/// @return false if the run cannot go on; why is logged, and `config` is of no use then.
[[nodiscard]] bool loadConfiguration(const CommandLineOptions& options, Config& config);

/// Reads one configuration file on top of what `config` holds; the main file (`bDefaults` false)
/// brings the proxy file with it.
///
/// @return true if the whole document was read without a failure; what was stored before a failure
///         stays in `config`.
[[nodiscard]] bool parseConfigurationFile(Config& config, const std::string& sPath, bool bDefaults);
