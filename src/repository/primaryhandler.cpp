#include "repository/primaryhandler.h"

#include "repository/location.h"
#include "support/files.h"
#include "support/logger.h"
#include "support/xml.h"

#include <utility>

namespace {

constexpr const char* k_pCommonNamespace = "http://linux.duke.edu/metadata/common";
constexpr const char* k_pRpmNamespace = "http://linux.duke.edu/metadata/rpm";

/// The most entries of one list. Real packages have up to some ten thousand.
constexpr std::size_t k_uMaxDependencies = 100'000;

/// Real repositories have a handful.
constexpr std::size_t k_uMaxArchitectures = 1000;

/// The most that the packages of a repository may take in memory; 60,000 take a quarter of it.
constexpr std::size_t k_uMaxBytes = std::size_t{200} << 20U;

/// Marks a part of a package as read. False if it was there before.
[[nodiscard]] bool firstTime(bool& bRead)
{
    return !std::exchange(bRead, true);
}

}  // namespace

Take PrimaryHandler::startElement(const StartTag& tag, bool bBound)
{
    std::optional<Kind> kind = Kind::IGNORED;
    if (m_vKinds.empty()) {
        kind = startTopLevel(tag);
    } else if (m_vKinds.back() == Kind::OUTSIDE) {
        kind = startPackage(tag);
    } else if (bBound) {
        kind = startBoundChild(tag);
    }
    if (!kind) {
        return Take::FAIL;
    }
    if (*kind == Kind::FORMAT && !bindChildrenTo(k_pRpmNamespace)) {
        logMessage(DEBUG, "no rpm specific data in XML doc");
        kind = Kind::IGNORED;
    }
    if (*kind == Kind::IGNORED) {
        return Take::NOTHING;
    }
    m_vKinds.push_back(*kind);
    switch (*kind) {
        case Kind::NAME:
        case Kind::ARCH:
        case Kind::CHECKSUM:
        case Kind::GROUP:
            return Take::TEXT;
        default:
            return Take::CHILDREN;
    }
}

std::optional<PrimaryHandler::Kind> PrimaryHandler::startBoundChild(const StartTag& tag)
{
    switch (m_vKinds.back()) {
        case Kind::PACKAGE:
            return startPackageChild(tag);
        case Kind::FORMAT:
            return startFormatChild(tag);
        case Kind::PROVIDES:
        case Kind::REQUIRES:
        case Kind::OBSOLETES:
            return startEntry(tag);
        default:
            return Kind::IGNORED;
    }
}

std::optional<PrimaryHandler::Kind> PrimaryHandler::startTopLevel(const StartTag& tag) const
{
    if (std::string_view(tag.name) != "metadata" ||
        xmlStrEqual(tag.uri, xmlChars(k_pCommonNamespace)) == 0) {
        logMessage(ERROR, "bad top-level element, '%s' instead of 'metadata'", tag.name);
        return {};
    }
    return Kind::OUTSIDE;
}

PrimaryHandler::Kind PrimaryHandler::startPackage(const StartTag& tag)
{
    if (std::string_view(tag.name) != "package" ||
        xmlStrEqual(tag.uri, xmlChars(k_pCommonNamespace)) == 0) {
        return Kind::OUTSIDE;
    }
    if (findAttribute(tag, "type") != "rpm") {
        return Kind::IGNORED;
    }
    m_draft = {};
    m_texts.clear();
    for (std::vector<Entry>* pList : {&m_vProvides, &m_vRequires, &m_vObsoletes}) {
        pList->clear();
    }
    return Kind::PACKAGE;
}

std::optional<PrimaryHandler::Kind> PrimaryHandler::startPackageChild(const StartTag& tag)
{
    const std::string_view sName = tag.name;
    PackageRecord& package = m_draft.package;
    if (sName == "name") {
        return firstTime(m_draft.hasName) ? std::optional(Kind::NAME) : std::nullopt;
    }
    if (sName == "arch") {
        return firstTime(m_draft.hasArch) ? std::optional(Kind::ARCH) : std::nullopt;
    }
    if (sName == "version") {
        const auto evr = firstTime(m_draft.hasVersion) ? parseEvrAttributes(tag) : std::nullopt;
        if (!evr) {
            return {};
        }
        package.evr = {evr->epoch, evr->version, evr->release};
        return Kind::VERSION;
    }
    if (sName == "location") {
        const auto sHref =
            firstTime(m_draft.hasLocation) ? cleanAttributeOf(tag, "href") : std::nullopt;
        if (!sHref || !hasUsableFileName(*sHref)) {
            return {};
        }
        package.location = *sHref;
        return Kind::LOCATION;
    }
    if (sName == "checksum") {
        if (!firstTime(m_draft.hasChecksum)) {
            return {};
        }
        const auto sType = attributeOf(tag, "type");
        if (!sType) {
            logMessage(DEBUG, "failed parsing 'checksum' element");
            return {};
        }
        package.checksum.type = *sType;
        return Kind::CHECKSUM;
    }
    return sName == "format" ? Kind::FORMAT : Kind::IGNORED;
}

