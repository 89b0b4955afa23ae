#include "rpmdb/rpmdb.h"

#include "testing/testing.h"

#include <gtest/gtest.h>
#include <rpm/header.h>
#include <rpm/rpmlib.h>
#include <rpm/rpmlog.h>
#include <rpm/rpmmacro.h>
#include <rpm/rpmts.h>

#include <vector>

namespace {

int ignoreMessage(rpmlogRec /*record*/, rpmlogCallbackData /*pData*/)
{
    return 0;
}

/// A private database below a temporary directory.
class RpmDBTest : public testing::Test {
protected:
    RpmDBTest()
    {
        rpmReadConfigFiles(nullptr, nullptr);
        rpmlogSetCallback(ignoreMessage, nullptr);
        rpmPushMacro(nullptr, "_dbpath", nullptr, m_dir.path().c_str(), RMIL_CMDLINE);
    }
    ~RpmDBTest() override { rpmPopMacro(nullptr, "_dbpath"); }

    /// Stores packages of a name and a version. An empty version is left out of the header;
    /// "damaged" makes a header that librpm stores and then passes over when it reads.
    static void install(const std::vector<std::pair<std::string, std::string>>& vPackages)
    {
        rpmts ts = rpmtsCreate();
        rpmtxn transaction = rpmtxnBegin(ts, RPMTXN_WRITE);
        for (const auto& [sName, sVersion] : vPackages) {
            Header header = headerNew();
            headerPutString(header, RPMTAG_NAME, sName.c_str());
            if (!sVersion.empty()) {
                headerPutString(header, RPMTAG_VERSION, sVersion.c_str());
            }
            headerPutString(header, RPMTAG_RELEASE, "1");
            std::uint8_t uEpoch = 1;
            rpmtd_s epoch = {RPMTAG_EPOCH, RPM_INT8_TYPE, 1, &uEpoch, 0, -1, 0};
            if (sVersion == "damaged") {
                EXPECT_EQ(headerPut(header, &epoch, HEADERPUT_DEFAULT), 1);
            }
            header = headerReload(header, RPMTAG_HEADERIMMUTABLE);
            EXPECT_EQ(rpmtsImportHeader(transaction, header, 0), RPMRC_OK);
            headerFree(header);
        }
        rpmtxnEnd(transaction);
        rpmtsFree(ts);
    }

    TempDir m_dir;
};

}  // namespace

TEST_F(RpmDBTest, readsAllPackages)
{
    RpmDB db;
    ASSERT_TRUE(db.open(true));
    auto packages = db.installedPackages();
    ASSERT_NE(packages, nullptr);  // an empty database is no failure
    EXPECT_TRUE(packages->empty());
    install({{"foo", "2"}});
    EXPECT_FALSE(db.hasPublicKeys());
    install({{"gpg-pubkey", "9f1a2c00"}, {"bar", "1"}, {"foo", "1"}});
    packages = db.installedPackages();
    ASSERT_NE(packages, nullptr);
    std::string sAll;
    for (const InstalledPackage& package : *packages) {
        sAll += packageText(package) + " ";
    }
    EXPECT_EQ(sAll, "bar-0:1-1 foo-0:2-1 foo-0:1-1 gpg-pubkey-0:9f1a2c00-1 ");
    EXPECT_TRUE(db.hasPublicKeys());
}

TEST_F(RpmDBTest, neverReturnsAnIncompleteList)
{
    const std::string sFailed = "ERROR: failed while iterating on rpm DB\n";
    for (const auto& [pVersion, sLog] :
         {std::pair("damaged", sFailed),
          std::pair("", "ERROR: failed retrieving rpm tag 1001 as string\n" + sFailed)}) {
        install({{"a", "1"}, {"b", pVersion}, {"c", "1"}});
        RpmDB db;
        ASSERT_TRUE(db.open(true));
        LogCapture log;
        EXPECT_EQ(db.installedPackages(), nullptr);
        EXPECT_EQ(log.text(), sLog);
    }
}

TEST_F(RpmDBTest, refusesFilesThatAreNoPackages)
{
    RpmDB db;
    ASSERT_TRUE(db.open(false));
    LogCapture log;
    EXPECT_FALSE(db.verifyPackage(m_dir.file("none.rpm")));
    EXPECT_FALSE(db.verifyPackage(m_dir.write("text.rpm", "text")));
    EXPECT_FALSE(db.verifyPackage(m_dir.path()));
    EXPECT_EQ(log.text(),
              "ERROR: failed opening 'none.rpm' to check signature: No such file or directory\n"
              "ERROR: failed verifying package 'text.rpm'\n"
              "ERROR: failed verifying package '" +
                  m_dir.path().substr(m_dir.path().rfind('/') + 1) + "'\n");
}

TEST_F(RpmDBTest, opensOnce)
{
    for (const bool bNoHeaderCheck : {true, false}) {
        RpmDB db;
        LogCapture log;
        EXPECT_TRUE(db.open(bNoHeaderCheck));
        EXPECT_FALSE(db.open(bNoHeaderCheck));
        EXPECT_NE(db.installedPackages(), nullptr);
        EXPECT_EQ(log.text(), std::string("DEBUG: opened rpm transaction (") +
                                  (bNoHeaderCheck ? "NOT " : "") +
                                  "checking headers)\n"
                                  "ERROR: attempted to reopen an opened RpmDB\n");
    }
    rpmPushMacro(nullptr, "_dbpath", nullptr, m_dir.write("file", "").c_str(), RMIL_CMDLINE);
    RpmDB db;
    LogCapture log(ERROR);
    EXPECT_TRUE(db.open(true));
    EXPECT_FALSE(db.hasPublicKeys());
    EXPECT_EQ(db.installedPackages(), nullptr);
    EXPECT_EQ(log.text(), "ERROR: failed initializing rpm DB iterator\n");
    rpmPopMacro(nullptr, "_dbpath");
}
