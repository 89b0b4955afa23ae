#include "control/status.h"
#include <sys/stat.h>
#include "testing/cases.h"

#include <filesystem>

namespace {

TEST(Status, replacesTheFileAndNothingElse)
{
    const TempDir dir;
    const std::string sPath = dir.file("status");
    const mode_t uMask = umask(077);
    EXPECT_TRUE(writeStatus(DELAYING, sPath) && writeStatus(REBOOTING, sPath));
    umask(uMask);
    struct stat info = {};
    stat(sPath.c_str(), &info);
    EXPECT_EQ(info.st_mode & 07777U, 0644U);
    EXPECT_EQ(dir.read("status"), "REBOOTING\n");

    const LogCapture log;
    std::filesystem::create_directory(dir.file("taken"));
    EXPECT_FALSE(writeStatus(READY, dir.file("taken")));
    EXPECT_EQ(log.text(), "DEBUG: failed saving status: Is a directory\n");
    const std::filesystem::directory_iterator entries(dir.path());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 2);  // no temporary file is left
}

}  // namespace
