#pragma once

#include <libxml/parser.h>

#include <cstddef>
#include <memory>
#include <string>

struct ParserContextDeleter {
    void operator()(xmlParserCtxt* pContext) const;
};
/// A parser of one document, with the internal subset that it has read.
using ParserContext = std::unique_ptr<xmlParserCtxt, ParserContextDeleter>;

/// A parser that reads a file with k_iXmlOptions, decompressing it if need be. Null if the file cannot
/// be opened.
[[nodiscard]] ParserContext openParser(const std::string& sPath);

/// Keeps a document type declaration from costing more than the document: parameter entities and
/// attribute defaults can stand for any amount of work in a few hundred bytes, and libxml2 sets them
/// no limit. Metadata need neither. The private pointer of the parser context must point at one.
struct DtdGuard {
    bool failed = false;         ///< the document is refused (logged at DEBUG)
    std::size_t attributes = 0;  ///< attribute declarations so far

    /// Puts the guard in front of libxml2's own functions.
    static void install(xmlSAXHandler& sax);
};

/// Reads a document up to its first element, silently, and tells whether the guard lets it pass: for
/// a document that is then read by other means.
[[nodiscard]] bool passesDtdGuard(const std::string& sPath);
