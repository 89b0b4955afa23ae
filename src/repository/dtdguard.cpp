#include "repository/dtdguard.h"

#include "support/logger.h"
#include "support/xml.h"

#include <libxml/SAX2.h>
#include <libxml/parserInternals.h>

namespace {

/// The most attribute declarations of a document.
constexpr std::size_t k_uMaxAttributes = 256;

DtdGuard& guardOf(void* pContext)
{
    return *static_cast<DtdGuard*>(static_cast<xmlParserCtxt*>(pContext)->_private);
}

void refuse(void* pContext, const char* pWhat)
{
    DtdGuard& guard = guardOf(pContext);
    if (!guard.failed) {
        logMessage(DEBUG, "%s in document type declaration", pWhat);
    }
    guard.failed = true;
    xmlStopParser(static_cast<xmlParserCtxt*>(pContext));
}

void onEntity(void* pContext, const xmlChar* pName, int iType, const xmlChar* pPublicId,
              const xmlChar* pSystemId, xmlChar* pContent) noexcept
{
    if (iType == XML_INTERNAL_PARAMETER_ENTITY || iType == XML_EXTERNAL_PARAMETER_ENTITY) {
        refuse(pContext, "parameter entity");
    } else {
        xmlSAX2EntityDecl(pContext, pName, iType, pPublicId, pSystemId, pContent);
    }
}

void onAttribute(void* pContext, const xmlChar* pElement, const xmlChar* pName, int iType,
                 int iDefault, const xmlChar* pValue, xmlEnumeration* pTree) noexcept
{
    if (++guardOf(pContext).attributes > k_uMaxAttributes) {
        xmlFreeEnumeration(pTree);  // ours by now
        refuse(pContext, "too many attributes");
    } else {
        xmlSAX2AttributeDecl(pContext, pElement, pName, iType, iDefault, pValue, pTree);
    }
}

void stopAtElement(void* pContext, const xmlChar*, const xmlChar*, const xmlChar*, int,
                   const xmlChar**, int, int, const xmlChar**) noexcept
{
    xmlStopParser(static_cast<xmlParserCtxt*>(pContext));
}

}  // namespace

void ParserContextDeleter::operator()(xmlParserCtxt* pContext) const
{
    xmlFreeDoc(pContext->myDoc);
    xmlFreeParserCtxt(pContext);
}

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
    xmlCtxtUseOptions(context.get(), k_iXmlOptions);
    return context;
}

void DtdGuard::install(xmlSAXHandler& sax)
{
    sax.entityDecl = onEntity;
    sax.attributeDecl = onAttribute;
}

bool passesDtdGuard(const std::string& sPath)
{
    const ParserContext context = openParser(sPath);
    if (context == nullptr) {
        return true;  // for the reader to tell
    }
    DtdGuard guard;
    context->_private = &guard;
    xmlCtxtUseOptions(context.get(), k_iXmlOptions | XML_PARSE_NOERROR);
    DtdGuard::install(*context->sax);
    context->sax->startElementNs = stopAtElement;
    xmlParseDocument(context.get());
    return !guard.failed;
}
