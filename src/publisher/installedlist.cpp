#include "publisher/installedlist.h"

#include "support/controls.h"
#include "support/files.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <memory>

namespace {

constexpr std::size_t k_uMaxLine = 65536;
constexpr std::size_t k_uMaxPackages = 200'000;
constexpr std::size_t k_uMaxEntries = 20'000'000;  ///< of all packages, files not counted

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

bool readLine(const std::string& sLine, const NameSet& asked, std::vector<ListedPackage>& vPackages,
              std::size_t& uEntries)
{
    const std::vector<std::string> vFields = fieldsOf(sLine);
    if (sLine.size() > k_uMaxLine ||
        std::any_of(vFields.begin(), vFields.end(), hasControlCharacter)) {
        return false;
    }
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
    std::ifstream file(sPath);
    std::size_t uLine = 0;
    std::size_t uEntries = 0;
    for (std::string sLine; std::getline(file, sLine);) {
        ++uLine;
        if (!readLine(sLine, asked, vPackages, uEntries)) {
            sFault = "line " + std::to_string(uLine) + " of '" + sPath + "' is not as it should be";
            return false;
        }
    }
    if (file.bad() || !file.eof() || vPackages.empty()) {
        sFault = "'" + sPath + "' cannot be read, or names no package";
        return false;
    }
    return true;
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
