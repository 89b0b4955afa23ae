#include "repository/primary.h"

#include "repository/dtdguard.h"
#include "repository/primaryhandler.h"
#include "support/logger.h"
#include "support/xml.h"

#include <libxml/SAX2.h>

#include <string_view>
#include <utility>

namespace {

/// The user data of the parser, which it hands on to the contexts that it makes for entities.
struct Parse : DtdGuard {
    Parse(PrimaryHandler events, xmlParserCtxt* pDocument)
        : handler(std::move(events)), document(pDocument)
    {
    }

    PrimaryHandler handler;
    xmlParserCtxt* document;        ///< the context of the document itself
    std::size_t expandedBytes = 0;  ///< what entities have stood for so far
};

/// How many bytes entities may stand for, each reference counted by itself: a few bytes of them can
/// expand to any amount, and every reference is parsed anew.
constexpr std::size_t k_uMaxExpanded = 10'000'000;

/// What a reference, and an element that comes out of one, costs besides its bytes.
constexpr std::size_t k_uBesides = 100;

// The events of the parser. The parser context is its own argument, so that libxml2's functions for
// entities, which stay in place, find it; ours lies behind its private pointer.

Parse& parseOf(void* pContext)
{
    return static_cast<Parse&>(
        *static_cast<DtdGuard*>(static_cast<xmlParserCtxt*>(pContext)->_private));
}

void proceed(void* pContext, bool bOk)
{
    if (!bOk) {
        parseOf(pContext).failed = true;
        xmlStopParser(static_cast<xmlParserCtxt*>(pContext));
        xmlStopParser(parseOf(pContext).document);
    }
}

/// Counts what entities stand for.
void expand(void* pContext, std::size_t uBytes)
{
    Parse& parse = parseOf(pContext);
    parse.expandedBytes += k_uBesides + uBytes;
    if (parse.expandedBytes > k_uMaxExpanded && !parse.failed) {
        logMessage(DEBUG, "entities expand to too much");
        proceed(pContext, false);
    }
}

xmlEntityPtr onReference(void* pContext, const xmlChar* pName) noexcept
{
    xmlEntity* pEntity = xmlSAX2GetEntity(pContext, pName);
    if (pEntity != nullptr && pEntity->etype != XML_INTERNAL_PREDEFINED_ENTITY) {
        expand(pContext, static_cast<std::size_t>(pEntity->length));
    }
    return parseOf(pContext).failed ? nullptr : pEntity;
}

void onStart(void* pContext, const xmlChar* pName, const xmlChar* pPrefix, const xmlChar* pUri,
             int iDeclarations, const xmlChar** ppDeclarations, int iAttributes,
             int /*iDefaulted: those at the end, counted in iAttributes*/,
             const xmlChar** ppAttributes) noexcept
{
    Parse& parse = parseOf(pContext);
    const bool bFromEntity = pContext != parse.document;
    if (bFromEntity) {
        expand(pContext, 0);
    }
    if (!parse.failed) {
        const StartTag tag = {chars(pName),   pPrefix,     pUri,         iDeclarations,
                              ppDeclarations, iAttributes, ppAttributes, bFromEntity};
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

void addText(void* pContext, const xmlChar* pText, int iLength, ElementText::Origin origin)
{
    Parse& parse = parseOf(pContext);
    if (!parse.failed) {
        proceed(pContext, parse.handler.text(
                              {chars(pText), static_cast<std::size_t>(iLength)},
                              pContext == parse.document ? origin : ElementText::Origin::ENTITY));
    }
}

void onText(void* pContext, const xmlChar* pText, int iLength) noexcept
{
    addText(pContext, pText, iLength, ElementText::Origin::CHARACTERS);
}

void onSection(void* pContext, const xmlChar* pText, int iLength) noexcept
{
    addText(pContext, pText, iLength, ElementText::Origin::SECTION);
}

void onComment(void* pContext, const xmlChar*) noexcept
{
    parseOf(pContext).handler.markup();
}

void onInstruction(void* pContext, const xmlChar*, const xmlChar*) noexcept
{
    parseOf(pContext).handler.markup();
}

}  // namespace

bool parsePrimary(const std::string& sPath, const std::string& sPackagesDir, PackageSet& packages)
{
    const ParserContext context = openParser(sPath);
    if (context == nullptr) {
        logMessage(ERROR, "could not open primary file '%s' for parsing", sPath.c_str());
        return false;
    }
    Parse parse(PrimaryHandler(sPackagesDir, packages), context.get());
    context->_private = static_cast<DtdGuard*>(&parse);
    xmlSAXHandler& sax = *context->sax;
    DtdGuard::install(sax);
    sax.getEntity = onReference;
    sax.startElementNs = onStart;
    sax.endElementNs = onEnd;
    sax.characters = onText;
    sax.ignorableWhitespace = onText;
    sax.cdataBlock = onSection;
    sax.comment = onComment;
    sax.processingInstruction = onInstruction;
    sax.reference = nullptr;
    xmlParseDocument(context.get());
    return !parse.failed && context->wellFormed == 1;
}
