#include "repository/primary.h"

#include "support/signalnote.h"
#include "support/xml.h"
#include "testing/cases.h"

#include <rpm/rpmlib.h>
#include <zlib.h>

#include <string_view>

namespace {

/// A package with all that it may hold, and with elements in places where they do not count.
const std::string k_sDocument = R"(<c:metadata xmlns:c='http://linux.duke.edu/metadata/common'
 xmlns:r='http://linux.duke.edu/metadata/rpm'><package type='rpm'/><c:x><c:package type='rpm'>
<name/><c:name>f<!-- c -->o<c:x>no</c:x>&#111;</c:name><name xmlns='http://linux.duke.edu/metadata/common'/>
<c:package type='rpm'><c:name/></c:package>
<c:arch>noarch</c:arch><c:version epoch=' 2' ver='1.2' rel=''/>
<c:checksum type='sha' pkgid='YES'>abc</c:checksum><c:location href='dir/foo.rpm'/>
<c:format><r:group><![CDATA[Net]]></r:group><c:group/>
<r:provides><r:entry name='foo' flags='EQ' epoch='2' ver='1.2' rel='3'/>
 <r:entry name='any' flags='nonsense'/></r:provides>
<r:requires><r:entry name='z' flags='LE' epoch='0' ver='1' rel=''/><entry/><r:other/>
 <q:entry xmlns:q='http://linux.duke.edu/metadata/rpm'/>
 <r:entry name='rpmlib(X)' ver='broken'/><r:entry name='a-rpmlib('/>
 <r:entry name='z' flags='LE' epoch='0' ver='1.' rel=''/></r:requires>
<r:requires><r:entry name='b' flags='GT' epoch='0' ver='1' rel=''/></r:requires>
<r:obsoletes><r:entry name='o' flags='LT' epoch='0' ver='1' rel=''/>
 <r:entry name='o' flags='GE' epoch='0' ver='1' rel=''/></r:obsoletes></c:format><c:format/>
</c:package></c:x></c:metadata>)";

/// Everything that a package holds.
std::string describe(const Package& package)
{
    const auto entry = [](const Dependency& dependency) {
        return dependencyText(dependency) + "|" + std::to_string(dependency.flags);
    };
    return packageText(package) + " " + package.group().str() + " " +
           std::string(package.location()) + " " + package.checksum().type + " " +
           package.checksum().value + "\nR " + allOf(package.needs(), entry) + "\nP " +
           allOf(package.provides(), entry) + "\nO " + allOf(package.obsoletes(), entry);
}

/// Reads a primary file. Returns whether that went well, and the packages.
template <typename ToText = decltype(packageText)*>
std::string parsed(const std::string& sDocument, ToText toText = packageText)
{
    rpmReadConfigFiles(nullptr, nullptr);
    const TempDir dir;
    PrimaryContents contents;
    const bool bOk = parsePrimary(dir.write("p", sDocument), contents);
    return (bOk ? "ok " : "failed ") + allOf(contents.packages, toText);
}

TEST(Primary, readsAllOfAPackage)
{
    EXPECT_EQ(parsed(k_sDocument, describe),
              "ok foo-2:1.2 Net dir/foo.rpm sha abc\n"
              "R a-rpmlib(|0, b > 0:1|4, z <= 0:1|10, \nP any|0, foo = 2:1.2-3|8, \n"
              "O o < 0:1|2, o >= 0:1|12, , ");
    const std::string sEnd = "</c:x></c:metadata>";
    const std::size_t uBegin = k_sDocument.find("<c:package");
    const std::string sPackage = k_sDocument.substr(uBegin, k_sDocument.find(sEnd) - uBegin);
    const std::string sOther = replaced(sPackage, "ver='1.2' rel=''", "ver='1.3' rel='1'");
    EXPECT_EQ(parsed(replaced(k_sDocument, sEnd, sOther + sPackage + sEnd)),
              "ok foo-2:1.2, foo-2:1.3-1, foo-2:1.2, ");  // in order
    PrimaryContents contents;
    EXPECT_FALSE(parsePrimary("/none", contents));
}

