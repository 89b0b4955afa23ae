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
    if (sText == "0") {
        return 0;  // nearly all
    }
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

namespace {

/// The attributes that an `entry` can have, found in one pass: entries are most of a primary file.
struct KnownAttributes {
    std::optional<std::string_view> name, flags, epoch, version, release;

    explicit KnownAttributes(const StartTag& tag)
    {
        for (int i = 0; i < tag.attributeCount; ++i) {
            const Attribute attribute = attributeAt(tag, i);
            std::optional<std::string_view>* pValue =
                attribute.prefixed ? nullptr : find(attribute.name);
            if (pValue != nullptr && !*pValue) {
                *pValue = attribute.value;
            }
        }
    }

private:
    std::optional<std::string_view>* find(std::string_view sName)
    {
        switch (sName.size()) {
            case 3:
                return sName == "ver" ? &version : sName == "rel" ? &release : nullptr;
            case 4:
                return sName == "name" ? &name : nullptr;
            case 5:
                return sName == "flags" ? &flags : sName == "epoch" ? &epoch : nullptr;
            default:
                return nullptr;
        }
    }
};

/// A value, telling at DEBUG if it is missing.
const std::optional<std::string_view>& told(const StartTag& tag, const char* pName,
                                            const std::optional<std::string_view>& sValue)
{
    if (!sValue) {
        logNoAttribute(pName, tag.name);
    }
    return sValue;
}

std::optional<EvrAttributes> parseEvr(const StartTag& tag, const KnownAttributes& known)
{
    const auto& sEpoch = told(tag, "epoch", known.epoch);
    const auto& sVersion = told(tag, "ver", known.version);
    const auto& sRelease = told(tag, "rel", known.release);
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

}  // namespace

std::optional<EvrAttributes> parseEvrAttributes(const StartTag& tag)
{
    return parseEvr(tag, KnownAttributes(tag));
}

std::optional<EntryAttributes> parseEntry(const StartTag& tag)
{
    const KnownAttributes known(tag);
    const auto& sName = told(tag, "name", known.name);
    if (!sName) {
        logMessage(DEBUG, "failed getting 'name' from 'entry'");
        return {};
    }
    if (sName->starts_with(k_sOfRpmItself)) {
        return EntryAttributes{*sName, {}, 0};
    }
    if (!isClean(*sName, tag.name)) {
        return {};
    }
    if (!known.version && !hasAttribute(tag, "ver")) {
        return EntryAttributes{*sName, {}, 0};
    }
    const auto evr = parseEvr(tag, known);
    if (!evr) {
        logMessage(DEBUG, "failed parsing EVR in entry");
        return {};
    }
    const auto& sFlags = told(tag, "flags", known.flags);
    if (!sFlags) {
        logMessage(DEBUG, "failed parsing 'flags' in 'entry'");
        return {};
    }
    const auto iFlags = parseFlags(*sFlags);
    return iFlags ? std::optional(EntryAttributes{*sName, *evr, *iFlags}) : std::nullopt;
}
