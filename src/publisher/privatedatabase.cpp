#include "publisher/privatedatabase.h"

#include "rpmdb/database.h"
#include "support/files.h"
#include "support/logger.h"

#include <fcntl.h>
#include <rpm/argv.h>
#include <rpm/rpmcli.h>
#include <rpm/rpmmacro.h>
#include <rpm/rpmts.h>
#include <algorithm>
#include <filesystem>

namespace {

constexpr const char* k_pMacro = "_dbpath";

std::string withoutMacros(const std::string& sPath)
{
    std::string sEscaped;
    for (const char c : sPath) {
        sEscaped.append(c == '%' ? 2 : 1, c);
    }
    return sEscaped;
}

/// True if a path leads to a place below a directory, links and all.
bool isBelow(const std::string& sDirectory, const std::filesystem::path& path)
{
    std::error_code failed;
    const auto top = std::filesystem::canonical(sDirectory, failed);
    const auto place = failed ? path : std::filesystem::canonical(path, failed);
    return !failed &&
           std::mismatch(top.begin(), top.end(), place.begin(), place.end()).first == top.end();
}

bool importKeys(rpmts ts, const std::vector<std::string>& vKeyFiles)
{
    ARGV_t ppFiles = nullptr;
    for (const std::string& sFile : vKeyFiles) {
        argvAdd(&ppFiles, sFile.c_str());
    }
    const bool bImported = ppFiles == nullptr || rpmcliImportPubkeys(ts, ppFiles) == 0;
    argvFree(ppFiles);
    return bImported;
}

bool addHeaders(rpmts ts, const std::function<bool(const AddHeader&)>& fill)
{
    rpmtxn transaction = rpmtxnBegin(ts, RPMTXN_WRITE);
    const bool bFilled = transaction != nullptr && fill([&](Header header) {
                             return rpmtsImportHeader(transaction, header, 0) == RPMRC_OK;
                         });
    rpmtxnEnd(transaction);
    return bFilled;
}

}  // namespace

DatabaseScope::DatabaseScope(const std::string& sDirectory) : m_bSet(!sDirectory.empty())
{
    if (m_bSet) {
        rpmPushMacro(nullptr, k_pMacro, nullptr, withoutMacros(sDirectory).c_str(), RMIL_CMDLINE);
    }
}

DatabaseScope::~DatabaseScope()
{
    if (m_bSet) {
        rpmPopMacro(nullptr, k_pMacro);
    }
}

bool makeDatabase(const std::string& sDirectory, const std::vector<std::string>& vKeyFiles,
                  const std::function<bool(const AddHeader&)>& fill)
{
    if (!ensureDirectory(sDirectory)) {
        return false;
    }
    const DatabaseScope scope(sDirectory);
    rpmts ts = rpmtsCreate();
    const bool bMade =
        rpmtsOpenDB(ts, O_RDWR | O_CREAT) == 0 && importKeys(ts, vKeyFiles) && addHeaders(ts, fill);
    rpmtsFree(ts);
    return bMade;
}

bool copyDatabase(const std::string& sRoot, const std::string& sDirectory)
{
    namespace fs = std::filesystem;
    for (const std::string& sPlace : {databaseDirectory(), std::string("/usr/lib/sysimage/rpm"),
                                      std::string("/var/lib/rpm"), std::string("/root/.rpmdb")}) {
        bool bCopied = false;
        std::error_code failed;
        for (const char* pFile : {"rpmdb.sqlite", "rpmdb.sqlite-wal", "Packages.db", "Packages"}) {
            const fs::path from = sRoot + sPlace + "/" + pFile;
            if (!failed && fs::is_regular_file(from, failed) && isBelow(sRoot, from) &&
                fs::file_size(from) > 0) {
                bCopied = fs::copy_file(from, fs::path(sDirectory) / pFile, failed);
            }
            if (failed == std::errc::no_such_file_or_directory) {
                failed.clear();
            }
        }
        if (bCopied && !failed) {
            return true;
        }
    }
    return false;
}
