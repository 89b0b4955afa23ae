#include "publisher/foreseenrun.h"

#include "control/passanalysis.h"
#include "publisher/whyleft.h"
#include "support/files.h"
#include "support/signalnote.h"

#include <algorithm>
#include <utility>

namespace {

constexpr const char* k_pNeedsNewer = "needs-newer-updater";  ///< the one failure that mends itself
constexpr std::size_t k_uReasons = 20;  ///< for so many packages why they were left is worked out

std::vector<std::string> fileNames(const UpdateSet& updateSet)
{
    std::vector<std::string> vNames;
    for (const Package& package : updateSet) {
        vNames.push_back(baseName(package.location()));
    }
    return vNames;
}

/// What a device would log, without the list of packages, which the report has, and without what
/// Debian's rpm says to everybody.
std::vector<std::string> linesOf(std::vector<std::string> vLines)
{
    std::erase_if(vLines, [](const std::string& sLine) {
        return (sLine.starts_with("INFO: \t") && sLine.ends_with(".rpm")) ||
               sLine == "INFO: rpm output:" || sLine.starts_with("INFO:   rpm: ");
    });
    return vLines;
}

/// How a failed pass is told of, by the id of the finding.
Finding failureOf(const std::string& sId)
{
    const auto finding = [&](const char* pText, const char* pMend) {
        return Finding{sId,
                       Severity::ERROR,
                       "",
                       pText,
                       "install nothing of this pass, and try the updater package alone",
                       pMend,
                       "",
                       {}};
    };
    if (sId == k_pNeedsNewer) {
        return finding("a newer updater is required", "publish a newer updater package with it");
    }
    if (sId == "unsatisfied") {
        return finding("something is required that nothing provides",
                       "publish what is missing, or loosen the require");
    }
    if (sId == "rpm-refuses") {
        return finding("rpm refuses the installation", "mend what rpm names");
    }
    return sId == "signature-fails"
               ? finding("a signature is refused", "sign it with a key that devices have")
               : finding("a package does not arrive", "see the findings about its file");
}

/// One run under way.
class ForeseenRun {
public:
    ForeseenRun(const Config& config, const ForeseenDevice& device, DeviceLog& log,
                Findings& findings)
        : m_config(config), m_device(device), m_log(log), m_findings(findings)
    {
        m_run.state = device.state->name;
        m_before = device.state->packages;
    }

    RunReport go();

private:
    void pass(PassPlan& plan, bool& bAgain);
    void tellOfFailure(const PassReport& pass, const std::string& sId, const UpdateSet& updateSet);
    void judge(const PassPlan& plan);
    void judgeSums(const PassPlan& plan);
    void lookAtNextRun();

