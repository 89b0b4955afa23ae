#include "support/logger.h"

#include "testing/testing.h"

#include <gtest/gtest.h>

#include <cerrno>

TEST(Logger, writesFilesByThresholdAndLevel)
{
    TempDir dir;
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
    const LogCapture log;
    EXPECT_FALSE(logger.addFile("/", INFO, true));
    EXPECT_EQ(log.text(), "ERROR: cannot open log file /: Is a directory\n");
}

TEST(LogMessage, evaluatesArgumentsOnlyAboveTheThresholdAndKeepsErrno)
{
    LogCapture log(WARNING);
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
    const LogCapture log;
    const auto level = [](const char* p) { return std::to_string(logLevelFromName(p)); };
    const auto facility = [](const char* p) { return std::to_string(syslogFacilityFromName(p)); };
    const char* const vLevels[] = {"trace", "debug", "info", "warn", "error", "fatal", "INFO"};
    EXPECT_EQ(allOf(vLevels, level, " "), "0 1 2 3 4 5 2 ");
    const char* const vFacilities[] = {"user",   "local0", "local1", "local2", "local3",
                                       "local4", "local5", "local6", "local7", ""};
    EXPECT_EQ(allOf(vFacilities, facility, " "), "8 128 136 144 152 160 168 176 184 24 ");
    EXPECT_EQ(log.text(),
              "ERROR: unrecognized logger level 'INFO' using 'info'\n"
              "ERROR: unrecognized syslog facility '' using 'daemon'\n");
}
