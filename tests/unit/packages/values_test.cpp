#include "packages/package.h"

#include "testing/testing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <tuple>

namespace {

constexpr const char* k_vRelations[] = {"=", "<", ">", "<=", ">="};
constexpr std::int32_t k_vFlags[] = {EQUAL, LESS, GREATER, LESS | EQUAL, GREATER | EQUAL};

/// Reads "name", "name relation version" or "name flags version"; a version "none" is empty.
Dependency dep(const std::string& sText)
{
    std::istringstream stream(sText);
    std::string sName;
    std::string sRelation = "0";
    std::string sEvr = "none";
    stream >> sName >> sRelation >> sEvr;
    const auto* p = std::find(std::begin(k_vRelations), std::end(k_vRelations), sRelation);
    return {sName, sEvr == "none" ? Evr() : parseEvr(sEvr),
            p != std::end(k_vRelations) ? k_vFlags[p - k_vRelations] : std::stoi(sRelation)};
}

template <typename Set, typename ToText>
std::string allOf(const Set& set, ToText toText)
{
    std::string sAll;
    for (const auto& entry : set) {
        sAll += toText(entry) + ", ";
    }
    return sAll;
}

}  // namespace

TEST(ParseEvr, readsWhatItCan)
{
    const std::string sEpoch = "ERROR: failed parsing epoch from EVR string\n";
    const std::string sNone = "ERROR: EVR string has no version release\n";
    const struct {
        const char* text;
        std::int32_t epoch;
        const char* version;
        const char* release;
        std::string log;
    } vCases[] = {
        {"1.0", 0, "1.0", "", ""},
        {"2:1.0-3", 2, "1.0", "3", ""},
        {"-2:1.0", -2, "1.0", "", ""},
        {"1.0-2-3", 0, "1.0", "2-3", ""},
        {"12a:1.0", 12, "1.0", "", sEpoch},
        {"x:1.0", 0, "1.0", "", sEpoch},
        {":1.0", 0, "1.0", "", ""},
        {"1:2:3", 1, "2:3", "", ""},
        {"1-2:3", 1, "3", "", sEpoch},
        {"1:", 1, "", "", sNone},
        {"", 0, "", "", sNone},
        {"1.0-", 0, "1.0", "", "ERROR: empty release in EVR string\n"},
        {"-1", 0, "", "1", ""},
    };
    for (const auto& test : vCases) {
        SCOPED_TRACE(test.text);
        LogCapture log;
        const Evr evr = parseEvr(test.text);
        EXPECT_EQ(evr.epoch, test.epoch);
        EXPECT_EQ(evr.version.view(), test.version);
        EXPECT_EQ(evr.release.view(), test.release);
        EXPECT_EQ(log.text(), test.log);
    }
}

TEST(CompareEvr, ordersByEpochVersionRelease)
{
    const std::tuple<const char*, const char*, int> vCases[] = {
        {"1:1.0", "0:2.0", 1},   {"-1:1", "1", -1},  {"1.10-1", "1.9-2", 1}, {"1.0", "1.0-1", -1},
        {"1.0-2", "1.0-10", -1}, {"1.0", "1.0.", 0}, {"1.0~rc1", "1.0", -1}, {"0:1-1", "1-1", 0},
    };
    for (const auto& [pLeft, pRight, iExpected] : vCases) {
        SCOPED_TRACE(std::string(pLeft) + " " + pRight);
        EXPECT_EQ(compareEvr(parseEvr(pLeft), parseEvr(pRight)), iExpected);
        EXPECT_EQ(compareEvr(parseEvr(pRight), parseEvr(pLeft)), -iExpected);
    }
}

