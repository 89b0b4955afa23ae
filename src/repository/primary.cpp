#include "repository/primary.h"

#include "repository/primaryhandler.h"
#include "support/logger.h"

bool parsePrimary(const std::string& sPath, PackageSet& packages)
{
    const Outcome outcome = PrimaryHandler(packages).read(sPath);
    packages.sort();
    if (outcome == Outcome::NOT_OPENED) {
        logMessage(ERROR, "could not open primary file '%s' for parsing", sPath.c_str());
    }
    return outcome == Outcome::READ;
}
