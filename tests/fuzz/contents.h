#pragma once

#include "repository/primary.h"
#include "support/controls.h"

#include "target.h"

#include <algorithm>
#include <tuple>

/// Requires that two contents hold the same, in the same places.
inline void requireSame(const PrimaryContents& a, const PrimaryContents& b)
{
    const auto evr = [](const Evr& e) { return std::tuple(e.epoch, e.version, e.release); };
    const auto dependency = [&](const Dependency& d) {
        return std::tuple(d.name, evr(d.evr), d.flags);
    };
    const auto row = [&](const PackageTable::Row& r) {
        return std::tuple(r.name, r.group, evr(r.evr), r.lists, r.requireCount, r.provideCount,
                          r.obsoleteCount, r.file);
    };
    const auto same = [](const auto& vA, const auto& vB, auto parts) {
        return std::equal(vA.begin(), vA.end(), vB.begin(), vB.end(),
                          [&](const auto& x, const auto& y) { return parts(x) == parts(y); });
    };
    const auto self = [](auto value) { return value; };
    const PackageTable& tableA = a.packages.table();
    const PackageTable& tableB = b.packages.table();
    require(same(tableA.rows, tableB.rows, row) &&
                same(tableA.dependencies, tableB.dependencies, dependency) &&
                same(tableA.lists, tableB.lists, self) && same(tableA.files, tableB.files, self),
            "the compiled form holds the same packages");
    require(a.skipped == b.skipped && a.architectures == b.architectures,
            "the compiled form holds the same about the machine");
}

/// Asks contents for everything that they hold.
///
/// @return all texts of the packages, each with a null byte.
inline std::string allTexts(const PrimaryContents& contents)
{
    std::string sAll;
    for (const Package& package : contents.packages) {
        (sAll += packageText(package)) += '\0';
        for (const auto& list : {package.needs(), package.provides(), package.obsoletes()}) {
            for (const Dependency& entry : list) {
                (sAll += dependencyText(entry)) += '\0';
            }
        }
        (sAll += package.location()) += '\0';
        static_cast<void>(package.checksum());
    }
    return sAll;
}
