#pragma once

#include "packages/dependency.h"
#include "support/checksum.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// What is told of one package when it goes into a PackageSet.
struct PackageRecord {
    Text name;
    Text group;  ///< empty for a package of the rpm database
    Evr evr;
    std::vector<Dependency> requires_;  ///< in any order (`requires` is a keyword)
    std::vector<Dependency> provides;   ///< just what is listed: its own name is not implied
    std::vector<Dependency> obsoletes;  ///< empty for a package of the rpm database

    // For a package that a repository offers, else empty:
    std::string location;  ///< path of the package file, relative to the repository
    Checksum checksum;     ///< of the package file
};

class PackageSet;

/// One package of a PackageSet: a handle of two words, good as long as the set stays as it is.
class Package {
public:
    Package(const PackageSet& set, std::uint32_t uPlace) : m_pSet(&set), m_uPlace(uPlace) {}

    [[nodiscard]] Text name() const;
    [[nodiscard]] Text group() const;
    [[nodiscard]] const Evr& evr() const;

    // Made on each call: the set of one package is rarely asked for.
    [[nodiscard]] DependencySet needs() const;  ///< its requires, which is a keyword
    [[nodiscard]] DependencySet provides() const;
    [[nodiscard]] DependencySet obsoletes() const;

    [[nodiscard]] std::string_view location() const;
    [[nodiscard]] Checksum checksum() const;

    /// Its place in the set, which is in the order of names.
    [[nodiscard]] std::uint32_t place() const { return m_uPlace; }
    friend bool operator==(const Package& a, const Package& b) = default;

private:
    const PackageSet* m_pSet;
    std::uint32_t m_uPlace;
};

/// The dependency that stands for a package itself: its name at exactly its version.
Dependency packageDependency(const Package& package);

/// "foo-0:1.2-3"; the dash is always there.
std::string packageText(const Package& package);
