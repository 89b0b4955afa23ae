#pragma once

#include <string>

/// How far the last update got. One word on disk that survives crashes and power cuts.
enum Status : int {
    READY,        ///< no update in progress
    DELAYING,     ///< the random wait before the connection is running
    ANALYZING,    ///< a pass is working out what to do
    DOWNLOADING,  ///< packages are being fetched
    TESTING,      ///< rpm is running in test mode
    UPDATING,     ///< rpm is installing
    PKGSDONE,     ///< rpm has ended by itself
    CORRUPTED,    ///< the system must be taken to be damaged; never left by the program
    REBOOTING     ///< the reboot process has been started; cleared by the start of the device
};

inline constexpr const char* k_pStatusFile = "/var/lib/updater/status";

/// Reads the status file: one word, of which white space in front and anything behind is ignored. A
/// missing file means READY.
///
/// @return false if the file cannot be read or holds no known word (logged); `status` is unchanged.
[[nodiscard]] bool readStatus(Status& status, const std::string& sPath = k_pStatusFile);

/// Replaces the status file in one step (a temporary file beside it, forced to disk and renamed): a
/// reader finds the old word or the new one, also behind a power cut. That it is the new one then,
/// only syncStatus() makes sure.
///
/// @return false if that failed (logged, for the system's reasons at DEBUG); the file is as it was,
///         and nothing is left over.
[[nodiscard]] bool writeStatus(Status status, const std::string& sPath = k_pStatusFile);

/// Forces the status file, with its name, to disk.
///
/// @return false if that failed (logged at ERROR).
[[nodiscard]] bool syncStatus(const std::string& sPath = k_pStatusFile);

/// writeStatus() for a status that is only a record: a failure is a WARNING and stops nothing.
void recordStatus(Status status);

/// The same with syncStatus() behind it.
void recordStatusSynced(Status status);

/// Decides whether a process may go on with the status that it found. An interrupted installation
/// becomes CORRUPTED in the file.
///
/// @param iResult  the Result to end with if it may not; else unchanged.
[[nodiscard]] bool checkStartupStatus(Status status, int& iResult);
