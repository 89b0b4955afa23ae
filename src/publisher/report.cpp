#include "publisher/report.h"

#include "support/controls.h"
#include "support/xml.h"

#include <libxml/xmlstring.h>
#include <algorithm>
#include <array>
#include <cstdio>
#include <map>

namespace {

/// Findings of one kind, lines of a finding and packages of a pass that the text shows; the JSON form has all.
constexpr unsigned k_uShown = 20;

const char* severityWord(Severity severity)
{
    static constexpr std::array<const char*, 3> k_vWords = {"note", "warning", "error"};
    return k_vWords[static_cast<std::size_t>(severity)];
}

std::string counted(std::size_t uCount, const std::string& sWord)
{
    return std::to_string(uCount) + " " + sWord + (uCount == 1 ? "" : "s");
}

std::string joined(const std::vector<std::string>& vTexts)
{
    std::string sAll;
    for (std::size_t u = 0; u < std::min<std::size_t>(vTexts.size(), k_uShown); ++u) {
        sAll += " " + printable(vTexts[u]);
    }
    return sAll + (vTexts.size() > k_uShown ? " ..." : "");
}

/// A text from outside, fit for a terminal.
std::string shown(std::string sText)
{
    std::replace(sText.begin(), sText.end(), '\t', ' ');
    return printable(sText);
}

std::string findingText(const Finding& finding)
{
    std::string sText = std::string(severityWord(finding.severity)) + ": " +
                        (finding.state.empty() ? "" : finding.state + ": ") +
                        printable(finding.subject) + ": " + shown(finding.text) + " [" +
                        finding.id + "]\n";
    for (std::size_t u = 0; u < finding.lines.size(); ++u) {
        if (u == k_uShown) {
            sText += "    | ... " + std::to_string(finding.lines.size() - u) + " more\n";
            break;
        }
        sText += "    | " + shown(finding.lines[u]) + "\n";
    }
    if (!finding.devices.empty()) {
        sText += "  devices: " + finding.devices + "\n";
    }
    if (!finding.mend.empty()) {
        sText += "  mend: " + finding.mend + "\n";
    }
    return sText;
}

std::string runText(const RunReport& run)
{
    std::string sText = "\n" + run.state + ": exit code " + std::to_string(run.exitCode) +
                        ", status " + run.status + (run.reboots ? ", reboots" : "") + "\n";
    for (const PassReport& pass : run.passes) {
        sText += "  " + pass.name + ": " + counted(pass.packages.size(), "package") +
                 (pass.failed ? ", FAILS" : "") + joined(pass.packages) + "\n";
        for (const std::string& sLine : pass.lines) {
            sText += "    | " + shown(sLine) + "\n";
        }
    }
    if (!run.neverReached.empty()) {
        sText += "  never reached:" + joined(run.neverReached) + "\n";
    }
    if (!run.secondRun.empty()) {
        sText += "  the next run would still install:" + joined(run.secondRun) + "\n";
    }
    return sText;
}

/// A text as JSON has it; with question marks for other characters than those of ASCII, if it is no
/// UTF-8.
std::string quoted(const std::string& sText)
{
    // libxml2 lets halves of surrogate pairs pass, which begin with ED A0 to ED BF.
    const auto iSurrogate = std::adjacent_find(sText.begin(), sText.end(), [](char a, char b) {
        return a == '\xed' && static_cast<unsigned char>(b) >= 0xa0;
    });
    const bool bUtf8 = xmlCheckUTF8(xmlChars(sText.c_str())) != 0 && iSurrogate == sText.end();
    std::string sQuoted = "\"";
    for (const char c : sText) {
        if (c == '"' || c == '\\') {
            sQuoted.append(1, '\\').append(1, c);
        } else if (static_cast<unsigned char>(c) < 0x20) {
            std::array<char, 8> vEscape;
            std::snprintf(vEscape.data(), vEscape.size(), "\\u%04x", static_cast<unsigned>(c));
            sQuoted += vEscape.data();
        } else {
            sQuoted += bUtf8 || static_cast<unsigned char>(c) < 0x80 ? c : '?';
        }
    }
    return sQuoted + "\"";
}

template <typename Items, typename Form>
std::string list(const Items& items, Form form)
{
    std::string sList = "[";
    for (const auto& item : items) {
        sList += (sList.size() > 1 ? "," : "") + form(item);
    }
    return sList + "]";
}

std::string field(const char* pName, const std::string& sValue)
{
    return quoted(pName) + ":" + sValue;
}

std::string findingJson(const Finding& finding)
{
    return "{" + field("id", quoted(finding.id)) + "," +
           field("severity", quoted(severityWord(finding.severity))) + "," +
           field("subject", quoted(finding.subject)) + "," + field("text", quoted(finding.text)) +
           "," + field("devices", quoted(finding.devices)) + "," +
           field("mend", quoted(finding.mend)) + "," + field("state", quoted(finding.state)) + "," +
           field("lines", list(finding.lines, quoted)) + "}";
}

std::string passJson(const PassReport& pass)
{
    return "{" + field("name", quoted(pass.name)) + "," +
           field("packages", list(pass.packages, quoted)) + "," +
           field("failed", pass.failed ? "true" : "false") + "," +
           field("lines", list(pass.lines, quoted)) + "}";
}

std::string runJson(const RunReport& run)
{
    return "{" + field("state", quoted(run.state)) + "," +
           field("passes", list(run.passes, passJson)) + "," +
           field("neverReached", list(run.neverReached, quoted)) + "," +
           field("reboots", run.reboots ? "true" : "false") + "," +
           field("exitCode", std::to_string(run.exitCode)) + "," +
           field("status", quoted(run.status)) + "," +
           field("secondRun", list(run.secondRun, quoted)) + "}";
}

}  // namespace

std::string textReport(const Report& report)
{
    std::string sText;
    std::array<std::size_t, 3> vCounts = {};
    std::map<std::string, unsigned> shown;
    for (const Finding& finding : report.findings) {
        ++vCounts[static_cast<std::size_t>(finding.severity)];
        if (++shown[finding.id] <= k_uShown) {
            sText += findingText(finding);
        }
    }
    for (const auto& [sId, uCount] : shown) {
        if (uCount > k_uShown) {
            sText += "... and " + std::to_string(uCount - k_uShown) + " more of [" + sId + "]\n";
        }
    }
    for (const RunReport& run : report.runs) {
        sText += runText(run);
    }
    return sText + (sText.empty() ? "" : "\n") + report.repository + ": " +
           counted(report.packages, "package") + ", " + counted(vCounts[2], "error") + ", " +
           counted(vCounts[1], "warning") + ", " + counted(vCounts[0], "note") + "\n";
}

std::string jsonReport(const Report& report)
{
    return "{" + field("version", "1") + "," + field("repository", quoted(report.repository)) +
           "," + field("packages", std::to_string(report.packages)) + "," +
           field("findings", list(report.findings, findingJson)) + "," +
           field("runs", list(report.runs, runJson)) + "," +
           field("exitCode", std::to_string(exitCodeOf(report))) + "}\n";
}

int exitCodeOf(const Report& report)
{
    Severity worst = Severity::NOTE;
    for (const Finding& finding : report.findings) {
        worst = std::max(worst, finding.severity);
    }
    return static_cast<int>(worst);
}
