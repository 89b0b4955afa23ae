#pragma once

#include "packages/package.h"

#include <map>
#include <optional>
#include <utility>

/// New packages, at most one of a name, in plain byte order of the names.
class UpdateSet {
public:
    /// Adds a package if none of its name is there.
    ///
    /// @return the one of that name that is there now, and true if it was added.
    std::pair<Package, bool> insertUnique(const Package& package)
    {
        const auto [it, bAdded] = m_packages.emplace(package.name(), package);
        return {it->second, bAdded};
    }

    [[nodiscard]] std::optional<Package> find(Text sName) const
    {
        const auto it = m_packages.find(sName);
        return it != m_packages.end() ? std::optional(it->second) : std::nullopt;
    }
    void eraseName(Text sName) { m_packages.erase(sName); }

    [[nodiscard]] std::size_t size() const { return m_packages.size(); }
    [[nodiscard]] bool empty() const { return m_packages.empty(); }

    class Iterator {
    public:
        explicit Iterator(std::map<Text, Package>::const_iterator it) : m_it(it) {}
        const Package& operator*() const { return m_it->second; }
        const Package* operator->() const { return &m_it->second; }
        Iterator& operator++()
        {
            ++m_it;
            return *this;
        }
        friend bool operator==(const Iterator&, const Iterator&) = default;

    private:
        std::map<Text, Package>::const_iterator m_it;
    };
    [[nodiscard]] Iterator begin() const { return Iterator(m_packages.begin()); }
    [[nodiscard]] Iterator end() const { return Iterator(m_packages.end()); }

private:
    std::map<Text, Package> m_packages;
};
