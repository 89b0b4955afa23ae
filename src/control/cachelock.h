#pragma once

#include <cstddef>
#include <string>

inline constexpr const char* k_pLockFile = "/var/lock/updater";

/// Takes the lock that lets one instance of the program work at a time: an advisory record lock on
/// the lock file, which the kernel drops when the process ends. Waits for another holder, unless a
/// signal is noted. The file then holds our PID, for readers only.
///
/// @param iLockTimeout  seconds to wait; 0 and less makes a single attempt.
/// @return              true if the lock is held, until the process ends; else false, logged unless
///                      a signal ended the wait.
[[nodiscard]] bool acquireCacheLock(int iLockTimeout, const std::string& sPath = k_pLockFile);

/// True if another process holds that lock just now. Makes nothing, and waits for nothing.
[[nodiscard]] bool isCacheLockHeld(const std::string& sPath = k_pLockFile);

/// Fills a buffer with bytes of the system's random number generator.
///
/// @return false if they did not all arrive (logged at ERROR).
[[nodiscard]] bool gatherRandomBytes(void* pBuffer, std::size_t uLength);
