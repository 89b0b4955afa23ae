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

bool haveDistinctFiles(const PackageSet& packages)
{
    std::map<std::string_view, const Package*> files;
    for (const Package& package : packages) {
        const auto [it, bInserted] = files.emplace(package.localPath, &package);
        if (!bInserted) {
            logMessage(ERROR, "packages %s and %s have the same file name '%s'",
                       packageText(*it->second).c_str(), packageText(package).c_str(),
                       baseName(package.localPath).c_str());
            return false;
        }
    }
    return true;
}
