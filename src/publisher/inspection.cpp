#include "publisher/inspection.h"

#include "publisher/foreseenrun.h"
#include "publisher/keyfiles.h"
#include "publisher/packagefiles.h"
#include "publisher/privatedatabase.h"
#include "publisher/relations.h"
#include "rpmdb/rpmdb.h"
#include "support/childprocess.h"
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

/// How devices are to read the repository. Without a key nothing can be said of a signature.
RepoConfig settingsOf(const Config& config, bool bKeys)
{
    RepoConfig settings = named("repository");
    if (bKeys) {
        const RepoConfig configured = enabledRepository(config);
        settings.isSigned = configured.isSigned;
        settings.maxAge = configured.maxAge;
    }
    return settings;
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
          m_offer(options.repository, m_sTemporary, settingsOf(config, !options.keys.empty()),
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
    compareWithPrevious(m_offer.packages(), m_previous.packages(), m_report.findings);
    if (enabledRepository(m_config).isSigned) {
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
    if (m_options.baseline) {
        m_vStates.push_back(makeBaselineState(m_setting, m_previous));
    }
    return std::all_of(m_options.roots.begin(), m_options.roots.end(),
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
        sFailure = "a key cannot be read";
    }
    inspectKeys(m_options.keys, m_sTemporary, m_log, m_report.findings);
    return bMade;
}

SignatureVerdict Inspection::verifyIndex(std::string_view sIndex, std::string_view sArmour) const
{
    const DatabaseScope scope(m_sKeys);
    RpmDB database;
    return database.open(false) ? database.verifyDetached(sIndex, sArmour) : SignatureVerdict{};
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
        if (signalNoted == 0) {
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
    if (!m_offer.read(m_log, findings)) {
        return true;
    }
    m_report.packages = m_offer.packages().size();
    m_setting.temporary = m_sTemporary;
    m_setting.keys = m_options.keys;
    m_setting.databases = !m_options.metadataOnly;
    m_setting.asked = requiredPaths(m_offer.packages());
    lookAtFiles();
    checkOffered(m_offer.contents(), m_files.architectures, findings);
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
