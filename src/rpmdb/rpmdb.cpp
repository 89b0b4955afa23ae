#include "rpmdb/rpmdb.h"

#include "rpmdb/database.h"
#include "rpmdb/detachedsignature.h"
#include "rpmdb/packagefile.h"
#include "support/logger.h"

#include <rpm/rpmts.h>

RpmDB::~RpmDB()
{
    if (m_ts != nullptr) {
        m_ts = rpmtsFree(m_ts);
    }
}

bool RpmDB::open(bool bNoHeaderCheck)
{
    if (m_ts != nullptr) {
        logMessage(ERROR, "attempted to reopen an opened RpmDB");
        return false;
    }
    m_ts = rpmtsCreate();
    if (m_ts == nullptr) {
        logMessage(ERROR, "failed opening rpm transaction");
        return false;
    }
    if (bNoHeaderCheck) {
        rpmtsSetVSFlags(m_ts, RPMVSF_NOHDRCHK);
    }
    logMessage(DEBUG, "opened rpm transaction (%schecking headers)", bNoHeaderCheck ? "NOT " : "");
    return true;
}

PublicKeys RpmDB::publicKeys()
{
    const PublicKeys keys = findPublicKeys(m_ts);
    rpmtsEmpty(m_ts);
    if (keys == PublicKeys::NONE) {
        logMessage(TRACE, "no public keys found in rpm db");
    }
    return keys;
}

bool RpmDB::verifyPackage(const std::string& sPath)
{
    const bool bGood = openDatabase(m_ts) && verifyPackageFile(m_ts, sPath);
    rpmtsEmpty(m_ts);
    return bGood;
}

SignatureVerdict RpmDB::verifyDetached(std::string_view sData, std::string_view sArmour)
{
    SignatureVerdict verdict;
    if (openDatabase(m_ts)) {
        verdict = ::verifyDetached(m_ts, sData, sArmour);
    }
    rpmtsEmpty(m_ts);
    return verdict;
}

std::unique_ptr<InstalledPackageSet> RpmDB::installedPackages()
{
    std::unique_ptr<InstalledPackageSet> packages = readPackages(m_ts);
    rpmtsEmpty(m_ts);
    return packages;
}
