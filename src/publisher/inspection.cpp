#include "publisher/inspection.h"

#include "publisher/foreseenrun.h"
#include "publisher/keyfiles.h"
#include "publisher/packagefiles.h"
#include "publisher/privatedatabase.h"
#include "publisher/relations.h"
#include "rpmdb/rpmdb.h"
#include "support/childprocess.h"
#include "support/files.h"
#include "support/signalnote.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace {

RepoConfig named(const std::string& sId)
{
    RepoConfig settings;
    settings.id = sId;
    return settings;
}

/// The repository that the devices' configuration has enabled.
RepoConfig enabledRepository(const Config& config)
{
    for (const RepoConfig& configured : config.repositories) {
        if (configured.enabled) {
            return configured;
        }
    }
    return {};
}

/// How devices are to read the repository.
RepoConfig settingsOf(const Config& config)
{
    RepoConfig settings = named("repository");
    const RepoConfig configured = enabledRepository(config);
    settings.isSigned = configured.isSigned;
    settings.maxAge = configured.maxAge;
    return settings;
}

/// The run of a device that ends at the metadata.
RunReport refusedRun(const DeviceState& state, std::vector<std::string> vLines)
{
    RunReport run;
    run.state = state.name;
    run.passes.push_back({"check", {}, true, std::move(vLines)});
    run.exitCode = ResultError;
    run.status = "READY";
    return run;
}

class Inspection {
public:
    Inspection(const CheckOptions& options, const Config& config, std::string sTemporary,
               DeviceLog& log, Report& report)
        : m_options(options),
          m_config(config),
          m_log(log),
          m_report(report),
          m_sTemporary(std::move(sTemporary)),
          m_offer(options.repository, m_sTemporary, settingsOf(config),
                  [this](std::string_view sIndex, std::string_view sArmour) {
                      return verifyIndex(sIndex, sArmour);
                  }),
          m_previous(options.previous, m_sTemporary, named("previous"))
    {
    }

    bool go(std::string& sFailure);

private:
    [[nodiscard]] bool makeKeys(std::string& sFailure);
    [[nodiscard]] SignatureVerdict verifyIndex(std::string_view sIndex,
                                               std::string_view sArmour) const;
    [[nodiscard]] bool isBelievedBy(const DeviceState& state) const;
    void tellOfConfiguration();
    [[nodiscard]] bool readPrevious(std::string& sFailure);
    [[nodiscard]] bool makeStates(std::string& sFailure);
    void lookAtFiles();
    void lookAtPaths();
    void foresee();

    const CheckOptions& m_options;
    const Config& m_config;
    DeviceLog& m_log;
    Report& m_report;
    std::string m_sTemporary;
    std::string m_sKeys;  ///< directory of an rpm database with the keys; empty if none is given
    Offer m_offer;
    bool m_bRead = false;  ///< the metadata are such that devices take them
    Offer m_previous;
    StateSetting m_setting;
    PackageFiles m_files;
    std::vector<DeviceState> m_vStates;
};

bool Inspection::readPrevious(std::string& sFailure)
{
    if (m_options.previous.empty()) {
        return true;
    }
    Findings findings;
    if (!m_previous.read(m_log, findings)) {
        sFailure = "the previous repository cannot be read: " + findings.front().text;
        return false;
    }
    if (m_bRead) {
        compareWithPrevious(m_offer.packages(), m_previous.packages(), m_report.findings);
    }
    if (m_bRead && enabledRepository(m_config).isSigned) {
        compareRevisions(m_offer.indexPath(), m_previous.indexPath(), m_report.findings);
    }
    return true;
}

bool Inspection::makeStates(std::string& sFailure)
{
    const auto make = [&](auto maker, const auto&... arguments) {
        DeviceState state;
        const bool bMade = maker(m_setting, arguments..., state, sFailure);
        if (bMade) {
            m_vStates.push_back(std::move(state));
        }
        return bMade;
    };
    if (m_options.empty) {
        m_vStates.push_back(makeEmptyState(m_setting));
    }
    return (!m_options.baseline || make(makeBaselineState, m_previous)) &&
           std::all_of(m_options.roots.begin(), m_options.roots.end(),
                       [&](const std::string& sRoot) { return make(makeRootState, sRoot); }) &&
           std::all_of(m_options.installed.begin(), m_options.installed.end(),
                       [&](const std::string& sList) { return make(makeListedState, sList); });
}

bool Inspection::makeKeys(std::string& sFailure)
{
    if (m_options.keys.empty()) {
        return true;
    }
    m_sKeys = m_sTemporary + "keys";
    const bool bMade = makeDatabase(m_sKeys, m_options.keys, [](const AddHeader&) { return true; });
    if (!bMade) {
        sFailure = "not a public key each:";
        for (const std::string& sFile : m_options.keys) {
            sFailure += " '" + sFile + "'";
        }
    }
    inspectKeys(m_options.keys, m_sTemporary, m_log, m_report.findings);
    return bMade;
}

SignatureVerdict Inspection::verifyIndex(std::string_view sIndex, std::string_view sArmour) const
{
    if (m_sKeys.empty()) {
        return {SignatureVerdict::GOOD, ""};  // nothing can be said of it
    }
    const DatabaseScope scope(m_sKeys);
    RpmDB database;
    return database.open(false) ? database.verifyDetached(sIndex, sArmour) : SignatureVerdict{};
}

