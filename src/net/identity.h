#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// The kind of the device's board.
enum Board : int { BoardOther = 0, BoardQuorax = 1, BoardVelmir = 2 };

/// What the kernel tells about the device.
struct CpuInfo {
    std::string serial;    ///< at most 63 bytes
    std::string revision;  ///< at most 8 bytes
    Board board = BoardOther;
};

/// Reads a file in the form of /proc/cpuinfo. Fields that it does not give stay as they are; all
/// problems are logged.
void readCpuInfoFile(const std::string& sPath, CpuInfo& info);

/// "base/1.1 (product-serial)"; without a serial number only "base/1.1".
std::string userAgentText(const std::string& sAgentBase, const std::string& sAgentProduct,
                          const std::string& sSerial);

/// Length of a data block: the first bytes of an EEPROM file.
inline constexpr std::size_t k_uBlockSize = 21;

/// The number of data blocks that make up the password of a board.
std::size_t requiredBlocks(Board eBoard);

/// Reads data blocks, one from each of the first files that yield one.
///
/// @param sBlocks  set to the blocks, back to back in the order of reading; unchanged on failure.
/// @return         false if fewer than `uCount` files yield a block. Logged at DEBUG, like each
///                 file that does not.
[[nodiscard]] bool readDataBlocks(const std::vector<std::string>& vPaths, std::size_t uCount,
                                  std::string& sBlocks);

/// Mends the stamp in the first block of a faulty pair, on BoardQuorax only.
void mendDataBlocks(Board eBoard, std::string& sBlocks);

/// Maps data blocks to the default password, 12 characters.
///
/// @param sPassword  unchanged on failure.
/// @return           false if MD5 is not available or fails (logged at DEBUG).
[[nodiscard]] bool passwordFromBlocks(const std::string& sBlocks, std::string& sPassword);
