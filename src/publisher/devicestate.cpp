#include "publisher/devicestate.h"

#include "publisher/installedlist.h"
#include "publisher/packagefiles.h"
#include "publisher/packageheader.h"
#include "publisher/privatedatabase.h"
#include "rpmdb/database.h"
#include "rpmdb/rpmdb.h"
#include "rpmdb/rpmtags.h"
#include "support/files.h"

#include <rpm/rpmfi.h>
#include <rpm/rpmfiles.h>
#include <rpm/rpmtd.h>
#include <rpm/rpmts.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {

/// A new directory for a database; empty if none can be made.
std::string newDirectory(const StateSetting& setting)
{
    std::string sTemplate = setting.temporary + "state-XXXXXX";
    return mkdtemp(sTemplate.data()) != nullptr ? sTemplate : "";
}

bool makeWithHeaders(const StateSetting& setting, DeviceState& state,
                     const std::function<bool(const AddHeader&)>& fill)
{
    state.database = newDirectory(setting);
    return !state.database.empty() && makeDatabase(state.database, setting.keys, fill) &&
           readDatabase(state);
}

/// Marks all files of a header as installed, as rpm does.
void markInstalled(Header header)
{
    rpmtd_s names = {};
    if (headerGet(header, RPMTAG_BASENAMES, &names, HEADERGET_MINMEM) != 0) {
        std::string sStates(names.count, static_cast<char>(RPMFILE_STATE_NORMAL));
        rpmtd_s states = {};
        states.tag = RPMTAG_FILESTATES;
        states.type = RPM_CHAR_TYPE;
        states.count = names.count;
        states.data = sStates.data();
        headerPut(header, &states, HEADERPUT_DEFAULT);
    }
    rpmtdFreeData(&names);
}

bool addListed(const StateSetting& setting, const std::string& sList, std::string& sFault,
               const AddHeader& add)
{
    std::vector<ListedPackage> vPackages;
    return readInstalledList(sList, setting.asked, vPackages, sFault) &&
           std::all_of(vPackages.begin(), vPackages.end(),
                       [&](const ListedPackage& package) { return add(headerOf(package).get()); });
}

bool addNewest(const Offer& offer, const AddHeader& add)
{
    const std::vector<Package> vNewest = newestOf(offer.packages());
    return std::all_of(vNewest.begin(), vNewest.end(), [&](const Package& package) {
        const RpmHandle<Header> header = readHeader(offer.fileOf(package));
        if (header != nullptr) {
            markInstalled(header.get());
        }
        return header != nullptr && add(header.get());
    });
}

}  // namespace

bool needDatabase(DeviceState& state)
{
    if (const auto make = std::exchange(state.makeDatabase, nullptr)) {
        return make(state);
    }
    return true;
}

DeviceState makeEmptyState(const StateSetting& setting)
{
    DeviceState state;
    state.name = "empty";
    state.packages = std::make_shared<InstalledPackageSet>();
    if (setting.databases) {
        state.makeDatabase = [&setting](DeviceState& made) {
            return makeWithHeaders(setting, made, [](const AddHeader&) { return true; });
        };
    }
    return state;
}

bool makeRootState(const StateSetting& setting, const std::string& sRoot, DeviceState& state,
                   std::string& sFault)
{
    state.name = "root " + sRoot;
    state.database = newDirectory(setting);
    if (state.database.empty() || !copyDatabase(sRoot, state.database)) {
        sFault = "no rpm database below '" + sRoot + "'";
        return false;
    }
    state.hasOwnKeys = true;
    const bool bRead = readDatabase(state);
    if (!bRead) {
        sFault = "the rpm database of '" + state.name + "' cannot be read in full";
    }
    return bRead;
}

bool makeListedState(const StateSetting& setting, const std::string& sList, DeviceState& state,
                     std::string& sFault)
{
    state.name = "list " + sList;
    const auto packages = std::make_shared<InstalledPackageSet>();
    if (!addListed(setting, sList, sFault, [&](Header header) {
            PackageRecord record;
            const bool bRead = readPackage(header, record);
            packages->insertEqual(record);
            return bRead;
        })) {
        return false;
    }
    packages->sort();
    state.packages = packages;
    if (setting.databases) {
        state.makeDatabase = [&setting, sList](DeviceState& made) {
            std::string sAgain;
            return makeWithHeaders(setting, made, [&](const AddHeader& add) {
                return addListed(setting, sList, sAgain, add);
            });
        };
    }
    return true;
}

bool makeBaselineState(const StateSetting& setting, const Offer& previous, DeviceState& state,
                       std::string& sFault)
{
    state.name = "baseline";
    const auto packages = std::make_shared<InstalledPackageSet>();
    for (const Package& package : newestOf(previous.packages())) {
        if (setting.databases && !isReadable(previous.fileOf(package))) {
            sFault = "'" + std::string(package.location()) +
                     "' of the previous repository cannot be read; --metadata-only does without";
            return false;
        }
        packages->insertEqual(installedRecord(package));
    }
    packages->sort();
    state.packages = packages;
    if (setting.databases) {
        state.makeDatabase = [&](DeviceState& made) {
            return makeWithHeaders(setting, made,
                                   [&](const AddHeader& add) { return addNewest(previous, add); });
        };
    }
    return true;
}

bool readDatabase(DeviceState& state)
{
    const DatabaseScope scope(state.database);
    RpmDB database;
    std::shared_ptr<const InstalledPackageSet> packages =
        database.open(true) ? database.installedPackages() : nullptr;
    if (packages != nullptr) {
        state.packages = std::move(packages);
        return true;
    }
    return false;
}

PackageRecord installedRecord(const Package& package)
{
    PackageRecord record;
    record.name = package.name();
    record.evr = package.evr();
    const DependencySet requires_ = package.needs();
    const DependencySet provides = package.provides();
    record.requires_.assign(requires_.begin(), requires_.end());
    record.provides.assign(provides.begin(), provides.end());
    return record;
}

NameSet ownedPaths(const std::string& sDatabase, const NameSet& asked)
{
    NameSet owned;
    const DatabaseScope scope(sDatabase);
    rpmts ts = rpmtsCreate();
    if (openDatabase(ts)) {
        for (const std::string& sPath : asked) {
            for (const rpmDbiTagVal index : {RPMDBI_INSTFILENAMES, RPMDBI_PROVIDENAME}) {
                if (RpmHandle<rpmdbMatchIterator>(rpmtsInitIterator(ts, index, sPath.c_str(), 0)) !=
                    nullptr) {
                    owned.insert(sPath);
                }
            }
        }
    }
    rpmtsFree(ts);
    return owned;
}
