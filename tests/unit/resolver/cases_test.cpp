// Each file of tests/cases/resolver/ is a case. Its lines:
//
//   installed NAME EVR  ..        packages of the device
//   available NAME EVR  ..        packages of the repository, in file order
//     group G | requires D, .. | provides D, .. | obsoletes D, ..
//                                 of the last package above; D as in "foo >= 1"
//   include N.. | exclude N.. | excludegroup G.. | pull N..    the rules of the selection
//   selected PACKAGE..            expected: the update set, in order
//   closed PACKAGE..              expected: the set closed under its dependencies, if it differs
//   missing D                     expected, one a line: what is unsatisfied in the end
//   refused D                     expected, one a line: requires that this program does not meet

#include "resolver/closure.h"
#include "resolver/resolver.h"
#include "resolver/selection.h"
#include "testing/packages.h"
#include "testing/testing.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>

namespace {

struct Case {
    InstalledPackageSet installed;
    PackageSet available;
    SelectionRules rules;
    std::map<std::string, std::string> expected = {
        {"selected", ""}, {"closed", ""}, {"missing", ""}, {"refused", ""}};
};

Case readCase(const std::string& sPath)
{
    static const std::map<std::string, std::vector<Dependency> PackageRecord::*> vLists = {
        {"requires", &PackageRecord::requires_},
        {"provides", &PackageRecord::provides},
        {"obsoletes", &PackageRecord::obsoletes}};
    static const std::map<std::string, NameSet SelectionRules::*> vRules = {
        {"include", &SelectionRules::includeNames},
        {"exclude", &SelectionRules::excludeNames},
        {"excludegroup", &SelectionRules::excludeGroups},
        {"pull", &SelectionRules::pullNames}};
    Case result;
    std::vector<std::pair<std::string, PackageRecord>> vPackages;
    std::ifstream file(sPath);
    for (std::string sLine; std::getline(file, sLine);) {
        std::istringstream line(sLine);
        std::string sKey;
        std::string sRest;
        std::getline(line >> sKey >> std::ws, sRest);
        std::istringstream words(sRest);
        const std::vector<std::string> vWords(std::istream_iterator<std::string>(words), {});
        if (sKey == "installed" || sKey == "available") {
            for (std::size_t u = 0; u < vWords.size(); u += 2) {
                vPackages.emplace_back(sKey, makePackage(vWords[u], vWords.at(u + 1)));
            }
        } else if (sKey == "group") {
            vPackages.back().second.group = sRest;
        } else if (vLists.contains(sKey)) {
            vPackages.back().second.*vLists.at(sKey) = parseDependencies(sRest);
        } else if (vRules.contains(sKey)) {
            (result.rules.*vRules.at(sKey)).insert(vWords.begin(), vWords.end());
        } else if (!sKey.empty() && sKey[0] != '#') {
            result.expected.at(sKey) += allOf(vWords, std::identity(), " ");
        }
    }
    if (result.expected["closed"].empty()) {
        result.expected["closed"] = result.expected["selected"];
    }
    for (const auto& [sKind, package] : vPackages) {
        if (sKind == "installed") {
            result.installed.insertEqual(package);
        } else {
            result.available.insertEqual(package);
        }
    }
    result.installed.sort();
    result.available.sort();
    return result;
}

TEST(Resolver, selectsAndClosesEachCase)
{
    int iCases = 0;
    for (const auto& entry : std::filesystem::directory_iterator(CASES "/resolver")) {
        SCOPED_TRACE(entry.path().stem());
        ++iCases;
        Case test = readCase(entry.path());
        for (const int iLevel : {DEBUG, INFO}) {  // packages are pulled in another way for each
            const LogCapture log(iLevel);
            UpdateSet updateSet = selectNewerPackages(test.installed, test.available, test.rules);
            EXPECT_EQ(allOf(updateSet, packageText, " "), test.expected["selected"]);

            Closure closure(test.installed, test.available, updateSet);
            while (!closure.checkDependencies() && closure.resolveDependencies()) {
            }
            EXPECT_EQ(allOf(updateSet, packageText, " "), test.expected["closed"]);
            EXPECT_EQ(allOf(closure.unsatisfied(), dependencyText, " "), test.expected["missing"]);

            DependencySet refused;
            const Dependency running = {"updater-running", parseEvr("1.1"), EQUAL};
            EXPECT_EQ(Resolver::checkProvide(running, updateSet, refused),
                      test.expected["refused"].empty());
            EXPECT_EQ(allOf(refused, dependencyText, " "), test.expected["refused"]);
        }
    }
    EXPECT_GT(iCases, 5);
}

TEST(Resolver, judgesWhatIsMissing)
{
    const LogCapture log;
    for (const std::string sMissing : {"", "/a, /b", "(a, /b", "no, /a", "(a, no"}) {
        DependencySet missing;
        missing.insertAll(parseDependencies(sMissing));
        EXPECT_EQ(Resolver::onlyFileRequires(missing), sMissing.find("no") == std::string::npos);
    }
}

}  // namespace
