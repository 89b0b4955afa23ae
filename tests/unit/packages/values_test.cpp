#include "packages/updateset.h"
#include "testing/cases.h"
#include "testing/packages.h"

#include <algorithm>
#include <chrono>
#include <functional>

TEST(Evr, isReadAsFarAsPossible)
{
    expectEach<const char*>({{"2:1.0-3", "2|1.0|3"},
                             {"-2:1.0-2-3", "-2|1.0|2-3"},
                             {":1:2", "0|1:2|"},
                             {"1-2:3", "1|3|ERROR: failed parsing epoch from EVR string\n"},
                             {"", "0||ERROR: EVR string has no version release\n"},
                             {"1.0-", "0|1.0|ERROR: empty release in EVR string\n"},
                             {"-1", "0||1"}},
                            [](const char* pText) {
                                const Evr evr = parseEvr(pText);
                                return std::to_string(evr.epoch) + "|" + evr.version.str() + "|" +
                                       evr.release.str();
                            });
}

TEST(Evr, isOrderedByEpochVersionRelease)
{
    const char* const vRising[] = {"-1:9", "1~rc1", "1", "1-2", "1-10", "1.9-2", "1.10-1", "1:0"};
    for (std::size_t u = 1; u < std::size(vRising); ++u) {
        EXPECT_EQ(compareEvr(parseEvr(vRising[u - 1]), parseEvr(vRising[u])), -1) << u;
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
    DependencySet set;
    set.insertAll(parseDependencies(
        "f >= 2-3, f >= 1.0, f = 1.0, f >= 1.0., f < 1.0, F <= -1:1, e, f > 1, f 6 1.0, f < 1.0."));
    set.insertAll(parseDependencies("f = 1.0., f < 1.0."));
    EXPECT_EQ(allOf(set, dependencyText),
              "F <= -1:1, e, f > 0:1, f < 0:1.0, f ? 0:1.0, f = 0:1.0, f >= 0:1.0, f >= 0:2-3, ");

    std::vector<Dependency> vMany;  // so many that an unstable sort would show
    vMany.reserve(128);
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
    for (int i = 0; i < 400; ++i) {  // so many that an unstable sort would show
        PackageRecord package =
            makePackage("long-name-" + std::to_string(i * 7 % 100), std::to_string(i));
        package.requires_ = parseDependencies("z = 1, a, z = 1");
        package.provides = parseDependencies("p = " + std::to_string(i % 2));
        package.location = std::to_string(i);
        set.insertEqual(package);
    }
    set.sort();
    for (std::uint32_t u = 1; u < set.size(); ++u) {
        const auto key = [&](std::uint32_t uPlace) {
            return std::pair(set[uPlace].name(), std::stoi(set[uPlace].evr().version.str()));
        };
        EXPECT_LT(key(u - 1), key(u));
    }
    EXPECT_EQ(set.range("long-name-1"), (std::pair<std::uint32_t, std::uint32_t>(4, 8)));
    EXPECT_EQ(set.range("long-name-"), (std::pair<std::uint32_t, std::uint32_t>(0, 0)));
    EXPECT_EQ(set.table().dependencies.size(), 4U);  // each once
    EXPECT_EQ(allOf(set[4].needs(), dependencyText) + allOf(set[4].provides(), dependencyText) +
                  packageText(set[4]) + " " + std::string(set[4].location()),
              "a, z = 0:1, p = 0:1, long-name-1-0:43 43");

    UpdateSet updates;
    EXPECT_TRUE(updates.insertUnique(set[5]).second && updates.insertUnique(set[0]).second);
    const auto [present, bAdded] = updates.insertUnique(set[4]);
    EXPECT_TRUE(present == set[5] && !bAdded);
    EXPECT_EQ(allOf(updates, packageText), "long-name-0-0:0, long-name-1-0:143, ");
    updates.eraseName("long-name-0");
    EXPECT_TRUE(updates.find("long-name-1") && !updates.find("long-name-0"));
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
    const auto secondsFor = [](const auto& nameOf) {
        std::vector<std::string> vNames;
        for (std::uint64_t u = 0; u < 20000; ++u) {
            vNames.push_back(nameOf(u));
        }
        const auto begin = std::chrono::steady_clock::now();
        const std::vector<Text> vTexts(vNames.begin(), vNames.end());
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    };
    if (sizeof(std::size_t) == 8) {
        EXPECT_EQ(std::hash<std::string>()(nameOfOneHash(0)),
                  std::hash<std::string>()(nameOfOneHash(1)));
    }
    const double dOther = secondsFor([](auto u) { return std::to_string(1000000000000000 + u); });
    EXPECT_LT(secondsFor(nameOfOneHash), 5 * dOther + 0.1);
}
