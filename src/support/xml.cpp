#include "support/xml.h"

#include "support/controls.h"
#include "support/logger.h"

#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

struct XmlFree {
    void operator()(xmlChar* pText) const { xmlFree(pText); }
};
using XmlString = std::unique_ptr<xmlChar, XmlFree>;

xmlParserInputPtr refuseEntity(const char* /*pUrl*/, const char* /*pId*/, xmlParserCtxtPtr)
{
    return nullptr;
}

/// Tells the place of an error and leaves out libxml2's words.
void printPlace(void* /*pContext*/, const char* /*pMessage*/, xmlParserSeverities severity,
                xmlTextReaderLocatorPtr pLocator)
{
    if (severity == XML_PARSER_SEVERITY_ERROR) {
        const XmlString path(xmlTextReaderLocatorBaseURI(pLocator));
        std::fprintf(stderr, "libxml2: %s:%d: parser error\n",
                     path != nullptr ? printable(chars(path.get())).c_str() : "",
                     xmlTextReaderLocatorLineNumber(pLocator));
    }
}

int g_iLinesLeft = -1;  ///< negative: no limit
std::size_t g_uSuppressed = 0;

/// Takes the pieces of a message in; prints each line when it is complete.
__attribute__((format(printf, 2, 3))) void printMarked(void* /*pContext*/, const char* pFormat, ...)
{
    static std::string s_sLine;
    char* pPiece = nullptr;
    va_list vArguments;
    va_start(vArguments, pFormat);
    const int iLength = vasprintf(&pPiece, pFormat, vArguments);
    va_end(vArguments);
    if (iLength < 0) {
        return;
    }
    s_sLine.append(pPiece, static_cast<std::size_t>(iLength));
    std::free(pPiece);
    std::size_t uEnd = 0;
    while ((uEnd = s_sLine.find('\n')) != std::string::npos) {
        if (g_iLinesLeft == 0) {
            ++g_uSuppressed;
        } else {
            std::fprintf(stderr, "libxml2: %s\n", printable(s_sLine.substr(0, uEnd)).c_str());
            g_iLinesLeft -= g_iLinesLeft > 0 ? 1 : 0;
        }
        s_sLine.erase(0, uEnd + 1);
    }
}

}  // namespace

void markLibraryMessages()
{
    xmlSetGenericErrorFunc(nullptr, printMarked);
}

LibraryMessageLimit::LibraryMessageLimit(int iLines)
{
    g_iLinesLeft = iLines;
    g_uSuppressed = 0;
}

std::size_t LibraryMessageLimit::suppressed()
{
    return g_uSuppressed;
}

LibraryMessageLimit::~LibraryMessageLimit()
{
    g_iLinesLeft = -1;
}

XmlReader openXmlReader(const std::string& sPath)
{
    return XmlReader(xmlReaderForFile(localXmlPath(sPath).c_str(), nullptr, k_iXmlOptions));
}

void quoteNothing(xmlTextReader& reader)
{
    xmlTextReaderSetErrorHandler(&reader, &printPlace, nullptr);
}

std::string localXmlPath(const std::string& sPath)
{
    return sPath.empty() || sPath.starts_with('/') ? sPath : "./" + sPath;
}

void refuseExternalEntities()
{
    xmlSetExternalEntityLoader(refuseEntity);
}

void logNoAttribute(const char* pName, const char* pElement)
{
    logMessage(DEBUG, "no attribute '%s' for node '%s'", pName, pElement);
}

void logNoText(const char* pElement)
{
    logMessage(DEBUG, "no string list for node '%s'", pElement);
}

bool getAttribute(const xmlNode* pElement, const char* pName, std::string& sValue)
{
    const XmlString text(xmlGetNoNsProp(pElement, xmlChars(pName)));
    if (text == nullptr) {
        logNoAttribute(pName, chars(pElement->name));
        return false;
    }
    sValue = chars(text.get());
    return true;
}

bool getText(const xmlNode* pElement, std::string& sValue)
{
    const XmlString text(xmlNodeListGetString(pElement->doc, pElement->children, 1));
    if (text == nullptr) {
        logNoText(chars(pElement->name));
        return false;
    }
    sValue = chars(text.get());
    return true;
}