TEST(Primary, judgesWhatDiffers)
{
    const std::string sSkip = "WARNING: skipping package 'foo.rpm' of non-compatible arch '";
    const std::string sNo = "DEBUG: no attribute '";
    const std::string sBadVersion = "DEBUG: failed parsing 'version' element\n";
    const std::string sBadSum = "DEBUG: failed parsing 'checksum' element\n";
    const std::string sControl = "DEBUG: control character in '";
    const std::string sUnusable = "DEBUG: unusable file name '";
    const std::string sBadTop = "ERROR: bad top-level element, '";
    const std::string sNoRpm = "DEBUG: no rpm specific data in XML doc\n";
    const std::string sOne = "ok foo-2:1.2, ";
    const std::string sFailed = "failed ";
    std::vector<std::pair<std::tuple<std::string, std::string>, std::string>> vCases = {
        {{"type='rpm'", "type='srpm'"}, "ok "},
        {{"<c:arch>noarch</c:arch>", ""}, "ok " + sSkip + "'\n"},
        {{"noarch", "va&#10;x"}, "ok " + sSkip + "va?x'\n"},
        {{"noarch</c:arch><c:version", "vax</c:arch><c:x"}, sFailed},
        {{"<c:version", "<c:x"}, sFailed},
        {{"<c:location", "<c:x"}, sFailed},
        {{"c:checksum", "c:x"}, sFailed},
        {{"<c:group/>", "<r:group>b</r:group>"}, sFailed},
        {{"noarch", "<c:a>x</c:a>"}, sFailed + "DEBUG: no string list for node 'arch'\n"},
        {{"abc", ""}, sFailed + "DEBUG: no string list for node 'checksum'\n" + sBadSum},
        {{"type='sha'", ""}, sFailed + sNo + "type' for node 'checksum'\n" + sBadSum},
        {{"href", "xml:href"}, sFailed + sNo + "href' for node 'location'\n"},
        {{"epoch=' 2'", ""}, sFailed + sNo + "epoch' for node 'version'\n" + sBadVersion},
        {{"ver='1.2' rel=''", "ver='1.2'"}, sOne + sNo + "rel' for node 'version'\n"},
        {{"ver='1.2'", "ver='1.2&#10;'"}, sFailed + sControl + "version' of package\n"},
        {{"rel=''", "rel='&#127;'"}, sFailed + sControl + "version' of package\n"},
        {{"epoch=' 2'", "epoch='2147483647'"}, sFailed},
        {{"epoch=' 2'", "epoch='-1'"}, sFailed},
        {{"<c:name>f", "<c:name>&#10;f"}, sFailed + sControl + "name' of package\n"},
        {{"dir/", "&#13;&#10;Host: "}, sFailed + sControl + "location' of package\n"},
        {{"foo.rpm", "foo.rpm.tmp/"}, sFailed + sUnusable + "foo.rpm.tmp' in 'location'\n"},
        {{"dir/", "d*r.tmp/"}, sOne},
        {{"name='any'", ""},
         sFailed + sNo + "name' for node 'entry'\nDEBUG: failed getting 'name' from 'entry'\n"},
        {{"flags='EQ'", ""},
         sFailed + sNo + "flags' for node 'entry'\nDEBUG: failed parsing 'flags' in 'entry'\n"},
        {{"'EQ'", "'eq'"}, sFailed + "DEBUG: invalid flags 'eq' in 'entry'\n"},
        {{"'EQ' epoch='2'", "'EQ'"},
         sFailed + sNo + "epoch' for node 'entry'\n" + sBadVersion +
             "DEBUG: failed parsing EVR in entry\n"},
        {{"xmlns:c='", "xmlns:c='urn:"}, sFailed + sBadTop + "metadata' instead of 'metadata'\n"},
        {{"xmlns:r='", "xmlns:r='urn:"}, sOne + sNoRpm + sNoRpm},
        {{"<c:format>", "<c:format xmlns:r='urn:r'>"}, sOne + sNoRpm},
        {{"</c:metadata>", ""}, "failed foo-2:1.2, "}};
    const auto once = [](const std::string& sName) {
        return "<c:" + sName + " ver='1' epoch='0' type='sha' href='a'>a</c:" + sName + ">";
    };
    for (const char* pName : {"name", "arch", "version", "checksum", "location"}) {
        vCases.push_back({{"<c:format>", once(pName) + "<c:format>"}, sFailed});
    }
    for (const char c : std::string_view("*?[]{}\\\"'")) {
        vCases.push_back({{"foo", "&#" + std::to_string(c) + ";"},
                          sFailed + sUnusable + c + ".rpm' in 'location'\n"});
    }
    expectEach(vCases, [](const auto& sPart, const auto& sNew) {
        return parsed(replaced(k_sDocument, sPart, sNew));
    });
}

/// What getText() finds in the first element `arch` of the document.
std::string archInTree(const std::string& sPath)
{
    const XmlReader reader = openXmlReader(sPath);
    while (xmlTextReaderRead(reader.get()) == 1) {
        if (std::string_view(chars(xmlTextReaderConstLocalName(reader.get()))) == "arch") {
            std::string sText;
            return getText(xmlTextReaderExpand(reader.get()), sText) ? sText : "nothing";
        }
    }
    return "no arch";
}

TEST(Primary, takesTheTextThatATreeWouldHold)
{
    const std::vector<std::string> vPieces = {
        " ",    "a ", "<!-- c -->", "<?p i?>", "<![CDATA[b]]>", "<![CDATA[ ]]>", "<c:x> </c:x>",
        "&amp;"};
    std::vector<std::string> vTexts = {"", "<?p i?>a"};
    for (std::size_t u = 0; u < 146; ++u) {  // each with up to three pieces behind it
        for (const std::string& sPiece : vPieces) {
            vTexts.push_back(vTexts[u] + sPiece);
        }
    }
    const TempDir dir;
    for (const std::string& sText : vTexts) {
        const std::string sPath = dir.write("p", replaced(k_sDocument, "noarch", sText));
        const LogCapture log;
        PrimaryContents contents;
        const bool bOk = parsePrimary(sPath, contents);
        const std::string sTree = archInTree(sPath);
        EXPECT_EQ(bOk, sTree != "nothing") << sText;
        EXPECT_THAT(log.text(), testing::EndsWith(bOk ? " arch '" + sTree + "'\n" : "")) << sText;
    }
}

