#include "publisher/relations.h"

#include "support/controls.h"
#include "support/files.h"

#include <algorithm>
#include <functional>
#include <set>

namespace {

std::string fileName(const Package& package)
{
    return baseName(package.location());
}

void checkEmptiness(const PrimaryContents& contents, Findings& findings)
{
    const auto uSkipped = std::count(contents.skipped.begin(), contents.skipped.end(), '\0') / 2;
    if (contents.packages.empty()) {
        findings.push_back({"empty-repository",
                            Severity::WARNING,
                            "repository",
                            uSkipped == 0 ? "it holds no package"
                                          : "it holds no package that this machine can install",
                            "find no update, and say that all is well",
                            uSkipped == 0 ? "run createrepo_c in the directory of the packages"
                                          : "look at it on a machine of the devices' architecture",
                            "",
                            {}});
    } else if (uSkipped != 0) {
        std::string sNames;
        for (const auto& [sName, bCompatible] : contents.architectures) {
            sNames += bCompatible ? "" : " " + printable(sName);
        }
        findings.push_back(
            {"other-architecture",
             Severity::NOTE,
             "repository",
             std::to_string(uSkipped) +
                 " packages are of architectures that this machine cannot install:" + sNames,
             "skip them with a warning, if they are like this machine",
             "keep to one architecture in a repository",
             "",
             {}});
    }
}

void checkChecksumTypes(const std::vector<Package>& vNewest, Findings& findings)
{
    std::map<std::string, unsigned> types;
    for (const Package& package : vNewest) {
        ++types[package.checksum().type];
    }
    types.erase("sha");
    for (const auto& [sType, uCount] : types) {
        findings.push_back({"checksum-type",
                            Severity::ERROR,
                            std::to_string(uCount) + " packages",
                            "their checksums are of type '" + printable(sType) + "'",
                            "announce the update, fetch each package twice and refuse it",
                            "createrepo_c --checksum sha",
                            "",
                            {}});
    }
}

void checkArchitectures(const PackageSet& packages, const Listing& listing, Findings& findings)
{
    for (std::uint32_t u = 0; u < packages.size();) {
        const std::uint32_t uEnd = packages.endOfRun(u);
        const Package first = packages[u];
        std::set<std::string> kinds;
        std::vector<Evr> vVersions;
        for (; u < uEnd; ++u) {
            const auto known = listing.find(packages[u].location());
            kinds.insert(known != listing.end() ? known->second.arch : "");
            vVersions.push_back(packages[u].evr());
        }
        std::sort(vVersions.begin(), vVersions.end(),
                  [](const Evr& a, const Evr& b) { return compareEvr(a, b) < 0; });
        const bool bTwice =
            std::adjacent_find(vVersions.begin(), vVersions.end(), [](const Evr& a, const Evr& b) {
                return compareEvr(a, b) == 0;
            }) != vVersions.end();
        kinds.erase("noarch");
        kinds.erase("");
        if (kinds.size() > 1 || bTwice) {
            std::string sKinds;
            for (const std::string& sKind : kinds) {
                sKinds += " " + sKind;
            }
            findings.push_back(
                {kinds.size() > 1 ? "architectures-compete" : "listed-twice",
                 Severity::WARNING,
                 first.name().str(),
                 kinds.size() > 1 ? "it comes in several architectures:" + sKinds
                                  : "one version is listed more than once",
                 "take the newest version and, of equal ones, the first in the metadata",
                 "keep to one architecture and one file of a version",
                 "",
                 {}});
        }
    }
}

void checkFileNames(const std::vector<Package>& vNewest, Findings& findings)
{
    std::map<std::string, std::string> owners;
    for (const Package& package : vNewest) {
        const auto [it, bNew] = owners.emplace(fileName(package), package.name().str());
        if (!bNew) {
            findings.push_back({"same-file-name",
                                Severity::ERROR,
                                fileName(package),
                                "packages " + it->second + " and " + package.name().str() +
                                    " have the same file name",
                                "fetch nothing if both are due",
                                "give them different names, whatever their directories",
                                "",
                                {}});
        }
    }
}

/// A provide that misses a strict bound because one of both has no release; null if there is none.
const Dependency* nearMiss(const Dependency& require, const DependencySet& provides)
{
    const bool bStrict = require.flags == LESS || require.flags == GREATER;
    for (auto it = provides.lowerBound({require.name, {}, 0});
         bStrict && it != provides.end() && it->name == require.name; ++it) {
        if (it->flags == EQUAL && require.evr.release.empty() != it->evr.release.empty() &&
            compareEvrBound(require.evr, it->evr) == 0) {
            return &*it;
        }
    }
    return nullptr;
}

DependencySet allProvides(const std::vector<Package>& vPackages)
{
    std::vector<Dependency> vAll;
    for (const Package& package : vPackages) {
        const DependencySet provides = package.provides();
        vAll.insert(vAll.end(), provides.begin(), provides.end());
    }
    DependencySet all;
    all.insertAll(std::move(vAll));
    return all;
}

}  // namespace