/// Would a device with keys of its own believe the index? The bytes are those that were believed.
bool Inspection::isBelievedBy(const DeviceState& state) const
{
    std::string sIndex;
    std::string sArmour;
    const DatabaseScope scope(state.database);
    RpmDB database;
    return readFile(m_offer.indexPath(), sIndex) &&
           readFile(m_offer.indexPath() + ".asc", sArmour) && database.open(false) &&
           database.verifyDetached(sIndex, sArmour).kind == SignatureVerdict::GOOD;
}

/// What the configuration keeps this program, or devices, from.
void Inspection::tellOfConfiguration()
{
    const RepoConfig repository = enabledRepository(m_config);
    if (!m_options.confFile.empty() && repository.id.empty()) {
        m_report.findings.push_back({"no-repository",
                                     Severity::WARNING,
                                     m_options.confFile,
                                     "it has no repository that is enabled",
                                     "end with an error, unless --repo chooses one",
                                     "enable a repository",
                                     "",
                                     {}});
    }
    if (repository.isSigned && m_sKeys.empty() && m_options.roots.empty()) {
        m_report.findings.push_back({"index-signature",
                                     Severity::WARNING,
                                     k_pIndexLocation,
                                     "its signature is not verified, as no --key is given",
                                     "refuse it, if none of their keys has signed it",
                                     "",
                                     "",
                                     {}});
    }
}

void Inspection::lookAtFiles()
{
    if (m_options.metadataOnly) {
        return;
    }
    m_offer.fetchPackages();
    m_files = inspectFiles(m_offer, m_setting.asked, m_sKeys, m_log, m_report.findings);
    findUnnamedFiles(m_offer, m_report.findings);
}

/// Finds required paths that nobody has.
void Inspection::lookAtPaths()
{
    NameSet missing;
    std::set_difference(m_setting.asked.begin(), m_setting.asked.end(), m_files.owned.begin(),
                        m_files.owned.end(), std::inserter(missing, missing.end()));
    for (DeviceState& state : m_vStates) {
        if (!missing.empty() && needDatabase(state) && !state.database.empty()) {
            for (const std::string& sPath : ownedPaths(state.database, missing)) {
                missing.erase(sPath);
            }
        }
    }
    for (const std::string& sPath : missing) {
        m_report.findings.push_back(
            {"file-require",
             m_vStates.empty() ? Severity::NOTE : Severity::WARNING,
             sPath,
             "packages require this file, and no package here or on a device has it",
             "bring nothing in for it; rpm refuses the installation where it is missing",
             "require the package that owns it, and publish that",
             "",
             {}});
    }
}

void Inspection::foresee()
{
    ChildProcess rpm("rpm");
    rpm.addArgument("--version");
    const bool bRpm = !m_options.metadataOnly && rpm.run() && rpm.exited && rpm.exitCode == 0;
    for (DeviceState& state : m_vStates) {
        if (signalNoted != 0) {
            return;
        }
        if (state.hasOwnKeys && enabledRepository(m_config).isSigned && !isBelievedBy(state)) {
            m_report.findings.push_back({"index-signature", Severity::ERROR, k_pIndexLocation,
                                         "none of its keys has signed the index",
                                         "end the run with an error, and install nothing",
                                         "sign it with a key that devices have", state.name,
                                         m_log.take()});
            m_report.runs.push_back(refusedRun(state, m_report.findings.back().lines));
        } else {
            m_report.runs.push_back(foreseeRun(
                m_config, {&m_offer, &state, m_options.metadataOnly ? nullptr : &m_files, bRpm},
                m_log, m_report.findings));
        }
    }
}

bool Inspection::go(std::string& sFailure)
{
    Findings& findings = m_report.findings;
    if (!makeKeys(sFailure)) {
        return false;
    }
    tellOfConfiguration();
    m_setting.temporary = m_sTemporary;
    m_setting.keys = m_options.keys;
    m_setting.databases = !m_options.metadataOnly;
    m_bRead = m_offer.read(m_log, findings);
    if (!m_bRead) {
        const std::vector<std::string> vLines = findings.back().lines;
        const bool bMade = readPrevious(sFailure) && makeStates(sFailure);
        for (const DeviceState& state : m_vStates) {
            m_report.runs.push_back(refusedRun(state, vLines));
        }
        return bMade;
    }
    m_report.packages = m_offer.packages().size();
    m_setting.asked = requiredPaths(m_offer.packages());
    lookAtFiles();
    checkOffered(m_offer.contents(), m_offer.listing(), findings);
    checkConfiguredNames(m_config, m_offer.packages(), findings);
    if (!readPrevious(sFailure) || !makeStates(sFailure)) {
        return false;
    }
    std::vector<const PackageSet*> vInstalled;
    for (const DeviceState& state : m_vStates) {
        vInstalled.push_back(state.packages.get());
    }
    checkRequires(m_offer.packages(), vInstalled, findings);
    if (!m_options.metadataOnly) {
        lookAtPaths();
    }
    foresee();
    return true;
}

}  // namespace

bool inspect(const CheckOptions& options, const Config& config, const std::string& sTemporary,
             DeviceLog& log, Report& report, std::string& sFailure)
{
    return Inspection(options, config, sTemporary, log, report).go(sFailure);
}
