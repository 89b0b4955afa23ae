#pragma once

#include <libxml/tree.h>
#include <libxml/xmlreader.h>

#include <memory>
#include <string>

/// The options of every XML reader of the system: entities substituted, attribute defaults from the
/// internal subset, no warnings, no blank nodes, no network, CDATA as text.
inline constexpr int k_iXmlOptions = XML_PARSE_NOENT | XML_PARSE_DTDATTR | XML_PARSE_NOWARNING |
                                     XML_PARSE_NOBLANKS | XML_PARSE_NONET | XML_PARSE_NOCDATA;

struct XmlReaderDeleter {
    void operator()(xmlTextReader* pReader) const { xmlFreeTextReader(pReader); }
};
using XmlReader = std::unique_ptr<xmlTextReader, XmlReaderDeleter>;

/// Opens a file, plain or gzip-compressed, for reading with k_iXmlOptions. Null if the file cannot
/// be opened.
[[nodiscard]] XmlReader openXmlReader(const std::string& sPath);

/// Makes a reader tell on standard error only where a syntax error stands, and not quote the document.
void quoteNothing(xmlTextReader& reader);

/// A path in a form that libxml2 takes for nothing but a file: it has ideas about "-" and URLs.
std::string localXmlPath(const std::string& sPath);

/// Makes libxml2 refuse all external entities and DTDs, in the whole process and for good. Without
/// it a document could pull local files into its text.
void refuseExternalEntities();

/// Puts "libxml2: " in front of every line that libxml2 prints on standard error, and question
/// marks in place of control characters: it quotes the document, which could otherwise forge a line
/// of ours.
void markLibraryMessages();

/// While it lives, libxml2 prints at most so many lines on standard error: what a document makes it
/// say can be many times as long as the document.
class LibraryMessageLimit {
public:
    explicit LibraryMessageLimit(int iLines);
    ~LibraryMessageLimit();
    LibraryMessageLimit(const LibraryMessageLimit&) = delete;

    /// Lines that were not printed.
    [[nodiscard]] static std::size_t suppressed();
    LibraryMessageLimit& operator=(const LibraryMessageLimit&) = delete;
};

/// Reads an attribute that carries no namespace prefix.
///
/// @param sValue  set to its value, which may be empty; unchanged on failure.
/// @return        false if it is missing (logged at DEBUG).
[[nodiscard]] bool getAttribute(const xmlNode* pElement, const char* pName, std::string& sValue);

/// Reads the text directly inside an element, with entities substituted, untrimmed.
///
/// @param sValue  set to the text; unchanged on failure.
/// @return        false if the element has no text (logged at DEBUG).
[[nodiscard]] bool getText(const xmlNode* pElement, std::string& sValue);

/// The two lines at DEBUG by which any reader tells of a missing attribute or text.
void logNoAttribute(const char* pName, const char* pElement);
void logNoText(const char* pElement);

/// libxml2's strings are unsigned bytes in UTF-8.
inline const char* chars(const xmlChar* pText)
{
    return reinterpret_cast<const char*>(pText);
}
inline const xmlChar* xmlChars(const char* pText)
{
    return reinterpret_cast<const xmlChar*>(pText);
}
