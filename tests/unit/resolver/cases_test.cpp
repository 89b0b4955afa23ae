// Each file of tests/cases/resolver/ is a case. Its lines:
//
//   installed NAME EVR            a package of the device
//   available NAME EVR            a package of the repository, in file order
//     group G | requires D | provides D | obsoletes D     of the package above; D as in "foo >= 1"
//   include N.. | exclude N.. | excludegroup G.. | pull N..    the rules of the selection
//   selected PACKAGE..            expected: the update set, in order
//   closed PACKAGE..              expected: the set closed under its dependencies
//   missing D                     expected, one a line: what is unsatisfied in the end
//   refused D                     expected, one a line: requires that this program does not meet

#include "packages/resolver.h"
#include "testing/testing.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace {

Dependency parseDependency(std::istream& line)
{
    static const std::map<std::string, std::int32_t> vRelations = {
        {"=", 8}, {"<", 2}, {">", 4}, {"<=", 10}, {">=", 12}};
    std::string sName;
    std::string sRelation;
    std::string sEvr;
    line >> sName >> sRelation >> sEvr;
    return sEvr.empty() ? Dependency{sName, {}, 0}
                        : Dependency{sName, parseEvr(sEvr), vRelations.at(sRelation)};
}

struct Case {
    InstalledPackageSet installed;
    PackageSet available;
    SelectionRules rules;
    std::string selected;
    std::string closed;
    std::string missing;
    std::string refused;
};

std::string rest(std::istream& line)
{
    std::string sText;
    std::getline(line >> std::ws, sText);
    return sText;
}

void addNames(std::istream& line, NameSet& vNames)
{
    for (std::string sName; line >> sName;) {
        vNames.insert(sName);
    }
}

Case readCase(const std::filesystem::path& path)
{
    Case result;
    Package package;
    std::string sKind;
    const auto finish = [&] {
        if (sKind == "installed") {
            result.installed.insertEqual(package);
        } else if (sKind == "available") {
            result.available.insertEqual(package);
        }
        sKind.clear();
    };
    std::ifstream file(path);
    for (std::string sLine; std::getline(file, sLine);) {
        std::istringstream line(sLine);
        std::string sWord;
        line >> sWord;
        if (sWord == "installed" || sWord == "available") {
            finish();
            sKind = sWord;
            package = {};
            std::string sName;
            std::string sEvr;
            line >> sName >> sEvr;
            package.name = sName;
            package.evr = parseEvr(sEvr);
        } else if (sWord == "group") {
            package.group = rest(line);
        } else if (sWord == "requires") {
            package.requires_.insert(parseDependency(line));
        } else if (sWord == "provides") {
            package.provides.insert(parseDependency(line));
        } else if (sWord == "obsoletes") {
            package.obsoletes.insert(parseDependency(line));
        } else if (sWord == "include") {
            addNames(line, result.rules.includeNames);
        } else if (sWord == "exclude") {
            addNames(line, result.rules.excludeNames);
        } else if (sWord == "excludegroup") {
            addNames(line, result.rules.excludeGroups);
        } else if (sWord == "pull") {
            addNames(line, result.rules.pullNames);
        } else if (sWord == "selected") {
            result.selected = rest(line);
        } else if (sWord == "closed") {
            result.closed = rest(line);
        } else if (sWord == "missing") {
            result.missing += rest(line) + "\n";
        } else if (sWord == "refused") {
            result.refused += rest(line) + "\n";
        } else if (!sWord.empty() && sWord[0] != '#') {
            ADD_FAILURE() << path << ": unknown word " << sWord;
        }
    }
    finish();
    return result;
}

std::string text(const PackageSet& packages)
{
    std::string sText;
    for (const Package& package : packages) {
        sText += (sText.empty() ? "" : " ") + packageText(package);
    }
    return sText;
}

std::string text(const DependencySet& dependencies)
{
    std::string sText;
    for (const Dependency& dependency : dependencies) {
        sText += dependencyText(dependency) + "\n";
    }
    return sText;
}

class ResolverCase : public testing::TestWithParam<std::string> {};

TEST_P(ResolverCase, selectsAndCloses)
{
    const Case test = readCase(std::string(CASES) + "/resolver/" + GetParam());
    LogCapture log;

    PackageSet updateSet = selectNewerPackages(test.installed, test.available, test.rules);
    EXPECT_EQ(text(updateSet), test.selected);

    DependencySet unsatisfied;
    do {
        missingRequires(test.installed, updateSet, unsatisfied);
    } while (!unsatisfied.empty() &&
             Resolver::resolveDependencies(test.available, unsatisfied, updateSet));
    EXPECT_EQ(text(updateSet), test.closed.empty() ? test.selected : test.closed);
    EXPECT_EQ(text(unsatisfied), test.missing);

    DependencySet failed;
    const Dependency running = {"updater-running", parseEvr("1.1"), EQUAL};
    EXPECT_EQ(Resolver::checkProvide(running, updateSet, failed), test.refused.empty());
    EXPECT_EQ(text(failed), test.refused);
}

std::vector<std::string> caseNames()
{
    std::vector<std::string> vNames;
    for (const auto& entry : std::filesystem::directory_iterator(CASES "/resolver")) {
        vNames.push_back(entry.path().filename());
    }
    std::sort(vNames.begin(), vNames.end());
    return vNames;
}

INSTANTIATE_TEST_SUITE_P(Files, ResolverCase, testing::ValuesIn(caseNames()), [](const auto& param) {
    std::string sName = param.param.substr(0, param.param.find('.'));
    std::replace(sName.begin(), sName.end(), '-', '_');
    return sName;
});

TEST(Resolver, tellsEachFailedAndEachPulledRequire)
{
    InstalledPackageSet installed;
    for (const char* pName : {"one", "two"}) {
        Package package;
        package.name = pName;
        package.evr = parseEvr("1-1");
        package.requires_.insert({"lib", parseEvr("2"), GREATER | EQUAL});
        installed.insertEqual(package);
    }
    Package lib;
    lib.name = "z";
    lib.evr = parseEvr("3-1");
    lib.provides.insert({"lib", parseEvr("2"), EQUAL});
    PackageSet available;
    available.insertEqual(lib);
    PackageSet updateSet;
    DependencySet unsatisfied;
    LogCapture log;

    missingRequires(installed, updateSet, unsatisfied);
    ASSERT_TRUE(Resolver::resolveDependencies(available, unsatisfied, updateSet));

    EXPECT_EQ(log.text(),
              "DEBUG: checking dependencies for 0 new packages\n"
              "DEBUG: failed dep: lib >= 0:2 is needed by one-0:1-1\n"
              "DEBUG: failed dep: lib >= 0:2 is needed by two-0:1-1\n"
              "DEBUG: resolving dependencies\n"
              "DEBUG: checking provide lib = 0:2\n"
              "DEBUG: pulling package z-0:3-1 to satisfy 'lib >= 0:2'\n"
              "DEBUG: removing require 'lib >= 0:2', provided by pulled package\n"
              "DEBUG: pulled 1 packages\n");
}

TEST(Resolver, filesAreAllThatMayBeMissing)
{
    const struct {
        std::vector<Dependency> missing;
        bool expected;
    } vCases[] = {{{}, true},
                  {{{"/a", {}, 0}, {"/b", {}, 0}}, true},
                  {{{"/a", {}, 0}, {"b", {}, 0}}, false},
                  {{{"", {}, 0}}, false}};
    for (const auto& test : vCases) {
        DependencySet missing;
        missing.insertAll(test.missing);
        EXPECT_EQ(Resolver::onlyFileRequires(missing), test.expected);
    }
}

}  // namespace
