#include "repository/primaryhandler.h"

#include "support/files.h"
#include "support/logger.h"
#include "support/xml.h"

#include <rpm/rpmlib.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>

namespace {

constexpr const char* k_pCommonNamespace = "http://linux.duke.edu/metadata/common";
constexpr const char* k_pRpmNamespace = "http://linux.duke.edu/metadata/rpm";

/// The most bytes of one text; what libxml2 itself allows where it builds a tree.
constexpr std::size_t k_uMaxText = 10'000'000;

struct Attribute {
    const char* name;
    bool prefixed;
    std::string_view value;
};

Attribute attributeAt(const StartTag& tag, int i)
{
    const xmlChar** pp = tag.attributes + std::ptrdiff_t{5} * i;
    const char* pBegin = chars(pp[3]);
    return {chars(pp[0]), pp[1] != nullptr, {pBegin, static_cast<std::size_t>(pp[4] - pp[3])}};
}

/// An attribute without a prefix; nothing if it is missing.
std::optional<std::string_view> findAttribute(const StartTag& tag, std::string_view sName)
{
    for (int i = 0; i < tag.attributeCount; ++i) {
        const Attribute attribute = attributeAt(tag, i);
        if (!attribute.prefixed && attribute.name == sName) {
            return attribute.value;
        }
    }
    return {};
}

/// The same, telling at DEBUG if it is missing.
std::optional<std::string_view> attributeOf(const StartTag& tag, const char* pName)
{
    const auto sValue = findAttribute(tag, pName);
    if (!sValue) {
        logNoAttribute(pName, tag.name);
    }
    return sValue;
}

/// True if there is an attribute of that local name, whatever its prefix.
bool hasAttribute(const StartTag& tag, std::string_view sName)
{
    for (int i = 0; i < tag.attributeCount; ++i) {
        if (attributeAt(tag, i).name == sName) {
            return true;
        }
    }
    return false;
}

/// What comes from the repository and goes into log lines and requests must not forge either.
bool isClean(std::string_view sText, const char* pElement)
{
    if (hasControlCharacter(sText)) {
        logMessage(DEBUG, "control character in '%s' of package", pElement);
        return false;
    }
    return true;
}

/// 0 to INT_MAX - 1, in decimal, with what strtol() takes in front.
std::optional<std::int32_t> parseEpoch(std::string_view sText)
{
    const std::string sCopy(sText);
    char* pEnd = nullptr;
    const long iValue = std::strtol(sCopy.c_str(), &pEnd, 10);
    if (pEnd == sCopy.c_str() || *pEnd != '\0' || iValue < 0 || iValue >= INT_MAX) {
        return {};
    }
    return static_cast<std::int32_t>(iValue);
}

std::optional<Evr> parseEvrAttributes(const StartTag& tag)
{
    const auto sEpoch = attributeOf(tag, "epoch");
    const auto sVersion = attributeOf(tag, "ver");
    const auto sRelease = attributeOf(tag, "rel");
    if (!sEpoch || !sVersion) {
        logMessage(DEBUG, "failed parsing 'version' element");
        return {};
    }
    const auto iEpoch = parseEpoch(*sEpoch);
    if (!iEpoch || !isClean(*sVersion, tag.name) || !isClean(sRelease.value_or(""), tag.name)) {
        return {};
    }
    return Evr{*iEpoch, *sVersion, sRelease.value_or("")};
}

std::optional<std::int32_t> parseFlags(std::string_view sText)
{
    struct Relation {
        std::string_view word;
        std::int32_t flags;
    };
    static constexpr std::array<Relation, 5> k_vRelations = {{{"EQ", EQUAL},
                                                              {"LE", LESS | EQUAL},
                                                              {"GE", GREATER | EQUAL},
                                                              {"LT", LESS},
                                                              {"GT", GREATER}}};
    for (const Relation& relation : k_vRelations) {
        if (sText == relation.word) {
            return relation.flags;
        }
    }
    logMessage(DEBUG, "invalid flags '%s' in 'entry'", std::string(sText).c_str());
    return {};
}

/// The version condition of an `entry`, if it has one.
[[nodiscard]] bool parseCondition(const StartTag& tag, Dependency& entry)
{
    if (!hasAttribute(tag, "ver")) {
        return true;
    }
    const auto evr = parseEvrAttributes(tag);
    if (!evr) {
        logMessage(DEBUG, "failed parsing EVR in entry");
        return false;
    }
    const auto sFlags = attributeOf(tag, "flags");
    if (!sFlags) {
        logMessage(DEBUG, "failed parsing 'flags' in 'entry'");
        return false;
    }
    const auto iFlags = parseFlags(*sFlags);
    if (!iFlags) {
        return false;
    }
    entry.evr = *evr;
    entry.flags = *iFlags;
    return true;
}

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
    std::optional<Kind> kind = Kind::IGNORED;
    if (m_vKinds.empty()) {
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
    m_vKinds.push_back(*kind);
    m_vDeclarations.push_back(*kind == Kind::FORMAT ? m_scope.find(xmlChars(k_pRpmNamespace))
                                                    : m_scope.bound());
    if (*kind == Kind::FORMAT && m_vDeclarations.back() == NamespaceScope::k_iNone) {
        logMessage(DEBUG, "no rpm specific data in XML doc");
    }
    if (*kind != Kind::IGNORED) {
        m_sText.clear();
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
        const auto sHref = firstTime(m_draft.hasLocation) ? attributeOf(tag, "href") : std::nullopt;
        if (!sHref || !isClean(*sHref, tag.name)) {
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
    m_vEntries.clear();
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
    Dependency entry;
    if (!isClean(*sName, tag.name) || !parseCondition(tag, entry)) {
        return {};
    }
    entry.name = *sName;
    logMessage(TRACE, "%s", dependencyText(entry).c_str());
    m_vEntries.push_back(entry);
    return Kind::ENTRY;
}

bool PrimaryHandler::text(std::string_view sText)
{
    switch (m_vKinds.empty() ? Kind::OUTSIDE : m_vKinds.back()) {
        case Kind::NAME:
        case Kind::ARCH:
        case Kind::CHECKSUM:
        case Kind::GROUP:
            m_sText += sText;
            return m_sText.size() <= k_uMaxText;
        default:
            return true;
    }
}

bool PrimaryHandler::endElement()
{
    const Kind kind = m_vKinds.back();
    m_vKinds.pop_back();
    m_vDeclarations.pop_back();
    m_scope.leave();
    switch (kind) {
        case Kind::NAME:
        case Kind::ARCH:
        case Kind::CHECKSUM:
        case Kind::GROUP:
            return endText(kind);
        case Kind::PROVIDES:
        case Kind::REQUIRES:
        case Kind::OBSOLETES:
            endList(kind);
            return true;
        case Kind::PACKAGE:
            return endPackage();
        default:
            return true;
    }
}

bool PrimaryHandler::endText(Kind kind)
{
    const char* pElement = kind == Kind::NAME       ? "name"
                           : kind == Kind::ARCH     ? "arch"
                           : kind == Kind::CHECKSUM ? "checksum"
                                                    : "group";
    Package& package = m_draft.package;
    if (m_sText.empty()) {
        logNoText(pElement);
        if (kind == Kind::CHECKSUM) {
            logMessage(DEBUG, "failed parsing 'checksum' element");
        }
        return false;
    }
    if (kind == Kind::CHECKSUM) {
        package.checksum.value = m_sText;
        return true;
    }
    if (!isClean(m_sText, pElement)) {
        return false;
    }
    if (kind == Kind::NAME) {
        package.name = m_sText;
    } else if (kind == Kind::ARCH) {
        m_draft.arch = m_sText;
    } else {
        package.group = m_sText;
    }
    return true;
}

void PrimaryHandler::endList(Kind kind)
{
    Package& package = m_draft.package;
    DependencySet& set = kind == Kind::PROVIDES   ? package.provides
                         : kind == Kind::REQUIRES ? package.requires_
                                                  : package.obsoletes;
    set.insertAll(m_vEntries);
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
                   m_draft.arch.c_str());
        return true;
    }
    m_packages.insertEqual(std::move(package));
    return true;
}
