#pragma once

#include "config/config.h"

#include <libxml/tree.h>

#include <string_view>

/// Reads one element of a configuration file into the settings, on top of what is there.
///
/// @param pElement   the whole tree of the element.
/// @param bDefaults  the element stands in the defaults file.
/// @return           false if it is malformed (logged, at least at DEBUG, except for a `logger`
///                   without a `facility` and a `release` that is not just one package); what was
///                   stored in front of the failure stays.
using ElementReader = bool (*)(xmlNode* pElement, bool bDefaults, Config& config);

/// The reader for an element of this name, wherever it stands below the top element; null if the
/// name is of no interest.
[[nodiscard]] ElementReader elementReader(std::string_view sName);
