#pragma once

#include "packages/dependency.h"

#include <popt.h>

#include <cstdio>

/// Brings the libraries up and down, in the order that they need. One object in main().
class Libraries {
public:
    Libraries() = default;
    ~Libraries() { stop(); }
    Libraries(const Libraries&) = delete;
    Libraries& operator=(const Libraries&) = delete;

    /// Starts libxml2, neon and rpm, directs what rpm says to our log, and parses the command line.
    /// Out of memory from here on means an end with exit code 2. A bad option ends the process with
    /// exit code 1, inside the library.
    ///
    /// @param pOptions   the table of options, which must outlive the object.
    /// @param arguments  receives the arguments behind the options.
    /// @return              false on a failure (logged).
    [[nodiscard]] bool start(int argc, char* argv[], poptOption* pOptions, NameSet& arguments);

    /// Shuts down what was started, once. No rpm database and no metadata can be read after it.
    void stop();

private:
    bool m_bNeonStarted = false;
    poptContext m_pContext = nullptr;
    std::FILE* m_pNull = nullptr;  ///< /dev/null, for what rpm prints itself
};
