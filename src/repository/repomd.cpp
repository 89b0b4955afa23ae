#include "repository/repomd.h"

#include "repository/dtdguard.h"
#include "repository/location.h"
#include "support/controls.h"
#include "support/files.h"
#include "support/logger.h"
#include "support/xml.h"

#include <cstdlib>

namespace {

constexpr const char* k_pRepoNamespace = "http://linux.duke.edu/metadata/repo";

bool parseChecksumElement(const xmlNode* pElement, Checksum& checksum)
{
    if (!getAttribute(pElement, "type", checksum.type) || !getText(pElement, checksum.value)) {
        logMessage(DEBUG, "failed parsing 'checksum' element");
        return false;
    }
    return true;
}

bool parseTimestamp(const xmlNode* pElement, std::uint32_t& uTimestamp)
{
    std::string sText;
    if (!getText(pElement, sText)) {
        return false;
    }
    char* pEnd = nullptr;
    const unsigned long long uValue = std::strtoull(sText.c_str(), &pEnd, 10);
    if (sText.empty() || *pEnd != '\0' || pEnd == sText.c_str() || uValue == UINT64_MAX) {
        logMessage(DEBUG, "failed parsing 'timestamp'");
        return false;
    }
    uTimestamp = static_cast<std::uint32_t>(uValue);
    return true;
}

bool parseLocation(const xmlNode* pElement, std::string& sLocation)
{
    if (!getAttribute(pElement, "href", sLocation)) {
        return false;
    }
    if (hasControlCharacter(sLocation)) {
        logMessage(DEBUG, "control character in 'location' of 'data' element");
        return false;
    }
    return hasUsableFileName(sLocation);
}

bool parseData(const xmlNode* pElement, const std::string& sCacheDir, RepoResource& resource)
{
    if (!getAttribute(pElement, "type", resource.type)) {
        logMessage(DEBUG, "no 'type' attribute in 'data' element");
        return false;
    }
    for (const xmlNode* pChild = pElement->children; pChild != nullptr; pChild = pChild->next) {
        if (pChild->type != XML_ELEMENT_NODE || pChild->ns != pElement->ns) {
            continue;
        }
        const std::string_view sName = chars(pChild->name);
        bool bOk = true;
        if (sName == "location") {
            bOk = parseLocation(pChild, resource.location);
        } else if (sName == "checksum") {
            bOk = parseChecksumElement(pChild, resource.checksum);
        } else if (sName == "open-checksum") {
            bOk = parseChecksumElement(pChild, resource.openChecksum);
        } else if (sName == "timestamp") {
            bOk = parseTimestamp(pChild, resource.timestamp);
        }
        if (!bOk) {
            return false;
        }
    }
    const std::string sBase = baseName(resource.location);
    if (resource.type == "primary" &&
        (sBase == "packages" || sBase == baseName(k_pIndexLocation))) {
        logMessage(DEBUG, "'location' of 'data' element takes a place of the cache");
        return false;
    }
    resource.localPath = sCacheDir + sBase;
    return true;
}

/// Handles the reader's node and moves on.
///
/// @return as for xmlTextReaderRead(): 1 for another node, 0 at the end, negative for a failure.
int parseNode(xmlTextReader* pReader, const std::string& sCacheDir, ResourceSet& resources)
{
    if (xmlTextReaderNodeType(pReader) != XML_READER_TYPE_ELEMENT) {
        return xmlTextReaderRead(pReader);
    }
    const xmlChar* pName = xmlTextReaderConstLocalName(pReader);
    const bool bOurs =
        xmlStrEqual(xmlTextReaderConstNamespaceUri(pReader), xmlChars(k_pRepoNamespace)) != 0;
    if (xmlTextReaderDepth(pReader) == 0 &&
        !(bOurs && xmlStrEqual(pName, xmlChars("repomd")) != 0)) {
        logMessage(DEBUG, "bad top-level element, '%s' instead of 'rempomd'", chars(pName));
        return -1;
    }
    if (!bOurs || xmlStrEqual(pName, xmlChars("data")) == 0) {
        return xmlTextReaderRead(pReader);
    }
    RepoResource resource;
    const xmlNode* pElement = xmlTextReaderExpand(pReader);
    if (pElement == nullptr || !parseData(pElement, sCacheDir, resource)) {
        logMessage(DEBUG, "failed parsing 'data' element");
        return -1;
    }
    resources.insert(std::move(resource));
    return xmlTextReaderNext(pReader);
}

}  // namespace

bool parseRepomd(const std::string& sCacheDir, ResourceSet& resources)
{
    const std::string sPath = sCacheDir + baseName(k_pIndexLocation);
    if (!passesDtdGuard(sPath)) {
        return false;
    }
    const XmlReader reader = openXmlReader(sPath);
    if (reader == nullptr) {
        return false;
    }
    int iRead = xmlTextReaderRead(reader.get());
    while (iRead == 1) {
        iRead = parseNode(reader.get(), sCacheDir, resources);
    }
    return iRead == 0;
}
