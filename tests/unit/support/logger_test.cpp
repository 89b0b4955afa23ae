#include "support/logger.h"

#include "testing/cases.h"

#include <cerrno>

TEST(Logger, writesFilesByThresholdAndLevel)
{
    const TempDir dir;
    dir.write("some", "old\n");
    Logger logger;
    logger.setStderr(false);
    logger.setThreshold(DEBUG);
    ASSERT_TRUE(logger.addFile(dir.file("all"), TRACE, true));
    ASSERT_TRUE(logger.addFile(dir.file("some"), FATAL, true));
    ASSERT_TRUE(logger.addFile(dir.file("some"), WARNING, false));  // neither opened nor truncated
    for (int i = TRACE; i <= FATAL + 1; ++i) {
        logger.write(i, "%i", i);
    }
    const std::string sSome = "WARNING: 3\nERROR: 4\nFATAL: 5\nUNKNOWN: 6\n";
    EXPECT_EQ(dir.read("all"), "DEBUG: 1\nINFO: 2\n" + sSome);  // at once: every line is flushed
    EXPECT_EQ(dir.read("some"), "old\n" + sSome);
    EXPECT_TRUE(logger.removeFile(dir.file("all")) && !logger.removeFile(dir.file("all")));
    ASSERT_TRUE(logger.addFile(dir.file("all"), FATAL, false));
    logger.write(ERROR, "text");
    EXPECT_EQ(dir.read("all"), "");
}

TEST(LogMessage, evaluatesArgumentsOnlyAboveTheThresholdAndKeepsErrno)
{
    const LogCapture log(WARNING);
    int iCalls = 0;
    logMessage(INFO, "%i", ++iCalls);
    Logger::instance().addFile("/dev/full", TRACE, true);  // a write that fails, and is ignored
    errno = EACCES;
    logMessage(WARNING, "%i %s", ++iCalls, errnoText().c_str());
    EXPECT_EQ(errno, EACCES);
    Logger::instance().removeFile("/dev/full");
    EXPECT_EQ(log.text(), "WARNING: 1 Permission denied\n");
}

TEST(Logger, knowsLevelsAndFacilitiesByExactWords)
{
    expectEach<const char*>(
        {{"trace", "0"},
         {"warn", "3"},
         {"fatal", "5"},
         {"INFO", "2ERROR: unrecognized logger level 'INFO' using 'info'\n"}},
        [](const char* pName) { return std::to_string(logLevelFromName(pName)); });
    expectEach<const char*>(
        {{"user", "8"},
         {"local0", "128"},
         {"local5", "168"},
         {"local6", "176"},
         {"local7", "184"},
         {"", "24ERROR: unrecognized syslog facility '' using 'daemon'\n"}},
        [](const char* pName) { return std::to_string(syslogFacilityFromName(pName)); });
}
