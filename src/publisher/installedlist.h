#pragma once

#include "packages/dependency.h"
#include "rpmdb/database.h"

#include <cstdint>
#include <string>
#include <vector>

/// One package of a list, with dependencies as rpm has them.
struct ListedPackage {
    struct List {
        std::vector<std::string> names;
        std::vector<std::uint32_t> flags;
        std::vector<std::string> versions;
    };
    std::string name;
    std::uint32_t epoch = 0;
    std::string version;
    std::string release;
    std::string arch;
    List requires_;
    List provides;
    List conflicts;
    List obsoletes;
};

/// Reads a list that the `rpm -qa --qf` line of updater-repocheck(8) made.
///
/// @param asked   paths that matter beside those that packages of the list require; a package that owns
///                one is read as if it provided it.
/// @param sFault  set to what is wrong with the file, with the number of the line.
/// @return        false if the list cannot be read in full.
[[nodiscard]] bool readInstalledList(const std::string& sPath, const NameSet& asked,
                                     std::vector<ListedPackage>& vPackages, std::string& sFault);

/// The header that an rpm database gets for a listed package.
[[nodiscard]] RpmHandle<Header> headerOf(const ListedPackage& package);
