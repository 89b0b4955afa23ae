#include "control/passplan.h"
#include "control/cachelock.h"
#include "testing/testing.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

struct End {
    int result;
    unsigned count;
};

constexpr int RETRY = ResultRetryUpdater;

TEST(PassPlan, followsTheOutcomeOfEachPass)
{
    const struct {
        const char* title;
        bool checkOnly;
        bool test;
        std::vector<End> ends;
        std::string passes;  ///< c check, 1 without add-ons, a all, u updater only
        bool addsUp;
        int result;
    } vCases[] = {
        {"all of it", false, false, {{0, 5}, {-1, 3}, {-1, 2}}, "c1a", true, ResultReboot},
        {"nothing", false, false, {{0, 0}, {0, 0}, {0, 0}}, "c1a", true, ResultOk},
        {"one is missing", false, false, {{0, 5}, {-1, 2}, {-1, 2}}, "c1a", false, ResultReboot},
        {"one is missing in a test", false, true, {{0, 5}, {0, 2}, {0, 2}}, "c1a", true, ResultOk},
        {"more than announced",
         false,
         false,
         {{0, 1}, {-1, 1}, {-1, 1}},
         "c1a",
         true,
         ResultReboot},
        {"check fails", false, false, {{1, 0}}, "c", true, ResultError},
        {"first pass fails", false, false, {{0, 2}, {1, 1}}, "c1", true, ResultError},
        {"second pass fails", false, false, {{0, 2}, {-1, 1}, {1, 1}}, "c1a", true, ResultReboot},
        {"second pass is fatal", false, false, {{0, 2}, {-1, 1}, {2, 1}}, "c1a", true, ResultFatal},
        {"check retries", false, false, {{RETRY, 0}, {-1, 1}}, "cu", true, ResultReboot},
        {"first pass retries",
         false,
         false,
         {{0, 4}, {RETRY, 3}, {-1, 1}},
         "c1u",
         true,
         ResultReboot},
        {"second pass retries in vain",
         false,
         false,
         {{0, 4}, {-1, 3}, {RETRY, 1}, {0, 0}},
         "c1au",
         true,
         ResultReboot},
        {"retry fails", false, false, {{RETRY, 0}, {RETRY, 1}}, "cu", true, ResultError},
        {"retry finds nothing", false, false, {{RETRY, 0}, {0, 0}}, "cu", true, ResultError},
        {"a check alone", true, false, {{0, 5}}, "c", true, ResultOk},
        {"a check alone retries", true, false, {{RETRY, 0}, {0, 1}}, "cc", true, ResultOk},
    };
    for (const auto& test : vCases) {
        SCOPED_TRACE(test.title);
        const LogCapture log;
        Config config;
        config.checkOnly = test.checkOnly;
        config.test = test.test;
        config.addonPackages = {"extra"};
        config.releasePackage = "firmware";
        PassPlan plan(config, {});
        std::string sPasses;
        bool bAgain = true;
        for (const End& end : test.ends) {
            ASSERT_TRUE(bAgain);
            const PassPlan::Pass pass = plan.beginPass();
            EXPECT_EQ(pass.config.cacheOnly, !sPasses.empty());
            EXPECT_EQ(pass.rules.pullNames, NameSet{"extra"});
            sPasses += pass.config.checkOnly                           ? "c"
                       : !pass.rules.excludeNames.empty()              ? "1"
                       : pass.rules.includeNames == NameSet{"updater"} ? "u"
                                                                       : "a";
            EXPECT_EQ(pass.config.quiet, sPasses.back() == '1' || sPasses.back() == 'a');
            bAgain = plan.endPass(pass, end.result, end.count);
        }
        EXPECT_FALSE(bAgain);
        EXPECT_EQ(sPasses, test.passes);
        EXPECT_EQ(plan.passesAddUp(), test.addsUp);
        EXPECT_EQ(plan.result(), test.result);
    }
}

TEST(PassPlan, takesNamesInOnePass)
{
    const LogCapture log;
    Config config;
    config.addonGroups = {"Extras"};
    PassPlan plan(config, {"updater"});  // asked for, which is not yet the last attempt
    PassPlan::Pass pass = plan.beginPass();
    EXPECT_TRUE(pass.rules.excludeGroups.empty());
    EXPECT_TRUE(plan.endPass(pass, RETRY, 1));
    pass = plan.beginPass();
    EXPECT_FALSE(plan.endPass(pass, RETRY, 1));
    EXPECT_EQ(plan.result(), ResultError);
}

TEST(Delay, spreadsOverTheWholeWait)
{
    EXPECT_EQ(randomDelay(600, 0), 0);
    EXPECT_EQ(randomDelay(600, RAND_MAX - 1), 599);
    EXPECT_EQ(randomDelay(2147483647, RAND_MAX), 2147483647);
    unsigned char vBytes[64] = {};
    EXPECT_TRUE(gatherRandomBytes(vBytes, 0));
    EXPECT_EQ(vBytes[0], 0);
    EXPECT_TRUE(gatherRandomBytes(vBytes, sizeof(vBytes)));
    EXPECT_NE(std::count(std::begin(vBytes), std::end(vBytes), 0), 64);
}

}  // namespace
