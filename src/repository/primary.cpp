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
    std::size_t expandedBytes = 0;  ///< what entities have stood for so far
};

/// How many bytes entities may stand for, each reference counted by itself: a few bytes of them can
/// expand to any amount, and every reference is parsed anew.
constexpr std::size_t k_uMaxExpanded = 10'000'000;
constexpr std::size_t k_uReferenceBytes = 100;  ///< what a reference costs besides

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

xmlEntityPtr onReference(void* pContext, const xmlChar* pName) noexcept
{
    Parse& parse = parseOf(pContext);
    xmlEntity* pEntity = xmlSAX2GetEntity(pContext, pName);
    if (pEntity != nullptr && pEntity->etype != XML_INTERNAL_PREDEFINED_ENTITY) {
        parse.expandedBytes += k_uReferenceBytes + static_cast<std::size_t>(pEntity->length);
        if (parse.expandedBytes > k_uMaxExpanded && !parse.failed) {
            logMessage(DEBUG, "entities expand to too much");
            proceed(pContext, false);
        }
    }
    return parse.failed ? nullptr : pEntity;
}

void onStart(void* pContext, const xmlChar* pName, const xmlChar* pPrefix, const xmlChar* pUri,
             int iDeclarations, const xmlChar** ppDeclarations, int iAttributes,
             int /*iDefaulted: those at the end, counted in iAttributes*/,
             const xmlChar** ppAttributes) noexcept
{
    Parse& parse = parseOf(pContext);
    if (!parse.failed) {
        const StartTag tag = {
            chars(pName),   pPrefix,     pUri,         iDeclarations,
            ppDeclarations, iAttributes, ppAttributes, pContext != parse.document};
        proceed(pContext, parse.handler.startElement(tag));
    }
}

void onEnd(void* pContext, const xmlChar*, const xmlChar*, const xmlChar*) noexcept
{
    Parse& parse = parseOf(pContext);
    if (!parse.failed) {
        proceed(pContext, parse.handler.endElement());
    }
}

void onText(void* pContext, const xmlChar* pText, int iLength) noexcept
{
    Parse& parse = parseOf(pContext);
    if (!parse.failed) {
        proceed(pContext, parse.handler.text({chars(pText), static_cast<std::size_t>(iLength)}));
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
    sax.getEntity = onReference;
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
