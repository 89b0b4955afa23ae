#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// Keeps what the device's own code logs, in place of writing it out. One object a process.
class DeviceLog {
public:
    /// @param sPath  a file of its own, in which the lines are kept.
    [[nodiscard]] bool open(const std::string& sPath);

    /// The lines since the last call, "INFO: ..." and so on.
    std::vector<std::string> take();

private:
    std::string m_sPath;
    std::size_t m_uTaken = 0;  ///< bytes
};
