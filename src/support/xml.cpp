#include "support/xml.h"

#include "support/logger.h"

#include <libxml/parser.h>

namespace {

struct XmlFree {
    void operator()(xmlChar* pText) const { xmlFree(pText); }
};
using XmlString = std::unique_ptr<xmlChar, XmlFree>;

xmlParserInputPtr refuseEntity(const char* /*pUrl*/, const char* /*pId*/, xmlParserCtxtPtr)
{
    return nullptr;
}

}  // namespace

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
