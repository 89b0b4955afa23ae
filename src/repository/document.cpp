#include "repository/document.h"

#include "support/gzipfile.h"
#include "support/logger.h"
#include "support/readahead.h"
#include "support/signalnote.h"
#include "support/xml.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <array>
#include <cstdint>
#include <memory>

namespace {

constexpr std::int64_t k_iMaxBytes = std::int64_t{1} << 30;
constexpr std::int64_t k_iMaxTag = 65'536;
constexpr std::int64_t k_iReadAhead = 32'768;  ///< the most that libxml2 asks for beyond a tag
constexpr std::uint64_t k_uLookEvery = 4096;  ///< elements and texts between two looks for a signal
constexpr int k_iMaxAttributes = 64;          ///< of an element; real ones have up to six
constexpr int k_iMaxDeclarations = 256;       ///< of namespaces in scope; real files have two

/// Two for an element, one for an attribute or a text; a GiB of real packages has half of it.
constexpr std::uint64_t k_uMaxParts = 200'000'000;
constexpr int k_iMaxMessages = 10;
constexpr std::size_t k_uMaxSuppressed = 1'000'000;  ///< lines that libxml2 makes and nobody sees

/// The most bytes of a text that counts, as libxml2 has it for a node of a tree.
constexpr std::size_t k_uMaxText = 10'000'000;

struct ContextDeleter {
    void operator()(xmlParserCtxt* pContext) const
    {
        xmlFreeDoc(pContext->myDoc);
        xmlFreeParserCtxt(pContext);
    }
};
using Context = std::unique_ptr<xmlParserCtxt, ContextDeleter>;

/// One reading: what the parser's functions find behind its private pointer.
struct Reading {
    Reading(Document& d, GzipFile& file) : document(d), plain(file.isPlain()), bytes(file) {}

    Document& document;
    bool plain;  ///< not compressed
    ReadAhead bytes;
    xmlParserCtxt* context = nullptr;
    bool refused = false;
    std::uint64_t events = 0;
    std::uint64_t parts = 0;    ///< see k_uMaxParts
    std::int64_t received = 0;  ///< bytes given to the parser
    std::int64_t atEvent = 0;   ///< the same at the last event
    std::int64_t eventEnd = 0;  ///< place in the document behind the last event
};

Reading& readingOf(void* pContext)
{
    return *static_cast<Reading*>(static_cast<xmlParserCtxt*>(pContext)->_private);
}

/// Refuses the document, with a line unless there is one already.
void mark(Reading& reading, const char* pReason)
{
    if (!reading.refused && pReason != nullptr) {
        logMessage(DEBUG, "%s in metadata", pReason);
    }
    reading.refused = true;
}

/// For events. While the parser is reading it cannot be stopped: that frees what it reads from.
void refuse(Reading& reading, const char* pReason)
{
    mark(reading, pReason);
    xmlStopParser(reading.context);
}

/// Where the parser stands in the document.
std::int64_t placeOf(const xmlParserCtxt& context)
{
    const xmlParserInput& input = *context.input;
    return static_cast<std::int64_t>(input.consumed) + (input.cur - input.base);
}

/// Notes that the parser has made headway by so many parts, and now and then looks for a signal.
void advance(Reading& reading, std::uint64_t uParts)
{
    reading.parts += uParts;
    reading.atEvent = reading.received;
    reading.eventEnd = placeOf(*reading.context);
    if (++reading.events % k_uLookEvery != 0) {
        return;
    }
    if (signalNoted != 0) {
        refuse(reading, nullptr);
    } else if (LibraryMessageLimit::suppressed() > k_uMaxSuppressed) {
        refuse(reading, "too many errors");
    } else if (reading.parts > k_uMaxParts) {
        refuse(reading, "too many elements");
    }
}

void warnOfForm(Reading& reading, unsigned char cFirst, const char* pPath)
{
    static constexpr std::string_view k_sBegins("< \t\r\n\xef\xfe\xff\0", 9);
    if (reading.plain && k_sBegins.find(static_cast<char>(cFirst)) == std::string_view::npos) {
        logMessage(WARNING, "'%s' is neither plain nor gzip-compressed XML", pPath);
    }
}

/// Reads what the parser had no need of. False if the file is cut there.
bool endsWell(ReadAhead& file)
{
    std::array<char, 4096> vRest;
    int iRead = 0;
    std::int64_t iRest = 0;
    while ((iRead = file.read(vRest.data(), vRest.size())) > 0 && iRest < k_iMaxBytes) {
        iRest += iRead;
    }
    return iRead == 0;
}

}  // namespace

