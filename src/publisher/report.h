#pragma once

#include "publisher/finding.h"

#include <string>
#include <vector>

/// One pass of a foreseen run.
struct PassReport {
    std::string name;                   ///< "check", "pass 1", "pass 2" or "updater only"
    std::vector<std::string> packages;  ///< file names
    bool failed = false;
    std::vector<std::string> lines;  ///< what the device logs
};

/// One foreseen run of a device.
struct RunReport {
    std::string state;
    std::vector<PassReport> passes;
    std::vector<std::string> neverReached;  ///< announced by the check, and installed by no pass
    bool reboots = false;
    int exitCode = 0;
    std::string status;                  ///< the status word at the end
    std::vector<std::string> secondRun;  ///< what the next run would announce
};

struct Report {
    std::string repository;  ///< as it was named
    unsigned packages = 0;   ///< that devices of this architecture see
    Findings findings;
    std::vector<RunReport> runs;
};

/// The report for people, with a newline at its end.
std::string textReport(const Report& report);

/// The report as one JSON object; updater-repocheck(8) describes it.
std::string jsonReport(const Report& report);

/// 0: clean, or notes only; 1: warnings; 2: errors.
int exitCodeOf(const Report& report);
