#pragma once

#include "packages/flatarray.h"
#include "packages/package.h"

#include <iterator>
#include <span>
#include <utility>
#include <vector>

/// The table that a PackageSet is: a few flat arrays that refer to each other by place.
///
/// A repository of 60,000 packages names 1.4 million dependencies of which a quarter differ, so each
/// is held once and a list of them takes four bytes an entry.
struct PackageTable {
    struct Row {
        Text name;
        Text group;
        Evr evr;
        std::uint32_t lists = 0;  ///< in `lists`: requires, then provides, then obsoletes
        std::uint32_t requireCount = 0;
        std::uint32_t provideCount = 0;
        std::uint32_t obsoleteCount = 0;
        std::uint32_t file = 0;  ///< in `files`: location, type and value of the checksum
    };

    FlatArray<Row> rows;
    FlatArray<Dependency> dependencies;  ///< each once
    FlatArray<std::uint32_t> lists;      ///< places in `dependencies`, in the order of arrival
    FlatArray<char> files;               ///< texts, each with a null byte
};

/// Packages ordered by name in plain byte order, several of a name in order of arrival. Filled by
/// insertEqual(), closed by sort(), then read.
class PackageSet {
public:
    /// Places a package behind all packages of the same name.
    void insertEqual(const PackageRecord& package);

    /// Brings the packages into order; behind the last insertEqual(), in front of all reading.
    void sort();

    /// Takes a table over, whose rows are in order.
    void adopt(PackageTable table) { m_table = std::move(table); }
    [[nodiscard]] const PackageTable& table() const { return m_table; }

    /// Bytes that the table takes.
    [[nodiscard]] std::size_t bytes() const;

    [[nodiscard]] std::uint32_t size() const
    {
        return static_cast<std::uint32_t>(m_table.rows.size());
    }
    [[nodiscard]] bool empty() const { return m_table.rows.empty(); }
    [[nodiscard]] Package operator[](std::uint32_t uPlace) const { return {*this, uPlace}; }
    void clear() { *this = {}; }

    /// The places of all packages of a name: the first, and the one behind the last.
    [[nodiscard]] std::pair<std::uint32_t, std::uint32_t> range(Text sName) const;

    /// The place behind the last package with the name of the one at a place.
    [[nodiscard]] std::uint32_t endOfRun(std::uint32_t uPlace) const;

    // What packages hold, as places in the table.
    [[nodiscard]] const PackageTable::Row& row(std::uint32_t u) const { return m_table.rows[u]; }
    [[nodiscard]] const Dependency& dependency(std::uint32_t u) const
    {
        return m_table.dependencies[u];
    }
    [[nodiscard]] std::span<const std::uint32_t> requiresOf(std::uint32_t uPlace) const;
    [[nodiscard]] std::span<const std::uint32_t> providesOf(std::uint32_t uPlace) const;
    [[nodiscard]] std::span<const std::uint32_t> obsoletesOf(std::uint32_t uPlace) const;
    [[nodiscard]] std::string_view fileTexts(std::uint32_t u) const
    {
        return m_table.files.data() + row(u).file;
    }

    class Iterator {
    public:
        Iterator(const PackageSet& set, std::uint32_t uPlace) : m_package(set, uPlace), m_pSet(&set)
        {
        }
        const Package& operator*() const { return m_package; }
        Iterator& operator++()
        {
            m_package = {*m_pSet, m_package.place() + 1};
            return *this;
        }
        friend bool operator==(const Iterator&, const Iterator&) = default;

    private:
        Package m_package;
        const PackageSet* m_pSet;
    };
    [[nodiscard]] Iterator begin() const { return {*this, 0}; }
    [[nodiscard]] Iterator end() const { return {*this, size()}; }

private:
    std::uint32_t placeOf(const Dependency& dependency, std::size_t uHash);
    void insertList(const std::vector<Dependency>& vEntries, std::uint32_t& uCount);
    void growSlots();

    PackageTable m_table;
    std::vector<std::uint32_t> m_vSlots;  ///< while it is filled: finds dependencies, 0 is free
    std::vector<std::size_t> m_vHashes;   ///< of a list that is inserted
};

/// The installed packages; only insertEqual() fills them, too.
using InstalledPackageSet = PackageSet;
