#include "publisher/foreseenpass.h"

#include "publisher/privatedatabase.h"
#include "publisher/rpmvalues.h"
#include "repository/location.h"
#include "rpmdb/rpmdb.h"
#include "support/childprocess.h"
#include "support/files.h"
#include "support/logger.h"

#include <utility>

namespace {

/// True if each package would come whole into the device's cache.
bool arrives(const ForeseenDevice& device, const UpdateSet& updateSet)
{
    if (!haveDistinctFiles(updateSet)) {
        return false;
    }
    for (const Package& package : updateSet) {
        const std::string sPath = device.offer->fileOf(package);
        const Checksum checksum = package.checksum();
        if (device.bPackages ? !isReadable(sPath) || !checksum.checkFile(sPath)
                             : checksum.type != "sha") {
            logMessage(ERROR, "failed downloading packages");
            return false;
        }
    }
    return true;
}

/// True if the keys of the device let each package through.
bool isTrusted(const ForeseenDevice& device, const UpdateSet& updateSet)
{
    const DatabaseScope scope(device.state->database);
    RpmDB database;
    if (!database.open(false) || database.publicKeys() != PublicKeys::PRESENT) {
        return true;
    }
    for (const Package& package : updateSet) {
        if (!database.verifyPackage(device.offer->fileOf(package))) {
            return false;
        }
    }
    return true;
}

/// Runs the real rpm on the state's own database.
bool runRpm(const ForeseenDevice& device, const UpdateSet& updateSet,
            std::initializer_list<const char*> vOptions)
{
    ChildProcess rpm("rpm");
    rpm.addArgument("--dbpath");
    rpm.addArgument(device.state->database);
    for (const char* pOption : vOptions) {
        rpm.addArgument(pOption);
    }
    for (const Package& package : updateSet) {
        rpm.addArgument(device.offer->fileOf(package));
    }
    return rpm.run() && rpm.exited && rpm.exitCode == 0;
}

/// Brings the state to where the update leads, by what is known of rpm or by rpm itself.
///
/// @return false (logged) if rpm refuses the set.
bool install(const ForeseenDevice& device, const UpdateSet& updateSet)
{
    if (!device.bRpm || device.state->database.empty()) {
        const std::string sRefusal = refusalOf(*device.state->packages, updateSet);
        if (!sRefusal.empty()) {
            logMessage(ERROR, "%s", sRefusal.c_str());
            return false;
        }
        device.state->packages = installedAfter(*device.state->packages, updateSet);
        return true;
    }
    // Signatures have been tested; disks are as large as they are elsewhere.
    return runRpm(device, updateSet, {"--test", "-U", "--nosignature", "--ignoresize"}) &&
           runRpm(device, updateSet,
                  {"--justdb", "-U", "--nosignature", "--ignoresize", "--noscripts",
                   "--notriggers"}) &&
           readDatabase(*device.state);
}

}  // namespace

int foreseeInstallation(const ForeseenDevice& device, const UpdateSet& updateSet,
                        std::string& sReason)
{
    if (!arrives(device, updateSet)) {
        sReason = "download-fails";
        return ResultRetryUpdater;
    }
    if (device.bPackages && !device.state->database.empty() && !isTrusted(device, updateSet)) {
        sReason = "signature-fails";
        return ResultRetryUpdater;
    }
    if (!install(device, updateSet)) {
        sReason = "rpm-refuses";
        return ResultRetryUpdater;
    }
    return ResultReboot;
}
