#include "packages/package.h"

Dependency packageDependency(const InstalledPackage& package)
{
    return {package.name, package.evr, EQUAL};
}

std::string packageText(const InstalledPackage& package)
{
    return package.name.str() + "-" + evrText(package.evr);
}
