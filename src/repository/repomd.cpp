#include "repository/repomd.h"

#include "repository/document.h"
#include "repository/location.h"
#include "repository/primarytable.h"
#include "support/controls.h"
#include "support/files.h"
#include "support/logger.h"
#include "support/xml.h"

#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

namespace {

constexpr const char* k_pRepoNamespace = "http://linux.duke.edu/metadata/repo";

/// Reads the index. A child of `data` counts only if it is bound to the namespace declaration of
/// its parent.
class RepomdHandler : public Document {
public:
    /// @param pRevision  set to the text of the first `revision`; null if nobody asks for it.
    RepomdHandler(std::string sCacheDir, ResourceSet& resources, std::string* pRevision)
        : m_sCacheDir(std::move(sCacheDir)), m_resources(resources), m_pRevision(pRevision)
    {
    }

private:
    /// What an open element is to us.
    enum class Kind { OUTSIDE, DATA, LOCATION, CHECKSUM, OPEN_CHECKSUM, TIMESTAMP, REVISION };

    Take startElement(const StartTag& tag, bool bBound) override;
    bool endElement(const std::string& sText) override;
    Take startData(const StartTag& tag);
    Take startDataChild(const StartTag& tag);
    bool endData();

    std::string m_sCacheDir;
    ResourceSet& m_resources;
    std::string* m_pRevision;    ///< null when it is read, or nobody asks for it
    std::vector<Kind> m_vKinds;  ///< of the open elements
    RepoResource m_resource;     ///< of the `data` element under way
};

/// False (logged) if the element that was begun, or has ended, makes its `data` element malformed.
bool tell(bool bGood)
{
    if (!bGood) {
        logMessage(DEBUG, "failed parsing 'data' element");
    }
    return bGood;
}

/// Puts the text of an element in its place.
///
/// @return false if there is none (logged).
bool takeText(const char* pElement, const std::string& sText, std::string& sValue)
{
    if (sText.empty()) {
        logNoText(pElement);
    }
    sValue = sText;
    return !sText.empty();
}

bool takeChecksum(const char* pElement, const std::string& sText, Checksum& checksum)
{
    const bool bOk = takeText(pElement, sText, checksum.value);
    if (!bOk) {
        logMessage(DEBUG, "failed parsing 'checksum' element");
    }
    return bOk;
}

bool takeTimestamp(const std::string& sText, std::uint32_t& uTimestamp)
{
    std::string sValue;
    if (!takeText("timestamp", sText, sValue)) {
        return false;
    }
    char* pEnd = nullptr;
    const unsigned long long uValue = std::strtoull(sValue.c_str(), &pEnd, 10);
    if (*pEnd != '\0' || pEnd == sValue.c_str() || uValue == UINT64_MAX) {
        logMessage(DEBUG, "failed parsing 'timestamp'");
        return false;
    }
    uTimestamp = static_cast<std::uint32_t>(uValue);
    return true;
}

Take RepomdHandler::startElement(const StartTag& tag, bool bBound)
{
    const bool bOurs = xmlStrEqual(tag.uri, xmlChars(k_pRepoNamespace)) != 0;
    const std::string_view sName = tag.name;
    if (m_vKinds.empty() && !(bOurs && sName == "repomd")) {
        logMessage(DEBUG, "bad top-level element, '%s' instead of 'rempomd'", tag.name);
        return Take::FAIL;
    }
    if (m_pRevision != nullptr && m_vKinds.size() == 1 && bOurs && sName == "revision") {
        m_vKinds.push_back(Kind::REVISION);
        return Take::TEXT;
    }
    if (m_vKinds.empty() || (m_vKinds.back() == Kind::OUTSIDE && !(bOurs && sName == "data"))) {
        m_vKinds.push_back(Kind::OUTSIDE);
        return Take::CHILDREN;
    }
    Take take = Take::NOTHING;
    if (m_vKinds.back() == Kind::OUTSIDE) {
        take = startData(tag);
    } else if (bBound && m_vKinds.back() == Kind::DATA) {
        take = startDataChild(tag);
    }
    tell(take != Take::FAIL);
    return take;
}

Take RepomdHandler::startData(const StartTag& tag)
{
    const auto sType = attributeOf(tag, "type");
    if (!sType) {
        logMessage(DEBUG, "no 'type' attribute in 'data' element");
        return Take::FAIL;
    }
    m_resource = {};
    m_resource.type = *sType;
    m_vKinds.push_back(Kind::DATA);
    return Take::CHILDREN;
}

Take RepomdHandler::startDataChild(const StartTag& tag)
{
    const std::string_view sName = tag.name;
    if (sName == "location") {
        const auto sHref = attributeOf(tag, "href");
        if (!sHref) {
            return Take::FAIL;
        }
        if (hasControlCharacter(*sHref)) {
            logMessage(DEBUG, "control character in 'location' of 'data' element");
            return Take::FAIL;
        }
        m_resource.location = *sHref;
        m_vKinds.push_back(Kind::LOCATION);
        return hasUsableFileName(*sHref) ? Take::CHILDREN : Take::FAIL;
    }
    if (sName == "checksum" || sName == "open-checksum") {
        const auto sType = attributeOf(tag, "type");
        if (!sType) {
            logMessage(DEBUG, "failed parsing 'checksum' element");
            return Take::FAIL;
        }
        const bool bOpen = sName != "checksum";
        (bOpen ? m_resource.openChecksum : m_resource.checksum).type = *sType;
        m_vKinds.push_back(bOpen ? Kind::OPEN_CHECKSUM : Kind::CHECKSUM);
        return Take::TEXT;
    }
    if (sName == "timestamp") {
        m_vKinds.push_back(Kind::TIMESTAMP);
        return Take::TEXT;
    }
    return Take::NOTHING;
}

bool RepomdHandler::endElement(const std::string& sText)
{
    const Kind kind = m_vKinds.back();
    m_vKinds.pop_back();
    switch (kind) {
        case Kind::CHECKSUM:
            return tell(takeChecksum("checksum", sText, m_resource.checksum));
        case Kind::OPEN_CHECKSUM:
            return tell(takeChecksum("open-checksum", sText, m_resource.openChecksum));
        case Kind::TIMESTAMP:
            return tell(takeTimestamp(sText, m_resource.timestamp));
        case Kind::REVISION:
            *std::exchange(m_pRevision, nullptr) = sText;
            return true;
        case Kind::DATA:
            return tell(endData());
        default:
            return true;
    }
}

bool RepomdHandler::endData()
{
    const std::string sBase = baseName(m_resource.location);
    if (m_resource.type == "primary" &&
        (sBase == "packages" || sBase.starts_with(baseName(k_pIndexLocation)) ||
         sBase.ends_with(k_pTableSuffix))) {
        logMessage(DEBUG, "'location' of 'data' element takes a place of the cache");
        return false;
    }
    m_resource.localPath = m_sCacheDir + sBase;
    m_resources.insert(m_resource);
    return true;
}

}  // namespace

bool parseRepomd(const std::string& sCacheDir, ResourceSet& resources)
{
    RepomdHandler handler(sCacheDir, resources, nullptr);
    return handler.read(sCacheDir + baseName(k_pIndexLocation)) == Outcome::READ;
}

bool readRevision(const std::string& sPath, std::string& sRevision)
{
    ResourceSet resources;
    sRevision.clear();
    RepomdHandler handler("", resources, &sRevision);
    return handler.read(sPath) == Outcome::READ;
}
