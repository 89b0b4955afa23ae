#pragma once

#include "support/logger.h"

#include <string>

/// The texts of all elements of a container, each with an end.
template <typename Container, typename ToText>
std::string allOf(const Container& container, ToText toText, const std::string& sEnd = ", ")
{
    std::string sAll;
    for (const auto& entry : container) {
        sAll += toText(entry) + sEnd;
    }
    return sAll;
}

/// A text in which every occurrence of a part, of which there must be one, is replaced.
std::string replaced(std::string sText, const std::string& sPart, const std::string& sNew);

/// A new empty directory that goes away with the object.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    [[nodiscard]] const std::string& path() const { return m_sPath; }
    [[nodiscard]] std::string file(const std::string& sName) const { return m_sPath + "/" + sName; }

    /// Writes a file and returns its path.
    std::string write(const std::string& sName, const std::string& sContents) const;
    [[nodiscard]] std::string read(const std::string& sName) const;
    [[nodiscard]] bool exists(const std::string& sName) const;

private:
    std::string m_sPath;
};

/// Gathers what the process logs, at all levels from `iLevel` up, during its life; standard error
/// is silent meanwhile.
class LogCapture {
public:
    explicit LogCapture(int iLevel = DEBUG);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// All lines so far, in the form of the log: "LEVEL: text\n".
    [[nodiscard]] std::string text() const { return m_dir.read("log"); }

private:
    TempDir m_dir;
};
