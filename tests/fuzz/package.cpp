// A package file in the step that verifies signatures. FUZZ_SIGNED names a directory with header and
// payload of each package that is signed, and FUZZ_KEY the key; without them nothing is.

#include "rpmdb/packagefile.h"
#include "support/files.h"

#include "target.h"

#include <fcntl.h>
#include <rpm/rpmkeyring.h>
#include <rpm/rpmlog.h>
#include <rpm/rpmmacro.h>
#include <rpm/rpmts.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <vector>

namespace {

/// Header and payload of each package that is signed.
std::vector<std::string> readSigned()
{
    std::vector<std::string> vSigned;
    if (const char* pDirectory = std::getenv("FUZZ_SIGNED")) {
        for (const auto& entry : std::filesystem::directory_iterator(pDirectory)) {
            std::string sPart;
            require(readFile(entry.path(), sPart), "what is signed can be read");
            vSigned.push_back(sPart);
        }
    }
    return vSigned;
}

/// A transaction set with an empty database beside the key.
rpmts makeTransaction()
{
    rpmPushMacro(nullptr, "_dbpath", nullptr, directory().path().c_str(), RMIL_CMDLINE);
    rpmts ts = rpmtsCreate();
    require(rpmtsOpenDB(ts, O_RDWR | O_CREAT) == 0, "a database can be made");
    rpmKeyring keyring = rpmKeyringNew();
    if (const char* pKey = std::getenv("FUZZ_KEY")) {
        rpmPubkey key = rpmPubkeyRead(pKey);
        require(rpmKeyringAddKey(keyring, key) == 0, "a key can be taken");
        rpmPubkeyFree(key);
    }
    rpmtsSetKeyring(ts, keyring);
    rpmKeyringFree(keyring);
    return ts;
}

}  // namespace

void fuzz(std::string_view sInput)
{
    static const std::vector<std::string> s_vSigned = readSigned();
    static rpmts s_ts = makeTransaction();
    const bool bGood = verifyPackageFile(s_ts, fileOf(sInput));
    rpmtsEmpty(s_ts);
    rpmlogClose();  // the messages, which librpm keeps in an ever longer list
    require(!bGood ||
                std::ranges::any_of(s_vSigned, [&](const auto& s) { return sInput.ends_with(s); }),
            "what is verified is what was signed");
    std::string sLog = takeLog();
    while (sLog.find("\n\n") != sLog.npos) {
        sLog.erase(sLog.find("\n\n"), 1);  // some messages of librpm end with an empty line
    }
    judgeLog(sLog);
    require(bGood || sLog.find("ERROR: ") != std::string::npos, "a refusal is told");
}
