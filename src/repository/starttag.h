#pragma once

#include "packages/dependency.h"

#include <libxml/xmlstring.h>

#include <cstdint>
#include <optional>
#include <string_view>

/// A start tag, as libxml2's SAX2 interface gives it. Valid during the event.
struct StartTag {
    const char* name;  ///< local name
    const xmlChar* prefix;
    const xmlChar* uri;  ///< null if the element is in no namespace
    int declarationCount;
    const xmlChar** declarations;  ///< pairs of prefix and URI
    int attributeCount;
    const xmlChar** attributes;  ///< local name, prefix, URI, begin and end of the value for each
};

/// An attribute without a prefix; nothing if it is missing.
[[nodiscard]] std::optional<std::string_view> findAttribute(const StartTag& tag,
                                                            std::string_view sName);

/// The same, telling at DEBUG if it is missing.
[[nodiscard]] std::optional<std::string_view> attributeOf(const StartTag& tag, const char* pName);

/// The same for a text that goes into log lines and requests and must not forge either: also
/// nothing, told at DEBUG, if it holds a control character.
[[nodiscard]] std::optional<std::string_view> cleanAttributeOf(const StartTag& tag,
                                                               const char* pName);

/// True if a text of this element holds no control character; otherwise told at DEBUG.
[[nodiscard]] bool isClean(std::string_view sText, const char* pElement);

/// A version as attributes give it. Valid during the event.
struct EvrAttributes {
    std::int32_t epoch = 0;
    std::string_view version;
    std::string_view release;
};

/// A dependency as an `entry` gives it. Valid during the event.
struct EntryAttributes {
    std::string_view name;
    EvrAttributes evr;
    std::int32_t flags = 0;
};

/// The version that the attributes `epoch` (0 to 2147483646), `ver` and `rel` give; only the last
/// may be missing. Nothing, told at DEBUG but for a bad epoch, if they are not all right.
[[nodiscard]] std::optional<EvrAttributes> parseEvrAttributes(const StartTag& tag);

/// What an entry's name begins with if it is about a feature of rpm itself.
inline constexpr std::string_view k_sOfRpmItself = "rpmlib(";

/// The dependency that an `entry` gives. Nothing, told at DEBUG, if it is malformed. Of one about rpm
/// itself only the name is read.
[[nodiscard]] std::optional<EntryAttributes> parseEntry(const StartTag& tag);
