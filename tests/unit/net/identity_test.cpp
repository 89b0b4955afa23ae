#include "net/identity.h"

#include "testing/testing.h"

#include <gtest/gtest.h>
#include <unistd.h>

TEST(Identity, readsCpuInfo)
{
    const std::string sNoSerial = "ERROR: no Serial in 'cpuinfo'\n";
    const struct {
        std::string text;
        std::string info;  ///< serial, revision, board
        std::string log;
    } vCases[] = {
        {"x : y\nHardware\t: Quorax\nRevision\t: 0212\nSerial\t\t: 00ff\n", "00ff,0212,1", ""},
        {"Serial : 1 2\nRevision : 2 3\nHardware : Velmir board\n", "1,2,2", ""},
        {"Serial : 1\nSerial : 2\nSerial :\nRevision : 3", "2,3,0",
         "DEBUG: malformed Serial line in 'cpuinfo'\n"},
        {"Hardware : Velmir\nHardware :\nRevision\nSerial : 1\n", "1,,2",
         "DEBUG: malformed Hardware line in 'cpuinfo'\n"
         "DEBUG: malformed Revision line in 'cpuinfo'\nERROR: no Revision in 'cpuinfo'\n"},
        {"Hardware : Quorax\nHardware : quoraxquoraxquorax\n serial : 1\nRevision : 123456789\n",
         ",12345678,0", "WARNING: unknown hardware 'quoraxquoraxquo'\n" + sNoSerial},
        {"Serial : " + std::string(64, 's') + "\nRevision : r\n", std::string(63, 's') + ",r,0",
         ""},
    };
    TempDir dir;
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    for (const auto& test : vCases) {
        dir.write("cpuinfo", test.text);
        LogCapture log;
        CpuInfo info;
        readCpuInfoFile("cpuinfo", info);
        EXPECT_EQ(info.serial + "," + info.revision + "," + std::to_string(info.board), test.info);
        EXPECT_EQ(log.text(), test.log);
    }
    EXPECT_EQ(userAgentText("base", "prod", "123"), "base/1.1 (prod-123)");
    EXPECT_EQ(userAgentText("", "prod", ""), "/1.1");
}

TEST(Identity, readsTheBlocksOfTheFirstGoodFiles)
{
    TempDir dir;
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    const std::string sA(21, 'a');
    const std::string sB(21, 'b');
    dir.write("a", sA + "beyond");
    dir.write("b", sB);
    dir.write("short", sA.substr(1));
    const struct {
        Board board;
        std::vector<std::string> paths;
        std::string blocks;  ///< empty for a failure
        const char* log;
    } vCases[] = {
        {BoardVelmir, {"b", "none"}, sB, ""},
        {BoardQuorax,
         {"none", "a", "b", "none"},
         sA + sB,
         "DEBUG: failed opening secret data file 'none': No such file or directory\n"},
        {BoardOther, {"short", "b", "a"}, sB + sA, "DEBUG: failed reading data from 'short'\n"},
        {BoardOther, {"a"}, "", "DEBUG: failed reading secret data\n"},
    };
    for (const auto& test : vCases) {
        LogCapture log;
        std::string sBlocks;
        EXPECT_NE(readDataBlocks(test.paths, requiredBlocks(test.board), sBlocks),
                  test.blocks.empty());
        EXPECT_EQ(sBlocks, test.blocks);
        EXPECT_EQ(log.text(), test.log);
    }
}

TEST(Identity, mapsBlocksToThePassword)
{
    const auto mendedStamp = [](Board eBoard, const std::string& sCore, const std::string& sBase) {
        const std::string sHead(11, 'x');
        std::string sBlocks = sHead + sCore + "12345" + sHead + sBase + "12345";
        mendDataBlocks(eBoard, sBlocks);
        return sBlocks.substr(11, 5);
    };
    EXPECT_EQ(mendedStamp(BoardQuorax, "02-00", "02-12"), "02-12");
    EXPECT_EQ(mendedStamp(BoardOther, "02-00", "02-12"), "02-00");
    EXPECT_EQ(mendedStamp(BoardQuorax, "02-00", "02-11"), "02-00");
    EXPECT_EQ(mendedStamp(BoardQuorax, "02-01", "02-12"), "02-01");
    LogCapture log(TRACE);
    std::string sPassword = "old";
    ASSERT_TRUE(passwordFromBlocks(std::string(21, 'A') + std::string(21, 'B'), sPassword));
    EXPECT_EQ(sPassword, "E5nNSqqJpc9p");  // worked out by another program from the MD5 digest
    EXPECT_EQ(log.text(), "");
}