TEST(DependencyMatches, overlapsByRelationAndStanding)
{
    // Row: the relation of a, column: that of b, in the order of k_iFive; for which standings of
    // a's version against b's (Older, Equal, Newer) they overlap.
    const char* const vTable[5][5] = {{"E", "O", "N", "OE", "EN"},
                                      {"N", "OEN", "N", "OEN", "N"},
                                      {"O", "O", "OEN", "O", "OEN"},
                                      {"EN", "OEN", "N", "OEN", "EN"},
                                      {"OE", "O", "OEN", "OE", "OEN"}};
    for (std::size_t a = 0; a < 5; ++a) {
        for (std::size_t b = 0; b < 5; ++b) {
            const std::string sLeft = std::string("x ") + k_vRelations[a];
            const std::string sRight = std::string("x ") + k_vRelations[b] + " 2.0-1";
            std::string sOverlaps;
            sOverlaps += dependencyMatches(dep(sLeft + " 1.0-1"), dep(sRight)) ? "O" : "";
            sOverlaps += dependencyMatches(dep(sLeft + " 2.0-1"), dep(sRight)) ? "E" : "";
            sOverlaps += dependencyMatches(dep(sLeft + " 2.0-2"), dep(sRight)) ? "N" : "";
            EXPECT_EQ(sOverlaps, vTable[a][b]) << sLeft << " and " << sRight;
        }
    }
}

TEST(DependencyMatches, treatsMissingPartsAsOpen)
{
    const std::tuple<const char*, const char*, bool> vCases[] = {
        {"x = 1.0", "y = 1.0", false},     {"x", "y", false},
        {"x = 1.0", "x 0 2.0", true},      {"x = 1.0", "x >= none", true},
        {"x = 1.0", "x = 1.0-1", true},    {"x < 1.0", "x = 1.0-1", false},
        {"x = 1.0-2", "x = 1.0-1", false}, {"x >= 1:1.0", "x = 1.0", false},
        {"x = 1:1.0", "x > 2.0", true},    {"x = 1:1.0", "x = 1.0", false},
        {"x 1 1.0", "x 1 1.0", false},
    };
    for (const auto& [pLeft, pRight, bMatches] : vCases) {
        SCOPED_TRACE(std::string(pLeft) + " and " + pRight);
        EXPECT_EQ(dependencyMatches(dep(pLeft), dep(pRight)), bMatches);
        EXPECT_EQ(dependencyMatches(dep(pRight), dep(pLeft)), bMatches);
    }
}

TEST(TextForms, areThoseOfTheLog)
{
    const std::pair<const char*, const char*> vCases[] = {
        {"libfoo >= 1.2-3", "libfoo >= 0:1.2-3"},
        {"a <= -1:2", "a <= -1:2"},
        {"a = 1", "a = 0:1"},
        {"a < 1", "a < 0:1"},
        {"a > 1", "a > 0:1"},
        {"a 0 1", "a ? 0:1"},
        {"a 6 1", "a ? 0:1"},
        {"a = none", "a"},
    };
    for (const auto& [pEntry, pText] : vCases) {
        EXPECT_EQ(dependencyText(dep(pEntry)), pText);
    }
    Package package;
    package.name = "foo";
    EXPECT_EQ(packageText(package), "foo-");
    package.evr = parseEvr("1.2-3");
    EXPECT_EQ(packageText(package), "foo-0:1.2-3");
    EXPECT_EQ(dependencyText(packageDependency(package)), "foo = 0:1.2-3");
}

