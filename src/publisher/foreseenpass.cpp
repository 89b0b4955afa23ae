#include "publisher/foreseenpass.h"

#include "publisher/privatedatabase.h"
#include "publisher/rpmvalues.h"
#include "repository/location.h"
#include "rpmdb/rpmdb.h"
#include "support/childprocess.h"

#include <utility>

namespace {

/// True if each package would come whole into the device's cache.
bool arrives(const ForeseenDevice& device, const UpdateSet& updateSet)
{
    if (!haveDistinctFiles(updateSet)) {
        return false;
    }
    for (const Package& package : updateSet) {
        if (device.files != nullptr ? device.files->wrong.contains(package.location())
                                    : package.checksum().type != "sha") {
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
    const bool bOwn = device.state->hasOwnKeys;
    if (bOwn && (!database.open(false) || database.publicKeys() != PublicKeys::PRESENT)) {
        return true;
    }
    for (const Package& package : updateSet) {
        if (bOwn ? !database.verifyPackage(device.offer->fileOf(package))
                 : device.files->refused.contains(package.location())) {
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
/// @param sRefusal  set to why not, unless rpm's own lines tell it.
/// @return          false if rpm refuses the set.
bool install(const ForeseenDevice& device, const UpdateSet& updateSet, std::string& sRefusal)
{
    if (device.bRpm && !needDatabase(*device.state)) {
        sRefusal = "no rpm database can be made of what is installed";
        return false;
    }
    if (!device.bRpm || device.state->database.empty()) {
        sRefusal = refusalOf(*device.state->packages, updateSet);
        if (!sRefusal.empty()) {
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

int foreseeInstallation(const ForeseenDevice& device, const UpdateSet& updateSet, Refusal& refusal)
{
    std::string sText;
    if (!arrives(device, updateSet)) {
        refusal = {"download-fails", ""};
    } else if (device.files != nullptr && !isTrusted(device, updateSet)) {
        refusal = {"signature-fails", ""};
    } else if (!install(device, updateSet, sText)) {
        refusal = {"rpm-refuses", sText};
    } else {
        return ResultReboot;
    }
    return ResultRetryUpdater;
}
