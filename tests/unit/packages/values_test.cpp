#include "packages/updateset.h"
#include "testing/packages.h"
#include "testing/testing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>

TEST(Evr, isReadAsFarAsPossible)
{
    const std::pair<const char*, std::string> vCases[] = {
        {"2:1.0-3", "2|1.0|3"},
        {"-2:1.0-2-3", "-2|1.0|2-3"},
        {":1:2", "0|1:2|"},
        {"1-2:3", "1|3|ERROR: failed parsing epoch from EVR string\n"},
        {"", "0||ERROR: EVR string has no version release\n"},
        {"1.0-", "0|1.0|ERROR: empty release in EVR string\n"},
        {"-1", "0||1"}};
    for (const auto& [pText, sExpected] : vCases) {
        SCOPED_TRACE(pText);
        const LogCapture log;
        const Evr evr = parseEvr(pText);
        const std::string sParts = evr.version.str() + "|" + evr.release.str();
        EXPECT_EQ(std::to_string(evr.epoch) + "|" + sParts + log.text(), sExpected);
    }
}

TEST(Evr, isOrderedByEpochVersionRelease)
{
    const Text vRising[] = {"-1:9", "1~rc1", "1", "1-2", "1-10", "1.9-2", "1.10-1", "1:0"};
    for (const Text& a : vRising) {
        for (const Text& b : vRising) {
            const int iOrder = &a < &b ? -1 : &a > &b ? 1 : 0;
            EXPECT_EQ(compareEvr(parseEvr(a.str()), parseEvr(b.str())), iOrder);
        }
    }
    EXPECT_EQ(compareEvr(parseEvr("1.0-1"), parseEvr("0:1.0.-1")), 0);
}

TEST(Dependency, matchesByRelationAndStanding)
{
    // Row: the relation of a, column: that of b; for which standings of a's version against b's
    // (Older, Equal, Newer) they overlap.
    const std::string vRelations[] = {"=", "<", ">", "<=", ">="};
    const char* const vTable[5][5] = {{"E", "O", "N", "OE", "EN"},
                                      {"N", "OEN", "N", "OEN", "N"},
                                      {"O", "O", "OEN", "O", "OEN"},
                                      {"EN", "OEN", "N", "OEN", "EN"},
                                      {"OE", "O", "OEN", "OE", "OEN"}};
    for (std::size_t u = 0; u < 25; ++u) {
        std::string sOverlaps;
        for (const auto& [pEvr, pMark] : {std::pair("1-1", "O"), {"2-1", "E"}, {"2-2", "N"}}) {
            const auto vPair = parseDependencies("x " + vRelations[u / 5] + " " + pEvr + ", x " +
                                                 vRelations[u % 5] + " 2-1");
            sOverlaps += dependencyMatches(vPair[0], vPair[1]) ? pMark : "";
        }
        EXPECT_EQ(sOverlaps, vTable[u / 5][u % 5]) << vRelations[u / 5] << vRelations[u % 5];
    }
    for (const std::string sPair :
         {"yes = 1, yes 0 2", "yes = 1, yes <=", "yes = 1, yes = 1-1", "yes = 1:1, yes > 2",
          "x = 1, y = 1", "x, y", "x < 1, x = 1-1", "x >= 1:1, x = 1", "x 1 1, x 1 1"}) {
        const auto vPair = parseDependencies(sPair);
        EXPECT_EQ(dependencyMatches(vPair[0], vPair[1]), sPair[0] == 'y') << sPair;
        EXPECT_EQ(dependencyMatches(vPair[1], vPair[0]), sPair[0] == 'y') << sPair;
    }
}

TEST(DependencySet, isOrderedAndKeepsTheFirstOfEqualOnes)
{
    const auto vEntries = parseDependencies(
        "f >= 2-3, f >= 1.0, f = 1.0, f >= 1.0., f < 1.0, F <= -1:1, e, f > 1, f 6 1.0, f < 1.0.");
    const char* const pExpected =
        "F <= -1:1, e, f > 0:1, f < 0:1.0, f ? 0:1.0, f = 0:1.0, f >= 0:1.0, f >= 0:2-3, ";
    DependencySet one;
    std::ranges::for_each(vEntries, [&](const Dependency& entry) { one.insertAll({entry}); });
    EXPECT_EQ(allOf(one, dependencyText), pExpected);
    DependencySet all;
    all.insertAll(vEntries);
    all.insertAll(parseDependencies("f = 1.0., f < 1.0."));
    EXPECT_EQ(allOf(all, dependencyText), pExpected);

    std::vector<Dependency> vMany;  // so many that an unstable sort would show
    for (int i = 0; i < 128; ++i) {
        vMany.push_back({"m" + std::to_string(i % 16), parseEvr(i < 16 ? "1" : "1."), EQUAL});
    }
    DependencySet many;
    many.insertAll(vMany);
    EXPECT_EQ(allOf(many, dependencyText).find('.'), std::string::npos);
}

