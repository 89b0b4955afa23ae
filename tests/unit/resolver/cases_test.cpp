// Each file of tests/cases/resolver/ is a case. Its lines:
//
//   installed NAME EVR [PART..]; ..     packages of the device
//   available NAME EVR [PART..]; ..     packages of the repository, in file order
//     PART: group G | requires D, .. | provides D, .. | obsoletes D, ..; D as in "foo >= 1"
//   include N.. | exclude N.. | excludegroup G.. | pull N..    the rules of the selection
//   selected PACKAGE..            expected: the update set, in order
//   closed PACKAGE..              expected: the set closed under its dependencies, if it differs
//   missing D                     expected, one a line: what is unsatisfied in the end
//   refused D                     expected, one a line: requires that this program does not meet

#include "testing/cases.h"
#include "resolver/closure.h"
#include "resolver/resolver.h"
#include "resolver/selection.h"
#include "testing/packages.h"

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

PackageRecord readRecord(const std::string& sText)
{
    std::istringstream words(sText);
    std::string sName, sEvr, sPart;
    words >> sName >> sEvr;
    std::map<std::string, std::string> parts;
    for (std::string sWord; words >> sWord;) {
        if (NameSet{"group", "requires", "provides", "obsoletes"}.contains(sWord)) {
            sPart = sWord;
        } else {
            parts[sPart] += (parts[sPart].empty() ? "" : " ") + sWord;
        }
    }
    PackageRecord package = makePackage(sName, sEvr);
    package.group = parts["group"];
    package.requires_ = parseDependencies(parts["requires"]);
    package.provides = parseDependencies(parts["provides"]);
    package.obsoletes = parseDependencies(parts["obsoletes"]);
    return package;
}

Case readCase(const std::string& sPath)
{
    Case result;
    std::map<std::string, NameSet*> rules = {{"include", &result.rules.includeNames},
                                             {"exclude", &result.rules.excludeNames},
                                             {"excludegroup", &result.rules.excludeGroups},
                                             {"pull", &result.rules.pullNames}};
    std::ifstream file(sPath);
    for (std::string sLine, sKey; std::getline(file, sLine);) {
        std::istringstream words(sLine);
        words >> sKey;
        if (sKey == "installed" || sKey == "available") {
            for (std::string sText; std::getline(words, sText, ';');) {
                if (sKey == "installed") {
                    result.installed.insertEqual(readRecord(sText));
                } else {
                    result.available.insertEqual(readRecord(sText));
                }
            }
        }
        for (std::string sWord; sKey[0] != '#' && words >> sWord;) {
            if (rules.contains(sKey)) {
                rules[sKey]->insert(sWord);
            } else {
                result.expected.at(sKey) += sWord + " ";
            }
        }
    }
    if (result.expected["closed"].empty()) {
        result.expected["closed"] = result.expected["selected"];
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
            UpdateSet updateSet = findNewerPackages(test.installed, test.available, test.rules);
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
