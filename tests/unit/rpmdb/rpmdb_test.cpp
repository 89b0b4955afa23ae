#include "rpmdb/rpmdb.h"

#include "testing/testing.h"

#include <gtest/gtest.h>
#include <rpm/header.h>
#include <rpm/rpmlib.h>
#include <rpm/rpmmacro.h>
#include <rpm/rpmts.h>

#include <fcntl.h>

#include <filesystem>

namespace {

/// Stores packages of a name and a version, which may be missing; "damaged" makes a header that
/// librpm stores and then passes over when it reads.
void install(const std::vector<std::pair<const char*, const char*>>& vPackages)
{
    rpmts ts = rpmtsCreate();
    EXPECT_EQ(rpmtsOpenDB(ts, O_RDWR | O_CREAT), 0);
    rpmtxn transaction = rpmtxnBegin(ts, RPMTXN_WRITE);
    for (const auto& [pName, pVersion] : vPackages) {
        Header header = headerNew();
        headerPutString(header, RPMTAG_NAME, pName);
        headerPutString(header, *pVersion != '\0' ? RPMTAG_VERSION : RPMTAG_SUMMARY, pVersion);
        headerPutString(header, RPMTAG_RELEASE, "1");
        std::uint8_t uEpoch = 1;
        rpmtd_s epoch = {RPMTAG_EPOCH, RPM_INT8_TYPE, 1, &uEpoch, 0, -1, 0};
        if (pVersion == std::string("damaged")) {
            headerPut(header, &epoch, HEADERPUT_DEFAULT);
        }
        header = headerReload(header, RPMTAG_HEADERIMMUTABLE);
        EXPECT_EQ(rpmtsImportHeader(transaction, header, 0), RPMRC_OK);
        headerFree(header);
    }
    rpmtxnEnd(transaction);
    rpmtsFree(ts);
}

TEST(RpmDB, readsAllPackagesOrNone)
{
    const TempDir dir;
    rpmReadConfigFiles(nullptr, nullptr);
    rpmPushMacro(nullptr, "_dbpath", nullptr, dir.path().c_str(), RMIL_CMDLINE);
    RpmDB db;
    ASSERT_TRUE(db.open(true));
    EXPECT_FALSE(db.open(true));
    const auto all = [&] {
        const LogCapture log;
        const auto packages = db.installedPackages();
        const std::string sLog = log.text();
        const PublicKeys keys = db.publicKeys();
        return (packages == nullptr ? "failed " : allOf(*packages, packageText)) +
               (keys == PublicKeys::PRESENT ? "keys "
                : keys == PublicKeys::NONE  ? ""
                                            : "unknown ") +
               sLog;
    };
    EXPECT_TRUE(all().ends_with("ERROR: failed initializing rpm DB iterator\n"));
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
    install({});
    EXPECT_EQ(all(), "");  // an empty database is no failure
    const std::string sFailed = "ERROR: failed while iterating on rpm DB\n";
    install({{"foo", "2"}, {"foo", "1"}, {"gpg-pubkey", "9f"}, {"bar", "1"}});
    EXPECT_EQ(all(), "bar-0:1-1, foo-0:2-1, foo-0:1-1, gpg-pubkey-0:9f-1, keys ");
    const LogCapture log;
    EXPECT_FALSE(db.verifyPackage(dir.path()));
    const std::string sName = dir.path().substr(dir.path().rfind('/') + 1);
    EXPECT_TRUE(log.text().ends_with("ERROR: failed reading '" + sName + "' (Is a directory)\n" +
                                     "ERROR: failed verifying package '" + sName + "'\n"));
    install({{"b", "damaged"}, {"c", "1"}});
    EXPECT_EQ(all(), "failed unknown " + sFailed);
    install({{"a", ""}});
    EXPECT_EQ(all(), "failed unknown ERROR: failed retrieving rpm tag 1001 as string\n" + sFailed);
    rpmPopMacro(nullptr, "_dbpath");
}

}  // namespace
