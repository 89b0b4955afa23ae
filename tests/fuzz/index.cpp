// The index of a repository, repomd.xml.

#include "repository/location.h"
#include "repository/primarytable.h"
#include "repository/repomd.h"
#include "support/controls.h"

#include "target.h"

void fuzz(std::string_view sInput)
{
    const std::string sIndex = fileOf(sInput, "repomd.xml");
    const std::string sCache = directory().file("");
    ResourceSet resources;
    if (!parseRepomd(sCache, resources)) {
        return;
    }
    for (const RepoResource& resource : resources) {
        require(!hasControlCharacter(resource.location), "no control character in a location");
        const std::string sName = resource.localPath.substr(sCache.size());
        require(resource.localPath.starts_with(sCache) && sName.find('/') == std::string::npos &&
                    hasUsableFileName(sName),
                "a resource lies in the cache");
        require(
            resource.type != "primary" || (resource.localPath != sIndex && sName != "packages" &&
                                           !sName.ends_with(k_pTableSuffix)),
            "a primary file takes no place of the cache");
    }
}
