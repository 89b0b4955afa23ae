#include "publisher/devicestate.h"

#include "publisher/installedlist.h"
#include "publisher/packagefiles.h"
#include "publisher/packageheader.h"
#include "publisher/privatedatabase.h"
#include "rpmdb/database.h"
#include "rpmdb/rpmdb.h"

#include <rpm/rpmfi.h>
#include <rpm/rpmfiles.h>
#include <rpm/rpmtd.h>
#include <rpm/rpmts.h>

namespace {

bool readBack(DeviceState& state, std::string& sFault)
{
    const bool bRead = readDatabase(state);
    if (!bRead) {
        sFault = "the rpm database of '" + state.name + "' cannot be read in full";
    }
    return bRead;
}

std::string databaseOf(const StateSetting& setting, const DeviceState& state)
{
    std::string sName;
    for (const char c : state.name) {
        sName += c == '/' ? '_' : c;
    }
    return setting.temporary + "state " + sName;
}

bool makeWithHeaders(const StateSetting& setting, DeviceState& state, std::string& sFault,
                     const std::function<bool(const AddHeader&)>& fill)
{
    state.database = databaseOf(setting, state);
    if (!makeDatabase(state.database, setting.keys, fill)) {
        sFault = "no rpm database can be made for '" + state.name + "'";
        return false;
    }
    return readBack(state, sFault);
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

}  // namespace

bool makeEmptyState(const StateSetting& setting, DeviceState& state, std::string& sFault)
{
    state.name = "empty";
    return makeWithHeaders(setting, state, sFault, [](const AddHeader&) { return true; });
}

bool makeRootState(const StateSetting& setting, const std::string& sRoot, DeviceState& state,
                   std::string& sFault)
{
    state.name = "root " + sRoot;
    state.database = databaseOf(setting, state);
    if (!copyDatabase(sRoot, state.database)) {
        sFault = "no rpm database below '" + sRoot + "'";
        return false;
    }
    return readBack(state, sFault);
}

bool makeListedState(const StateSetting& setting, const std::string& sList, DeviceState& state,
                     std::string& sFault)
{
    state.name = "list " + sList;
    std::vector<ListedPackage> vPackages;
    return readInstalledList(sList, setting.asked, vPackages, sFault) &&
           makeWithHeaders(setting, state, sFault, [&](const AddHeader& add) {
               for (const ListedPackage& package : vPackages) {
                   if (!add(headerOf(package).get())) {
                       return false;
                   }
               }
               return true;
           });
}

bool makeBaselineState(const StateSetting& setting, const Offer& previous, DeviceState& state,
                       std::string& sFault)
{
    state.name = "baseline";
    const std::vector<Package> vNewest = newestOf(previous.packages());
    const auto addAll = [&](const AddHeader& add) {
        for (const Package& package : vNewest) {
            const RpmHandle<Header> header = readHeader(previous.fileOf(package));
            if (header == nullptr) {
                return false;
            }
            markInstalled(header.get());
            if (!add(header.get())) {
                return false;
            }
        }
        return true;
    };
    if (setting.databases && makeWithHeaders(setting, state, sFault, addAll)) {
        return true;
    }
    sFault.clear();
    state.database.clear();
    const auto packages = std::make_shared<InstalledPackageSet>();
    for (const Package& package : vNewest) {
        packages->insertEqual(installedRecord(package));
    }
    packages->sort();
    state.packages = packages;
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
