#include "publisher/packagefiles.h"

#include "publisher/packageheader.h"
#include "publisher/privatedatabase.h"
#include "publisher/progress.h"
#include "resolver/providerindex.h"
#include "rpmdb/rpmdb.h"
#include "support/files.h"
#include "support/signalnote.h"

#include <filesystem>
#include <utility>

namespace {

constexpr const char* k_pAgain = "run createrepo_c again";
constexpr const char* k_pRefuseFile =
    "fetch it twice, refuse it, and then try the updater package alone; nothing else is updated";

/// True if a file can be read, and nobody waits at it for ever.
bool isFile(const std::string& sPath)
{
    std::error_code ignored;
    return std::filesystem::is_regular_file(sPath, ignored) && isReadable(sPath);
}

/// What is wrong with the file of one package.
struct FileFault {
    std::string id;
    std::string text;
    std::string mend;
};

FileFault faultOf(const Package& package, const Listed& listed, const std::string& sPath,
                  bool bSame, Header header)
{
    if (!isFile(sPath)) {
        return {"file-missing", "the file is not there", std::string("upload it, or ") + k_pAgain};
    }
    if (header == nullptr) {
        return {"no-package", "the file is damaged or no package", "build it anew"};
    }
    std::error_code ignored;
    const std::string sDifference =
        differenceOf(package, listed, std::filesystem::file_size(sPath, ignored), header);
    if (!bSame) {
        return {"file-differs",
                "the file is not the one that the metadata describe" +
                    (sDifference.empty() ? "" : " (its " + sDifference + " differs, too)"),
                k_pAgain};
    }
    if (!sDifference.empty()) {
        return {"header-differs", "the metadata have another " + sDifference + " than the file",
                k_pAgain};
    }
    return {};
}

class Inspector {
public:
    Inspector(const Offer& offer, const NameSet& asked, DeviceLog& log, Findings& findings)
        : m_offer(offer), m_asked(asked), m_log(log), m_findings(findings)
    {
    }

    void look(const Package& package, bool bNewest, RpmDB* pKeys);
    void tellOfUnsigned();
    PackageFiles takeResult() { return std::move(m_result); }

private:
    void add(const Package& package, bool bNewest, const FileFault& fault, const char* pDevices);

    const Offer& m_offer;
    const NameSet& m_asked;
    DeviceLog& m_log;
    Findings& m_findings;
    PackageFiles m_result;
    std::vector<std::string> m_vUnsigned;
    unsigned m_uSigned = 0;
};

void Inspector::add(const Package& package, bool bNewest, const FileFault& fault,
                    const char* pDevices)
{
    m_findings.push_back({fault.id, bNewest ? Severity::ERROR : Severity::NOTE,
                          std::string(package.location()), fault.text,
                          bNewest ? pDevices : "never look at it: there is a newer version",
                          fault.mend, "", m_log.take()});
}

void Inspector::look(const Package& package, bool bNewest, RpmDB* pKeys)
{
    const std::string sPath = m_offer.fileOf(package);
    const bool bFile = isFile(sPath);
    const RpmHandle<Header> header = bFile ? readHeader(sPath) : nullptr;
    static_cast<void>(m_log.take());
    const Checksum checksum = package.checksum();
    const bool bSame = bFile && checksum.checkFile(sPath);
    // Another type than devices know is told of once, for all packages.
    const FileFault fault = faultOf(package, m_offer.listed(package), sPath,
                                    bSame || checksum.type != "sha", header.get());
    if (!fault.id.empty()) {
        add(package, bNewest, fault, k_pRefuseFile);
    }
    const bool bRefused = pKeys != nullptr && bFile && !pKeys->verifyPackage(sPath);
    if (!bSame || bRefused) {
        (bSame ? m_result.refused : m_result.wrong).emplace(package.location());
    }
    if (header == nullptr) {
        return;
    }
    if (!m_asked.empty()) {
        for (const std::string& sFile : textsOf(header.get(), RPMTAG_FILENAMES)) {
            if (m_asked.contains(sFile)) {
                m_result.owned.insert(sFile);
            }
        }
    }
    const Signing signing = signingOf(header.get());
    m_uSigned += signing != Signing::NONE ? 1 : 0;
    if (signing == Signing::WEAK) {
        m_findings.push_back({"weak-signature",
                              Severity::WARNING,
                              std::string(package.location()),
                              "its signature is over MD5 or SHA-1",
                              "take it, unless their rpm is a newer one",
                              "sign it again",
                              "",
                              {}});
    }
    if (fault.id.empty() && bRefused) {
        add(package, bNewest,
            {"signature",
             signing == Signing::NONE ? "it is not signed" : "its signature is refused",
             "rpmsign --addsign, then " + std::string(k_pAgain)},
            "fetch it, refuse it, and then try the updater package alone");
    } else if (signing == Signing::NONE && pKeys == nullptr) {
        m_vUnsigned.emplace_back(package.location());
    }
}

/// What can be said of signatures without a key.
void Inspector::tellOfUnsigned()
{
    if (m_vUnsigned.empty()) {
        return;
    }
    if (m_uSigned == 0) {
        m_vUnsigned = {"all packages"};
    }
    for (const std::string& sLocation : m_vUnsigned) {
        m_findings.push_back({"unsigned",
                              m_uSigned == 0 ? Severity::NOTE : Severity::WARNING,
                              sLocation,
                              "not signed",
                              "refuse it if they have any public key, and take it if not",
                              "rpmsign --addsign, then " + std::string(k_pAgain),
                              "",
                              {}});
    }
}

}  // namespace

