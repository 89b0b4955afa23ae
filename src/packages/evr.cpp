#include "packages/evr.h"

#include "support/logger.h"

#include <rpm/rpmver.h>

#include <cstdlib>

namespace {

/// rpmvercmp() takes as much stack as its arguments are long. No version is; what is, is compared
/// by its beginning.
constexpr std::size_t k_uMaxCompared = 4096;

int compareText(Text a, Text b)
{
    if (a == b) {
        return 0;
    }
    if (a.view().size() <= k_uMaxCompared && b.view().size() <= k_uMaxCompared) {
        return rpmvercmp(a.c_str(), b.c_str());
    }
    const std::string sA(a.view().substr(0, k_uMaxCompared));
    const std::string sB(b.view().substr(0, k_uMaxCompared));
    return rpmvercmp(sA.c_str(), sB.c_str());
}

}  // namespace

Evr parseEvr(const std::string& sText)
{
    Evr evr;
    std::size_t uVersion = 0;
    const std::size_t uColon = sText.find(':');
    if (uColon != std::string::npos) {
        char* pEnd = nullptr;
        evr.epoch = static_cast<std::int32_t>(std::strtol(sText.c_str(), &pEnd, 10));
        if (pEnd != sText.c_str() + uColon) {
            logMessage(ERROR, "failed parsing epoch from EVR string");
        }
        uVersion = uColon + 1;
    }
    if (uVersion == sText.size()) {
        logMessage(ERROR, "EVR string has no version release");
        return evr;
    }
    const std::size_t uDash = sText.find('-', uVersion);
    if (uDash == std::string::npos) {
        evr.version = std::string_view(sText).substr(uVersion);
        return evr;
    }
    evr.version = std::string_view(sText).substr(uVersion, uDash - uVersion);
    if (uDash + 1 == sText.size()) {
        logMessage(ERROR, "empty release in EVR string");
        return evr;
    }
    evr.release = std::string_view(sText).substr(uDash + 1);
    return evr;
}

int compareEvr(const Evr& a, const Evr& b)
{
    if (a.epoch != b.epoch) {
        return a.epoch < b.epoch ? -1 : 1;
    }
    const int iVersion = compareText(a.version, b.version);
    return iVersion != 0 ? iVersion : compareText(a.release, b.release);
}

int compareEvrBound(const Evr& a, const Evr& b)
{
    if (a.release.empty() || b.release.empty()) {
        return compareEvr({a.epoch, a.version, {}}, {b.epoch, b.version, {}});
    }
    return compareEvr(a, b);
}

std::string evrText(const Evr& evr)
{
    if (evr.version.empty()) {
        return {};
    }
    std::string sText = std::to_string(evr.epoch) + ":" + evr.version.str();
    if (!evr.release.empty()) {
        sText += "-" + evr.release.str();
    }
    return sText;
}
