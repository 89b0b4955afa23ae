#pragma once

#include "packages/dependency.h"
#include "support/checksum.h"

#include <set>
#include <string>
#include <utility>

/// One package of the rpm database, and the leading part of every Package.
struct InstalledPackage {
    Text name;
    Text group;  ///< empty for a package of the rpm database
    Evr evr;
    DependencySet requires_;  ///< (`requires` is a keyword)
    DependencySet provides;   ///< just what is listed: a package's own name is not implied
    DependencySet obsoletes;  ///< empty for a package of the rpm database
};

/// One package that a repository offers.
struct Package : InstalledPackage {
    std::string location;   ///< path of the package file, relative to the repository
    std::string localPath;  ///< path of the package file in the package cache
    Checksum checksum;      ///< of the package file
};

/// The dependency that stands for a package itself: its name at exactly its version.
Dependency packageDependency(const InstalledPackage& package);

/// "foo-0:1.2-3"; the dash is always there.
std::string packageText(const InstalledPackage& package);

/// Orders packages by name alone, in plain byte order. A Text serves as key of a search.
struct ByName {
    using is_transparent = void;
    bool operator()(const InstalledPackage& a, const InstalledPackage& b) const
    {
        return a.name < b.name;
    }
    bool operator()(const InstalledPackage& a, Text sName) const { return a.name < sName; }
    bool operator()(Text sName, const InstalledPackage& b) const { return sName < b.name; }
};

/// Packages ordered by name. One set is filled either with insertEqual() only, and may then hold
/// several versions of a name in order of arrival, or with insertUnique() only.
template <typename Record>
class NamedSet {
public:
    using Container = std::multiset<Record, ByName>;
    using const_iterator = typename Container::const_iterator;

    [[nodiscard]] const_iterator begin() const { return m_vPackages.begin(); }
    [[nodiscard]] const_iterator end() const { return m_vPackages.end(); }
    [[nodiscard]] std::size_t size() const { return m_vPackages.size(); }
    [[nodiscard]] bool empty() const { return m_vPackages.empty(); }

    /// Places a package behind all packages of the same name.
    void insertEqual(Record package) { m_vPackages.insert(std::move(package)); }

    /// Adds a package if none of its name is there.
    ///
    /// @return the new element and true, or the one already there and false.
    std::pair<const_iterator, bool> insertUnique(const Record& package)
    {
        const auto it = find(package.name);
        return it != end() ? std::pair(it, false) : std::pair(m_vPackages.insert(package), true);
    }

    /// A package of a name, or end().
    [[nodiscard]] const_iterator find(Text sName) const { return m_vPackages.find(sName); }

    /// All packages of a name, in order of arrival.
    [[nodiscard]] std::pair<const_iterator, const_iterator> range(Text sName) const
    {
        return m_vPackages.equal_range(sName);
    }

    const_iterator erase(const_iterator it) { return m_vPackages.erase(it); }
    void eraseName(Text sName)
    {
        const auto [first, last] = range(sName);
        m_vPackages.erase(first, last);
    }
    void clear() { m_vPackages.clear(); }

private:
    Container m_vPackages;
};

using PackageSet = NamedSet<Package>;
using InstalledPackageSet = NamedSet<InstalledPackage>;
