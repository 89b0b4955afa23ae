#include "rpmdb/rpmdb.h"

#include "rpmdb/database.h"
#include "support/files.h"
#include "support/logger.h"

#include <rpm/rpmcli.h>
#include <rpm/rpmlog.h>
#include <rpm/rpmts.h>

#include <algorithm>
#include <array>

namespace {

constexpr std::array<rpmTagVal, 4> k_vSignatureTags = {RPMTAG_SIGPGP, RPMTAG_SIGGPG,
                                                       RPMTAG_RSAHEADER, RPMTAG_DSAHEADER};

/// Verifies header and payload; rpmReadPackageFile() passes over the payload, and so over every
/// signature that covers it.
bool verifySignatures(rpmts ts, const std::string& sPath, const std::string& sBase)
{
    const RpmHandle<FD_t> file(Fopen(sPath.c_str(), "r.ufdio"));
    if (file == nullptr || Ferror(file.get()) != 0) {
        logMessage(ERROR, "failed opening '%s' to check signature: %s", sBase.c_str(),
                   Fstrerror(file.get()));
        return false;
    }
    // What rpm's macros ask for may be less than a signature, or more than a package has.
    rpmtsSetVfyLevel(ts, RPMSIG_SIGNATURE_TYPE);
    rpmtsSetVfyFlags(ts, RPMVSF_DEFAULT);
    rpmQVKArguments_s arguments = {};
    // Below a warning it logs fragments of lines.
    const int iMask = rpmlogSetMask(RPMLOG_UPTO(RPMLOG_WARNING));
    const bool bGood = rpmVerifySignatures(&arguments, ts, file.get(), sBase.c_str()) == 0;
    rpmlogSetMask(iMask);
    return bGood;
}

bool verifyFile(rpmts ts, const std::string& sPath)
{
    const std::string sBase = baseName(sPath);
    const RpmHandle<FD_t> file(Fopen(sPath.c_str(), "r"));
    if (file == nullptr || Ferror(file.get()) != 0) {
        logMessage(ERROR, "failed opening '%s' to check signature: %s", sBase.c_str(),
                   Fstrerror(file.get()));
        return false;
    }
    Header pRead = nullptr;
    const rpmRC result = rpmReadPackageFile(ts, file.get(), sBase.c_str(), &pRead);
    const RpmHandle<Header> header(pRead);
    if (result != RPMRC_OK) {
        logMessage(ERROR, "failed verifying package '%s'", sBase.c_str());
        return false;
    }
    if (header == nullptr) {
        logMessage(ERROR, "no header on package '%s'", sBase.c_str());
        return false;
    }
    if (std::none_of(k_vSignatureTags.begin(), k_vSignatureTags.end(),
                     [&](rpmTagVal tag) { return headerIsEntry(header.get(), tag) != 0; })) {
        logMessage(ERROR, "no signature on package '%s'", sBase.c_str());
        return false;
    }
    if (!verifySignatures(ts, sPath, sBase)) {
        logMessage(ERROR, "failed verifying package '%s'", sBase.c_str());
        return false;
    }
    return true;
}

}  // namespace

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
    const bool bGood = openDatabase(m_ts) && verifyFile(m_ts, sPath);
    rpmtsEmpty(m_ts);
    return bGood;
}

std::unique_ptr<InstalledPackageSet> RpmDB::installedPackages()
{
    std::unique_ptr<InstalledPackageSet> packages = readPackages(m_ts);
    rpmtsEmpty(m_ts);
    return packages;
}
