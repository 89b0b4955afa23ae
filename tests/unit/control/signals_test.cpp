#include "control/signals.h"

#include "control/rpmsignal.h"
#include "testing/cases.h"

namespace {

volatile std::sig_atomic_t g_iCalled = 0;

TEST(Signals, areNotedOrActAsBeforeTheStart)
{
    for (const int iSignal : {SIGHUP, SIGQUIT}) {
        signal(iSignal, [](int /*iSignal*/) { g_iCalled = g_iCalled + 1; });
    }
    ASSERT_TRUE(installSignalHandlers());
    for (const int iSignal : {SIGPIPE, SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
        raise(iSignal);
    }
    EXPECT_EQ(notedSignal, SIGTERM);  // the first that is not ignored
    EXPECT_TRUE(setTerminationSignalsEnabled(true) && setTerminationSignalsEnabled(true));
    raise(SIGHUP);
    raise(SIGQUIT);
    EXPECT_EQ(g_iCalled, 2);
    EXPECT_TRUE(setTerminationSignalsEnabled(false) && ignoreHangup());
    EXPECT_TRUE(ignoreHangup() && setTerminationSignalsEnabled(false));  // changes nothing
    raise(SIGQUIT);
    EXPECT_TRUE(isSignalIgnored(SIGHUP) && setTerminationSignalsEnabled(true));
    raise(SIGHUP);  // stays ignored in both directions
    EXPECT_EQ(g_iCalled, 2);
    raise(SIGQUIT);
    EXPECT_EQ(g_iCalled, 3);

    const LogCapture log;
    EXPECT_EQ(rpmsignal::enable(SIGUSR1, nullptr), -1);
    EXPECT_EQ(rpmsignal::enable(SIGINT, nullptr), 1);
    EXPECT_FALSE(setTerminationSignalsEnabled(false));
    EXPECT_EQ(log.text(),
              "ERROR: handler for signal 2 was already installed in rpmlib\n"
              "ERROR: failed disabling termination signals\n");
    EXPECT_EQ(rpmsignal::enable(-SIGINT, nullptr), 1);  // the refused call has counted
    EXPECT_EQ(rpmsignal::enable(-SIGINT, nullptr), 0);
    EXPECT_TRUE(restoreSignal(SIGHUP) && restoreSignal(SIGPIPE));
}

}  // namespace
