#pragma once

#include <string>
#include <string_view>

// A fuzz target is one function. Built by clang with libFuzzer it is given millions of inputs; built
// in any other way it is a test that is given those which once were wrong, below found/.

/// One run: gives the bytes to a part of the program, and require()s what has to hold whatever they
/// are. The libraries are up, as in the program. What the run logs, at all levels, is judged at its
/// end, see judgeLog(); with FUZZ_LOG in the environment it is shown.
void fuzz(std::string_view sInput);

/// Ends the process, as a finding, if something does not hold.
///
/// @param pLaw  what does not.
void require(bool bHolds, const char* pLaw);

/// Path of a file in memory that holds these bytes, until the next call.
const std::string& fileOf(std::string_view sBytes);

/// A directory of this process, without a slash.
const std::string& directory();

/// Writes a file in that directory. Returns its path.
std::string writeFile(const char* pName, std::string_view sBytes);

/// What the run has logged so far. Who takes it judges it.
std::string takeLog();

/// Requires of each line that it is ours, or marked as libxml2's, and holds no control character.
void judgeLog(std::string_view sLog);