TEST(DependencySet, isOrderedAndKeepsTheFirstOfEqualOnes)
{
    std::vector<Dependency> vEntries;
    DependencySet one;
    for (const char* pEntry : {"foo >= 2.0", "foo >= 1.0", "foo = 1.0", "foo >= 1.0.", "foo < 1.0",
                               "Foo", "fo", "foo < 1.0"}) {
        vEntries.push_back(dep(pEntry));
        one.insert(vEntries.back());
    }
    const char* const pExpected = "Foo, fo, foo < 0:1.0, foo = 0:1.0, foo >= 0:1.0, foo >= 0:2.0, ";
    EXPECT_EQ(allOf(one, dependencyText), pExpected);
    DependencySet all;
    all.insertAll(vEntries);
    all.insertAll({dep("foo = 1.0."), dep("foo < 1.0.")});
    EXPECT_EQ(allOf(all, dependencyText), pExpected);

    std::vector<Dependency> vMany;  // so many that an unstable sort would show
    for (int i = 0; i < 128; ++i) {
        vMany.push_back(dep("m" + std::to_string(i % 16) + " = 1" + (i < 16 ? "" : ".")));
    }
    DependencySet many;
    many.insertAll(vMany);
    EXPECT_EQ(many.size(), 16U);
    EXPECT_EQ(allOf(many, dependencyText).find('.'), std::string::npos);

    EXPECT_EQ(dependencyText(*all.lowerBound(dep("foo"))), "foo < 0:1.0");
    const auto next = all.erase(all.lowerBound(dep("foo = 1.0")));
    EXPECT_EQ(dependencyText(*next), "foo >= 0:1.0");
    EXPECT_EQ(all.size(), 5U);
}

TEST(NamedSet, insertsEqualOnesInOrderOrUniqueOnes)
{
    const auto package = [](const char* pName, const char* pVersion) {
        Package result;
        result.name = pName;
        result.evr = parseEvr(pVersion);
        return result;
    };
    PackageSet set;
    for (const auto& [pName, pVersion] :
         {std::pair("b", "2"), std::pair("a", "1"), std::pair("b", "1"), std::pair("b", "3")}) {
        set.insertEqual(package(pName, pVersion));
    }
    EXPECT_EQ(allOf(set, packageText), "a-0:1, b-0:2, b-0:1, b-0:3, ");
    EXPECT_EQ(packageText(*set.find("b")), "b-0:2");
    EXPECT_EQ(set.find("c"), set.end());
    EXPECT_EQ(std::distance(set.range("b").first, set.range("b").second), 3);
    set.erase(set.find("b"));
    EXPECT_EQ(allOf(set, packageText), "a-0:1, b-0:1, b-0:3, ");
    set.eraseName("b");
    EXPECT_EQ(allOf(set, packageText), "a-0:1, ");

    const auto [added, bAdded] = set.insertUnique(package("b", "1"));
    EXPECT_TRUE(bAdded);
    EXPECT_EQ(packageText(*added), "b-0:1");
    const auto [present, bAgain] = set.insertUnique(package("b", "2"));
    EXPECT_FALSE(bAgain);
    EXPECT_EQ(present, added);
    EXPECT_EQ(allOf(set, packageText), "a-0:1, b-0:1, ");
}

TEST(Text, holdsOneCopyOfEveryString)
{
    EXPECT_TRUE(Text().empty());
    EXPECT_EQ(Text(), Text(""));
    EXPECT_STREQ(Text().c_str(), "");
    std::vector<std::string> vStrings = {std::string(300 << 10, 'x'), std::string(300 << 10, 'y')};
    for (int i = 0; i < 100000; ++i) {  // more than one chunk, and several sizes of the table
        vStrings.push_back("name-" + std::to_string(i));
        if (i == 50000) {
            vStrings.push_back(std::string((256 << 10) - 5, 'z'));  // just a chunk
        }
    }
    const std::vector<Text> vFirst(vStrings.begin(), vStrings.end());
    const std::vector<Text> vSecond(vStrings.begin(), vStrings.end());
    EXPECT_TRUE(vFirst == vSecond);
    std::size_t uWrong = 0;
    for (std::size_t u = 0; u < vStrings.size(); ++u) {
        uWrong += vFirst[u].view() != vStrings[u] || vFirst[u].c_str() != vStrings[u];
        uWrong += u > 0 && vFirst[u] == vFirst[u - 1];
    }
    EXPECT_EQ(uWrong, 0U);
    EXPECT_LT(Text("ab"), Text("b"));
    EXPECT_LT(Text("a"), Text("ab"));
    EXPECT_LT(Text("z"), Text("\x80"));  // bytes are unsigned
    EXPECT_LT(Text(), Text("a"));
    EXPECT_FALSE(Text("a") < Text("a"));
}
