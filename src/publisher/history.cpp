#include "publisher/packagefiles.h"
#include "publisher/relations.h"
#include "repository/repomd.h"
#include "repository/signedindex.h"
#include "resolver/providerindex.h"
#include "support/files.h"

#include <vector>

namespace {

DependencySet allObsoletes(const PackageSet& packages)
{
    std::vector<Dependency> vAll;
    for (const Package& package : packages) {
        const DependencySet obsoletes = package.obsoletes();
        vAll.insert(vAll.end(), obsoletes.begin(), obsoletes.end());
    }
    DependencySet all;
    all.insertAll(std::move(vAll));
    return all;
}

}  // namespace

void compareWithPrevious(const PackageSet& packages, const PackageSet& previous, Findings& findings)
{
    const DependencySet obsoletes = allObsoletes(packages);
    for (const Package& old : newestOf(previous)) {
        const auto [uFirst, uEnd] = packages.range(old.name());
        if (uFirst == uEnd) {
            const bool bObsoleted = overlaps(obsoletes, packageDependency(old));
            if (!bObsoleted) {
                findings.push_back({"disappeared",
                                    Severity::WARNING,
                                    old.name().str(),
                                    packageText(old) + " was published, and nothing of it is left",
                                    "keep what they have of it",
                                    "publish it again, or let another package obsolete it",
                                    "",
                                    {}});
            }
            continue;
        }
        std::uint32_t uPlace = uFirst;
        const Package now =
            bestOfRun(packages, uPlace, [](const Package&, const Package&, bool) {});
        const int iOrder = compareEvr(now.evr(), old.evr());
        if (iOrder < 0) {
            findings.push_back({"went-back",
                                Severity::ERROR,
                                baseName(now.location()),
                                packageText(old) + " was published, which is newer",
                                "never install it where the newer one is",
                                "publish the old contents under a higher version",
                                "",
                                {}});
        }
        const Checksum oldSum = old.checksum();
        const Checksum newSum = now.checksum();
        if (iOrder == 0 && baseName(now.location()) == baseName(old.location()) &&
            oldSum.type == newSum.type && oldSum.value != newSum.value) {
            findings.push_back({"rebuilt",
                                Severity::ERROR,
                                baseName(now.location()),
                                "it was built anew under the version that is out already",
                                "never install it where the first one is; caches may go on with "
                                "the first one",
                                "give it a higher release",
                                "",
                                {}});
        }
    }
}

void compareRevisions(const std::string& sIndex, const std::string& sPrevious, Findings& findings)
{
    std::string sNow;
    std::string sBefore;
    if (!readRevision(sIndex, sNow) || !readRevision(sPrevious, sBefore)) {
        return;
    }
    const auto uNow = revisionNumber(sNow);
    const auto uBefore = revisionNumber(sBefore);
    if (uNow && uBefore && *uNow < *uBefore) {
        findings.push_back({"revision-went-back",
                            Severity::ERROR,
                            k_pIndexLocation,
                            "its revision is " + sNow + ", and " + sBefore + " was published",
                            "refuse it as older than what they have seen",
                            "run createrepo_c again, by a clock that is right, and sign the index",
                            "",
                            {}});
    }
}
