#pragma once

#include <libxml/tree.h>

#include <string>
#include <vector>

/// Reads a list of packages and groups: children `package` and `group`, each with any number of
/// `name` children. Appends in the order of the document, duplicates included.
///
/// @param pGroups  takes the groups' names; null drops each with a WARNING.
/// @return         false if a `name` has no text; what stands in front of it has been appended.
[[nodiscard]] bool parsePackageList(xmlNode* pElement, std::vector<std::string>& vPackages,
                                    std::vector<std::string>* pGroups);
