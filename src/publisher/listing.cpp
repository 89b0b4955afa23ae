#include "publisher/listing.h"

#include "repository/document.h"

#include <charconv>
#include <string_view>
#include <utility>

namespace {

/// Elements count by their depth and name: devices have read the document before.
class ListingReader : public Document {
public:
    explicit ListingReader(Listing& listing) : m_listing(listing) {}

private:
    Take startElement(const StartTag& tag, bool bBound) override;
    bool endElement(const std::string& sText) override;

    Listing& m_listing;
    unsigned m_uDepth =
        0;  ///< of the open element: 1 is the whole, 2 a package, 3 its architecture
    std::string m_sLocation;
    Listed m_listed;
};

Take ListingReader::startElement(const StartTag& tag, bool /*bBound*/)
{
    const std::string_view sName = tag.name;
    if (m_uDepth < 2) {
        ++m_uDepth;
        return Take::CHILDREN;
    }
    if (sName == "arch") {
        ++m_uDepth;
        return Take::TEXT;
    }
    if (sName == "size") {
        const std::string_view sSize = findAttribute(tag, "package").value_or("");
        std::from_chars(sSize.data(), sSize.data() + sSize.size(), m_listed.size);
    } else if (sName == "location") {
        m_sLocation = findAttribute(tag, "href").value_or("");
    }
    return Take::NOTHING;
}

bool ListingReader::endElement(const std::string& sText)
{
    if (m_uDepth == 3) {
        m_listed.arch = sText;
    } else if (m_uDepth == 2) {
        m_listing.emplace(std::exchange(m_sLocation, {}), std::exchange(m_listed, {}));
    }
    --m_uDepth;
    return true;
}

}  // namespace

bool readListing(const std::string& sPrimary, Listing& listing)
{
    return ListingReader(listing).read(sPrimary) == Outcome::READ;
}
