#pragma once

#include "config/config.h"

#include <popt.h>

#include <array>

/// The table of command-line options, for rpmcliInit(): ends in the library's help options and a
/// row of zeros.
using OptionTable = std::array<poptOption, 20>;

/// @param options  the record that the parser writes into; must outlive the table, and the table
///                 the parser.
OptionTable optionTable(CommandLineOptions& options);

/// Releases the texts that the parser stored, and sets them to null.
void freeTexts(CommandLineOptions& options);
