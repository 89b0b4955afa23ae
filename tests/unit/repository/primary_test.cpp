#include "repository/primary.h"
#include "support/xml.h"
#include "testing/testing.h"

#include <gtest/gtest.h>
#include <rpm/rpmlib.h>
#include <zlib.h>

namespace {

const std::string k_sHead =
    "<metadata xmlns='http://linux.duke.edu/metadata/common' "
    "xmlns:rpm='http://linux.duke.edu/metadata/rpm'>";
const std::string k_sTail = "</metadata>";
const std::string k_sName = "<name>foo</name>";
const std::string k_sArch = "<arch>noarch</arch>";
const std::string k_sVersion = "<version epoch='0' ver='1.2' rel='3'/>";
const std::string k_sSum = "<checksum type='sha' pkgid='YES'>abc</checksum>";
const std::string k_sPlace = "<location href='dir/foo.rpm'/>";
const std::string k_sAll = k_sName + k_sArch + k_sVersion + k_sSum + k_sPlace;

std::string package(const std::string& sChildren)
{
    return "<package type='rpm'>" + sChildren + "</package>";
}

std::string format(const std::string& sChildren)
{
    return package(k_sAll + "<format>" + sChildren + "</format>");
}

std::string list(const std::string& sEntries)
{
    return format("<rpm:requires>" + sEntries + "</rpm:requires>");
}

/// Everything that a package holds, in one line.
std::string describe(const Package& package)
{
    std::string sText = packageText(package) + " group=" + package.group.str() +
                        " at=" + package.location + " local=" + package.localPath +
                        " sum=" + package.checksum.type + ":" + package.checksum.value;
    const std::pair<const char*, const DependencySet*> vLists[] = {
        {"R", &package.requires_}, {"P", &package.provides}, {"O", &package.obsoletes}};
    for (const auto& [pName, pSet] : vLists) {
        for (const Dependency& entry : *pSet) {
            sText += std::string(" ") + pName + "(" + dependencyText(entry) + "|" +
                     std::to_string(entry.flags) + ")";
        }
    }
    return sText;
}

class Primary : public testing::Test {
protected:
    static void SetUpTestSuite() { rpmReadConfigFiles(nullptr, nullptr); }

    bool parse(const std::string& sDocument)
    {
        packages.clear();
        log.clear();
        return parsePrimary(dir.write("primary.xml", sDocument), "/cache/", packages);
    }

    std::string all() const
    {
        std::string sText;
        for (const Package& package : packages) {
            sText += describe(package) + "\n";
        }
        return sText;
    }

