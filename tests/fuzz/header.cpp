// The header of an installed package, as the rpm database holds it.

#include "rpmdb/database.h"
#include "rpmdb/rpmtags.h"

#include "target.h"

#include <rpm/rpmtd.h>

#include <vector>

namespace {

/// How many entries of a list have none of the bits of what is about rpm itself.
std::size_t count(Header header, rpmTagVal flagsTag)
{
    rpmtd_s flags = {};
    headerGet(header, flagsTag, &flags, HEADERGET_MINMEM);
    std::size_t uCount = 0;
    while (const std::uint32_t* pFlags = rpmtdNextUint32(&flags)) {
        uCount += (*pFlags & 0x01000040U) == 0 ? 1 : 0;
    }
    rpmtdFreeData(&flags);
    return uCount;
}

}  // namespace

void fuzz(std::string_view sInput)
{
    if (sInput.size() < 8) {
        return;  // librpm reads two lengths in front of all else
    }
    std::vector<char> vCopy(sInput.begin(), sInput.end());
    const RpmHandle<Header> header(
        headerImport(vCopy.data(), static_cast<unsigned>(vCopy.size()), HEADERIMPORT_COPY));
    PackageRecord package;
    if (header == nullptr || !readPackage(header.get(), package)) {
        return;
    }
    const char* pName = headerGetString(header.get(), RPMTAG_NAME);
    require(pName != nullptr && package.name == Text(pName), "the name is that which rpm reads");
    require(package.requires_.size() == count(header.get(), RPMTAG_REQUIREFLAGS) &&
                package.provides.size() == count(header.get(), RPMTAG_PROVIDEFLAGS),
            "all entries of the lists are read");
}
