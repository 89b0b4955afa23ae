#include "repository/primarytable.h"

#include "testing/cases.h"
#include "testing/packages.h"

#include <rpm/rpmlib.h>
#include <sys/stat.h>
#include <zlib.h>

#include <cstring>

namespace {

/// Everything that contents hold, asked for in all ways.
std::string describe(const PrimaryContents& contents)
{
    const auto list = [](const DependencySet& set) { return allOf(set, dependencyText); };
    const LogCapture log;
    logSkipped(contents);
    return allOf(contents.packages,
                 [&](const Package& package) {
                     return packageText(package) + " " + package.group().str() + " " +
                            list(package.needs()) + list(package.provides()) +
                            list(package.obsoletes()) + std::string(package.location()) +
                            package.checksum().type + package.checksum().value;
                 }) +
           log.text();
}

class PrimaryTableTest : public testing::Test {
protected:
    PrimaryTableTest()
    {
        rpmReadConfigFiles(nullptr, nullptr);
        for (const char* pName : {"b", "a", "b"}) {
            PackageRecord package = makePackage(pName, "1:2-3");
            package.group = "Net";
            package.requires_ = parseDependencies("x >= 1, y, x >= 1");
            package.provides = parseDependencies("p = 1:2-3, y");
            package.obsoletes = parseDependencies("o < 1");
            package.location = "dir/a.rpm";
            package.checksum = {"abc", "sha"};
            contents.packages.insertEqual(package);
        }
        contents.packages.sort();
        contents.skipped = std::string("s.rpm\0vax\0t.rpm\0\0", 17);
        contents.architectures = {{"noarch", true}, {"vax", false}, {"", false}};
        dir.write("p.table.tmp", "left by a power cut");
        const LogCapture log;
        EXPECT_TRUE(writePrimaryTable(path, "5", contents));
        file = dir.read("p.table");
    }

    /// What a file of these bytes gives; "passed over" and why if it is of no use.
    std::string read(const std::string& sFile, const std::string& sSum = "5")
    {
        dir.write("p.table", sFile);
        const LogCapture log;
        PrimaryContents other;
        if (readPrimaryTable(path, sSum, other)) {
            return describe(other);
        }
        EXPECT_TRUE(other.packages.empty() && other.skipped.empty());
        return log.text().substr(log.text().rfind('('));
    }

    /// The file with a sum that is right for what it holds now.
    static std::string summed(std::string sFile)
    {
        const auto uCrc = static_cast<std::uint32_t>(crc32_z(
            0, reinterpret_cast<const unsigned char*>(sFile.data()) + 20, sFile.size() - 20));
        std::memcpy(sFile.data() + 16, &uCrc, sizeof(uCrc));
        return sFile;
    }

    TempDir dir;
    const std::string path = dir.file("p.table");
    PrimaryContents contents;
    std::string file;
};

TEST_F(PrimaryTableTest, givesBackWhatWasRead)
{
    struct stat info = {};
    EXPECT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);
    EXPECT_FALSE(dir.exists("p.table.tmp"));
    EXPECT_EQ(read(file), describe(contents));
    EXPECT_EQ(read(file, "6"), "(of another primary file)\n");
    EXPECT_FALSE(writePrimaryTable(dir.path(), "5", contents));
}

TEST_F(PrimaryTableTest, isOfNoUseIfAnyByteDiffers)
{
    for (std::size_t u = 0; u < file.size(); ++u) {
        std::string sDamaged = file;
        sDamaged[u] = static_cast<char>(sDamaged[u] ^ (1 << u % 8));
        EXPECT_EQ(read(sDamaged)[0], '(') << u;
        EXPECT_EQ(read(file.substr(0, u))[0], '(') << u;
    }
    EXPECT_EQ(read(summed(file + '\0')), "(damaged)\n");
    EXPECT_EQ(read(summed(replaced(file, "-vax", "+vax"))), "(damaged, or of another machine)\n");
    EXPECT_EQ(read(summed(replaced(file, "Net", "Set"))),
              replaced(describe(contents), "Net", "Set"));
}

TEST_F(PrimaryTableTest, trustsNoPlaceInTheFile)
{
    for (std::size_t u = 20; u < file.size(); ++u) {  // off by one, which the sanitizers judge
        std::string sDamaged = file;
        ++sDamaged[u];
        read(summed(sDamaged));
    }
}

}  // namespace
