#include "support/files.h"

#include "support/checksum.h"
#include "support/xml.h"
#include "testing/testing.h"

#include <gtest/gtest.h>

namespace {

constexpr const char* k_pHello = "f572d396fae9206628714fb2ce00f72e94f2258f";  // of "hello\n"

/// "hello\n", and the same in gzip form.
const std::string k_sHello = "hello\n";
const std::string k_sGzip(
    "\x1f\x8b\x08\0\0\0\0\0\x02\x03\xcb\x48\xcd\xc9\xc9\xe7\x02\0\x20\x30\x3a"
    "\x36\x06\0\0\0",
    26);

}  // namespace

TEST(FileDigest, isThatOfTheStandardAtTheEndsOfBlocks)
{
    const std::pair<std::size_t, const char*> vCases[] = {
        {0, "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {55, "8ae2d46729cfe68ff927af5eec9c7d1b66d65ac2"},
        {56, "636e2ec698dac903498e648bd2f3af641d3c88cb"},
        {63, "6d942da0c4392b123528f2905c713a3ce28364bd"},
        {64, "c6138d514ffa2135bfce0ed0b8fac65669917ec7"},
        {65, "69bd728ad6e13cd76ff19751fde427b00e395746"},
        {1023, "1d58257e7e9cecee00473911023732e408e9bee3"},
        {1024, "0ac28084ff74933d05123496dafd3791684d9b53"},
        {1025, "ca9fdc040579afc74c0e6314fee7af12bd5c4284"},
        {3000, "5e25a94c1eb80894140b670c6ae18f72d3358eec"},
    };
    TempDir dir;
    for (const auto& [uLength, pDigest] : vCases) {
        SCOPED_TRACE(uLength);
        std::string sData;
        for (std::size_t u = 0; u < uLength; ++u) {
            sData += static_cast<char>(u % 251);
        }
        Sha1Digest digest;
        ASSERT_TRUE(fileDigest(dir.write("file", sData), digest, false));
        EXPECT_EQ(hexText(digest.data(), digest.size()), pDigest);
        for (const std::size_t uPiece : {1U, 7U, 63U, 65U}) {
            Sha1Context context;
            sha1Init(context);
            for (std::size_t u = 0; u < uLength; u += uPiece) {
                sha1Update(context, reinterpret_cast<const unsigned char*>(sData.data()) + u,
                           std::min(uPiece, uLength - u));
            }
            EXPECT_EQ(sha1Final(context), digest);
        }
    }
    Sha1Context context;
    sha1Init(context);
    context.count = {0xfffffe00, 1};  // the length is counted in 64 bits
    sha1Update(context, std::array<unsigned char, 64>{}.data(), 64);
    EXPECT_EQ(context.count, (std::array<std::uint32_t, 2>{0, 2}));
}

TEST(Checksum, judgesFiles)
{
    TempDir dir;
    const std::string sPlain = dir.write("plain", k_sHello);
    const std::string sGzip = dir.write("gzip", k_sGzip);
    const std::string sBad = dir.write("bad", k_sGzip.substr(0, 18) + "xxxx" + k_sGzip.substr(22));
    const std::string sNone = dir.file("none");
    const std::string sOfGzip = "713068d09b5f3596b01bb084a197c20568dd3ea1";
    const std::string sBlank = std::string(k_pHello) + " ";
    const std::string sUpper = "F572D396FAE9206628714FB2CE00F72E94F2258F";
    const auto compared = [](const std::string& sPath, const std::string& sResult) {
        return "DEBUG: 'sha' checksum of '" + sPath + "' (" + sResult + "\n";
    };
    const std::string sChecks = std::string(k_pHello) + ") checks against " + k_pHello;
    const std::string sFails = std::string(k_pHello) + ") FAILS against ";
    const struct {
        std::string value;
        const char* type;
        std::string path;
        bool contents;
        std::string log;
    } vCases[] = {
        {k_pHello, "sha", sPlain, false, compared(sPlain, sChecks)},
        {k_pHello, "sha", sPlain, true, compared(sPlain, sChecks)},
        {k_pHello, "sha", sGzip, true, compared(sGzip, sChecks)},
        {k_pHello, "sha", sGzip, false, compared(sGzip, sOfGzip + ") FAILS against " + k_pHello)},
        {sUpper, "sha", sPlain, false, compared(sPlain, sFails + sUpper)},
        {sBlank, "sha", sPlain, false, compared(sPlain, sFails + sBlank)},
        {"", "md5", sNone, false, "ERROR: attempted to check an empty checksum\n"},
        {k_pHello, "sha1", sNone, false, "ERROR: unsupported checksum type 'sha1'\n"},
        {k_pHello, "SHA", sNone, false, "ERROR: unsupported checksum type 'SHA'\n"},
        {k_pHello, "sha", sBad, true, "ERROR: failed while reading from '" + sBad + "'\n"},
        {k_pHello, "sha", "/", false, "ERROR: failed while reading from '/'\n"},
    };
    for (const auto& test : vCases) {
        SCOPED_TRACE(test.log);
        LogCapture log;
        const Checksum sum = {test.value, test.type};
        const bool bOk = test.contents ? sum.checkContents(test.path) : sum.checkFile(test.path);
        EXPECT_EQ(bOk, test.log.find(") checks ") != std::string::npos);
        EXPECT_EQ(log.text(), test.log);
    }
    for (const bool bContents : {true, false}) {
        LogCapture log;
        Sha1Digest digest = {7};
        EXPECT_FALSE(fileDigest(sNone, digest, bContents));
        EXPECT_EQ(digest[0], 7);
        EXPECT_EQ(log.text(), "ERROR: failed opening '" + sNone +
                                  "' for checksumming (No such file or directory)\n");
    }
}

TEST(Files, helpWithPaths)
{
    for (const auto& [pPath, pName] :
         {std::pair("a/b/", "b"), std::pair("b", "b"), std::pair("/a/b.c", "b.c"),
          std::pair("a//", "a"), std::pair("//", ""), std::pair("", "")}) {
        EXPECT_EQ(baseName(pPath), pName);
    }
    TempDir dir;
    LogCapture log;
    const std::string sFile = dir.write("file", "");
    const std::string sNew = dir.file("new");
    EXPECT_TRUE(ensureDirectory(sNew));
    EXPECT_TRUE(ensureDirectory(sNew));
    EXPECT_FALSE(ensureDirectory(sFile));
    EXPECT_FALSE(ensureDirectory(sNew + "/a/b"));
    EXPECT_TRUE(isReadable(sFile));
    EXPECT_FALSE(isReadable(sFile + "/x"));
    EXPECT_EQ(log.text(), "DEBUG: successfully created dir '" + sNew +
                              "'\nDEBUG: successfully created dir '" + sNew +
                              "'\nERROR: cannot create dir '" + sFile +
                              "' (File exists)\nERROR: cannot create dir '" + sNew +
                              "/a/b' (No such file or directory)\nDEBUG: file '" + sFile +
                              "/x' not readable (Not a directory)\n");
    for (const auto& [pText, bHas] : {std::pair("a b\xc3\xa9", false), std::pair("a\n", true),
                                      std::pair("\x1f", true), std::pair("\x7f", true)}) {
        EXPECT_EQ(hasControlCharacter(pText), bHas);
    }
}

TEST(Xml, readsAttributesAndTexts)
{
    TempDir dir;
    dir.write("secret", "secret");
    refuseExternalEntities();
    const std::string sPath = dir.write(
        "x",
        "<!DOCTYPE r [<!ENTITY i 'in'><!ENTITY e SYSTEM 'secret'>]><r xmlns:p='urn:p'>"
        "<t a='' p:b='no'> x<i>y</i>&i;&e;<![CDATA[<z]]></t><t/><t><!-- --></t><t>&#32;</t></r>");
    const XmlReader reader = openXmlReader(sPath);
    ASSERT_NE(reader, nullptr);
    while (xmlTextReaderRead(reader.get()) == 1 &&
           xmlTextReaderNodeType(reader.get()) != XML_READER_TYPE_ELEMENT) {
    }
    xmlNode* pRoot = xmlTextReaderExpand(reader.get());
    ASSERT_NE(pRoot, nullptr);
    LogCapture log;
    std::string sTexts;
    for (xmlNode* p = xmlFirstElementChild(pRoot); p != nullptr; p = xmlNextElementSibling(p)) {
        std::string sText = "kept";
        sTexts += getText(p, sText) ? "[" + sText + "]" : sText;
    }
    EXPECT_EQ(sTexts, "[ xin<z]keptkept[ ]");
    std::string sValue = "kept";
    EXPECT_FALSE(getAttribute(xmlFirstElementChild(pRoot), "b", sValue));
    EXPECT_EQ(sValue, "kept");
    EXPECT_TRUE(getAttribute(xmlFirstElementChild(pRoot), "a", sValue));
    EXPECT_EQ(sValue, "");
    EXPECT_EQ(log.text(),
              "DEBUG: no string list for node 't'\nDEBUG: no string list for node 't'\n"
              "DEBUG: no attribute 'b' for node 't'\n");
    EXPECT_EQ(k_iXmlOptions, 0x494A);
    EXPECT_EQ(openXmlReader(dir.file("none")), nullptr);
}
