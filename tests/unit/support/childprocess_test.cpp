#include "support/childprocess.h"

#include "testing/testing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace {

ChildProcess shell(const std::string& sScript)
{
    ChildProcess child("/bin/sh");
    child.addArgument("-c");
    child.addArgument(sScript);
    return child;
}

}  // namespace

TEST(ChildProcess, runsAndLogsTheOutput)
{
    signal(SIGPIPE, SIG_IGN);  // as the program does; a child must not inherit it
    const std::string sHead = "INFO: /bin/sh output:\n";
    const std::string sLong(1500, 'y');
    const struct {
        std::string script;
        int code;
        bool signalled;
        std::string log;  ///< INFO and above
    } vCases[] = {
        {"exit 3", 3, false, ""},
        {"kill -9 $$", 9, true, "ERROR: child '/bin/sh' terminated by signal 9\n"},
        {"kill -PIPE $$", 13, true, "ERROR: child '/bin/sh' terminated by signal 13\n"},
        {"printf 'ab\\n\\na\\nx%%sy\\n\\nz'", 0, false,
         sHead + "INFO:   ab\nINFO:   a\n\nINFO:   x%sy\n"},
        {"printf '\\n\\nz'", 0, false, ""},
        {"printf " + sLong, 0, false,
         sHead + "INFO:   " + sLong.substr(0, 1023) + "\nINFO:   " + sLong.substr(1023) + "\n"},
        {"echo out; echo err >&2; printf last", 0, false,
         sHead + "INFO:   out\nINFO:   err\nINFO:   last\n"},
        {"cat; echo $0", 0, false, sHead + "INFO:   /sh\n"},  // no standard input
    };
    for (const auto& test : vCases) {
        SCOPED_TRACE(test.script.substr(0, 40));
        LogCapture log(INFO);
        ChildProcess child = shell(test.script);
        EXPECT_TRUE(child.run());
        EXPECT_EQ(child.exitCode, test.code);
        EXPECT_EQ(child.signalled, test.signalled);
        EXPECT_EQ(child.exited, !test.signalled);
        EXPECT_EQ(log.text(), test.log);
    }
}

TEST(ChildProcess, readsMuchOutputThatNobodyWants)
{
    LogCapture log(FATAL);
    ChildProcess child = shell("head -c 300000 /dev/zero; exit 4");
    EXPECT_TRUE(child.run());
    EXPECT_EQ(child.exitCode, 4);
}

TEST(ChildProcess, runsAgainAndTellsAMissingProgram)
{
    LogCapture log;
    ChildProcess child("no-such-program");
    for (int i = 0; i < 2; ++i) {
        log.clear();
        EXPECT_TRUE(child.run());
        EXPECT_EQ(child.exitCode, 1);
        EXPECT_THAT(log.text(),
                    testing::MatchesRegex("DEBUG: started child 'no-such-program' with PID [0-9]+\n"
                                          "INFO: no-such-program output:\n"
                                          "INFO:   no-such-program: No such file or directory\n"
                                          "DEBUG: child 'no-such-program' exited with code 1\n"));
    }
}

TEST(ChildProcess, spawnsADetachedSession)
{
    TempDir dir;
    LogCapture log;
    ChildProcess child = shell("cut -d' ' -f1,6 /proc/$$/stat > " + dir.file("session"));
    EXPECT_TRUE(child.spawn());
    EXPECT_FALSE(child.exited);
    EXPECT_TRUE(child.spawn());
    while (wait(nullptr) > 0) {
    }
    const std::string sSession = dir.read("session");  // PID and session of the last one
    const std::string sPid = sSession.substr(0, sSession.find(' '));
    EXPECT_EQ(sSession, sPid + " " + sPid + "\n");
    const std::string sStarted = "DEBUG: started background child '/bin/sh' with PID [0-9]+\n";
    EXPECT_THAT(log.text(),
                testing::MatchesRegex(
                    sStarted + "WARNING: Did not wait on previously spawned helper\n" + sStarted));
}
