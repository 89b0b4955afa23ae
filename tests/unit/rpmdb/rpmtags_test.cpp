#include "rpmdb/rpmtags.h"

#include "packages/packageset.h"

#include "testing/cases.h"

#include <rpm/rpmtd.h>

#include <memory>

namespace {

/// A value of that many parts, which may be of a type that is not the tag's.
rpmtd_s value(rpmTagVal uTag, rpmTagType eType, const void* pData, rpm_count_t uCount = 1)
{
    return {uTag, eType, uCount, const_cast<void*>(pData), 0, -1, 0};
}

/// Reads a package foo-1.0-2 with these values, the first of which may stand for the name. Returns
/// the package with its requires, or the log if it is refused.
std::string readValues(std::vector<rpmtd_s> vValues)
{
    const std::unique_ptr<headerToken_s, Header (*)(Header)> header(headerNew(), headerFree);
    for (rpmtd_s& data : vValues) {
        EXPECT_EQ(headerPut(header.get(), &data, HEADERPUT_DEFAULT), 1);
    }
    if (vValues[0].tag != RPMTAG_NAME) {
        headerPutString(header.get(), RPMTAG_NAME, "foo");
    }
    headerPutString(header.get(), RPMTAG_VERSION, "1.0");
    headerPutString(header.get(), RPMTAG_RELEASE, "2");
    const LogCapture log;
    PackageRecord record;
    const bool bOk = readPackage(header.get(), record);
    PackageSet packages;
    packages.insertEqual(record);
    const auto entryText = [](const Dependency& entry) {
        return dependencyText(entry) + " " + std::to_string(entry.flags);
    };
    return bOk ? packageText(packages[0]) + " " + allOf(packages[0].needs(), entryText)
               : log.text();
}

TEST(RpmTags, readsSingleValuesByTheirType)
{
    const std::uint8_t uByte = 200;
    const std::int16_t iShort = -1;
    const std::int32_t vLongs[] = {-70000, 2};
    const std::uint64_t uHuge = 1;
    const char* const vTexts[] = {"a"};
    const std::string sEnd = "\nERROR: failed while iterating on rpm DB\n";
    const std::string sNoInt = "ERROR: failed retrieving rpm tag 1003 as int" + sEnd;
    const std::pair<rpmtd_s, std::string> vCases[] = {
        {value(RPMTAG_NAME, RPM_STRING_TYPE, "a"), "a-0:1.0-2 "},
        {value(RPMTAG_NAME, RPM_I18NSTRING_TYPE, vTexts),
         "ERROR: failed retrieving rpm tag 1000 as string" + sEnd},
        {value(RPMTAG_EPOCH, RPM_INT8_TYPE, &uByte), "foo-200:1.0-2 "},
        {value(RPMTAG_EPOCH, RPM_INT16_TYPE, &iShort), "foo--1:1.0-2 "},
        {value(RPMTAG_EPOCH, RPM_INT32_TYPE, vLongs), "foo--70000:1.0-2 "},
        {value(RPMTAG_EPOCH, RPM_INT32_TYPE, vLongs, 2), sNoInt},
        {value(RPMTAG_EPOCH, RPM_INT64_TYPE, &uHuge), sNoInt}};
    for (const auto& [data, sExpected] : vCases) {
        EXPECT_EQ(readValues({data}), sExpected);
    }
}

TEST(RpmTags, readsDependencies)
{
    const char* const vNames[] = {"b", "rpmlib(x)", "a", "pre", "kept", "high", "b"};
    const std::uint32_t vFlags[] = {0x2000000C, 0x100000A, 0, 0x48, 5, 0x1000000, 0x0C};
    const char* const vVersions[] = {"1:2-3", "1", "", "1", "", "1", "1:2.-3"};
    const auto read = [&](rpmTagType eType, const void* pVersions, rpm_count_t uVersions) {
        return readValues({value(RPMTAG_REQUIRENAME, RPM_STRING_ARRAY_TYPE, vNames, 7),
                           value(RPMTAG_REQUIREFLAGS, RPM_INT32_TYPE, vFlags, 7),
                           value(RPMTAG_REQUIREVERSION, eType, pVersions, uVersions)});
    };
    EXPECT_EQ(read(RPM_STRING_ARRAY_TYPE, vVersions, 7),
              "foo-0:1.0-2 a 0, b >= 1:2-3 12, kept 5, ");
    const auto fails = testing::EndsWith("failed getting requires for package 'foo'\n");
    EXPECT_THAT(read(RPM_STRING_ARRAY_TYPE, vVersions, 6), fails);
    EXPECT_THAT(read(RPM_STRING_TYPE, "1", 1), fails);
}

}  // namespace
