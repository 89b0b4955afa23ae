#include "rpmdb/database.h"

#include "support/logger.h"

#include <fcntl.h>
#include <rpm/rpmmacro.h>
#include <rpm/rpmts.h>
#include <sys/stat.h>

#include <cstdlib>

namespace {

bool holdsDatabase(const std::string& sDirectory)
{
    // The files of librpm's formats. Its lock file alone is no database.
    for (const char* pFile : {"/rpmdb.sqlite", "/Packages.db", "/Packages"}) {
        struct stat info = {};
        if (stat((sDirectory + pFile).c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
            info.st_size > 0) {
            return true;
        }
    }
    logMessage(ERROR, "no rpm database in '%s'", sDirectory.c_str());
    return false;
}

}  // namespace

std::string databaseDirectory()
{
    char* pExpanded = rpmExpand("%{_dbpath}", nullptr);
    std::string sDirectory = pExpanded;
    std::free(pExpanded);
    return sDirectory;
}

bool openDatabase(rpmts ts)
{
    if (rpmtsGetRdb(ts) != nullptr) {
        return true;
    }
    if (!holdsDatabase(databaseDirectory()) || rpmtsOpenDB(ts, O_RDONLY) != 0) {
        logMessage(ERROR, "failed initializing rpm DB iterator");
        return false;
    }
    return true;
}
