#include "repository/location.h"

#include "support/files.h"
#include "support/logger.h"

#include <map>
#include <string>

bool isLiteralToRpm(std::string_view sPath)
{
    return sPath.find_first_of("*?[]{}\\\"'") == std::string_view::npos;
}

bool hasUsableFileName(std::string_view sLocation)
{
    const std::string sFile = baseName(sLocation);
    if (!isLiteralToRpm(sFile) || sFile.ends_with(".tmp")) {
        logMessage(DEBUG, "unusable file name '%s' in 'location'", sFile.c_str());
        return false;
    }
    return true;
}

bool haveDistinctFiles(const UpdateSet& packages)
{
    std::map<std::string, Package> files;
    for (const Package& package : packages) {
        const auto [it, bInserted] = files.emplace(baseName(package.location()), package);
        if (!bInserted) {
            logMessage(ERROR, "packages %s and %s have the same file name '%s'",
                       packageText(it->second).c_str(), packageText(package).c_str(),
                       it->first.c_str());
            return false;
        }
    }
    return true;
}