TEST(PackageSet, ordersByNameAndKeepsTheOrderOfArrival)
{
    PackageSet set;
    for (const auto& [pName, pEvr] : {std::pair("long-name-b", "2-1"),
                                      {"a", "-1"},
                                      {"long-name-b", "1"},
                                      {"long-name-a", "7"},
                                      {"long-name-b", "3"}}) {
        PackageRecord package = makePackage(pName, pEvr);
        package.requires_ = parseDependencies("z = 1, a, z = 1");
        package.provides = parseDependencies(std::string("p = ") + pEvr);
        package.location = pEvr;
        package.checksum = {"5", "sha"};
        set.insertEqual(package);
    }
    set.sort();
    EXPECT_EQ(allOf(set, packageText),
              "a-, long-name-a-0:7, long-name-b-0:2-1, long-name-b-0:1, long-name-b-0:3, ");
    EXPECT_EQ(set.range("long-name-b"), (std::pair<std::uint32_t, std::uint32_t>(2, 5)));
    EXPECT_EQ(set.range("b"), (std::pair<std::uint32_t, std::uint32_t>(1, 1)));
    EXPECT_EQ(set.table().dependencies.size(), 7U);  // each once
    EXPECT_EQ(allOf(set[3].needs(), dependencyText) + allOf(set[3].provides(), dependencyText),
              "a, z = 0:1, p = 0:1, ");
    EXPECT_EQ(std::string(set[4].location()) + set[4].checksum().type + set[4].checksum().value,
              "3sha5");

    PackageSet many;  // so many that an unstable sort would show
    for (int i = 0; i < 400; ++i) {
        many.insertEqual(makePackage(std::to_string(i * 7 % 100), std::to_string(i)));
    }
    many.sort();
    for (std::uint32_t u = 1; u < many.size(); ++u) {
        const auto key = [&](std::uint32_t uPlace) {
            return std::pair(many[uPlace].name(), std::stoi(many[uPlace].evr().version.str()));
        };
        EXPECT_LT(key(u - 1), key(u));
    }

    UpdateSet updates;
    EXPECT_TRUE(updates.insertUnique(set[4]).second);
    const auto [present, bAdded] = updates.insertUnique(set[2]);
    EXPECT_TRUE(present == set[4] && !bAdded && updates.insertUnique(set[0]).second);
    EXPECT_EQ(allOf(updates, packageText), "a-, long-name-b-0:3, ");
    updates.eraseName("a");
    EXPECT_TRUE(updates.find("long-name-b") && !updates.find("a"));
}

TEST(Text, holdsOneCopyOfEveryString)
{
    std::vector<std::string> vStrings = {"", std::string(300 << 10, 'x'),
                                         std::string((256 << 10) - 5, 'z')};  // just a chunk
    for (int i = 0; i < 100000; ++i) {  // more than one chunk, and several sizes of the table
        vStrings.push_back(std::string(static_cast<std::size_t>(i % 13), '-') + std::to_string(i));
    }
    const std::vector<Text> vFirst(vStrings.begin(), vStrings.end());
    EXPECT_TRUE(vFirst == std::vector<Text>(vStrings.begin(), vStrings.end()));
    EXPECT_EQ(std::set<Text>(vFirst.begin(), vFirst.end()).size(), vStrings.size());
    EXPECT_TRUE(std::ranges::equal(vFirst, vStrings, {}, &Text::c_str));
    const Text vRising[] = {{}, "a", "ab", "b", "z", "\x80"};  // bytes are unsigned
    EXPECT_TRUE(std::ranges::is_sorted(vRising, std::less_equal<>()));
}

/// A name of 16 bytes for each number, all with the same std::hash on processors of 64 bits: that
/// has no secret, so the bytes of the second half can be calculated.
static std::string nameOfOneHash(std::uint64_t u)
{
    constexpr std::uint64_t k_uFactor = 0xc6a4a7935bd1e995;
    constexpr std::uint64_t k_uInverse = 0x5f7a0ea7e59b19bd;
    static_assert(k_uFactor * k_uInverse == 1);
    const auto mix = [](std::uint64_t uValue) { return uValue ^ (uValue >> 47U); };
    const std::uint64_t uHash =
        ((0xc70f6907 ^ (16 * k_uFactor)) ^ (mix(u * k_uFactor) * k_uFactor)) * k_uFactor;
    const std::uint64_t vHalves[] = {u, mix(uHash * k_uInverse) * k_uInverse};
    return {reinterpret_cast<const char*>(vHalves), sizeof(vHalves)};
}

TEST(Text, isNotSlowedDownByChosenNames)
{
    using Clock = std::chrono::steady_clock;
    const auto secondsFor = [](bool bChosen) {
        std::vector<std::string> vNames;
        for (std::uint64_t i = 0; i < 20000; ++i) {
            vNames.push_back(bChosen ? nameOfOneHash(i) : std::to_string(1000000000000000 + i));
        }
        EXPECT_EQ(std::hash<std::string>()(vNames[0]) == std::hash<std::string>()(vNames[1]),
                  bChosen && sizeof(std::size_t) == 8);
        const Clock::time_point begin = Clock::now();
        const std::vector<Text> vTexts(vNames.begin(), vNames.end());
        return std::chrono::duration<double>(Clock::now() - begin).count();
    };
    EXPECT_LT(secondsFor(true), 5 * secondsFor(false) + 0.1);
}
