#include "repository/starttag.h"

#include "support/controls.h"
#include "support/logger.h"
#include "support/xml.h"

#include <array>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <string>

namespace {

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
    logMessage(DEBUG, "invalid flags '%s' in 'entry'", printable(sText).c_str());
    return {};
}

/// True if there is an attribute of that local name, whatever its prefix; one that is not declared
/// is part of the name.
bool hasAttribute(const StartTag& tag, std::string_view sName)
{
    for (int i = 0; i < tag.attributeCount; ++i) {
        const xmlChar** pp = tag.attributes + std::ptrdiff_t{5} * i;
        if (attributeAt(tag, i).name == sName && (pp[1] == nullptr || pp[2] != nullptr)) {
            return true;
        }
    }
    return false;
}

}  // namespace

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

std::optional<std::string_view> attributeOf(const StartTag& tag, const char* pName)
{
    const auto sValue = findAttribute(tag, pName);
    if (!sValue) {
        logNoAttribute(pName, tag.name);
    }
    return sValue;
}

std::optional<std::string_view> cleanAttributeOf(const StartTag& tag, const char* pName)
{
    const auto sValue = attributeOf(tag, pName);
    return sValue && isClean(*sValue, tag.name) ? sValue : std::nullopt;
}

bool isClean(std::string_view sText, const char* pElement)
{
    if (hasControlCharacter(sText)) {
        logMessage(DEBUG, "control character in '%s' of package", pElement);
        return false;
    }
    return true;
}

std::optional<EvrAttributes> parseEvrAttributes(const StartTag& tag)
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
    return EvrAttributes{*iEpoch, *sVersion, sRelease.value_or("")};
}

std::optional<EntryAttributes> parseEntry(const StartTag& tag, std::string_view sName)
{
    if (!isClean(sName, tag.name)) {
        return {};
    }
    if (!hasAttribute(tag, "ver")) {
        return EntryAttributes{sName, {}, 0};
    }
    const auto evr = parseEvrAttributes(tag);
    if (!evr) {
        logMessage(DEBUG, "failed parsing EVR in entry");
        return {};
    }
    const auto sFlags = attributeOf(tag, "flags");
    if (!sFlags) {
        logMessage(DEBUG, "failed parsing 'flags' in 'entry'");
        return {};
    }
    const auto iFlags = parseFlags(*sFlags);
    return iFlags ? std::optional(EntryAttributes{sName, *evr, *iFlags}) : std::nullopt;
}
