#include "net/identity.h"

#include "testing/cases.h"

#include <unistd.h>

TEST(Identity, readsCpuInfo)
{
    const TempDir dir;
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    expectEach<std::string>(
        {{"x : y\nHardware\t: Quorax\nRevision\t: 0212\nSerial\t\t: 00ff\n", "00ff,0212,1\n"},
         {"Serial : 1 2\nRevision : 2 3\nHardware : Velmir board\n", "1,2,2\n"},
         {"Serial : 1\nSerial : 2\nSerial :\nRevision : 3",
          "2,3,0\nDEBUG: malformed Serial line in 'cpuinfo'\n"},
         {"Hardware : Velmir\nHardware :\nRevision\nSerial : 1\n",
          "1,,2\nDEBUG: malformed Hardware line in 'cpuinfo'\n"
          "DEBUG: malformed Revision line in 'cpuinfo'\nERROR: no Revision in 'cpuinfo'\n"},
         {"Hardware : Quorax\nHardware : quoraxquoraxquorax\n serial : 1\nRevision : 123456789\n",
          ",12345678,0\nWARNING: unknown hardware 'quoraxquoraxquo'\n"
          "ERROR: no Serial in 'cpuinfo'\n"},
         {"Serial : " + std::string(64, 's') + "\nRevision : r\n",
          std::string(63, 's') + ",r,0\n"}},
        [&](const std::string& sText) {
            dir.write("cpuinfo", sText);
            CpuInfo info;
            readCpuInfoFile("cpuinfo", info);
            return info.serial + "," + info.revision + "," + std::to_string(info.board) + "\n";
        });
    EXPECT_EQ(userAgentText("base", "prod", "123"), "base/1.1 (prod-123)");
    EXPECT_EQ(userAgentText("", "prod", ""), "/1.1");
}

TEST(Identity, mapsTheBlocksOfTheFirstGoodFilesToThePassword)
{
    const TempDir dir;
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    for (const std::string sStamp : {"02-00", "02-11", "02-12"}) {
        dir.write(sStamp, std::string(11, 'x') + sStamp + "xxxxx beyond");
    }
    dir.write("short", std::string(20, 'x'));
    const std::string sNone =
        "DEBUG: failed opening secret data file 'none': No such file or directory\n";
    expectEach<std::tuple<Board, std::vector<std::string>>>(
        {{{BoardVelmir, {"02-00", "none"}}, "21 02-00 "},
         {{BoardQuorax, {"none", "02-00", "02-12", "none"}}, "42 02-1202-12 " + sNone},
         {{BoardQuorax, {"02-00", "02-11"}}, "42 02-0002-11 "},
         {{BoardQuorax, {"02-11", "02-12"}}, "42 02-1102-12 "},
         {{BoardOther, {"02-00", "02-12"}}, "42 02-0002-12 "},
         {{BoardOther, {"short", "02-12", "02-00"}},
          "42 02-1202-00 DEBUG: failed reading data from 'short'\n"},
         {{BoardOther, {"02-00", "none"}}, "0  " + sNone + "DEBUG: failed reading secret data\n"}},
        [](Board eBoard, const auto& vPaths) {
            std::string sBlocks;
            if (readDataBlocks(vPaths, requiredBlocks(eBoard), sBlocks)) {
                mendDataBlocks(eBoard, sBlocks);
            }
            const std::string sSize = std::to_string(sBlocks.size()) + " ";
            std::erase(sBlocks, 'x');
            return sSize + sBlocks + " ";
        });
    const LogCapture log(TRACE);
    std::string sPassword = "old";
    ASSERT_TRUE(passwordFromBlocks(std::string(21, 'A') + std::string(21, 'B'), sPassword));
    EXPECT_EQ(sPassword + log.text(), "E5nNSqqJpc9p");  // worked out by another program from MD5
}
