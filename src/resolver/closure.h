#pragma once

#include "packages/packageset.h"
#include "packages/updateset.h"
#include "resolver/dependencyindex.h"
#include "resolver/providerindex.h"

#include <cstdint>
#include <optional>
#include <vector>

/// Closes an update set under its dependencies: checkDependencies(), then resolveDependencies(), in
/// turn, until nothing is missing or nothing more can be pulled.
///
/// The future system that this is about is every installed package whose name has no package in the
/// update set, in their order, and behind them every package of the update set. What each step does
/// to it is followed, and not all of it looked at anew: a repository can make a chain of any length.
class Closure {
public:
    /// @param updateSet  packages of `available`; changed by resolveDependencies() only. All three
    ///                   must outlive the object.
    Closure(const PackageSet& installed, const PackageSet& available, UpdateSet& updateSet);

    /// Finds the requires that the future system does not meet. Only what is listed as a provide
    /// counts: no package name, no file list.
    ///
    /// @return true if there are none.
    [[nodiscard]] bool checkDependencies();

    /// Pulls packages for what is missing: of each name that is not in the set, in byte order, the
    /// newest version, if it provides something that is still missing. No selection rule counts here.
    ///
    /// @return true if at least one package was added to the update set.
    [[nodiscard]] bool resolveDependencies();

    /// What the last check found; a require of several packages stands once.
    [[nodiscard]] DependencySet unsatisfied() const;

private:
    void addProvides(const Package& package);
    void addRequires(const Package& package);
    void removeRequires(const Package& package);
    void removeProvides(const Package& package);
    void judge(const Dependency& require);
    void replaceInstalled(const std::vector<Package>& vNew);
    void follow();
    template <typename Visit>
    void visitFuture(Visit visit) const;
    void logFuture() const;
    [[nodiscard]] std::vector<Package> providers();
    [[nodiscard]] std::vector<Package> providersAloud() const;

    const PackageSet& m_installed;
    const PackageSet& m_available;
    UpdateSet& m_updateSet;
    std::vector<bool> m_vReplaced;   ///< by place in `m_installed`
    std::vector<Package> m_vPulled;  ///< in the update set, and not yet in what follows
    bool m_bStarted = false;

    DependencyIndex m_provides;  ///< of the future system
    DependencyIndex m_requires;
    DependencyIndex m_unsatisfied;
    std::vector<Dependency>
        m_vFresh;  ///< unsatisfied since the last pull; for others it found nothing
    std::optional<ProviderIndex> m_providers;  ///< made when the first package is pulled
};
