#include "resolver/closure.h"

#include "support/logger.h"
#include "support/signalnote.h"

#include <algorithm>

Closure::Closure(const PackageSet& installed, const PackageSet& available, UpdateSet& updateSet)
    : m_installed(installed),
      m_available(available),
      m_updateSet(updateSet),
      m_vReplaced(installed.size())
{
}

/// Visits the packages of the future system, unless a signal is noted.
template <typename Visit>
void Closure::visitFuture(Visit visit) const
{
    for (std::uint32_t u = 0; u < m_installed.size() && signalNoted == 0; ++u) {
        if (!m_vReplaced[u]) {
            visit(m_installed[u]);
        }
    }
    for (const Package& package : m_updateSet) {
        if (signalNoted == 0) {
            visit(package);
        }
    }
}

void Closure::judge(const Dependency& require)
{
    if (!m_provides.matches(require) && m_unsatisfied.add(require)) {
        m_vFresh.push_back(require);
    }
}

void Closure::addProvides(const Package& package)
{
    for (const Dependency& provide : package.provides()) {
        if (signalNoted == 0 && isFoundByName(provide) && m_provides.add(provide) &&
            !m_unsatisfied.empty()) {
            for (const Dependency& require : m_unsatisfied.allMatching(provide)) {
                m_unsatisfied.remove(require);
            }
        }
    }
}

void Closure::addRequires(const Package& package)
{
    for (const Dependency& require : package.needs()) {
        if (signalNoted == 0 && m_requires.add(require)) {
            judge(require);
        }
    }
}

void Closure::removeRequires(const Package& package)
{
    for (const Dependency& require : package.needs()) {
        if (m_requires.remove(require)) {
            m_unsatisfied.remove(require);
        }
    }
}

void Closure::removeProvides(const Package& package)
{
    for (const Dependency& provide : package.provides()) {
        if (isFoundByName(provide) && m_provides.remove(provide)) {
            for (const Dependency& require : m_requires.allMatching(provide)) {
                judge(require);
            }
        }
    }
}

/// Takes the installed packages that new ones replace out of the future system, and puts the
/// provides of the new ones in.
void Closure::replaceInstalled(const std::vector<Package>& vNew)
{
    std::vector<Package> vOld;
    for (const Package& package : vNew) {
        const auto [uFirst, uEnd] = m_installed.range(package.name());
        for (std::uint32_t u = uFirst; u < uEnd; ++u) {
            m_vReplaced[u] = true;
            vOld.push_back(m_installed[u]);
        }
    }
    // In this order nothing counts as missing in between.
    std::for_each(vOld.begin(), vOld.end(), [&](const auto& package) { removeRequires(package); });
    std::for_each(vNew.begin(), vNew.end(), [&](const auto& package) { addProvides(package); });
    std::for_each(vOld.begin(), vOld.end(), [&](const auto& package) { removeProvides(package); });
}

void Closure::follow()
{
    if (m_bStarted) {
        replaceInstalled(m_vPulled);
        std::for_each(m_vPulled.begin(), m_vPulled.end(),
                      [&](const auto& package) { addRequires(package); });
        m_vPulled.clear();
        return;
    }
    m_bStarted = true;
    for (const Package& package : m_updateSet) {
        const auto [uFirst, uEnd] = m_installed.range(package.name());
        std::fill(m_vReplaced.begin() + uFirst, m_vReplaced.begin() + uEnd, true);
    }
    visitFuture([&](const Package& package) { addProvides(package); });
    visitFuture([&](const Package& package) { addRequires(package); });
}

bool Closure::checkDependencies()
{
    logMessage(DEBUG, "checking dependencies for %u new packages",
               static_cast<unsigned>(m_updateSet.size()));
    follow();
    logFuture();
    return m_unsatisfied.empty();
}

