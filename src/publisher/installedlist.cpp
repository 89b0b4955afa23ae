#include "publisher/installedlist.h"

#include "support/controls.h"
#include "support/files.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>

namespace {

constexpr std::size_t k_uMaxLine = 65536;
constexpr std::size_t k_uMaxPackages = 200'000;
constexpr std::size_t k_uMaxEntries = 5'000'000;  ///< of all packages, files not counted

std::vector<std::string> fieldsOf(const std::string& sLine)
{
    std::vector<std::string> vFields;
    for (std::size_t u = 0; u <= sLine.size();) {
        const std::size_t uEnd = std::min(sLine.find('\t', u), sLine.size());
        vFields.push_back(sLine.substr(u, uEnd - u));
        u = uEnd + 1;
    }
    return vFields;
}

bool readNumber(const std::string& sText, std::uint32_t& uNumber)
{
    const char* pEnd = sText.data() + sText.size();
    const auto [pRead, error] = std::from_chars(sText.data(), pEnd, uNumber);
    return error == std::errc() && pRead == pEnd;
}

void add(ListedPackage::List& list, const std::string& sName, std::uint32_t uFlags,
         const std::string& sVersion)
{
    list.names.push_back(sName);
    list.flags.push_back(uFlags);
    list.versions.push_back(sVersion);
}

bool readPackageLine(const std::vector<std::string>& vFields, std::vector<ListedPackage>& vPackages)
{
    ListedPackage package;
    if (vFields.size() != 6 || vFields[1].empty() || vFields[3].empty() ||
        !readNumber(vFields[2], package.epoch) || vPackages.size() == k_uMaxPackages) {
        return false;
    }
    package.name = vFields[1];
    package.version = vFields[3];
    package.release = vFields[4];
    package.arch = vFields[5] == "(none)" ? "noarch" : vFields[5];
    vPackages.push_back(std::move(package));
    return true;
}

bool readEntryLine(const std::vector<std::string>& vFields, ListedPackage& package)
{
    std::uint32_t uFlags = 0;
    if (vFields.size() != 4 || vFields[1].empty() || !readNumber(vFields[2], uFlags)) {
        return false;
    }
    const std::string& sKind = vFields[0];
    ListedPackage::List* pList = sKind == "R"   ? &package.requires_
                                 : sKind == "V" ? &package.provides
                                 : sKind == "C" ? &package.conflicts
                                 : sKind == "O" ? &package.obsoletes
                                                : nullptr;
    if (pList != nullptr) {
        add(*pList, vFields[1], uFlags, vFields[3]);
    }
    return pList != nullptr;
}

bool readLine(const std::vector<std::string>& vFields, const NameSet& asked,
              std::vector<ListedPackage>& vPackages, std::size_t& uEntries)
{
    if (vFields[0] == "P") {
        return readPackageLine(vFields, vPackages);
    }
    if (vPackages.empty()) {
        return false;
    }
    if (vFields[0] == "F") {
        if (vFields.size() == 2 && asked.contains(vFields[1])) {
            add(vPackages.back().provides, vFields[1], 0, "");
        }
        return vFields.size() == 2;
    }
    return ++uEntries <= k_uMaxEntries && readEntryLine(vFields, vPackages.back());
}

/// Takes each line of a file apart, as long as `take` says true.
bool readLines(const std::string& sPath,
               const std::function<bool(const std::vector<std::string>&)>& take,
               std::string& sFault)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(sPath, error)) {
        sFault = "'" + sPath + "' is no file";
        return false;
    }
    std::ifstream file(sPath);
    std::vector<char> vBuffer(k_uMaxLine + 2);
    for (std::size_t uLine = 1;
         file.getline(vBuffer.data(), static_cast<std::streamsize>(vBuffer.size())) || !file.eof();
         ++uLine) {
        const auto uEnd = static_cast<std::size_t>(file.gcount()) - (file.eof() ? 0 : 1);
        const std::vector<std::string> vFields = fieldsOf(std::string(vBuffer.data(), uEnd));
        if (file.fail() || std::any_of(vFields.begin(), vFields.end(), hasControlCharacter) ||
            !take(vFields)) {
            sFault = file.bad() || !file.is_open() ? "'" + sPath + "' cannot be read"
                                                   : "line " + std::to_string(uLine) + " of '" +
                                                         sPath + "' is not as it should be";
            return false;
        }
    }
    return true;
}

void putList(Header header, const ListedPackage::List& list, const std::array<rpmTagVal, 3>& vTags)
{
    if (list.names.empty()) {
        return;
    }
    const auto put = [&](rpmTagVal tag, const std::vector<std::string>& vTexts) {
        std::vector<const char*> vPointers(vTexts.size());
        std::transform(vTexts.begin(), vTexts.end(), vPointers.begin(),
                       [](const std::string& sText) { return sText.c_str(); });
        headerPutStringArray(header, tag, vPointers.data(),
                             static_cast<rpm_count_t>(vPointers.size()));
    };
    put(vTags[0], list.names);
    headerPutUint32(header, vTags[1], list.flags.data(),
                    static_cast<rpm_count_t>(list.flags.size()));
    put(vTags[2], list.versions);
}

}  // namespace

bool readInstalledList(const std::string& sPath, const NameSet& asked,
                       std::vector<ListedPackage>& vPackages, std::string& sFault)
{
    NameSet paths = asked;
    std::size_t uEntries = 0;
    if (!readLines(
            sPath,
            [&](const std::vector<std::string>& vFields) {
                if (vFields[0] == "R" && vFields.size() > 1 && vFields[1].starts_with('/')) {
                    paths.insert(vFields[1]);
                }
                return true;
            },
            sFault) ||
        !readLines(
            sPath,
            [&](const std::vector<std::string>& vFields) {
                return readLine(vFields, paths, vPackages, uEntries);
            },
            sFault)) {
        return false;
    }
    // The entries of keys are those of a device's database, and no packages.
    std::erase_if(vPackages,
                  [](const ListedPackage& package) { return package.name == "gpg-pubkey"; });
    if (vPackages.empty()) {
        sFault = "'" + sPath + "' names no package";
    }
    return !vPackages.empty();
}

RpmHandle<Header> headerOf(const ListedPackage& package)
{
    Header header = headerNew();
    headerPutString(header, RPMTAG_NAME, package.name.c_str());
    headerPutString(header, RPMTAG_VERSION, package.version.c_str());
    headerPutString(header, RPMTAG_RELEASE, package.release.c_str());
    headerPutString(header, RPMTAG_ARCH, package.arch.c_str());
    headerPutString(header, RPMTAG_OS, "linux");
    if (package.epoch != 0) {
        headerPutUint32(header, RPMTAG_EPOCH, &package.epoch, 1);
    }
    putList(header, package.requires_,
            {RPMTAG_REQUIRENAME, RPMTAG_REQUIREFLAGS, RPMTAG_REQUIREVERSION});
    putList(header, package.provides,
            {RPMTAG_PROVIDENAME, RPMTAG_PROVIDEFLAGS, RPMTAG_PROVIDEVERSION});
    putList(header, package.conflicts,
            {RPMTAG_CONFLICTNAME, RPMTAG_CONFLICTFLAGS, RPMTAG_CONFLICTVERSION});
    putList(header, package.obsoletes,
            {RPMTAG_OBSOLETENAME, RPMTAG_OBSOLETEFLAGS, RPMTAG_OBSOLETEVERSION});
    return RpmHandle<Header>(headerReload(header, RPMTAG_HEADERIMMUTABLE));
}