    TempDir dir;
    PackageSet packages;
    LogCapture log;
};

constexpr const char* k_pPlain =
    "foo-0:1.2-3 group= at=dir/foo.rpm local=/cache/foo.rpm sum=sha:abc";

TEST_F(Primary, readsAllOfAPackage)
{
    const std::string sDocument =
        k_sHead +
        package("<name>f<!-- c -->o<x>no</x>&#111;</name>" + k_sArch +
                "<version epoch=' 2' ver='1.2'/>" + k_sSum + k_sPlace +
                "<format><rpm:group><![CDATA[Net]]></rpm:group>"
                "<rpm:provides><rpm:entry name='foo' flags='EQ' epoch='2' ver='1.2' rel='3'/>"
                "<rpm:entry name='any' flags='nonsense'/></rpm:provides>"
                "<rpm:requires><rpm:entry name='z' flags='LE' epoch='0' ver='1'/>"
                "<rpm:entry name='rpmlib(X)' ver='broken'/><rpm:entry name='a-rpmlib('/>"
                "<rpm:entry name='z' flags='LE' epoch='0' ver='1.'/></rpm:requires>"
                "<rpm:requires><rpm:entry name='b' flags='GT' epoch='0' ver='1'/></rpm:requires>"
                "<rpm:obsoletes><rpm:entry name='o' flags='LT' epoch='0' ver='1'/>"
                "<rpm:entry name='o' flags='GE' epoch='0' ver='1'/></rpm:obsoletes></format>") +
        k_sTail;
    const std::string sExpected =
        "foo-2:1.2 group=Net at=dir/foo.rpm local=/cache/foo.rpm sum=sha:abc R(a-rpmlib(|0) "
        "R(b > 0:1|4) R(z <= 0:1|10) P(any|0) P(foo = 2:1.2-3|8) O(o < 0:1|2) O(o >= 0:1|12)\n";
    EXPECT_TRUE(parse(sDocument));
    EXPECT_EQ(all(), sExpected);

    const std::string sZipped = dir.file("zipped");
    gzFile pFile = gzopen(sZipped.c_str(), "wb");
    gzputs(pFile, sDocument.c_str());
    gzclose(pFile);
    packages.clear();
    EXPECT_TRUE(parsePrimary(sZipped, "/cache/", packages));
    EXPECT_EQ(all(), sExpected);
    const std::string sBytes = dir.read("zipped");
    EXPECT_FALSE(parse(sBytes.substr(0, sBytes.size() - 9)));  // cut short
}

TEST_F(Primary, keepsEqualNamesInFileOrder)
{
    const auto foo = [](const char* pVersion) {
        return package(k_sName + k_sArch + "<version epoch='0' ver='" + pVersion + "'/>" + k_sSum +
                       k_sPlace);
    };
    ASSERT_TRUE(parse(k_sHead + foo("2") + foo("1") + foo("3") + foo("1") + k_sTail));
    std::string sOrder;
    for (const Package& package : packages) {
        sOrder += package.evr.version.str();
    }
    EXPECT_EQ(sOrder, "2131");
}

TEST_F(Primary, judgesEachPackage)
{
    const std::string sNoAttribute = "DEBUG: no attribute '";
    const struct {
        const char* title;
        std::string body;
        bool ok;
        std::string expected;  ///< the packages
        std::string log;
    } vCases[] = {
        {"none", "", true, "", ""},
        {"nested elsewhere", "<x>" + package(k_sAll) + "</x>", true, k_pPlain, ""},
        {"in no type", "<package>" + k_sName + "</package>", true, "", ""},
        {"of another type", "<package type='srpm'><name/></package>", true, "", ""},
        {"inside a package", package(k_sAll + package("<name/>")), true, k_pPlain, ""},
        {"children of another declaration",
         package("<name xmlns='http://linux.duke.edu/metadata/common'/>" + k_sAll), true, k_pPlain,
         ""},
        {"children without a namespace", package("<name xmlns=''/>" + k_sAll), true, k_pPlain, ""},
        {"no arch", package(k_sName + k_sVersion + k_sSum + k_sPlace), true, "",
         "WARNING: skipping package 'foo.rpm' of non-compatible arch ''\n"},
        {"foreign arch", package(k_sName + "<arch>vax</arch>" + k_sVersion + k_sSum + k_sPlace),
         true, "", "WARNING: skipping package 'foo.rpm' of non-compatible arch 'vax'\n"},
        {"foreign and malformed", package("<arch>vax</arch>" + k_sVersion + k_sSum + k_sPlace),
         false, "", ""},
        {"no version", package(k_sName + k_sArch + k_sSum + k_sPlace), false, "", ""},
        {"no location", package(k_sName + k_sArch + k_sVersion + k_sSum), false, "", ""},
        {"no checksum", package(k_sName + k_sArch + k_sVersion + k_sPlace), false, "", ""},
        {"two names", package(k_sAll + k_sName), false, "", ""},
        {"two archs", package(k_sAll + k_sArch), false, "", ""},
        {"two versions", package(k_sAll + k_sVersion), false, "", ""},
        {"two locations", package(k_sAll + k_sPlace), false, "", ""},
        {"two checksums", package(k_sAll + k_sSum), false, "", ""},
        {"two groups", format("<rpm:group>a</rpm:group><rpm:group>b</rpm:group>"), false, "", ""},
        {"two formats", package(k_sAll + "<format/><format/>"), true, k_pPlain, ""},
        {"empty name", package("<name></name>"), false, "",
         "DEBUG: no string list for node 'name'\n"},
        {"name of elements only", package("<name><a>x</a></name>"), false, "",
         "DEBUG: no string list for node 'name'\n"},
        {"checksum without text", package("<checksum type='sha'/>"), false, "",
         "DEBUG: no string list for node 'checksum'\n"
         "DEBUG: failed parsing 'checksum' element\n"},
        {"checksum without type", package("<checksum>abc</checksum>"), false, "",
         sNoAttribute + "type' for node 'checksum'\nDEBUG: failed parsing 'checksum' element\n"},
        {"location without href", package("<location xml:href='x'/>"), false, "",
         sNoAttribute + "href' for node 'location'\n"},
        {"version without epoch", package("<version ver='1' rel='1'/>"), false, "",
         sNoAttribute + "epoch' for node 'version'\nDEBUG: failed parsing 'version' element\n"},
        {"largest epoch", package("<version epoch='2147483647' ver='1' rel='1'/>"), false, "", ""},
        {"negative epoch", package("<version epoch='-1' ver='1' rel='1'/>"), false, "", ""},
        {"epoch with letters", package("<version epoch='1a' ver='1' rel='1'/>"), false, "", ""},
        {"empty epoch", package("<version epoch='' ver='1' rel='1'/>"), false, "", ""},
        {"control character in a name", package("<name>a&#10;INFO: b</name>"), false, "",
         "DEBUG: control character in 'name' of package\n"},
        {"control character in a location", package("<location href='a&#13;&#10;Host: b'/>"), false,
         "", "DEBUG: control character in 'location' of package\n"},
        {"entry of another declaration",
         list("<entry/><rpm:other/><r:entry xmlns:r='http://linux.duke.edu/metadata/rpm'/>"), true,
         k_pPlain, ""},
        {"entry without name", list("<rpm:entry flags='EQ'/>"), false, "",
         sNoAttribute + "name' for node 'entry'\nDEBUG: failed getting 'name' from 'entry'\n"},
        {"entry without flags", list("<rpm:entry name='a' epoch='0' ver='1' rel='1'/>"), false, "",
         sNoAttribute + "flags' for node 'entry'\nDEBUG: failed parsing 'flags' in 'entry'\n"},
        {"entry without epoch", list("<rpm:entry name='a' flags='EQ' ver='1' rel='1'/>"), false, "",
         sNoAttribute + "epoch' for node 'entry'\nDEBUG: failed parsing 'version' element\n"
                        "DEBUG: failed parsing EVR in entry\n"},
        {"entry with small flags",
         list("<rpm:entry name='a' flags='eq' epoch='0' ver='1' rel='1'/>"), false, "",
         "DEBUG: invalid flags 'eq' in 'entry'\n"},
    };
    for (const auto& test : vCases) {
        SCOPED_TRACE(test.title);
        EXPECT_EQ(parse(k_sHead + test.body + k_sTail), test.ok);
        EXPECT_EQ(all(), test.expected.empty() ? "" : test.expected + "\n");
        EXPECT_EQ(log.text(), test.log);
    }
}

TEST_F(Primary, judgesTheDocument)
{
    const std::string sCommon = "xmlns='http://linux.duke.edu/metadata/common'";
    const std::string sBad = "ERROR: bad top-level element, '";
    const struct {
        const char* title;
        std::string document;
        bool ok;
        std::size_t count;
        std::string log;
    } vCases[] = {
        {"own prefix everywhere",
         "<c:metadata xmlns:c='http://linux.duke.edu/metadata/common'><c:package type='rpm'>"
         "<c:name>a</c:name><c:arch>noarch</c:arch><c:version epoch='0' ver='1' rel=''/>"
         "<c:checksum type='sha'>1</c:checksum><c:location href='a'/></c:package></c:metadata>",
         true, 1, ""},
        {"other name", "<repomd " + sCommon + "/>", false, 0,
         sBad + "repomd' instead of 'metadata'\n"},
        {"no namespace", "<metadata/>", false, 0, sBad + "metadata' instead of 'metadata'\n"},
        {"no rpm namespace",
         "<metadata " + sCommon + ">" + package(k_sAll + "<format><group/></format>") + k_sTail,
         true, 1, "DEBUG: no rpm specific data in XML doc\n"},
        {"rpm prefix taken by another URI",
         k_sHead + package(k_sAll + "<format xmlns:rpm='urn:other'><rpm:group/></format>") +
             k_sTail,
         true, 1, "DEBUG: no rpm specific data in XML doc\n"},
        {"empty", "", false, 0, ""},
        {"cut behind the last package", k_sHead + package(k_sAll), false, 1, ""},
        {"cut inside a package", k_sHead + package(k_sAll) + "<package type='rpm'><na", false, 1,
         ""},
        {"external entity",
         "<!DOCTYPE metadata [<!ENTITY e SYSTEM '/etc/passwd'>]>" + k_sHead +
             package("<name>&e;</name>") + k_sTail,
         false, 0, "DEBUG: no string list for node 'name'\n"},
        {"internal entity",
         "<!DOCTYPE metadata [<!ENTITY e 'f&#111;'>]>" + k_sHead +
             package("<name>&e;-&e;</name>" + k_sArch + k_sVersion + k_sSum + k_sPlace) + k_sTail,
         true, 1, ""},
    };
    refuseExternalEntities();
    for (const auto& test : vCases) {
        SCOPED_TRACE(test.title);
        EXPECT_EQ(parse(test.document), test.ok);
        EXPECT_EQ(packages.size(), test.count);
        EXPECT_EQ(log.text(), test.log);
    }
    EXPECT_FALSE(parsePrimary(dir.file("none"), "/cache/", packages));
    EXPECT_EQ(log.text().substr(log.text().rfind("ERROR")),
              "ERROR: could not open primary file '" + dir.file("none") + "' for parsing\n");
}

}  // namespace
