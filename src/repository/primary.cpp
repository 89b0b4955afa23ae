#include "repository/primary.h"

#include "repository/primaryhandler.h"
#include "support/controls.h"
#include "support/logger.h"

#include <rpm/rpmlib.h>

bool parsePrimary(const std::string& sPath, PrimaryContents& contents)
{
    const Outcome outcome = PrimaryHandler(contents).read(sPath);
    contents.packages.sort();
    if (outcome == Outcome::NOT_OPENED) {
        logMessage(ERROR, "could not open primary file '%s' for parsing", sPath.c_str());
    }
    return outcome == Outcome::READ;
}

void logSkipped(const std::string& sFile, const std::string& sArchitecture)
{
    logMessage(WARNING, "skipping package '%s' of non-compatible arch '%s'", sFile.c_str(),
               printable(sArchitecture).c_str());
}

void logSkipped(const PrimaryContents& contents)
{
    for (std::size_t u = 0; u < contents.skipped.size();) {
        const std::string sFile = contents.skipped.c_str() + u;
        u += sFile.size() + 1;
        const std::string sArchitecture = contents.skipped.c_str() + u;
        u += sArchitecture.size() + 1;
        logSkipped(sFile, sArchitecture);
    }
}

bool isCompatible(const std::string& sArchitecture)
{
    return rpmMachineScore(RPM_MACHTABLE_INSTARCH, sArchitecture.c_str()) != 0;
}
