#include "support/xml.h"

#include "support/files.h"
#include "support/logger.h"

#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <array>
#include <cstdarg>
#include <cstdio>

namespace {

struct XmlFree {
    void operator()(xmlChar* pText) const { xmlFree(pText); }
};
using XmlString = std::unique_ptr<xmlChar, XmlFree>;

xmlParserInputPtr refuseEntity(const char* /*pUrl*/, const char* /*pId*/, xmlParserCtxtPtr)
{
    return nullptr;
}

/// Takes the pieces of a message in; prints each line when it is complete.
__attribute__((format(printf, 2, 3))) void printMarked(void* /*pContext*/, const char* pFormat, ...)
{
    static std::string s_sLine;
    std::array<char, 1024> vPiece;
    va_list vArguments;
    va_start(vArguments, pFormat);
    const int iLength = std::vsnprintf(vPiece.data(), vPiece.size(), pFormat, vArguments);
    va_end(vArguments);
    for (const char* p = vPiece.data(); iLength > 0 && *p != '\0'; ++p) {
        if (*p == '\n') {
            std::fprintf(stderr, "libxml2: %s\n", s_sLine.c_str());
            s_sLine.clear();
        } else {
            s_sLine += hasControlCharacter({p, 1}) ? '?' : *p;
        }
    }
}

}  // namespace

void markLibraryMessages()
{
    xmlSetGenericErrorFunc(nullptr, printMarked);
}

XmlReader openXmlReader(const std::string& sPath)
{
    return XmlReader(xmlReaderForFile(sPath.c_str(), nullptr, k_iXmlOptions));
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