TEST(Primary, readsPlainAndWholeGzipFilesOnly)
{
    rpmReadConfigFiles(nullptr, nullptr);
    const TempDir dir;
    gzFile pFile = gzopen(dir.file("p").c_str(), "wb");
    EXPECT_GT(gzputs(pFile, k_sDocument.c_str()), 0);
    gzclose(pFile);
    const std::string sWhole = dir.read("p");
    const auto accepts = [&](const std::string& sFile) {
        PrimaryContents contents;
        return parsePrimary(dir.write("p", sFile), contents);
    };
    EXPECT_TRUE(accepts(sWhole));
    EXPECT_FALSE(accepts(sWhole.substr(0, sWhole.size() - 5)));  // behind the last element
    for (const char* sOther : {"BZh9", "\3757zXZ", "\x28\xb5\x2f\xfd"}) {  // bzip2, xz, zstd
        const LogCapture log;
        EXPECT_FALSE(accepts(sOther));
        EXPECT_TRUE(log.text().ends_with("p' is neither plain nor gzip-compressed XML\n"));
    }
}

TEST(Primary, isNotExhausted)
{
    const auto times = [](int iTimes, const std::string& sText) {
        return allOf(
            std::vector<int>(static_cast<std::size_t>(iTimes)), [&](int) { return sText; }, "");
    };
    const std::string sLong =
        "<r:entry name='l' flags='EQ' epoch='0' rel='' ver='" + std::string(50'000, '1');
    const std::string sKib(1023, ' ');
    std::string sScopes;
    for (int i = 0; i < 60; ++i) {
        sScopes += " a" + std::to_string(i) + "='u' xmlns:n" + std::to_string(i) + "='u'";
    }
    const std::string sTag = "failed DEBUG: tag of more than 64 KiB in metadata\n";
    const std::string sMany = "failed DEBUG: too many attributes or namespaces in metadata\n";
    const auto provides = [](const std::string& sNew) {
        return parsed(
            sNew.starts_with("<!DOCTYPE") ? sNew + k_sDocument
                                          : replaced(k_sDocument, "<c:format/>", sNew),
            [](const Package& package) { return std::to_string(package.provides().size()); });
    };
    expectEach<std::string>(
        {{"<!DOCTYPE x>", "failed DEBUG: document type declaration in metadata\n"},
         {"<c:format/>" + times(10, "<x " + times(63, sKib + " ") + "/>"), "ok 2, "},
         {"<x " + times(64, sKib + " ") + "/>", sTag},
         {"<x " + times(5000, sKib + " "), sTag},  // without an end
         {"<!--" + times(5000, sKib + " ") + "-->", "ok 2, "},
         {"<x><![CDATA[" + times(5000, sKib + " ") + "]]></x>", "ok 2, "},
         {"<c:format" + sScopes + "/>", "ok 2, "},
         {"<c:format" + times(5, " b='u'") + sScopes + "/>", "failed "},  // the same name twice
         {"<c:format c='u' d='u' e='u' f='u' g='u'" + sScopes + "/>", sMany},
         {times(5, "<y" + sScopes + ">") + times(5, "</y>"), sMany},
         {"<c:format><r:provides>" + times(20000, "<r:entry name='p'/>") + "</r:provides>" +
              times(20000, "<r:provides/>") + "</c:format>",
          "ok 3, "},
         {"<c:format><r:provides>" + times(100'001, "<r:entry name='p'/>") +
              "</r:provides></c:format>",
          "failed DEBUG: too many dependencies of a package\n"},
         {"<c:format><r:provides>" + sLong + "1'/>" + sLong + "2'/></r:provides></c:format>",
          "ok 3, "}},
        provides);
    const LogCapture log;
    PrimaryContents contents;
    signalNoted = 1;
    const TempDir dir;
    EXPECT_FALSE(parsePrimary(
        dir.write("p", replaced(k_sDocument, "<c:format/>", times(5000, "<x/>"))), contents));
    signalNoted = 0;
}

TEST(PrimaryDeathTest, takesMemoryUpToALimit)
{
    rpmReadConfigFiles(nullptr, nullptr);
    const TempDir dir;
    const std::string sPath = dir.write("p", k_sDocument);
    const auto readBehind = [&](int iMebibytes) {  // of texts, which live as long as their process
        for (int i = 0; i < iMebibytes; ++i) {
            static_cast<void>(Text(std::to_string(i) + std::string(std::size_t{1} << 20U, 'x')));
        }
        PrimaryContents contents;
        exit(parsePrimary(sPath, contents) ? 0 : 3);
    };
    EXPECT_EXIT(readBehind(190), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(readBehind(200), testing::ExitedWithCode(3),
                "ERROR: packages of the repository take more than 200 MiB of memory\n");
}

}  // namespace
