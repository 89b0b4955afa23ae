#include "support/logger.h"

#include "testing/testing.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <cerrno>

TEST(Logger, filtersByThresholdThenByTheLevelOfTheFile)
{
    TempDir dir;
    for (int iThreshold = TRACE; iThreshold <= FATAL; ++iThreshold) {
        Logger logger;
        logger.setStderr(false);
        logger.setThreshold(iThreshold);
        ASSERT_TRUE(logger.addFile(dir.file("all"), TRACE, false));
        ASSERT_TRUE(logger.addFile(dir.file("some"), WARNING, false));
        const char* const vLines[] = {"TRACE: 0\n", "DEBUG: 1\n", "INFO: 2\n",   "WARNING: 3\n",
                                      "ERROR: 4\n", "FATAL: 5\n", "UNKNOWN: 6\n"};
        std::string sAll;
        std::string sSome;
        for (int i = 0; i <= 6; ++i) {
            logger.write(i, "%i", i);
            sAll += i >= iThreshold ? vLines[i] : "";
            sSome += i >= iThreshold && i >= WARNING ? vLines[i] : "";
        }
        EXPECT_EQ(dir.read("all"), sAll);  // at once: every line is flushed
        EXPECT_EQ(dir.read("some"), sSome);
    }
}

TEST(Logger, keepsOneOutputOfAPath)
{
    TempDir dir;
    dir.write("log", "old\n");
    Logger logger;
    logger.setStderr(false);
    ASSERT_TRUE(logger.addFile(dir.file("log"), ERROR, true));
    logger.write(INFO, "dropped");
    ASSERT_TRUE(logger.addFile(dir.file("log"), INFO, false));  // neither opened nor truncated
    logger.write(INFO, "one");
    EXPECT_EQ(dir.read("log"), "old\nINFO: one\n");
    EXPECT_FALSE(logger.removeFile(dir.file("other")));
    EXPECT_TRUE(logger.removeFile(dir.file("log")));
    logger.write(INFO, "nowhere");
    EXPECT_FALSE(logger.removeFile(dir.file("log")));
    ASSERT_TRUE(logger.addFile(dir.file("log"), INFO, false));
    EXPECT_EQ(dir.read("log"), "");

    LogCapture log;
    EXPECT_FALSE(logger.addFile(dir.path(), INFO, true));
    EXPECT_FALSE(logger.removeFile(dir.path()));
    EXPECT_EQ(log.text(), "ERROR: cannot open log file " + dir.path() + ": Is a directory\n");
}

TEST(Logger, writesToStandardErrorAndSyslog)
{
    Logger logger;  // INFO and above on standard error
    logger.setName("name");
    testing::internal::CaptureStderr();
    logger.setSyslog(false, LOG_PERROR, LOG_USER);
    logger.write(DEBUG, "no");
    logger.write(INFO, "%s", "text");
    logger.setSyslog(true, LOG_PERROR, LOG_USER);  // which shows here what syslog gets
    logger.setStderr(false);
    logger.write(ERROR, "%i%%", 7);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "INFO: text\nname: 7%\n");
    closelog();
}

TEST(LogMessage, evaluatesArgumentsOnlyAboveTheThresholdAndKeepsErrno)
{
    LogCapture log(WARNING);
    int iCalls = 0;
    logMessage(INFO, "%i", ++iCalls);
    EXPECT_EQ(iCalls, 0);
    Logger::instance().addFile("/dev/full", TRACE, true);  // a write that fails, and is ignored
    errno = EACCES;
    logMessage(WARNING, "%i %s", ++iCalls, errnoText().c_str());
    EXPECT_EQ(errno, EACCES);
    Logger::instance().removeFile("/dev/full");
    EXPECT_EQ(log.text(), "WARNING: 1 Permission denied\n");
}

TEST(Logger, knowsLevelsAndFacilitiesByExactWords)
{
    LogCapture log;
    const char* const vLevels[] = {"trace", "debug", "info", "warn", "error", "fatal"};
    for (int i = TRACE; i <= FATAL; ++i) {
        EXPECT_EQ(logLevelFromName(vLevels[i]), i);
    }
    EXPECT_EQ(syslogFacilityFromName("daemon"), 24);
    EXPECT_EQ(syslogFacilityFromName("user"), 8);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(syslogFacilityFromName("local" + std::to_string(i)), 128 + 8 * i);
    }
    EXPECT_EQ(log.text(), "");
    for (const char* pWord : {"warning", "INFO", ""}) {
        log.clear();
        EXPECT_EQ(logLevelFromName(pWord), INFO);
        EXPECT_EQ(syslogFacilityFromName(pWord), LOG_DAEMON);
        EXPECT_EQ(log.text(), std::string("ERROR: unrecognized logger level '") + pWord +
                                  "' using 'info'\nERROR: unrecognized syslog facility '" + pWord +
                                  "' using 'daemon'\n");
    }
}
