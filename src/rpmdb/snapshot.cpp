#include "rpmdb/snapshot.h"

#include "rpmdb/database.h"
#include "rpmdb/rpmtags.h"
#include "support/logger.h"

#include <rpm/rpmts.h>

#include <map>
#include <string_view>
#include <utility>

namespace {

constexpr const char* k_pKeyName = "gpg-pubkey";

/// The names of packages by the place of the package in the database.
using PlacedNames = std::map<unsigned, Text>;

/// True if the index of names holds each of these names at its place, once, and nothing else.
bool fitIndex(rpmts ts, PlacedNames names)
{
    const RpmHandle<rpmdbIndexIterator> index(rpmdbIndexIteratorInit(rpmtsGetRdb(ts), RPMDBI_NAME));
    const void* pName = nullptr;
    std::size_t uLength = 0;
    while (index != nullptr && rpmdbIndexIteratorNext(index.get(), &pName, &uLength) == 0) {
        const std::string_view sName(static_cast<const char*>(pName), uLength);
        const unsigned uCount = rpmdbIndexIteratorNumPkgs(index.get());
        for (unsigned u = 0; u < uCount; ++u) {
            const auto it = names.find(rpmdbIndexIteratorPkgOffset(index.get(), u));
            if (it == names.end() || it->second.view() != sName) {
                return false;
            }
            names.erase(it);
        }
    }
    return index != nullptr && names.empty();
}

/// Walks over all packages.
///
/// @param read  gets each header and gives the name of the package, or nothing to give up (logged).
/// @return      false if the walk did not come to all of them (logged).
template <typename Read>
bool walkPackages(rpmts ts, Read read)
{
    if (!openDatabase(ts)) {
        return false;
    }
    const RpmHandle<rpmdbMatchIterator> iterator(
        rpmtsInitIterator(ts, RPMDBI_PACKAGES, nullptr, 0));
    if (iterator == nullptr) {
        logMessage(ERROR, "failed initializing rpm DB iterator");
        return false;
    }
    PlacedNames names;
    bool bDistinct = true;
    while (Header header = rpmdbNextIterator(iterator.get())) {
        Text sName;
        if (!read(header, sName)) {
            return false;
        }
        bDistinct =
            names.emplace(rpmdbGetIteratorOffset(iterator.get()), sName).second && bDistinct;
    }
    if (!bDistinct || !fitIndex(ts, std::move(names))) {
        logMessage(ERROR, "failed while iterating on rpm DB");
        return false;
    }
    return true;
}

}  // namespace

std::unique_ptr<InstalledPackageSet> readPackages(rpmts ts)
{
    auto packages = std::make_unique<InstalledPackageSet>();
    const bool bComplete = walkPackages(ts, [&](Header header, Text& sName) {
        PackageRecord package;
        if (!readPackage(header, package)) {
            return false;
        }
        sName = package.name;
        packages->insertEqual(package);
        return true;
    });
    packages->sort();
    return bComplete ? std::move(packages) : nullptr;
}

PublicKeys findPublicKeys(rpmts ts)
{
    // A header that fails its check is passed over: that of a key would be missing here.
    const rpmVSFlags flags = rpmtsSetVSFlags(ts, RPMVSF_NOHDRCHK);
    int iKeys = 0;
    const bool bComplete = walkPackages(ts, [&](Header header, Text& sName) {
        const bool bOk = readStringTag(header, RPMTAG_NAME, sName);
        iKeys += sName == Text(k_pKeyName) ? 1 : 0;
        return bOk;
    });
    rpmtsSetVSFlags(ts, flags);
    if (!bComplete) {
        return PublicKeys::UNKNOWN;
    }
    const RpmHandle<rpmdbMatchIterator> byName(rpmtsInitIterator(ts, RPMDBI_NAME, k_pKeyName, 0));
    if (rpmdbGetIteratorCount(byName.get()) != iKeys) {
        logMessage(ERROR, "public keys of the rpm database are not found by their name");
        return PublicKeys::UNKNOWN;
    }
    return iKeys > 0 ? PublicKeys::PRESENT : PublicKeys::NONE;
}
