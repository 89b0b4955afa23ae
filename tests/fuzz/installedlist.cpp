// A list of installed packages that somebody made on a device.

#include "publisher/installedlist.h"
#include "rpmdb/rpmtags.h"

#include "target.h"

void fuzz(std::string_view sInput)
{
    std::vector<ListedPackage> vPackages;
    std::string sFault;
    if (!readInstalledList(fileOf(sInput), {"/bin/sh"}, vPackages, sFault)) {
        require(!sFault.empty(), "a failure is told");
        return;
    }
    require(sFault.empty() && !vPackages.empty(), "a list that is read has packages");
    for (const ListedPackage& listed : vPackages) {
        const RpmHandle<Header> header = headerOf(listed);
        PackageRecord package;
        require(header != nullptr && readPackage(header.get(), package),
                "the device's reader takes each header");
        require(package.name.view() == listed.name && package.evr.version.view() == listed.version,
                "name and version are those of the list");
        require(package.requires_.size() <= listed.requires_.names.size() &&
                    package.provides.size() <= listed.provides.names.size(),
                "nothing is required or provided that the list has not");
    }
}
