#include "rpmdb/rpmtags.h"

#include "testing/testing.h"

#include <gtest/gtest.h>
#include <rpm/rpmtd.h>

#include <memory>

namespace {

struct HeaderDeleter {
    void operator()(Header header) const { headerFree(header); }
};
using OwnHeader = std::unique_ptr<std::remove_pointer_t<Header>, HeaderDeleter>;

void put(const OwnHeader& header, rpmTagVal tag, rpmTagType type, const void* pData,
         std::size_t uCount)
{
    rpmtd_s data = {};
    data.tag = tag;
    data.type = type;
    data.data = const_cast<void*>(pData);
    data.count = static_cast<rpm_count_t>(uCount);
    ASSERT_EQ(headerPut(header.get(), &data, HEADERPUT_DEFAULT), 1);
}

OwnHeader namedHeader(const char* pName = "foo")
{
    OwnHeader header(headerNew());
    if (pName != nullptr) {
        headerPutString(header.get(), RPMTAG_NAME, pName);
    }
    headerPutString(header.get(), RPMTAG_VERSION, "1.0");
    headerPutString(header.get(), RPMTAG_RELEASE, "2");
    return header;
}

}  // namespace

TEST(RpmTags, readsSingleValuesByTheirType)
{
    const std::uint8_t uByte = 200;
    const std::int16_t iShort = -1;
    const std::int32_t vLongs[] = {-70000, 2};
    const std::uint64_t uHuge = 1;
    const char* const vTexts[] = {"a", "b"};
    const struct {
        rpmTagVal tag;
        rpmTagType type;
        const void* data;
        std::size_t count;
        const char* package;  ///< empty: refused
    } vCases[] = {
        {RPMTAG_NAME, RPM_STRING_TYPE, "a", 1, "a-0:"},
        {RPMTAG_NAME, RPM_NULL_TYPE, nullptr, 0, ""},
        {RPMTAG_NAME, RPM_STRING_ARRAY_TYPE, vTexts, 1, ""},
        {RPMTAG_NAME, RPM_STRING_ARRAY_TYPE, vTexts, 2, ""},
        {RPMTAG_NAME, RPM_I18NSTRING_TYPE, vTexts, 1, ""},
        {RPMTAG_NAME, RPM_BIN_TYPE, "a", 2, ""},
        {RPMTAG_EPOCH, RPM_NULL_TYPE, nullptr, 0, "foo-0:"},
        {RPMTAG_EPOCH, RPM_INT8_TYPE, &uByte, 1, "foo-200:"},
        {RPMTAG_EPOCH, RPM_INT16_TYPE, &iShort, 1, "foo--1:"},
        {RPMTAG_EPOCH, RPM_INT32_TYPE, vLongs, 1, "foo--70000:"},
        {RPMTAG_EPOCH, RPM_INT32_TYPE, vLongs, 2, ""},
        {RPMTAG_EPOCH, RPM_INT64_TYPE, &uHuge, 1, ""},
        {RPMTAG_EPOCH, RPM_STRING_TYPE, "3", 1, ""},
    };
    for (const auto& test : vCases) {
        SCOPED_TRACE(std::to_string(test.tag) + " " + std::to_string(test.type));
        LogCapture log;
        const OwnHeader header = namedHeader(test.tag == RPMTAG_NAME ? nullptr : "foo");
        if (test.count > 0) {
            put(header, test.tag, test.type, test.data, test.count);
        }
        InstalledPackage package;
        const bool bOk = readPackage(header.get(), package);
        EXPECT_EQ(bOk ? packageText(package) : "", test.package + std::string(bOk ? "1.0-2" : ""));
        const std::string sKind = test.tag == RPMTAG_NAME ? "1000 as string" : "1003 as int";
        EXPECT_EQ(log.text(), bOk ? ""
                                  : "ERROR: failed retrieving rpm tag " + sKind +
                                        "\nERROR: failed while iterating on rpm DB\n");
    }
}

TEST(RpmTags, readsDependencies)
{
    const char* const vNames[] = {"b", "a", "kept", "rpmlib(x)", "pre", "high", "b"};
    const std::uint32_t vFlags[] = {0x2000000C, 0, 5, 0x100000A, 0x48, 0x1000000, 0x0C};
    const char* const vVersions[] = {"1:2-3", "", "", "1", "1", "1", "1:2.-3"};
    for (const std::size_t uVersions : {7U, 6U, 0U}) {
        SCOPED_TRACE(uVersions);
        const OwnHeader header = namedHeader();
        put(header, RPMTAG_REQUIRENAME, RPM_STRING_ARRAY_TYPE, vNames, 7);
        put(header, RPMTAG_REQUIREFLAGS, RPM_INT32_TYPE, vFlags, 7);
        if (uVersions > 0) {
            put(header, RPMTAG_REQUIREVERSION, RPM_STRING_ARRAY_TYPE, vVersions, uVersions);
        }
        LogCapture log(TRACE);
        InstalledPackage package;
        EXPECT_EQ(readPackage(header.get(), package), uVersions == 7);
        std::string sAll;
        for (const Dependency& entry : package.requires_) {
            sAll += dependencyText(entry) + " " + std::to_string(entry.flags) + "\n";
        }
        EXPECT_EQ(sAll, uVersions == 7 ? "a 0\nb >= 1:2-3 12\nkept 5\n" : "");
        EXPECT_EQ(log.text(), uVersions == 7
                                  ? "TRACE: b 1:2-3 0x2000000c => b >= 1:2-3\nTRACE: a  0x0 => a\n"
                                    "TRACE: kept  0x5 => kept\nTRACE: b 1:2.-3 0xc => b >= 1:2.-3\n"
                                  : "ERROR: failed retrieving rpm dependencies\n"
                                    "ERROR: failed getting requires for package 'foo'\n");
    }
    LogCapture log;
    const OwnHeader header = namedHeader();
    put(header, RPMTAG_PROVIDEVERSION, RPM_STRING_ARRAY_TYPE, vNames, 1);
    InstalledPackage package;
    EXPECT_FALSE(readPackage(header.get(), package));
    EXPECT_FALSE(readDependencies(header.get(), RPMTAG_NAME, package.provides));
    EXPECT_EQ(log.text(),
              "ERROR: failed retrieving rpm dependencies\n"
              "ERROR: failed getting provides for package 'foo'\n"
              "ERROR: unrecognized dependency tag 1000\n");
}
