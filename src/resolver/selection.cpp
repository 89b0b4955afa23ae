#include "resolver/selection.h"

#include "resolver/providerindex.h"
#include "support/controls.h"
#include "support/logger.h"
#include "support/signalnote.h"

#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace {

/// The state of one selection.
class Selector {
public:
    Selector(const InstalledPackageSet& installed, const SelectionRules& rules)
        : m_installed(installed), m_rules(rules)
    {
        for (std::uint32_t u = 0; u < installed.size(); u = installed.endOfRun(u)) {
            m_installedNames.emplace(installed[u].name(), u);
        }
    }

    void consider(const Package& candidate);
    void removeObsoleted();
    UpdateSet takeResult() { return std::move(m_result); }

private:
    [[nodiscard]] bool isExcluded(const Package& candidate) const;
    [[nodiscard]] bool isUpdate(const Package& candidate) const;
    [[nodiscard]] bool obsoletesInstalled(const Package& package) const;

    [[nodiscard]] std::pair<std::uint32_t, std::uint32_t> installedOf(Text sName) const;

    const InstalledPackageSet& m_installed;
    std::unordered_map<Text, std::uint32_t> m_installedNames;  ///< the first place of each
    const SelectionRules& m_rules;
    std::unordered_set<Text> m_obsoletedByExcluded;
    UpdateSet m_result;
};

/// The places of the installed packages of a name; this is asked for every package there is.
std::pair<std::uint32_t, std::uint32_t> Selector::installedOf(Text sName) const
{
    const auto it = m_installedNames.find(sName);
    return it != m_installedNames.end() ? std::pair(it->second, m_installed.endOfRun(it->second))
                                        : std::pair(0U, 0U);
}

bool Selector::isExcluded(const Package& candidate) const
{
    return m_rules.excludeNames.contains(candidate.name().view()) ||
           m_rules.excludeGroups.contains(candidate.group().view()) ||
           m_obsoletedByExcluded.contains(candidate.name());
}

bool Selector::obsoletesInstalled(const Package& package) const
{
    for (const Dependency& entry : package.obsoletes()) {
        logMessage(TRACE, "checking obsoletes '%s'", dependencyText(entry).c_str());
        const auto [uFirst, uEnd] = installedOf(entry.name);
        for (std::uint32_t u = uFirst; u < uEnd; ++u) {
            if (dependencyMatches(entry, packageDependency(m_installed[u]))) {
                logMessage(DEBUG, "considering %s newer than %s due to obsoletes",
                           packageText(package).c_str(), packageText(m_installed[u]).c_str());
                return true;
            }
        }
    }
    return false;
}

bool Selector::isUpdate(const Package& candidate) const
{
    const auto [uFirst, uEnd] = installedOf(candidate.name());
    for (std::uint32_t u = uFirst; u < uEnd; ++u) {
        logMessage(TRACE, "checking installed %s", packageText(m_installed[u]).c_str());
        if (compareEvr(m_installed[u].evr(), candidate.evr()) >= 0) {
            return false;
        }
    }
    if (uFirst != uEnd) {
        return true;
    }
    if (m_rules.pullNames.contains(candidate.name().view())) {
        logMessage(DEBUG, "considering %s as newer because in pull set",
                   packageText(candidate).c_str());
        return true;
    }
    return obsoletesInstalled(candidate);
}

void Selector::consider(const Package& candidate)
{
    logMessage(TRACE, "checking update %s (group %s)", packageText(candidate).c_str(),
               printable(candidate.group().view()).c_str());
    if (!m_rules.includeNames.empty() && !m_rules.includeNames.contains(candidate.name().view())) {
        logMessage(TRACE, "skipping package not in include set");
        return;
    }
    if (isExcluded(candidate)) {
        logMessage(TRACE, "skipping package in exclude set");
        for (const Dependency& entry : candidate.obsoletes()) {
            logMessage(TRACE, "adding %s to exclude set, obsoleted by excluded package",
                       entry.name.c_str());
            m_obsoletedByExcluded.insert(entry.name);
            m_result.eraseName(entry.name);
        }
        return;
    }
    if (!isUpdate(candidate)) {
        return;
    }
    const auto [present, bInserted] = m_result.insertUnique(candidate);
    if (bInserted) {
        logMessage(DEBUG, "found newer package %s", packageText(candidate).c_str());
    } else {
        logMessage(ERROR, "internal error: failed including package %s, already have %s",
                   packageText(candidate).c_str(), packageText(present).c_str());
    }
}

void Selector::removeObsoleted()
{
    for (auto it = m_result.begin(); it != m_result.end(); ++it) {
        const Package package = *it;
        const DependencySet obsoletes = package.obsoletes();
        if (obsoletes.empty()) {
            continue;
        }
        logMessage(TRACE, "checking if %s obsoletes any new packages",
                   packageText(package).c_str());
        for (const Dependency& entry : obsoletes) {
            logMessage(TRACE, "checking obsoletes '%s'", dependencyText(entry).c_str());
            const auto other = m_result.find(entry.name);
            if (!other || *other == package ||
                !dependencyMatches(entry, packageDependency(*other))) {
                continue;
            }
            logMessage(DEBUG, "removing %s from new packages, obsoleted by %s",
                       packageText(*other).c_str(), packageText(package).c_str());
            m_result.eraseName(entry.name);
        }
    }
}

}  // namespace

UpdateSet findNewerPackages(const InstalledPackageSet& installed, const PackageSet& available,
                            const SelectionRules& rules)
{
    logMessage(DEBUG, "resolving for newer packages");
    const auto tell = [](const Package& best, const Package& other, bool bNewer) {
        if (bNewer) {
            logMessage(TRACE, "dropping update %s for newer %s", packageText(best).c_str(),
                       packageText(other).c_str());
        } else {
            logMessage(TRACE, "dropping update %s, has newer %s", packageText(other).c_str(),
                       packageText(best).c_str());
        }
    };
    Selector selector(installed, rules);
    for (std::uint32_t u = 0; u < available.size() && signalNoted == 0;) {
        selector.consider(bestOfRun(available, u, tell));
    }
    selector.removeObsoleted();
    logMessage(DEBUG, "done resolving for newer packages");
    return selector.takeResult();
}
