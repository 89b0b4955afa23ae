#pragma once

#include <string>

/// A temporary directory that is gone at the end, with all that it holds.
class Workplace {
public:
    Workplace() = default;
    ~Workplace();
    Workplace(const Workplace&) = delete;
    Workplace& operator=(const Workplace&) = delete;

    /// Makes it below $TMPDIR, or /tmp.
    ///
    /// @return false, with errno set, if that fails: EINVAL for a TMPDIR that is not absolute or holds
    ///         other characters than letters, digits and "/._+-".
    [[nodiscard]] bool make();

    [[nodiscard]] const std::string& path() const { return m_sPath; }  ///< with its slash

private:
    std::string m_sPath;
};
