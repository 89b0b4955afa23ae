// What the libraries alone take, for the bench to measure:
//
//     limits gunzip FILE      unpacks with zlib, prints the size
//     limits walk FILE        unpacks and walks over it with libxml2's SAX2 interface, looking at each text and
//                             attribute; prints how many packages there are
//     limits headers          reads names, versions and dependencies in the rpm database, prints how many
//                             packages there are
//     limits checked-headers  the same, with digests and signatures of the headers checked

#include <libxml/parser.h>
#include <zlib.h>

#include <rpm/rpmdb.h>
#include <rpm/rpmlib.h>
#include <rpm/rpmts.h>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

struct Walk {
    unsigned long packages = 0;
    unsigned long looked = 0;  ///< of no meaning; keeps what is looked at from being left out
};

void onStart(void* pWalk, const xmlChar* pName, const xmlChar*, const xmlChar*, int,
             const xmlChar**, int iAttributes, int, const xmlChar** ppAttributes)
{
    auto& walk = *static_cast<Walk*>(pWalk);
    walk.packages += xmlStrEqual(pName, BAD_CAST "package") != 0 ? 1 : 0;
    for (int i = 0; i < iAttributes; ++i) {
        const xmlChar** ppOne = ppAttributes + std::ptrdiff_t{5} * i;  // its name, ..., begin, end
        walk.looked += *ppOne[0] + *ppOne[3] + static_cast<unsigned long>(ppOne[4] - ppOne[3]);
    }
}

void onText(void* pWalk, const xmlChar* pText, int iLength)
{
    static_cast<Walk*>(pWalk)->looked += *pText + static_cast<unsigned long>(iLength);
}

/// Unpacks a file and hands its parts to `take`.
///
/// @return false if that failed.
template <typename Take>
bool unpack(const char* pPath, Take take)
{
    gzFile file = gzopen(pPath, "rb");
    if (file == nullptr) {
        return false;
    }
    std::vector<char> vBuffer(std::size_t{64} * 1024);
    gzbuffer(file, static_cast<unsigned>(vBuffer.size()));
    int iRead = 0;
    while ((iRead = gzread(file, vBuffer.data(), static_cast<unsigned>(vBuffer.size()))) > 0) {
        take(vBuffer.data(), iRead);
    }
    return gzclose(file) == Z_OK && iRead == 0;
}

bool gunzip(const char* pPath, unsigned long& uResult)
{
    return unpack(pPath,
                  [&](const char*, int iSize) { uResult += static_cast<unsigned long>(iSize); });
}

bool walkDocument(const char* pPath, unsigned long& uResult)
{
    xmlSAXHandler handler = {};
    handler.initialized = XML_SAX2_MAGIC;
    handler.startElementNs = onStart;
    handler.characters = onText;
    Walk walk;
    xmlParserCtxtPtr pParser = xmlCreatePushParserCtxt(&handler, &walk, nullptr, 0, nullptr);
    bool bOk = unpack(
        pPath, [&](const char* pData, int iSize) { xmlParseChunk(pParser, pData, iSize, 0); });
    bOk = xmlParseChunk(pParser, nullptr, 0, 1) == 0 && bOk && walk.looked != 0;
    xmlFreeParserCtxt(pParser);
    uResult = walk.packages;
    return bOk;
}

bool readHeaders(bool bCheck, unsigned long& uResult)
{
    if (rpmReadConfigFiles(nullptr, nullptr) != 0) {
        return false;
    }
    rpmts ts = rpmtsCreate();
    if (!bCheck) {
        rpmtsSetVSFlags(ts, RPMVSF_NOHDRCHK);
    }
    rpmdbMatchIterator iterator = rpmtsInitIterator(ts, RPMDBI_PACKAGES, nullptr, 0);
    rpmtd values = rpmtdNew();
    while (Header header = rpmdbNextIterator(iterator)) {
        for (const rpmTag tag : {RPMTAG_NAME, RPMTAG_EPOCH, RPMTAG_VERSION, RPMTAG_RELEASE,
                                 RPMTAG_PROVIDENAME, RPMTAG_PROVIDEFLAGS, RPMTAG_PROVIDEVERSION,
                                 RPMTAG_REQUIRENAME, RPMTAG_REQUIREFLAGS, RPMTAG_REQUIREVERSION}) {
            headerGet(header, tag, values, HEADERGET_MINMEM);
            rpmtdFreeData(values);
        }
        ++uResult;
    }
    rpmtdFree(values);
    rpmdbFreeIterator(iterator);
    rpmtsFree(ts);
    return true;
}

}  // namespace

int main(int argc, char* argv[])
{
    const char* pWhat = argc > 1 ? argv[1] : "";
    const char* pPath = argc > 2 ? argv[2] : "";
    unsigned long uResult = 0;
    const bool bOk = std::strcmp(pWhat, "gunzip") == 0            ? gunzip(pPath, uResult)
                     : std::strcmp(pWhat, "walk") == 0            ? walkDocument(pPath, uResult)
                     : std::strcmp(pWhat, "headers") == 0         ? readHeaders(false, uResult)
                     : std::strcmp(pWhat, "checked-headers") == 0 ? readHeaders(true, uResult)
                                                                  : false;
    std::printf("%lu\n", uResult);
    return bOk ? EXIT_SUCCESS : EXIT_FAILURE;
}
