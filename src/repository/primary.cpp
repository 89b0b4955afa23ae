#include "repository/primary.h"

#include "repository/primaryhandler.h"
#include "support/logger.h"
#include "support/xml.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <memory>
#include <string_view>

namespace {

struct ContextDeleter {
    void operator()(xmlParserCtxt* pContext) const
    {
        xmlFreeDoc(pContext->myDoc);  // holds the internal subset only
        xmlFreeParserCtxt(pContext);
    }
};
using ParserContext = std::unique_ptr<xmlParserCtxt, ContextDeleter>;

/// The user data of the parser, which it hands on to the contexts that it makes for entities.
struct Parse {
    PrimaryHandler handler;
    xmlParserCtxt* document;  ///< the context of the document itself
    bool failed = false;
    std::size_t expandedBytes = 0;  ///< what came out of entities so far
};

/// How much may come out of entities, in bytes of text; an element counts for k_uElementBytes. A few
/// bytes of entities can stand for any amount, and each reference is parsed anew.
constexpr std::size_t k_uMaxExpanded = 10'000'000;
constexpr std::size_t k_uElementBytes = 100;

// The events of the parser. The parser context is its own argument, so that libxml2's functions for
// entities, which stay in place, find it; ours lies behind its private pointer.

Parse& parseOf(void* pContext)
{
    return *static_cast<Parse*>(static_cast<xmlParserCtxt*>(pContext)->_private);
}

void proceed(void* pContext, bool bOk)
{
    if (!bOk) {
        parseOf(pContext).failed = true;
        xmlStopParser(static_cast<xmlParserCtxt*>(pContext));
        xmlStopParser(parseOf(pContext).document);
    }
}

/// Whether an event is out of an entity.
bool isFromEntity(void* pContext)
{
    return pContext != parseOf(pContext).document;
}

/// Whether the handler gets an event: not behind a failure, nor out of entities without measure.
bool isWanted(void* pContext, std::size_t uBytes)
{
    Parse& parse = parseOf(pContext);
    if (!parse.failed && isFromEntity(pContext)) {
        parse.expandedBytes += uBytes;
        if (parse.expandedBytes > k_uMaxExpanded) {
            logMessage(DEBUG, "entities expand to too much");
            proceed(pContext, false);
        }
    }
    return !parse.failed;
}

void onStart(void* pContext, const xmlChar* pName, const xmlChar* pPrefix, const xmlChar* pUri,
             int iDeclarations, const xmlChar** ppDeclarations, int iAttributes,
             int /*iDefaulted: those at the end, counted in iAttributes*/,
             const xmlChar** ppAttributes) noexcept
{
    if (isWanted(pContext, k_uElementBytes)) {
        const StartTag tag = {chars(pName),   pPrefix,     pUri,         iDeclarations,
                              ppDeclarations, iAttributes, ppAttributes, isFromEntity(pContext)};
        proceed(pContext, parseOf(pContext).handler.startElement(tag));
    }
}

void onEnd(void* pContext, const xmlChar*, const xmlChar*, const xmlChar*) noexcept
{
    if (isWanted(pContext, 0)) {
        proceed(pContext, parseOf(pContext).handler.endElement());
    }
}

void onText(void* pContext, const xmlChar* pText, int iLength) noexcept
{
    const std::string_view sText = {chars(pText), static_cast<std::size_t>(iLength)};
    if (isWanted(pContext, sText.size())) {
        proceed(pContext, parseOf(pContext).handler.text(sText));
    }
}

/// A parser that reads a file, decompressing it if need be. Null if the file cannot be opened.
ParserContext openParser(const std::string& sPath)
{
    xmlParserInputBuffer* pBuffer =
        xmlParserInputBufferCreateFilename(localXmlPath(sPath).c_str(), XML_CHAR_ENCODING_NONE);
    if (pBuffer == nullptr) {
        return nullptr;
    }
    ParserContext context(xmlNewParserCtxt());
    xmlParserInput* pInput =
        context == nullptr ? nullptr
                           : xmlNewIOInputStream(context.get(), pBuffer, XML_CHAR_ENCODING_NONE);
    if (pInput == nullptr) {
        xmlFreeParserInputBuffer(pBuffer);
        return nullptr;
    }
    pInput->filename = chars(xmlCharStrdup(sPath.c_str()));
    inputPush(context.get(), pInput);
    return context;
}

}  // namespace

bool parsePrimary(const std::string& sPath, const std::string& sPackagesDir, PackageSet& packages)
{
    const ParserContext context = openParser(sPath);
    if (context == nullptr) {
        logMessage(ERROR, "could not open primary file '%s' for parsing", sPath.c_str());
        return false;
    }
    Parse parse = {PrimaryHandler(sPackagesDir, packages), context.get()};
    context->_private = &parse;
    xmlCtxtUseOptions(context.get(), k_iXmlOptions);
    xmlSAXHandler& sax = *context->sax;
    sax.startElementNs = onStart;
    sax.endElementNs = onEnd;
    sax.characters = onText;
    sax.ignorableWhitespace = onText;
    sax.cdataBlock = onText;
    sax.reference = nullptr;
    sax.comment = nullptr;
    sax.processingInstruction = nullptr;
    xmlParseDocument(context.get());
    return !parse.failed && context->wellFormed == 1;
}