    const Config& m_config;
    const ForeseenDevice& m_device;
    DeviceLog& m_log;
    Findings& m_findings;
    std::size_t m_uFirstFinding = m_findings.size();  ///< of this run
    std::shared_ptr<const InstalledPackageSet> m_before;
    RunReport m_run;
    UpdateSet m_announced;
    UpdateSet m_done;
    bool m_bUpdaterOnly = false;
};

void ForeseenRun::pass(PassPlan& plan, bool& bAgain)
{
    static_cast<void>(m_log.take());
    const PassPlan::Pass next = plan.beginPass();
    PassReport report;
    report.name = m_bUpdaterOnly         ? "updater only"
                  : m_run.passes.empty() ? "check"
                                         : "pass " + std::to_string(m_run.passes.size());
    UpdateSet updateSet;
    int iResult = analysePass(next.config, next.rules, *m_device.state->packages,
                              m_device.offer->packages(), updateSet);
    Refusal refusal = {"unsatisfied", ""};
    unsigned uCount = 0;
    if (iResult == ResultOk) {
        uCount = static_cast<unsigned>(updateSet.size());
        report.packages = fileNames(updateSet);
        if (m_run.passes.empty()) {
            m_announced = updateSet;
        }
        if (!next.config.checkOnly && !updateSet.empty()) {
            iResult = foreseeInstallation(m_device, updateSet, refusal);
        }
    }
    if (iResult == ResultReboot) {
        for (const Package& package : updateSet) {
            m_done.insertUnique(package);
        }
    }
    report.failed = iResult == ResultRetryUpdater || iResult == ResultError;
    bAgain = plan.endPass(next, iResult, uCount);
    report.lines = linesOf(m_log.take());
    if (report.failed) {
        if (std::any_of(report.lines.begin(), report.lines.end(), [](const std::string& sLine) {
                return sLine.starts_with("ERROR: newer updater required");
            })) {
            refusal.id = k_pNeedsNewer;
        }
        if (!refusal.text.empty()) {
            report.lines.push_back(refusal.text);
        }
        tellOfFailure(report, refusal.id, updateSet);
    }
    m_bUpdaterOnly |= iResult == ResultRetryUpdater;
    m_run.passes.push_back(std::move(report));
}

void ForeseenRun::tellOfFailure(const PassReport& pass, const std::string& sId,
                                const UpdateSet& updateSet)
{
    Finding finding = failureOf(sId);
    finding.subject = pass.name;
    finding.state = m_run.state;
    finding.lines = pass.lines;
    std::erase_if(finding.lines,
                  [](const std::string& sLine) { return sLine.find("---") != std::string::npos; });
    for (const std::string& sLine : whoNeeds(pass.lines, *m_device.state->packages, updateSet)) {
        finding.lines.push_back(sLine);
    }
    m_findings.push_back(std::move(finding));
}

void ForeseenRun::judge(const PassPlan& plan)
{
    const int iResult = plan.passesAddUp() ? plan.result() : ResultFatal;
    m_run.reboots = iResult == ResultReboot;
    m_run.exitCode = m_run.reboots ? ResultOk : iResult;
    m_run.status = iResult == ResultFatal ? "CORRUPTED" : m_run.reboots ? "REBOOTING" : "READY";
    for (const Package& package : m_announced) {
        const auto done = m_done.find(package.name());
        if (!done || *done != package) {
            m_run.neverReached.push_back(baseName(package.location()));
        }
    }
}

void ForeseenRun::judgeSums(const PassPlan& plan)
{
    if (m_bUpdaterOnly) {
        return;
    }
    const bool bFatal = !plan.passesAddUp();
    std::vector<std::string> vReasons;
    for (const Package& package : m_announced) {
        const auto done = m_done.find(package.name());
        if ((!done || *done != package) && vReasons.size() < k_uReasons) {
            vReasons.push_back(whyLeft(package, m_announced, *m_before, *m_device.state->packages));
        }
    }
    if (!bFatal && vReasons.empty()) {
        return;
    }
    m_findings.push_back(
        {bFatal ? "sums-differ" : "never-reached", bFatal ? Severity::ERROR : Severity::WARNING,
         m_run.neverReached.empty() ? "passes" : m_run.neverReached.front(),
         bFatal ? "the passes install fewer packages than the check announces"
                : "the check announces packages that no pass installs",
         bFatal ? "update without a fault, take themselves for CORRUPTED, and update no more until "
                  "somebody comes"
                : "announce them and do without",
         "let a package of the first pass require it, or name it (not its group) among the add-ons",
         m_run.state, std::move(vReasons)});
}

/// What a second run would find to do.
void ForeseenRun::lookAtNextRun()
{
    Config config = m_config;
    config.checkOnly = true;
    config.quiet = true;
    PassPlan plan(config, {});
    const PassPlan::Pass next = plan.beginPass();
    UpdateSet updateSet;
    const int iResult = analysePass(next.config, next.rules, *m_device.state->packages,
                                    m_device.offer->packages(), updateSet);
    static_cast<void>(m_log.take());
    m_run.secondRun = fileNames(updateSet);
    if (iResult == ResultOk && updateSet.empty()) {
        return;
    }
    if (m_bUpdaterOnly && m_done.find(k_pProgramName)) {
        for (std::size_t u = m_uFirstFinding; u < m_findings.size(); ++u) {
            if (m_findings[u].id == k_pNeedsNewer) {
                m_findings[u].severity = Severity::NOTE;
            }
        }
        m_findings.push_back({"updater-first",
                              Severity::NOTE,
                              "next run",
                              "the rest is left to the updater package that this run installs",
                              "reboot, and go on in the next run",
                              "",
                              m_run.state,
                              {}});
    } else {
        m_findings.push_back({"does-not-settle", Severity::WARNING, "next run",
                              "it has something to do once more, on the same repository",
                              "install and reboot again and again, or fail",
                              "let no package obsolete what another one brings in", m_run.state,
                              m_run.secondRun});
    }
}

RunReport ForeseenRun::go()
{
    PassPlan plan(m_config, {});
    for (bool bAgain = true; bAgain && signalNoted == 0;) {
        pass(plan, bAgain);
    }
    judge(plan);
    if (m_run.exitCode != ResultError) {
        judgeSums(plan);
    }
    if (m_run.exitCode == ResultOk) {
        lookAtNextRun();
    }
    return std::move(m_run);
}

}  // namespace

RunReport foreseeRun(const Config& config, const ForeseenDevice& device, DeviceLog& log,
                     Findings& findings)
{
    return ForeseenRun(config, device, log, findings).go();
}