std::optional<PrimaryHandler::Kind> PrimaryHandler::startFormatChild(const StartTag& tag)
{
    const std::string_view sName = tag.name;
    if (sName == "group") {
        return firstTime(m_draft.hasGroup) ? std::optional(Kind::GROUP) : std::nullopt;
    }
    const Text sPackage = m_draft.package.name;
    if (sName == "provides") {
        logMessage(TRACE, "parsing rpm provides for '%s'", sPackage.c_str());
        return Kind::PROVIDES;
    }
    if (sName == "requires") {
        logMessage(TRACE, "parsing rpm requires for '%s'", sPackage.c_str());
        return Kind::REQUIRES;
    }
    if (sName == "obsoletes") {
        logMessage(TRACE, "parsing rpm obsoletes for '%s'", sPackage.c_str());
        return Kind::OBSOLETES;
    }
    return Kind::IGNORED;
}

std::optional<PrimaryHandler::Kind> PrimaryHandler::startEntry(const StartTag& tag)
{
    if (std::string_view(tag.name) != "entry") {
        return Kind::IGNORED;
    }
    const auto entry = parseEntry(tag);
    if (!entry) {
        return {};
    }
    if (entry->name.starts_with(k_sOfRpmItself)) {
        return Kind::ENTRY;
    }
    const EvrAttributes& evr = entry->evr;
    logMessage(
        TRACE, "%s",
        dependencyText({entry->name, {evr.epoch, evr.version, evr.release}, entry->flags}).c_str());
    const Kind list = m_vKinds.back();
    std::vector<Entry>& vEntries = list == Kind::PROVIDES   ? m_vProvides
                                   : list == Kind::REQUIRES ? m_vRequires
                                                            : m_vObsoletes;
    vEntries.push_back({m_texts.add(entry->name), m_texts.add(evr.version),
                        m_texts.add(evr.release), evr.epoch, entry->flags});
    if (vEntries.size() > k_uMaxDependencies) {
        logMessage(DEBUG, "too many dependencies of a package");
        return {};
    }
    return Kind::ENTRY;
}

bool PrimaryHandler::endElement(const std::string& sText)
{
    const Kind kind = m_vKinds.back();
    m_vKinds.pop_back();
    switch (kind) {
        case Kind::NAME:
        case Kind::ARCH:
        case Kind::CHECKSUM:
        case Kind::GROUP:
            return endText(kind, sText);
        default:
            return kind != Kind::PACKAGE || endPackage();
    }
}

bool PrimaryHandler::endText(Kind kind, const std::string& sText)
{
    const char* pElement = kind == Kind::NAME       ? "name"
                           : kind == Kind::ARCH     ? "arch"
                           : kind == Kind::CHECKSUM ? "checksum"
                                                    : "group";
    PackageRecord& package = m_draft.package;
    if (sText.empty()) {
        logNoText(pElement);
        if (kind == Kind::CHECKSUM) {
            logMessage(DEBUG, "failed parsing 'checksum' element");
        }
        return false;
    }
    if (kind == Kind::CHECKSUM) {
        package.checksum.value = sText;
        return true;
    }
    if (kind == Kind::GROUP) {
        package.group = sText;
    } else if (kind == Kind::ARCH) {
        m_draft.arch = sText;
    } else if (isClean(sText, pElement)) {
        package.name = sText;
    } else {
        return false;
    }
    return true;
}

bool PrimaryHandler::endPackage()
{
    if (!m_draft.hasName || !m_draft.hasVersion || !m_draft.hasLocation || !m_draft.hasChecksum) {
        return false;
    }
    if (isForThisMachine()) {
        takeLists();
        m_contents.packages.insertEqual(m_draft.package);
    }
    if (m_contents.packages.bytes() + m_contents.skipped.size() + textBytes() > k_uMaxBytes) {
        logMessage(ERROR, "packages of the repository take more than %u MiB of memory",
                   static_cast<unsigned>(k_uMaxBytes >> 20U));
        return false;
    }
    return true;
}

/// Puts the lists that were gathered into the draft.
void PrimaryHandler::takeLists()
{
    m_texts.find(m_vTexts);
    const auto take = [&](const std::vector<Entry>& vFrom, std::vector<Dependency>& vTo) {
        for (const Entry& entry : vFrom) {
            vTo.push_back({m_vTexts[entry.name],
                           {entry.epoch, m_vTexts[entry.version], m_vTexts[entry.release]},
                           entry.flags});
        }
    };
    take(m_vProvides, m_draft.package.provides);
    take(m_vRequires, m_draft.package.requires_);
    take(m_vObsoletes, m_draft.package.obsoletes);
}

/// False (logged, and noted) if the machine cannot install the package.
bool PrimaryHandler::isForThisMachine()
{
    auto known = m_contents.architectures.find(m_draft.arch);
    if (known == m_contents.architectures.end()) {
        if (m_contents.architectures.size() == k_uMaxArchitectures) {
            m_contents.architectures.clear();
            m_contents.architecturesKnown = false;
        }
        known = m_contents.architectures.emplace(m_draft.arch, isCompatible(m_draft.arch)).first;
    }
    if (known->second) {
        return true;
    }
    const std::string sFile = baseName(m_draft.package.location);
    logSkipped(sFile, m_draft.arch);
    m_contents.skipped.append(sFile).append(1, '\0').append(m_draft.arch).append(1, '\0');
    return false;
}
