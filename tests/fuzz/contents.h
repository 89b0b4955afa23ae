#pragma once

#include "repository/primarytable.h"

#include "target.h"

/// All that contents hold: texts that must not hold a control character, and those that may.
struct AllTexts {
    std::string clean, other;
    bool operator==(const AllTexts&) const = default;
};

inline AllTexts allTexts(const PrimaryContents& contents)
{
    AllTexts all;
    for (const Package& package : contents.packages) {
        all.clean += packageText(package) + "|" + std::string(package.location()) + "|";
        const Checksum sum = package.checksum();
        all.other += package.group().str() + '\0' + sum.type + '\0' + sum.value + '\0';
        for (const auto& list : {package.needs(), package.provides(), package.obsoletes()}) {
            for (const Dependency& entry : list) {
                all.clean += dependencyText(entry) + "|";
                all.other += std::to_string(entry.flags) + entry.evr.version.str() + '\0';
            }
            all.clean += '|';
        }
    }
    all.other += contents.skipped;
    return all;
}

/// Requires that contents come out of their compiled form as they went in.
inline void requireCompiled(const PrimaryContents& contents)
{
    static const std::string s_sPath = directory().file("compiled");
    require(writePrimaryTable(s_sPath, "5", contents), "contents can be compiled");
    PrimaryContents again;
    require(readPrimaryTable(s_sPath, "5", again), "a compiled form can be read");
    require(allTexts(contents) == allTexts(again), "the compiled form holds the same packages");
    require(contents.architectures == again.architectures,
            "the compiled form holds the same about the machine");
}
