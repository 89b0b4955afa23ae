#pragma once

#include "packages/dependency.h"

#include <cstddef>
#include <set>
#include <unordered_map>
#include <vector>

/// Dependencies of many packages, in which those that overlap a given one are found without a look
/// at all of its name: a repository can name one thing in any number of versions.
class DependencyIndex {
public:
    /// True if it was not there. Else it counts once more.
    bool add(const Dependency& dependency);

    /// Takes back one add().
    ///
    /// @return true if it is gone by that.
    bool remove(const Dependency& dependency);

    [[nodiscard]] bool contains(const Dependency& dependency) const;
    [[nodiscard]] bool empty() const { return m_uSize == 0; }

    /// True if any overlaps, see dependencyMatches().
    [[nodiscard]] bool matches(const Dependency& dependency) const;

    /// All that overlap.
    [[nodiscard]] std::vector<Dependency> allMatching(const Dependency& dependency) const;

private:
    /// Entries of one kind stand to a bound of any form as they stand to each other: those of the
    /// same flags, with or without a release. Those that match everything are a kind of their own.
    struct Entry {
        Evr evr;
        std::int32_t flags;
        std::int32_t kind;
        mutable std::uint32_t count;
    };
    /// A place among the entries of a kind: in front of all that are not older than a bound, or
    /// behind all that are not newer. Without a bound: in front of the whole kind.
    struct Bound {
        std::int32_t kind;
        const Evr* evr;
        bool behind;
    };
    struct Less {
        using is_transparent = void;
        bool operator()(const Entry& a, const Entry& b) const;
        bool operator()(const Entry& entry, const Bound& bound) const;
        bool operator()(const Bound& bound, const Entry& entry) const;
    };
    using Entries = std::set<Entry, Less>;

    static Entry entryOf(const Dependency& dependency);
    template <typename Visit>
    void visitMatching(const Dependency& dependency, Visit visit) const;

    std::unordered_map<Text, Entries> m_names;
    std::size_t m_uSize = 0;
};
