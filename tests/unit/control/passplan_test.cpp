#include "control/passplan.h"
#include "control/cachelock.h"
#include "testing/cases.h"

#include <algorithm>
#include <cstdlib>

namespace {

constexpr int RETRY = ResultRetryUpdater;
constexpr int REBOOT = ResultReboot;

TEST(PassPlan, followsTheOutcomeOfEachPass)
{
    using Ends = std::vector<std::pair<int, unsigned>>;  // of each pass: result and packages
    // The passes: c check, 1 without add-ons, a all, u updater only; - does not add up
    const std::tuple<char, Ends, std::string, int> vCases[] = {
        {'u', {{0, 5}, {REBOOT, 3}, {REBOOT, 2}}, "c1a", REBOOT},
        {'u', {{0, 5}, {REBOOT, 2}, {REBOOT, 2}}, "c1a-", REBOOT},
        {'t', {{0, 5}, {0, 2}, {0, 2}}, "c1a", ResultOk},
        {'u', {{0, 1}, {REBOOT, 1}, {0, 1}}, "c1a", REBOOT},
        {'u', {{0, 2}, {ResultError, 1}}, "c1", ResultError},
        {'u', {{0, 2}, {REBOOT, 1}, {ResultError, 1}}, "c1a", REBOOT},
        {'u', {{0, 2}, {REBOOT, 1}, {ResultFatal, 1}}, "c1a", ResultFatal},
        {'u', {{0, 4}, {RETRY, 3}, {REBOOT, 1}}, "c1u", REBOOT},
        {'u', {{0, 4}, {REBOOT, 3}, {RETRY, 1}, {0, 0}}, "c1au", REBOOT},
        {'u', {{RETRY, 0}, {RETRY, 1}}, "cu", ResultError},
        {'u', {{RETRY, 0}, {0, 0}}, "cu", ResultError},
        {'u', {{RETRY, 0}, {REBOOT, 0}}, "cu", REBOOT},
        {'c', {{0, 5}}, "c", ResultOk},
        {'c', {{RETRY, 0}, {0, 1}}, "cc", ResultOk}};
    for (const auto& [cMode, vEnds, sExpected, iExpected] : vCases) {
        SCOPED_TRACE(sExpected);
        const LogCapture log;
        Config config;
        config.checkOnly = cMode == 'c';
        config.test = cMode == 't';
        config.addonPackages = {"extra"};
        PassPlan plan(config, {});
        std::string sPasses;
        for (const auto& [iResult, uCount] : vEnds) {
            const PassPlan::Pass pass = plan.beginPass();
            const bool bUpdater = pass.rules.includeNames == NameSet{"updater"};
            EXPECT_EQ(pass.config.cacheOnly, !sPasses.empty());
            EXPECT_EQ(pass.rules.pullNames, NameSet{"extra"});
            sPasses += pass.config.checkOnly              ? 'c'
                       : !pass.rules.excludeNames.empty() ? '1'
                                                          : (bUpdater ? 'u' : 'a');
            EXPECT_EQ(pass.config.quiet, sPasses.back() == '1' || sPasses.back() == 'a');
            EXPECT_EQ(plan.endPass(pass, iResult, uCount), sPasses.size() < vEnds.size());
        }
        EXPECT_EQ(sPasses + (plan.passesAddUp() ? "" : "-"), sExpected);
        EXPECT_EQ(plan.result(), iExpected) << sExpected;
    }
}

TEST(PassPlan, takesNamesInOnePass)
{
    const LogCapture log;
    const Config config;
    PassPlan plan(config, {"updater"});  // asked for, which is not yet the last attempt
    EXPECT_FALSE(plan.beginPass().config.checkOnly);
    EXPECT_TRUE(plan.endPass(plan.beginPass(), RETRY, 1));
    EXPECT_FALSE(plan.endPass(plan.beginPass(), RETRY, 1));
}

TEST(Delay, spreadsOverTheWholeWait)
{
    EXPECT_EQ(randomDelay(600, RAND_MAX - 1), 599);
    EXPECT_EQ(randomDelay(2147483647, RAND_MAX), 2147483647);
    unsigned char vBytes[64] = {};
    EXPECT_TRUE(gatherRandomBytes(vBytes, sizeof(vBytes)));
    EXPECT_NE(std::ranges::count(vBytes, 0), 64);
}

}  // namespace
