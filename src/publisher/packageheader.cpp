#include "publisher/packageheader.h"

#include "rpmdb/rpmtags.h"

#include <rpm/rpmlib.h>
#include <rpm/rpmpgp.h>
#include <rpm/rpmtd.h>
#include <rpm/rpmts.h>
#include <algorithm>
#include <array>
#include <set>

namespace {

using Texts = std::set<std::string>;

Texts textSet(const std::vector<Dependency>& vEntries)
{
    Texts texts;
    std::transform(vEntries.begin(), vEntries.end(), std::inserter(texts, texts.end()),
                   dependencyText);
    return texts;
}

Texts textSet(const DependencySet& entries)
{
    return textSet(std::vector<Dependency>(entries.begin(), entries.end()));
}

/// True if a require that the metadata lack is one that createrepo_c leaves out: the package meets
/// it, or it is one of many on the C library, of which the newest stays.
bool isLeftOut(const Dependency& require, const PackageRecord& own, const Texts& files)
{
    return files.contains(require.name.str()) || require.name.view().starts_with("libc.so.6") ||
           std::any_of(own.provides.begin(), own.provides.end(), [&](const Dependency& provide) {
               return provide.name == require.name && dependencyMatches(provide, require);
           });
}

bool requiresAgree(const Package& listed, const PackageRecord& own, Header header)
{
    const DependencySet listedRequires = listed.needs();
    const Texts inMetadata = textSet(listedRequires);
    const Texts inHeader = textSet(own.requires_);
    const std::vector<std::string> vFiles = textsOf(header, RPMTAG_FILENAMES);
    const Texts files(vFiles.begin(), vFiles.end());
    for (const Dependency& require : own.requires_) {
        if (!inMetadata.contains(dependencyText(require)) && !isLeftOut(require, own, files)) {
            return false;
        }
    }
    const std::vector<std::string> vNames = textsOf(header, RPMTAG_REQUIRENAME);
    return std::all_of(
        listedRequires.begin(), listedRequires.end(), [&](const Dependency& require) {
            // The reader of headers passes over requires that rpm marks as prerequisites.
            return inHeader.contains(dependencyText(require)) ||
                   (own.requires_.size() < vNames.size() &&
                    std::find(vNames.begin(), vNames.end(), require.name.view()) != vNames.end());
        });
}

}  // namespace

RpmHandle<Header> readHeader(const std::string& sPath)
{
    const RpmHandle<FD_t> file(Fopen(sPath.c_str(), "r.ufdio"));
    if (file == nullptr || Ferror(file.get()) != 0) {
        return nullptr;
    }
    rpmts ts = rpmtsCreate();
    rpmtsSetVSFlags(ts, RPMVSF_MASK_NODIGESTS | RPMVSF_MASK_NOSIGNATURES | RPMVSF_NOHDRCHK);
    Header pRead = nullptr;
    const rpmRC result = rpmReadPackageFile(ts, file.get(), nullptr, &pRead);
    rpmtsFree(ts);
    RpmHandle<Header> header(pRead);
    return result == RPMRC_NOTFOUND || result == RPMRC_FAIL ? nullptr : std::move(header);
}

bool readOffered(Header header, PackageRecord& package)
{
    return readPackage(header, package) &&
           readDependencies(header, RPMTAG_OBSOLETENAME, package.obsoletes);
}

std::vector<std::string> textsOf(Header header, rpmTagVal tag)
{
    std::vector<std::string> vTexts;
    rpmtd_s data = {};
    if (headerGet(header, tag, &data, HEADERGET_EXT) != 0) {
        while (const char* pText = rpmtdNextString(&data)) {
            vTexts.emplace_back(pText);
        }
    }
    rpmtdFreeData(&data);
    return vTexts;
}

Signing signingOf(Header header)
{
    Signing signing = Signing::NONE;
    for (const rpmTagVal tag : {RPMTAG_SIGPGP, RPMTAG_SIGGPG, RPMTAG_RSAHEADER, RPMTAG_DSAHEADER}) {
        rpmtd_s data = {};
        pgpDigParams parameters = nullptr;
        if (headerGet(header, tag, &data, HEADERGET_MINMEM) != 0 && data.type == RPM_BIN_TYPE &&
            pgpPrtParams(static_cast<const std::uint8_t*>(data.data), data.count, PGPTAG_SIGNATURE,
                         &parameters) == 0) {
            const unsigned uHash = pgpDigParamsAlgo(parameters, PGPVAL_HASHALGO);
            const bool bWeak = uHash == PGPHASHALGO_MD5 || uHash == PGPHASHALGO_SHA1;
            signing = std::max(signing, bWeak ? Signing::WEAK : Signing::SOUND);
        }
        pgpDigParamsFree(parameters);
        rpmtdFreeData(&data);
    }
    return signing;
}

std::string differenceOf(const Package& package, const Listed& listed, std::uint64_t uSize,
                         Header header)
{
    PackageRecord own;
    if (!readOffered(header, own)) {
        return "whole header";
    }
    if (own.name != package.name()) {
        return "name";
    }
    if (compareEvr(own.evr, package.evr()) != 0) {
        return "version";
    }
    if (textsOf(header, RPMTAG_ARCH) != std::vector<std::string>{listed.arch}) {
        return "architecture";
    }
    if (textSet(own.provides) != textSet(package.provides())) {
        return "provides";
    }
    if (!requiresAgree(package, own, header)) {
        return "requires";
    }
    if (textSet(own.obsoletes) != textSet(package.obsoletes())) {
        return "obsoletes";
    }
    return uSize != listed.size ? "size" : "";
}