std::vector<Package> newestOf(const PackageSet& packages)
{
    std::vector<Package> vNewest;
    for (std::uint32_t u = 0; u < packages.size();) {
        vNewest.push_back(bestOfRun(packages, u, [](const Package&, const Package&, bool) {}));
    }
    return vNewest;
}

PackageFiles inspectFiles(const Offer& offer, const NameSet& asked, const std::string& sKeys,
                          DeviceLog& log, Findings& findings)
{
    std::vector<bool> vNewest(offer.packages().size());
    for (const Package& package : newestOf(offer.packages())) {
        vNewest[package.place()] = true;
    }
    const DatabaseScope scope(sKeys);
    RpmDB keys;
    const bool bKeys = !sKeys.empty() && keys.open(true);
    Inspector inspector(offer, asked, log, findings);
    for (const Package& package : offer.packages()) {
        if (signalNoted != 0) {
            break;
        }
        inspector.look(package, vNewest[package.place()], bKeys ? &keys : nullptr);
        showProgress("looked at", package.place() + 1, offer.packages().size());
    }
    inspector.tellOfUnsigned();
    return inspector.takeResult();
}

void findUnnamedFiles(const Offer& offer, Findings& findings)
{
    if (offer.directory().empty()) {
        return;
    }
    NameSet named;
    for (const Package& package : offer.packages()) {
        named.emplace(package.location());
    }
    const std::string& sSkipped = offer.contents().skipped;  // file name, architecture, ...
    NameSet skipped;
    for (std::size_t u = 0; u < sSkipped.size();) {
        skipped.emplace(sSkipped.c_str() + u);
        u = sSkipped.find('\0', u) + 1;
        u = sSkipped.find('\0', u) + 1;
    }
    std::error_code end;
    std::filesystem::recursive_directory_iterator it(offer.directory(), end);
    for (; !end && it != std::filesystem::recursive_directory_iterator(); it.increment(end)) {
        const std::string sPath = it->path().string();
        const std::string sName = sPath.substr(offer.directory().size());
        if (sPath.ends_with(".rpm") && !sPath.ends_with(".src.rpm") && !named.contains(sName) &&
            !skipped.contains(baseName(sName))) {
            findings.push_back({"unnamed-file",
                                Severity::WARNING,
                                sName,
                                "the metadata do not name this package",
                                "never see it",
                                std::string(k_pAgain) + ", or remove the file",
                                "",
                                {}});
        }
    }
}