bool overlaps(const DependencySet& entries, const Dependency& dependency)
{
    for (auto it = entries.lowerBound({dependency.name, {}, 0});
         it != entries.end() && it->name == dependency.name; ++it) {
        if (dependencyMatches(*it, dependency)) {
            return true;
        }
    }
    return false;
}

NameSet requiredPaths(const PackageSet& packages)
{
    const std::vector<Package> vNewest = newestOf(packages);
    const DependencySet provides = allProvides(vNewest);
    NameSet paths;
    for (const Package& package : vNewest) {
        for (const Dependency& require : package.needs()) {
            if (require.name.view().starts_with('/') && !overlaps(provides, require)) {
                paths.insert(require.name.str());
            }
        }
    }
    return paths;
}

bool isProvided(const PackageSet& packages, const Dependency& require)
{
    for (const Package& package : packages) {
        if (overlaps(package.provides(), require)) {
            return true;
        }
    }
    return false;
}

void checkOffered(const PrimaryContents& contents, const Listing& listing, Findings& findings)
{
    const std::vector<Package> vNewest = newestOf(contents.packages);
    checkEmptiness(contents, findings);
    checkChecksumTypes(vNewest, findings);
    checkArchitectures(contents.packages, listing, findings);
    checkFileNames(vNewest, findings);
}

void checkRequires(const PackageSet& packages, const std::vector<const PackageSet*>& vInstalled,
                   Findings& findings)
{
    const std::vector<Package> vNewest = newestOf(packages);
    const DependencySet provides = allProvides(vNewest);
    const auto isInstalled = [&](const Dependency& require) {
        return std::any_of(vInstalled.begin(), vInstalled.end(),
                           [&](const PackageSet* pSet) { return isProvided(*pSet, require); });
    };
    for (const Package& package : vNewest) {
        for (const Dependency& require : package.needs()) {
            const std::string sRequire = dependencyText(require);
            if (require.name.view().starts_with('(')) {
                findings.push_back(
                    {"rich-require",
                     Severity::NOTE,
                     fileName(package),
                     "it requires " + printable(sRequire),
                     "bring nothing in for it; rpm refuses the installation if it is "
                     "not met",
                     "require the package itself as well",
                     "",
                     {}});
                continue;
            }
            if (overlaps(provides, require)) {
                continue;
            }
            const Dependency* pMiss = nearMiss(require, provides);
            const bool bUpdater = require.name == Text("updater-running");
            if ((pMiss == nullptr && !bUpdater) || isInstalled(require)) {
                continue;
            }
            if (bUpdater) {
                findings.push_back({"updater-running",
                                    vInstalled.empty() ? Severity::NOTE : Severity::ERROR,
                                    fileName(package),
                                    "it requires " + sRequire + ", which nothing provides",
                                    "never install it, and try the updater package alone",
                                    "Provides: updater-running = VERSION in the updater package",
                                    "",
                                    {}});
            } else {
                findings.push_back({"strict-bound",
                                    Severity::WARNING,
                                    fileName(package),
                                    "it requires " + sRequire + ", and what comes next is " +
                                        dependencyText(*pMiss),
                                    "take the two for equal, as one has no release, and so the "
                                    "require for unmet",
                                    "write the release on both sides",
                                    "",
                                    {}});
            }
        }
    }
}
