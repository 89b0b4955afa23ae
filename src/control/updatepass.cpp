#include "control/updatepass.h"

#include "control/packageinstall.h"
#include "control/passanalysis.h"
#include "control/signals.h"
#include "resolver/resolver.h"
#include "support/logger.h"

namespace {

/// Brings the repository's metadata into memory. A termination signal during a fetch simply ends
/// the process.
[[nodiscard]] bool getMetadata(const Config& config, Repository& repository)
{
    if (config.cacheOnly) {
        if (!repository.load()) {
            logMessage(ERROR, "could not load repository data");
            return false;
        }
        return true;
    }
    if (!setTerminationSignalsEnabled(true) || signalNoted != 0) {
        return false;
    }
    if (!repository.update("")) {
        logMessage(ERROR, "could not update repository data");
        return false;
    }
    return setTerminationSignalsEnabled(false);
}

}  // namespace

int runUpdatePass(const Config& config, const SelectionRules& rules, Repository& repository,
                  unsigned& uPackageCount)
{
    uPackageCount = 0;
    if (!getMetadata(config, repository)) {
        return ResultError;
    }
    Resolver resolver;
    if (!resolver.init(config)) {
        logMessage(ERROR, "could not initialize resolver");
        return ResultError;
    }
    UpdateSet updateSet;
    const int iResult =
        analysePass(config, rules, resolver.installed(), repository.packages(), updateSet);
    if (iResult != ResultOk || updateSet.empty()) {
        return iResult;
    }
    uPackageCount = static_cast<unsigned>(updateSet.size());
    return config.checkOnly ? ResultOk : installPackages(config, repository, updateSet);
}
