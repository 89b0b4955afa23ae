#include "publisher/packagefiles.h"
#include "publisher/relations.h"

#include <algorithm>
#include <utility>

namespace {

/// Letters to change, add or leave out to come from one name to the other.
std::size_t distance(const std::string& sA, const std::string& sB)
{
    std::vector<std::size_t> vRow(sB.size() + 1);
    for (std::size_t uB = 0; uB <= sB.size(); ++uB) {
        vRow[uB] = uB;
    }
    for (std::size_t uA = 1; uA <= sA.size(); ++uA) {
        std::size_t uDiagonal = std::exchange(vRow[0], uA);
        for (std::size_t uB = 1; uB <= sB.size(); ++uB) {
            const std::size_t uChanged = uDiagonal + (sA[uA - 1] == sB[uB - 1] ? 0 : 1);
            uDiagonal = vRow[uB];
            vRow[uB] = std::min({uChanged, vRow[uB] + 1, vRow[uB - 1] + 1});
        }
    }
    return vRow.back();
}

void checkName(const std::string& sId, const std::string& sName, const NameSet& present,
               const char* pDevices, Findings& findings)
{
    if (sName.empty() || present.contains(sName)) {
        return;
    }
    std::string sMend = "correct the name, or publish it";
    for (const std::string& sOther : present) {
        if (distance(sName, sOther) <= std::min<std::size_t>(2, sName.size() / 3)) {
            sMend = "did you mean " + sOther + "?";
        }
    }
    findings.push_back({sId,
                        Severity::WARNING,
                        sName,
                        "the configuration names it, and the repository has none of it",
                        pDevices,
                        sMend,
                        "",
                        {}});
}

}  // namespace

void checkConfiguredNames(const Config& config, const PackageSet& packages, Findings& findings)
{
    NameSet names;
    NameSet groups;
    for (const Package& package : newestOf(packages)) {
        names.insert(package.name().str());
        groups.insert(package.group().str());
    }
    checkName("release-missing", config.releasePackage, names,
              "report no FIRMWARE line, and install it with the rest if it has another name",
              findings);
    for (const std::string& sAddon : config.addonPackages) {
        checkName("addon-missing", sAddon, names, "never install it, and say nothing", findings);
    }
    for (const std::string& sGroup : config.addonGroups) {
        checkName("group-missing", sGroup, groups, "hold nothing back for it in the first pass",
                  findings);
    }
}
