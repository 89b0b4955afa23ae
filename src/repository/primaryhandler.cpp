#include "repository/primaryhandler.h"

#include "repository/location.h"
#include "support/controls.h"
#include "support/files.h"
#include "support/logger.h"
#include "support/xml.h"

#include <rpm/rpmlib.h>

#include <utility>

namespace {

constexpr const char* k_pCommonNamespace = "http://linux.duke.edu/metadata/common";
constexpr const char* k_pRpmNamespace = "http://linux.duke.edu/metadata/rpm";

/// The most bytes of a text that counts, as libxml2 has it for a node of a tree.
constexpr std::size_t k_uMaxText = 10'000'000;

/// The most namespace declarations in scope. Real files have two.
constexpr std::size_t k_uMaxDeclarations = 256;

/// Marks a part of a package as read. False if it was there before.
[[nodiscard]] bool firstTime(bool& bRead)
{
    return !std::exchange(bRead, true);
}

}  // namespace

bool PrimaryHandler::startElement(const StartTag& tag)
{
    m_scope.enter(tag.prefix, tag.uri != nullptr, tag.declarationCount, tag.declarations);
    const Kind parent = m_vKinds.empty() ? Kind::OUTSIDE : m_vKinds.back();
    if (m_scope.declarations() > k_uMaxDeclarations) {
        logMessage(DEBUG, "too many namespace declarations");
        return false;
    }
    std::optional<Kind> kind = Kind::IGNORED;
    if (tag.fromEntity && parent == Kind::OUTSIDE) {
        logMessage(DEBUG, "element out of an entity");
        kind = {};
    } else if (tag.fromEntity) {
        // In a tree it would not share the namespace declaration of a parent in the document.
    } else if (m_vKinds.empty()) {
        kind = startTopLevel(tag);
    } else if (parent == Kind::OUTSIDE) {
        kind = startPackage(tag);
    } else if (m_scope.bound() != NamespaceScope::k_iNone &&
               m_scope.bound() == m_vDeclarations.back()) {
        if (parent == Kind::PACKAGE) {
            kind = startPackageChild(tag);
        } else if (parent == Kind::FORMAT) {
            kind = startFormatChild(tag);
        } else if (parent == Kind::PROVIDES || parent == Kind::REQUIRES ||
                   parent == Kind::OBSOLETES) {
            kind = startEntry(tag);
        }
    }
    if (!kind) {
        return false;
    }
    markup();
    m_vKinds.push_back(*kind);
    if (takesText()) {
        m_text.clear();
    }
    m_vDeclarations.push_back(*kind == Kind::FORMAT ? m_scope.find(xmlChars(k_pRpmNamespace))
                                                    : m_scope.bound());
    if (*kind == Kind::FORMAT && m_vDeclarations.back() == NamespaceScope::k_iNone) {
        logMessage(DEBUG, "no rpm specific data in XML doc");
    }
    return true;
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
    return Kind::PACKAGE;
}

std::optional<PrimaryHandler::Kind> PrimaryHandler::startPackageChild(const StartTag& tag)
{
    const std::string_view sName = tag.name;
    Package& package = m_draft.package;
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
        package.evr = *evr;
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
    const auto sName = attributeOf(tag, "name");
    if (!sName) {
        logMessage(DEBUG, "failed getting 'name' from 'entry'");
        return {};
    }
    if (sName->starts_with("rpmlib(")) {
        return Kind::ENTRY;
    }
    const auto entry = parseEntry(tag, *sName);
    if (!entry) {
        return {};
    }
    logMessage(TRACE, "%s", dependencyText(*entry).c_str());
    const Kind list = m_vKinds.back();
    std::vector<Dependency>& vEntries = list == Kind::PROVIDES   ? m_draft.provides
                                        : list == Kind::REQUIRES ? m_draft.requires_
                                                                 : m_draft.obsoletes;
    vEntries.push_back(*entry);
    return Kind::ENTRY;
}

bool PrimaryHandler::takesText() const
{
    switch (m_vKinds.empty() ? Kind::OUTSIDE : m_vKinds.back()) {
        case Kind::NAME:
        case Kind::ARCH:
        case Kind::CHECKSUM:
        case Kind::GROUP:
            return true;
        default:
            return false;
    }
}

bool PrimaryHandler::text(std::string_view sText, ElementText::Origin origin)
{
    if (!takesText()) {
        return true;
    }
    m_text.add(sText, origin);
    if (m_text.size() > k_uMaxText) {
        logMessage(DEBUG, "text of a package is too long");
        return false;
    }
    return true;
}

void PrimaryHandler::markup()
{
    if (takesText()) {
        m_text.addMarkup();
    }
}

bool PrimaryHandler::endElement()
{
    const Kind kind = m_vKinds.back();
    const bool bText = takesText();
    m_vKinds.pop_back();
    m_vDeclarations.pop_back();
    m_scope.leave();
    if (bText) {
        return endText(kind);
    }
    return kind != Kind::PACKAGE || endPackage();
}

bool PrimaryHandler::endText(Kind kind)
{
    const char* pElement = kind == Kind::NAME       ? "name"
                           : kind == Kind::ARCH     ? "arch"
                           : kind == Kind::CHECKSUM ? "checksum"
                                                    : "group";
    const std::string& sText = m_text.finish();
    Package& package = m_draft.package;
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
    Package& package = m_draft.package;
    const std::string sFile = baseName(package.location);
    package.localPath = m_sPackagesDir + sFile;
    if (rpmMachineScore(RPM_MACHTABLE_INSTARCH, m_draft.arch.c_str()) == 0) {
        logMessage(WARNING, "skipping package '%s' of non-compatible arch '%s'", sFile.c_str(),
                   printable(m_draft.arch).c_str());
        return true;
    }
    package.provides.insertAll(std::move(m_draft.provides));
    package.requires_.insertAll(std::move(m_draft.requires_));
    package.obsoletes.insertAll(std::move(m_draft.obsoletes));
    m_packages.insertEqual(std::move(package));
    return true;
}
