#include "rpmdb/rpmtags.h"

#include "testing/testing.h"

#include <gtest/gtest.h>
#include <rpm/rpmtd.h>

#include <memory>

namespace {

struct Value {
    rpmTagVal tag;
    rpmTagType type;
    const void* data;
    rpm_count_t count;  ///< 0: the tag is missing
};

std::string entryText(const Dependency& entry)
{
    return dependencyText(entry) + " " + std::to_string(entry.flags);
}

/// Reads a package foo-1.0-2 with these values, the first of which may stand for the name. Returns
/// the package with its requires, or the log if it is refused.
std::string read(std::initializer_list<Value> vValues)
{
    const std::unique_ptr<headerToken_s, Header (*)(Header)> header(headerNew(), headerFree);
    if (vValues.begin()->tag != RPMTAG_NAME) {
        headerPutString(header.get(), RPMTAG_NAME, "foo");
    }
    headerPutString(header.get(), RPMTAG_VERSION, "1.0");
    headerPutString(header.get(), RPMTAG_RELEASE, "2");
    for (const Value& value : vValues) {
        rpmtd_s data = {value.tag, value.type, value.count, const_cast<void*>(value.data), 0,
                        -1,        0};
        EXPECT_EQ(headerPut(header.get(), &data, HEADERPUT_DEFAULT) != 0, value.count > 0);
    }
    const LogCapture log;
    InstalledPackage package;
    const bool bOk = readPackage(header.get(), package);
    return bOk ? packageText(package) + " " + allOf(package.requires_, entryText) : log.text();
}

TEST(RpmTags, readsSingleValuesByTheirType)
{
    const std::uint8_t uByte = 200;
    const std::int16_t iShort = -1;
    const std::int32_t vLongs[] = {-70000, 2};
    const std::uint64_t uHuge = 1;
    const char* const vTexts[] = {"a", "b"};
    const std::string sEnd = "\nERROR: failed while iterating on rpm DB\n";
    const std::string sNoString = "ERROR: failed retrieving rpm tag 1000 as string" + sEnd;
    const std::string sNoInt = "ERROR: failed retrieving rpm tag 1003 as int" + sEnd;
    const std::pair<Value, std::string> vCases[] = {
        {{RPMTAG_NAME, RPM_STRING_TYPE, "a", 1}, "a-0:1.0-2 "},
        {{RPMTAG_NAME, RPM_NULL_TYPE, nullptr, 0}, sNoString},
        {{RPMTAG_NAME, RPM_I18NSTRING_TYPE, vTexts, 1}, sNoString},
        {{RPMTAG_EPOCH, RPM_INT8_TYPE, &uByte, 1}, "foo-200:1.0-2 "},
        {{RPMTAG_EPOCH, RPM_INT16_TYPE, &iShort, 1}, "foo--1:1.0-2 "},
        {{RPMTAG_EPOCH, RPM_INT32_TYPE, vLongs, 1}, "foo--70000:1.0-2 "},
        {{RPMTAG_EPOCH, RPM_INT32_TYPE, vLongs, 2}, sNoInt},
        {{RPMTAG_EPOCH, RPM_INT64_TYPE, &uHuge, 1}, sNoInt}};
    for (const auto& [value, sExpected] : vCases) {
        EXPECT_EQ(read({value}), sExpected);
    }
}

TEST(RpmTags, readsDependencies)
{
    const char* const vNames[] = {"b", "rpmlib(x)", "a", "pre", "kept", "high", "b"};
    const std::uint32_t vFlags[] = {0x2000000C, 0x100000A, 0, 0x48, 5, 0x1000000, 0x0C};
    const char* const vVersions[] = {"1:2-3", "1", "", "1", "", "1", "1:2.-3"};
    const Value names = {RPMTAG_REQUIRENAME, RPM_STRING_ARRAY_TYPE, vNames, 7};
    const Value flags = {RPMTAG_REQUIREFLAGS, RPM_INT32_TYPE, vFlags, 7};
    const Value versions = {RPMTAG_REQUIREVERSION, RPM_STRING_ARRAY_TYPE, vVersions, 7};
    const Value fewer = {RPMTAG_REQUIREVERSION, RPM_STRING_ARRAY_TYPE, vVersions, 6};
    const Value provided = {RPMTAG_PROVIDEVERSION, RPM_STRING_ARRAY_TYPE, vVersions, 7};
    EXPECT_EQ(read({names, flags, versions}), "foo-0:1.0-2 a 0, b >= 1:2-3 12, kept 5, ");
    const std::string sFailed = "failed getting requires for package 'foo'\n";
    EXPECT_TRUE(read({names, flags, fewer}).ends_with(sFailed));
    EXPECT_TRUE(read({{RPMTAG_REQUIRENAME, RPM_STRING_ARRAY_TYPE, vNames, 1},
                      {RPMTAG_REQUIREFLAGS, RPM_INT32_TYPE, vFlags, 1},
                      {RPMTAG_REQUIREVERSION, RPM_STRING_TYPE, "1", 1}})
                    .ends_with(sFailed));
    EXPECT_TRUE(read({provided}).ends_with("failed getting provides for package 'foo'\n"));
}

}  // namespace
