#pragma once

#include "publisher/offer.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// A device as it may be in the field.
struct DeviceState {
    std::string name;
    std::shared_ptr<const InstalledPackageSet> packages;  ///< never null once it was made
    std::string database;     ///< directory of an rpm database of its own; empty if there is none
    bool hasOwnKeys = false;  ///< those of the database count, and not those given

    /// Makes that database, which is dear and often not needed; null if it is there, or none can be.
    std::function<bool(DeviceState& state)> makeDatabase;
};

/// Makes the state's database, if it can have one and has none yet.
///
/// @return false (logged) if that failed.
[[nodiscard]] bool needDatabase(DeviceState& state);

/// What the making of all states takes.
struct StateSetting {
    std::string temporary;          ///< with its slash
    std::vector<std::string> keys;  ///< key files that devices have
    NameSet asked;                  ///< paths that packages of the repository require
    bool databases = true;          ///< false: as values only, as far as possible
};

// The setting, and what else a state is made of, must outlive it.

[[nodiscard]] DeviceState makeEmptyState(const StateSetting& setting);

// Each of these returns false, with `sFault` set, if the state cannot be made.

[[nodiscard]] bool makeRootState(const StateSetting& setting, const std::string& sRoot,
                                 DeviceState& state, std::string& sFault);
[[nodiscard]] bool makeListedState(const StateSetting& setting, const std::string& sList,
                                   DeviceState& state, std::string& sFault);

/// A device that has the newest version of everything that a repository offers.
[[nodiscard]] bool makeBaselineState(const StateSetting& setting, const Offer& previous,
                                     DeviceState& state, std::string& sFault);

/// Reads what is installed out of the state's own database, as the device does.
///
/// @return false (logged) if it cannot be read in full; the state is as it was.
[[nodiscard]] bool readDatabase(DeviceState& state);

/// What rpm keeps of a package that it has installed.
[[nodiscard]] PackageRecord installedRecord(const Package& package);

/// Those of the paths that a package of a database owns or provides.
[[nodiscard]] NameSet ownedPaths(const std::string& sDatabase, const NameSet& asked);
