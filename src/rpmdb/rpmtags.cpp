#include "rpmdb/rpmtags.h"

#include "support/controls.h"
#include "support/logger.h"

#include <rpm/rpmds.h>
#include <rpm/rpmtd.h>

#include <utility>
#include <vector>

namespace {

/// RPMSENSE_RPMLIB as packages have it since rpm 4.0: with the bit of a prerequisite, which newer
/// headers of rpm leave out.
constexpr std::uint32_t k_uRpmlibFlags = 0x01000040;

/// The data of one tag of a header, as they are stored. Without the tag: type 0, count 0.
class TagData {
public:
    TagData(Header header, rpmTagVal tag)
    {
        // Raw: a tag of internationalised text keeps its type.
        m_bPresent = headerGet(header, tag, &m_data, HEADERGET_MINMEM | HEADERGET_RAW) != 0;
    }
    ~TagData() { rpmtdFreeData(&m_data); }
    TagData(const TagData&) = delete;
    TagData& operator=(const TagData&) = delete;

    [[nodiscard]] bool isPresent() const { return m_bPresent; }
    [[nodiscard]] rpm_count_t count() const { return m_data.count; }
    [[nodiscard]] bool is(rpmTagType type) const { return m_data.type == type; }
    template <typename Value>
    [[nodiscard]] const Value* values() const
    {
        return static_cast<const Value*>(m_data.data);
    }

private:
    rpmtd_s m_data = {};
    bool m_bPresent = false;
};

bool readDependencyList(Header header, rpmTagVal nameTag, rpmTagVal flagsTag, rpmTagVal versionTag,
                        std::vector<Dependency>& vEntries)
{
    const TagData names(header, nameTag);
    const TagData flags(header, flagsTag);
    const TagData versions(header, versionTag);
    if (!names.isPresent() && !flags.isPresent() && !versions.isPresent()) {
        return true;
    }
    if (!names.is(RPM_STRING_ARRAY_TYPE) || !flags.is(RPM_INT32_TYPE) ||
        !versions.is(RPM_STRING_ARRAY_TYPE) || names.count() != flags.count() ||
        names.count() != versions.count()) {
        return false;
    }
    for (rpm_count_t u = 0; u < names.count(); ++u) {
        const std::uint32_t uFlags = flags.values<std::uint32_t>()[u];
        if ((uFlags & k_uRpmlibFlags) != 0) {
            continue;
        }
        const char* pVersion = versions.values<const char*>()[u];
        Dependency entry;
        entry.name = names.values<const char*>()[u];
        if (pVersion != nullptr && *pVersion != '\0') {
            entry.evr = parseEvr(pVersion);
        }
        entry.flags = static_cast<std::int32_t>(uFlags & RPMSENSE_SENSEMASK);
        logMessage(TRACE, "%s %s 0x%x => %s", printable(entry.name.view()).c_str(),
                   printable(pVersion != nullptr ? pVersion : "").c_str(), uFlags,
                   printable(dependencyText(entry)).c_str());
        vEntries.push_back(entry);
    }
    return true;
}

}  // namespace

bool readStringTag(Header header, rpmTagVal tag, Text& sValue)
{
    const TagData data(header, tag);
    if (!data.is(RPM_STRING_TYPE) || data.count() != 1) {
        logMessage(ERROR, "failed retrieving rpm tag %i as string", tag);
        return false;
    }
    sValue = data.values<char>();
    return true;
}

bool readEpoch(Header header, std::int32_t& iEpoch)
{
    const TagData data(header, RPMTAG_EPOCH);
    if (!data.isPresent()) {
        iEpoch = 0;
    } else if (data.count() == 1 && data.is(RPM_INT8_TYPE)) {
        iEpoch = *data.values<std::uint8_t>();
    } else if (data.count() == 1 && data.is(RPM_INT16_TYPE)) {
        iEpoch = *data.values<std::int16_t>();
    } else if (data.count() == 1 && data.is(RPM_INT32_TYPE)) {
        iEpoch = *data.values<std::int32_t>();
    } else {
        logMessage(ERROR, "failed retrieving rpm tag %i as int", RPMTAG_EPOCH);
        return false;
    }
    return true;
}

bool readDependencies(Header header, rpmTagVal nameTag, std::vector<Dependency>& vEntries)
{
    bool bOk = false;
    if (nameTag == RPMTAG_REQUIRENAME) {
        bOk = readDependencyList(header, nameTag, RPMTAG_REQUIREFLAGS, RPMTAG_REQUIREVERSION,
                                 vEntries);
    } else if (nameTag == RPMTAG_PROVIDENAME) {
        bOk = readDependencyList(header, nameTag, RPMTAG_PROVIDEFLAGS, RPMTAG_PROVIDEVERSION,
                                 vEntries);
    } else if (nameTag == RPMTAG_OBSOLETENAME) {
        bOk = readDependencyList(header, nameTag, RPMTAG_OBSOLETEFLAGS, RPMTAG_OBSOLETEVERSION,
                                 vEntries);
    } else {
        logMessage(ERROR, "unrecognized dependency tag %i", nameTag);
        return false;
    }
    if (!bOk) {
        logMessage(ERROR, "failed retrieving rpm dependencies");
    }
    return bOk;
}

bool readPackage(Header header, PackageRecord& package)
{
    if (!readStringTag(header, RPMTAG_NAME, package.name) ||
        !readStringTag(header, RPMTAG_VERSION, package.evr.version) ||
        !readStringTag(header, RPMTAG_RELEASE, package.evr.release) ||
        !readEpoch(header, package.evr.epoch)) {
        logMessage(ERROR, "failed while iterating on rpm DB");
        return false;
    }
    if (!readDependencies(header, RPMTAG_REQUIRENAME, package.requires_)) {
        logMessage(ERROR, "failed getting requires for package '%s'",
                   printable(package.name.view()).c_str());
        return false;
    }
    if (!readDependencies(header, RPMTAG_PROVIDENAME, package.provides)) {
        logMessage(ERROR, "failed getting provides for package '%s'",
                   printable(package.name.view()).c_str());
        return false;
    }
    return true;
}
