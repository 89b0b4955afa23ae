#include "resolver/selection.h"

#include "support/controls.h"
#include "support/logger.h"

#include <utility>

namespace {

/// The state of one selection.
class Selector {
public:
    Selector(const InstalledPackageSet& installed, const SelectionRules& rules)
        : m_installed(installed), m_rules(rules)
    {
    }

    void consider(const Package& candidate);
    void removeObsoleted();
    PackageSet takeResult() { return std::move(m_result); }

private:
    [[nodiscard]] bool isExcluded(const Package& candidate) const;
    [[nodiscard]] bool isUpdate(const Package& candidate) const;
    [[nodiscard]] bool obsoletesInstalled(const Package& package) const;

    const InstalledPackageSet& m_installed;
    const SelectionRules& m_rules;
    NameSet m_obsoletedByExcluded;
    PackageSet m_result;
};

bool Selector::isExcluded(const Package& candidate) const
{
    return m_rules.excludeNames.contains(candidate.name.view()) ||
           m_rules.excludeGroups.contains(candidate.group.view()) ||
           m_obsoletedByExcluded.contains(candidate.name.view());
}

bool Selector::obsoletesInstalled(const Package& package) const
{
    for (const Dependency& entry : package.obsoletes) {
        logMessage(TRACE, "checking obsoletes '%s'", dependencyText(entry).c_str());
        const auto [first, last] = m_installed.range(entry.name);
        for (auto it = first; it != last; ++it) {
            if (dependencyMatches(entry, packageDependency(*it))) {
                logMessage(DEBUG, "considering %s newer than %s due to obsoletes",
                           packageText(package).c_str(), packageText(*it).c_str());
                return true;
            }
        }
    }
    return false;
}

bool Selector::isUpdate(const Package& candidate) const
{
    const auto [first, last] = m_installed.range(candidate.name);
    for (auto it = first; it != last; ++it) {
        logMessage(TRACE, "checking installed %s", packageText(*it).c_str());
        if (compareEvr(it->evr, candidate.evr) >= 0) {
            return false;
        }
    }
    if (first != last) {
        return true;
    }
    if (m_rules.pullNames.contains(candidate.name.view())) {
        logMessage(DEBUG, "considering %s as newer because in pull set",
                   packageText(candidate).c_str());
        return true;
    }
    return obsoletesInstalled(candidate);
}

void Selector::consider(const Package& candidate)
{
    logMessage(TRACE, "checking update %s (group %s)", packageText(candidate).c_str(),
               printable(candidate.group.view()).c_str());
    if (!m_rules.includeNames.empty() && !m_rules.includeNames.contains(candidate.name.view())) {
        logMessage(TRACE, "skipping package not in include set");
        return;
    }
    if (isExcluded(candidate)) {
        logMessage(TRACE, "skipping package in exclude set");
        for (const Dependency& entry : candidate.obsoletes) {
            logMessage(TRACE, "adding %s to exclude set, obsoleted by excluded package",
                       entry.name.c_str());
            m_obsoletedByExcluded.insert(entry.name.str());
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
                   packageText(candidate).c_str(), packageText(*present).c_str());
    }
}

void Selector::removeObsoleted()
{
    for (auto it = m_result.begin(); it != m_result.end(); ++it) {
        if (it->obsoletes.empty()) {
            continue;
        }
        logMessage(TRACE, "checking if %s obsoletes any new packages", packageText(*it).c_str());
        for (const Dependency& entry : it->obsoletes) {
            logMessage(TRACE, "checking obsoletes '%s'", dependencyText(entry).c_str());
            const auto other = m_result.find(entry.name);
            if (other == m_result.end() || other == it) {
                continue;
            }
            if (dependencyMatches(entry, packageDependency(*other))) {
                logMessage(DEBUG, "removing %s from new packages, obsoleted by %s",
                           packageText(*other).c_str(), packageText(*it).c_str());
                m_result.erase(other);
            }
        }
    }
}

}  // namespace

PackageSet selectNewerPackages(const InstalledPackageSet& installed, const PackageSet& available,
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
    for (auto it = available.begin(); it != available.end();) {
        selector.consider(*bestOfRun(it, available.end(), tell));
    }
    selector.removeObsoleted();
    logMessage(DEBUG, "done resolving for newer packages");
    return selector.takeResult();
}
