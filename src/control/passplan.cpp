#include "control/passplan.h"

#include "support/logger.h"

#include <cstdlib>

PassPlan::PassPlan(const Config& config, const NameSet& packageNames)
    : m_config(config),
      m_packageNames(packageNames),
      m_pullNames(config.addonPackages.begin(), config.addonPackages.end()),
      m_bTwoPass(packageNames.empty() && !config.checkOnly)
{
}

PassPlan::Pass PassPlan::beginPass()
{
    Pass pass = {m_config, {}};
    pass.rules.includeNames = m_bUpdaterOnly ? NameSet{k_pProgramName} : m_packageNames;
    pass.rules.pullNames = m_pullNames;
    pass.config.cacheOnly = pass.config.cacheOnly || m_uPass > 0;
    if (m_bTwoPass) {
        setUpPass(pass);
    }
    return pass;
}

void PassPlan::setUpPass(Pass& pass)
{
    if (m_uPass == 0) {
        pass.config.checkOnly = true;
        return;
    }
    pass.config.quiet = true;
    if (m_uPass == 1) {
        pass.rules.excludeNames = m_pullNames;
        pass.rules.excludeNames.insert(m_config.releasePackage);
        pass.rules.excludeGroups = {m_config.addonGroups.begin(), m_config.addonGroups.end()};
        if (!m_config.quiet) {
            logMessage(INFO, "pass 1: all but add-ons");
        }
        return;
    }
    if (!m_config.quiet) {
        logMessage(INFO, "pass 2: add-ons");
    }
    m_bTwoPass = false;
}

bool PassPlan::endPass(const Pass& pass, int iResult, unsigned uPackageCount)
{
    m_iOutcome = iResult;
    if (m_uPass == 0) {
        m_uFirstCount = uPackageCount;
    }
    if (!pass.config.checkOnly) {
        m_uTotalCount += uPackageCount;
    }
    if (m_iOutcome == ResultRetryUpdater) {
        if (m_bUpdaterOnly) {
            m_iOutcome = ResultError;
        } else {
            fallBack();
        }
    } else if (m_iOutcome == ResultOk && m_bUpdaterOnly && uPackageCount == 0) {
        m_iOutcome = ResultError;  // without a newer updater nothing has been mended
    } else if (m_iOutcome == ResultReboot) {
        m_bRebootDue = true;
    }
    ++m_uPass;
    return m_iOutcome == ResultRetryUpdater ||
           ((m_iOutcome == ResultOk || m_iOutcome == ResultReboot) && m_bTwoPass);
}

void PassPlan::fallBack()
{
    logMessage(ERROR, "failed updating, will try updating updater only");
    if (!m_config.quiet) {
        logMessage(INFO, "--- RETRY UPDATER ONLY ---");
    }
    m_bUpdaterOnly = true;
    m_bTwoPass = false;
}

bool PassPlan::passesAddUp() const
{
    const bool bWentWell = m_iOutcome == ResultOk || m_iOutcome == ResultReboot;
    return !bWentWell || m_bUpdaterOnly || m_config.checkOnly || m_config.test ||
           m_uTotalCount >= m_uFirstCount;
}

int PassPlan::result() const
{
    if (m_iOutcome == ResultFatal) {
        return ResultFatal;
    }
    return m_bRebootDue ? ResultReboot : m_iOutcome;
}

std::int64_t randomDelay(int iMaxWaitTime, int iRandom)
{
    return std::int64_t{iMaxWaitTime} * iRandom / RAND_MAX;
}
