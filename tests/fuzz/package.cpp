// A package file in the step that verifies signatures. FUZZ_SIGNED names a directory with the key of the
// rpm database, key.asc, and the packages that it has signed; without it nothing is.

#include "rpmdb/packagefile.h"
#include "support/files.h"

#include "target.h"

#include <fcntl.h>
#include <rpm/rpmkeyring.h>
#include <rpm/rpmmacro.h>
#include <rpm/rpmts.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <vector>

namespace {

/// Where the header of a package begins: behind the lead and, at a multiple of 8 bytes, the header of
/// the signatures.
std::size_t headerOf(const std::string& sPackage)
{
    const auto number = [&](std::size_t u) {
        std::size_t uNumber = 0;
        for (int i = 0; i < 4; ++i) {
            uNumber = uNumber << 8U | static_cast<unsigned char>(sPackage.at(u++));
        }
        return uNumber;
    };
    return (96 + 16 + 16 * number(96 + 8) + number(96 + 12) + 7) / 8 * 8;
}

/// Header and payload of each package that is signed.
std::vector<std::string> readSigned()
{
    std::vector<std::string> vSigned;
    const char* pDirectory = std::getenv("FUZZ_SIGNED");
    if (pDirectory != nullptr) {
        for (const auto& entry : std::filesystem::directory_iterator(pDirectory)) {
            std::string sPackage;
            if (entry.path().extension() == ".rpm") {
                require(readFile(entry.path(), sPackage), "what is signed can be read");
                vSigned.push_back(sPackage.substr(headerOf(sPackage)));
            }
        }
    }
    return vSigned;
}

/// A transaction set with an empty database beside the key.
rpmts makeTransaction()
{
    rpmPushMacro(nullptr, "_dbpath", nullptr, directory().c_str(), RMIL_CMDLINE);
    rpmts ts = rpmtsCreate();
    require(rpmtsOpenDB(ts, O_RDWR | O_CREAT) == 0, "a database can be made");
    rpmKeyring keyring = rpmKeyringNew();
    if (const char* pDirectory = std::getenv("FUZZ_SIGNED")) {
        rpmPubkey key = rpmPubkeyRead((std::string(pDirectory) + "/key.asc").c_str());
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
    const bool bSigned =
        std::any_of(s_vSigned.begin(), s_vSigned.end(),
                    [&](const std::string& sSigned) { return sInput.ends_with(sSigned); });
    require(!bGood || bSigned, "what is verified is what was signed");
    std::string sLog = takeLog();
    while (sLog.find("\n\n") != sLog.npos) {
        sLog.erase(sLog.find("\n\n"), 1);  // some messages of librpm end with an empty line
    }
    judgeLog(sLog);
    require(bGood || sLog.find("ERROR: ") != std::string::npos, "a refusal is told");
}
