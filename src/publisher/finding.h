#pragma once

#include <string>
#include <vector>

/// How grave a finding is, and so which exit code it asks for.
enum class Severity { NOTE, WARNING, ERROR };

/// One thing that a publisher should know before devices find it out.
struct Finding {
    std::string id;  ///< names the kind of finding; stays as it is from version to version
    Severity severity;
    std::string subject;  ///< what it is about: a package, a file, a configured name
    std::string text;     ///< what is the matter
    std::string devices;  ///< what a device will do
    std::string mend;     ///< how to mend it; empty if there is nothing to be done
    std::string state;    ///< the device's state that it is about; empty: the repository by itself
    std::vector<std::string> lines;  ///< the device's own lines about it
};

using Findings = std::vector<Finding>;
