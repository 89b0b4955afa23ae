#pragma once

#include <string>
#include <vector>

/// What the command line of updater-repocheck gave.
struct CheckOptions {
    std::string repository;  ///< directory or URL
    std::string confFile;    ///< empty: nothing is configured
    std::string defaults;
    std::vector<std::string> installed;  ///< lists of packages
    std::vector<std::string> roots;
    bool baseline = false;
    bool empty = false;
    bool metadataOnly = false;
    std::string previous;
    std::vector<std::string> keys;
    bool json = false;
};

/// Reads the command line.
///
/// @return false if it is wrong (told on standard error). Help ends the process.
[[nodiscard]] bool parseOptions(int argc, char* argv[], CheckOptions& options);
