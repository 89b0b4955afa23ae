#pragma once

#include "testing/testing.h"

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

/// The directory of this process.
const TempDir& directory();

/// Path of a file in that directory that holds these bytes, until the next call.
std::string fileOf(std::string_view sBytes, const char* pName = "input");

/// What the run has logged so far. Who takes it judges it.
std::string takeLog();

/// Requires of each line that it is ours, or marked as libxml2's, and holds no control character.
void judgeLog(std::string_view sLog);