/// Tells of all provides, and of the requires that they do not meet, as far as the log admits it.
void Closure::logFuture() const
{
    if (Logger::admits(TRACE)) {
        std::vector<Dependency> vProvides;
        visitFuture([&](const Package& package) {
            const DependencySet provides = package.provides();
            vProvides.insert(vProvides.end(), provides.begin(), provides.end());
        });
        DependencySet provides;
        provides.insertAll(std::move(vProvides));
        for (const Dependency& provide : provides) {
            logMessage(TRACE, "dep %s", dependencyText(provide).c_str());
        }
    }
    if (!Logger::admits(DEBUG) || m_unsatisfied.empty()) {
        return;
    }
    visitFuture([&](const Package& package) {
        for (const Dependency& require : package.needs()) {
            if (m_unsatisfied.contains(require)) {
                logMessage(DEBUG, "failed dep: %s is needed by %s", dependencyText(require).c_str(),
                           packageText(package).c_str());
            }
        }
    });
}

DependencySet Closure::unsatisfied() const
{
    std::vector<Dependency> vMissing;
    visitFuture([&](const Package& package) {
        for (const Dependency& require : package.needs()) {
            if (m_unsatisfied.contains(require)) {
                vMissing.push_back(require);
            }
        }
    });
    DependencySet missing;
    missing.insertAll(std::move(vMissing));
    return missing;
}

bool Closure::resolveDependencies()
{
    logMessage(DEBUG, "resolving dependencies");
    // Telling of each step means a look at all that is offered.
    m_vPulled = Logger::admits(DEBUG) ? providersAloud() : providers();
    for (const Package& package : m_vPulled) {
        m_updateSet.insertUnique(package);
    }
    m_vFresh.clear();
    return !m_vPulled.empty();
}

std::vector<Package> Closure::providers()
{
    std::vector<Package> vFound;
    for (const Dependency& require : m_vFresh) {
        if (signalNoted != 0) {
            return {};
        }
        if (!m_unsatisfied.contains(require) || !isFoundByName(require)) {
            continue;
        }
        if (!m_providers) {
            m_providers.emplace(m_available);
        }
        if (const auto provider = m_providers->providerOf(require)) {
            vFound.push_back(*provider);
        }
    }
    const auto byPlace = [](const Package& a, const Package& b) { return a.place() < b.place(); };
    std::sort(vFound.begin(), vFound.end(), byPlace);
    vFound.erase(std::unique(vFound.begin(), vFound.end()), vFound.end());
    return vFound;
}

/// The same as providers(), by the whole walk over what is available, with a line for each step.
std::vector<Package> Closure::providersAloud() const
{
    std::vector<Package> vFound;
    const DependencySet missing = unsatisfied();
    std::vector<bool> vMet(missing.size());
    unsigned uPulled = 0;
    const auto pullFor = [&](const Package& package, const Dependency& provide) {
        bool bPulled = false;
        for (auto it = missing.lowerBound({provide.name, {}, 0});
             it != missing.end() && it->name == provide.name; ++it) {
            const auto uPlace = static_cast<std::size_t>(it - missing.begin());
            if (vMet[uPlace]) {
                continue;
            }
            logMessage(DEBUG, "checking provide %s", dependencyText(provide).c_str());
            if (!dependencyMatches(provide, *it)) {
                continue;
            }
            if (!bPulled) {
                logMessage(DEBUG, "pulling package %s to satisfy '%s'",
                           packageText(package).c_str(), dependencyText(*it).c_str());
                if (vFound.empty() || vFound.back() != package) {
                    vFound.push_back(package);
                }
                ++uPulled;
                bPulled = true;
            }
            logMessage(DEBUG, "removing require '%s', provided by pulled package",
                       dependencyText(*it).c_str());
            vMet[uPlace] = true;
        }
    };
    for (std::uint32_t u = 0; u < m_available.size() && signalNoted == 0;) {
        const Package first = m_available[u];
        if (m_updateSet.find(first.name())) {
            logMessage(TRACE, "package %s already in", packageText(first).c_str());
            ++u;
            continue;
        }
        logMessage(TRACE, "checking package %s", packageText(first).c_str());
        const Package best = bestOfRun(m_available, u, [](const Package&, const Package&, bool) {});
        logMessage(TRACE, "found %s as best", packageText(best).c_str());
        for (const Dependency& provide : best.provides()) {
            logMessage(TRACE, "check prov %s", dependencyText(provide).c_str());
            if (isFoundByName(provide)) {
                pullFor(best, provide);
            }
        }
    }
    logMessage(DEBUG, "pulled %u packages", uPulled);
    return vFound;
}