/// The functions that libxml2 calls.
struct ParserEvents {
    /// libxml2 goes on behind a failed read, up to a null byte, which it has lost by then if it had to
    /// move its buffer.
    static int read(void* pContext, char* pBuffer, int iLength) noexcept
    {
        const int iRead = readSome(pContext, pBuffer, iLength);
        if (iRead < 0) {
            *pBuffer = '\0';
        }
        return iRead;
    }

    static int readSome(void* pContext, char* pBuffer, int iLength) noexcept
    {
        Reading& reading = readingOf(pContext);
        const int iRead = reading.bytes.read(pBuffer, static_cast<unsigned>(iLength));
        if (iRead <= 0) {
            return iRead;
        }
        if (reading.received == 0) {
            warnOfForm(reading, static_cast<unsigned char>(*pBuffer),
                       static_cast<xmlParserCtxt*>(pContext)->input->filename);
        }
        reading.received += iRead;
        const auto state = reading.context->instate;
        if (reading.received > k_iMaxBytes) {
            mark(reading, "more than 1 GiB");
            return -1;
        }
        if (reading.received - reading.atEvent > k_iMaxTag + k_iReadAhead &&
            state != XML_PARSER_COMMENT && state != XML_PARSER_CDATA_SECTION) {
            mark(reading, "tag of more than 64 KiB");
            return -1;
        }
        return iRead;
    }

    static void onDeclaration(void* pContext, const xmlChar*, const xmlChar*,
                              const xmlChar*) noexcept
    {
        refuse(readingOf(pContext), "document type declaration");
    }

    static void onStart(void* pContext, const xmlChar* pName, const xmlChar* pPrefix,
                        const xmlChar* pUri, int iDeclarations, const xmlChar** ppDeclarations,
                        int iAttributes, int /*iDefaulted*/, const xmlChar** ppAttributes) noexcept
    {
        Reading& reading = readingOf(pContext);
        if (placeOf(*reading.context) - reading.eventEnd > k_iMaxTag) {
            refuse(reading, "tag of more than 64 KiB");
        }
        if (iAttributes > k_iMaxAttributes || reading.context->nsNr > 2 * k_iMaxDeclarations) {
            refuse(reading, "too many attributes or namespaces");
        }
        advance(reading, 2 + static_cast<std::uint64_t>(iAttributes));
        if (!reading.refused &&
            !reading.document.start({chars(pName), pPrefix, pUri, iDeclarations, ppDeclarations,
                                     iAttributes, ppAttributes})) {
            refuse(reading, nullptr);
        }
    }

    static void onEnd(void* pContext, const xmlChar*, const xmlChar*, const xmlChar*) noexcept
    {
        Reading& reading = readingOf(pContext);
        advance(reading, 0);
        if (!reading.refused && !reading.document.end()) {
            refuse(reading, nullptr);
        }
    }

    static void addText(void* pContext, const xmlChar* pText, int iLength, bool bSection)
    {
        Reading& reading = readingOf(pContext);
        advance(reading, 1);
        if (!reading.refused &&
            !reading.document.text({chars(pText), static_cast<std::size_t>(iLength)}, bSection)) {
            refuse(reading, nullptr);
        }
    }

    static void onText(void* pContext, const xmlChar* pText, int iLength) noexcept
    {
        addText(pContext, pText, iLength, false);
    }

    static void onSection(void* pContext, const xmlChar* pText, int iLength) noexcept
    {
        addText(pContext, pText, iLength, true);
    }

    static void onMarkup(void* pContext) noexcept
    {
        Reading& reading = readingOf(pContext);
        advance(reading, 1);
        reading.document.markup();
    }

