#include "support/childprocess.h"

#include "testing/cases.h"

#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <cstdio>

namespace {

ChildProcess shell(const std::string& sScript)
{
    ChildProcess child("/bin/sh");
    child.addArgument("-c");
    child.addArgument(sScript);
    return child;
}

std::string endOf(const std::string& sScript)
{
    ChildProcess child = shell(sScript);
    EXPECT_TRUE(child.run());
    const char* pEnd = child.exited ? "exited " : child.signalled ? "signalled " : "";
    return pEnd + std::to_string(child.exitCode) + "\n";
}

TEST(ChildProcess, runsAndLogsTheOutput)
{
    signal(SIGPIPE, SIG_IGN);  // as the program does; a child must not inherit it
    ASSERT_NE(std::freopen("/proc/self/status", "r", stdin), nullptr);  // nor this
    const std::string sHead = "exited 0\nINFO: /bin/sh output:\nINFO:   ";
    expectEach<const char*>(
        {{"kill -PIPE $$", "signalled 13\nERROR: child '/bin/sh' terminated by signal 13\n"},
         {"printf '\\n\\nz'; exit 3", "exited 3\n"},
         {"printf 'ab\\n\\nx%%sy\\na\\n'", sHead + "ab\nINFO:   x%sy\nINFO:   a\n\n"},
         {"cat; echo $0", sHead + "/sh\n"}},  // no standard input
        endOf, INFO);
}

TEST(ChildProcess, waitsTenSecondsForWhatTheProgramLeavesOnItsOutput)
{
    const LogCapture log(INFO);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(endOf("(while sleep 1; do echo; done) & printf first; exit 3"), "exited 3\n");
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    EXPECT_THAT(log.text(), testing::StartsWith("INFO: /bin/sh output:\nINFO:   first"));
    EXPECT_THAT(log.text(), testing::HasSubstr("\nWARNING: something that '/bin/sh' has started "
                                               "still holds its output open\n"));
    EXPECT_TRUE(seconds.count() >= 9.9 && seconds.count() < 15) << seconds.count();
}

TEST(ChildProcess, spawnsADetachedSession)
{
    const TempDir dir;
    const LogCapture log;
    EXPECT_TRUE(shell("cut -d' ' -f6 /proc/$$/stat >" + dir.file("session")).spawn());
    while (wait(nullptr) > 0) {
    }
    // The session has the number of the process.
    EXPECT_EQ(log.text(),
              "DEBUG: started background child '/bin/sh' with PID " + dir.read("session"));
}

}  // namespace
