#include "rpmdb/packagefile.h"

#include "rpmdb/database.h"
#include "rpmdb/keys.h"
#include "support/files.h"
#include "support/logger.h"

#include <rpm/rpmcli.h>
#include <rpm/rpmlog.h>
#include <rpm/rpmtd.h>
#include <rpm/rpmts.h>

#include <algorithm>
#include <array>

namespace {

constexpr std::array<rpmTagVal, 4> k_vSignatureTags = {RPMTAG_SIGPGP, RPMTAG_SIGGPG,
                                                       RPMTAG_RSAHEADER, RPMTAG_DSAHEADER};

RpmHandle<FD_t> openPackage(const std::string& sPath, const char* pMode)
{
    RpmHandle<FD_t> file(Fopen(sPath.c_str(), pMode));
    if (file == nullptr || Ferror(file.get()) != 0) {
        logMessage(ERROR, "failed opening '%s' to check signature: %s", baseName(sPath).c_str(),
                   Fstrerror(file.get()));
        file.reset();
    }
    return file;
}

/// The id of the key that made the signature of a tag; empty without one that can be read.
std::string signerOfTag(Header header, rpmTagVal tag)
{
    std::string sId;
    rpmtd_s data = {};
    if (headerGet(header, tag, &data, HEADERGET_MINMEM) != 0 && data.type == RPM_BIN_TYPE) {
        const Signature signature =
            readSignature({static_cast<const char*>(data.data), data.count});
        sId = signature != nullptr ? signerOf(signature.get()) : "";
    }
    rpmtdFreeData(&data);
    return sId;
}

/// The id of the first key that signed the package and is not in the database, or empty.
std::string unknownSigner(rpmts ts, Header header)
{
    for (const rpmTagVal tag : k_vSignatureTags) {
        std::string sId = signerOfTag(header, tag);
        if (!sId.empty() && !holdsKey(ts, sId)) {
            return sId;
        }
    }
    return {};
}

/// Logs that a package failed, and why.
///
/// @param header  null if it could not be read.
void logFailure(rpmts ts, FD_t file, rpmRC result, Header header, const std::string& sBase)
{
    const std::string sSigner = header != nullptr ? unknownSigner(ts, header) : "";
    if (Ferror(file) != 0) {
        logMessage(ERROR, "failed reading '%s' (%s)", sBase.c_str(), Fstrerror(file));
    } else if (result == RPMRC_NOTFOUND) {
        logMessage(ERROR, "'%s' is damaged or no package", sBase.c_str());
    } else if (!sSigner.empty()) {
        logMessage(ERROR, "package '%s' is signed by key %s, which is not in the rpm database",
                   sBase.c_str(), sSigner.c_str());
    } else {
        logMessage(ERROR, "package '%s' is damaged", sBase.c_str());
    }
    logMessage(ERROR, "failed verifying package '%s'", sBase.c_str());
}

/// Verifies header and payload; rpmReadPackageFile() passes over the payload, and so over every
/// signature that covers it.
bool verifySignatures(rpmts ts, FD_t file, const std::string& sBase)
{
    // What rpm's macros ask for may be less than a signature, or more than a package has.
    rpmtsSetVfyLevel(ts, RPMSIG_SIGNATURE_TYPE);
    rpmtsSetVfyFlags(ts, RPMVSF_DEFAULT);
    rpmQVKArguments_s arguments = {};
    // Below a warning it logs fragments of lines.
    const int iMask = rpmlogSetMask(RPMLOG_UPTO(RPMLOG_WARNING));
    const bool bGood = rpmVerifySignatures(&arguments, ts, file, sBase.c_str()) == 0;
    rpmlogSetMask(iMask);
    return bGood;
}

}  // namespace

bool verifyPackageFile(rpmts ts, const std::string& sPath)
{
    const std::string sBase = baseName(sPath);
    const RpmHandle<FD_t> file = openPackage(sPath, "r");
    if (file == nullptr) {
        return false;
    }
    Header pRead = nullptr;
    const rpmRC result = rpmReadPackageFile(ts, file.get(), sBase.c_str(), &pRead);
    const RpmHandle<Header> header(pRead);
    if (result != RPMRC_OK) {
        logFailure(ts, file.get(), result, header.get(), sBase);
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
    const RpmHandle<FD_t> again = openPackage(sPath, "r.ufdio");
    if (again == nullptr) {
        return false;
    }
    if (!verifySignatures(ts, again.get(), sBase)) {
        logFailure(ts, again.get(), RPMRC_FAIL, header.get(), sBase);
        return false;
    }
    return true;
}