    static void onComment(void* pContext, const xmlChar*) noexcept { onMarkup(pContext); }
    static void onInstruction(void* pContext, const xmlChar*, const xmlChar*) noexcept
    {
        onMarkup(pContext);
    }

    /// A parser that gives its events to us.
    static Context makeParser(const std::string& sPath, Reading& reading)
    {
        Context context(xmlNewParserCtxt());
        if (context == nullptr) {
            return nullptr;
        }
        context->_private = &reading;
        reading.context = context.get();
        xmlParserInputBuffer* pBuffer =
            xmlParserInputBufferCreateIO(read, nullptr, context.get(), XML_CHAR_ENCODING_NONE);
        xmlParserInput* pInput = pBuffer == nullptr ? nullptr
                                                    : xmlNewIOInputStream(context.get(), pBuffer,
                                                                          XML_CHAR_ENCODING_NONE);
        if (pInput == nullptr) {
            xmlFreeParserInputBuffer(pBuffer);
            return nullptr;
        }
        pInput->filename = chars(xmlCharStrdup(sPath.c_str()));
        inputPush(context.get(), pInput);
        xmlCtxtUseOptions(context.get(), k_iXmlOptions);
        xmlSAXHandler& sax = *context->sax;
        sax.internalSubset = onDeclaration;
        sax.startElementNs = onStart;
        sax.endElementNs = onEnd;
        sax.characters = onText;
        sax.ignorableWhitespace = onText;
        sax.cdataBlock = onSection;
        sax.comment = onComment;
        sax.processingInstruction = onInstruction;
        sax.reference = nullptr;
        return context;
    }
};

Outcome Document::read(const std::string& sPath)
{
    GzipFile file(sPath);
    if (!file.isOpen()) {
        return Outcome::NOT_OPENED;
    }
    Reading reading(*this, file);
    const Context context = ParserEvents::makeParser(sPath, reading);
    if (context == nullptr) {
        return Outcome::NOT_OPENED;
    }
    const LibraryMessageLimit limit(k_iMaxMessages);
    xmlParseDocument(context.get());
    const bool bGood = !reading.refused && context->wellFormed == 1;
    return bGood && endsWell(reading.bytes) ? Outcome::READ : Outcome::REFUSED;
}

bool Document::start(const StartTag& tag)
{
    markup();
    if (m_uPassedOver > 0 || (!m_vElements.empty() && m_vElements.back().takesText)) {
        ++m_uPassedOver;
        return true;
    }
    m_scope.enter(tag.prefix, tag.uri != nullptr, tag.declarationCount, tag.declarations);
    const int iBound = m_scope.bound();
    const bool bBound = iBound != NamespaceScope::k_iNone && !m_vElements.empty() &&
                        m_vElements.back().childBinding == iBound;
    m_vElements.push_back({false, iBound});
    const Take take = startElement(tag, bBound);
    if (take == Take::NOTHING) {
        m_scope.leave();
        m_vElements.pop_back();
        m_uPassedOver = 1;
    } else if (take == Take::TEXT) {
        m_vElements.back().takesText = true;
        m_text.clear();
    }
    return take != Take::FAIL;
}

bool Document::end()
{
    if (m_uPassedOver > 0) {
        --m_uPassedOver;
        return true;
    }
    static const std::string s_sNone;
    const bool bOk = endElement(m_vElements.back().takesText ? m_text.finish() : s_sNone);
    m_vElements.pop_back();
    m_scope.leave();
    return bOk;
}

bool Document::text(std::string_view sText, bool bSection)
{
    if (m_uPassedOver > 0 || m_vElements.empty() || !m_vElements.back().takesText) {
        return true;
    }
    m_text.add(sText, bSection);
    if (m_text.size() > k_uMaxText) {
        logMessage(DEBUG, "text of an element is too long");
        return false;
    }
    return true;
}

void Document::markup()
{
    if (m_uPassedOver == 0 && !m_vElements.empty() && m_vElements.back().takesText) {
        m_text.addMarkup();
    }
}

bool Document::bindChildrenTo(const char* pUri)
{
    m_vElements.back().childBinding = m_scope.find(xmlChars(pUri));
    return m_vElements.back().childBinding != NamespaceScope::k_iNone;
}
