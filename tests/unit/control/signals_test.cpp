#include "control/signals.h"

#include "control/rpmsignal.h"
#include "testing/testing.h"

#include <gtest/gtest.h>

namespace {

volatile std::sig_atomic_t g_iCalled = 0;

void countOwn(int /*iSignal*/)
{
    g_iCalled = g_iCalled + 1;
}

void countNothing(int /*iSignal*/, siginfo_t* /*pInfo*/, void* /*pContext*/) {}

TEST(Signals, areNotedOrActAsBeforeTheStart)
{
    for (const int iSignal : {SIGHUP, SIGINT, SIGTERM, SIGQUIT}) {
        signal(iSignal, countOwn);
    }
    ASSERT_TRUE(installSignalHandlers());
    raise(SIGPIPE);
    EXPECT_EQ(signalNoted, 0);
    raise(SIGTERM);
    raise(SIGINT);
    EXPECT_EQ(signalNoted, 1);
    EXPECT_EQ(notedSignal, SIGTERM);  // the first one
    EXPECT_EQ(g_iCalled, 0);

    for (int i = 0; i < 2; ++i) {  // the second time changes nothing
        EXPECT_TRUE(setTerminationSignalsEnabled(true));
    }
    for (const int iSignal : {SIGHUP, SIGINT, SIGTERM, SIGQUIT}) {
        raise(iSignal);
    }
    EXPECT_EQ(g_iCalled, 4);

    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(setTerminationSignalsEnabled(false));
        EXPECT_TRUE(ignoreHangup());
    }
    EXPECT_TRUE(isSignalIgnored(SIGHUP));
    raise(SIGQUIT);
    EXPECT_TRUE(setTerminationSignalsEnabled(true));
    raise(SIGHUP);  // stays ignored in both directions
    EXPECT_EQ(g_iCalled, 4);
    raise(SIGQUIT);
    EXPECT_EQ(g_iCalled, 5);
    EXPECT_TRUE(restoreSignal(SIGHUP));
    EXPECT_TRUE(restoreSignal(SIGPIPE));
}

TEST(Signals, areRefusedWhileAnotherHolderHasThem)
{
    const LogCapture log;
    EXPECT_EQ(rpmsignal::enable(SIGUSR1, nullptr), -1);
    EXPECT_EQ(rpmsignal::enable(-SIGINT, nullptr), 0);  // not held
    EXPECT_EQ(rpmsignal::enable(SIGINT, countNothing), 1);
    EXPECT_FALSE(setTerminationSignalsEnabled(false));
    EXPECT_EQ(log.text(),
              "ERROR: handler for signal 2 was already installed in rpmlib\n"
              "ERROR: failed disabling termination signals\n");
    EXPECT_EQ(rpmsignal::enable(-SIGINT, nullptr), 1);  // the refused call has counted
    EXPECT_EQ(rpmsignal::enable(-SIGINT, nullptr), 0);
    EXPECT_TRUE(restoreSignal(SIGHUP));
}

}  // namespace
