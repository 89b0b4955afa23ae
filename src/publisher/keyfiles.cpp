#include "publisher/keyfiles.h"

#include "support/childprocess.h"
#include "support/files.h"

#include <array>
#include <charconv>
#include <ctime>

namespace {

constexpr std::size_t k_uFields = 7;

std::string dateOf(std::string_view sSeconds)
{
    std::time_t seconds = 0;
    std::tm date = {};
    std::array<char, sizeof("2026-11-23")> vText = {};
    const auto [pEnd, error] =
        std::from_chars(sSeconds.data(), sSeconds.data() + sSeconds.size(), seconds);
    if (error != std::errc() || gmtime_r(&seconds, &date) == nullptr ||
        std::strftime(vText.data(), vText.size(), "%F", &date) == 0) {
        return "a day that cannot be told";
    }
    return vText.data();
}

}  // namespace

std::string keyFault(std::string_view sLine)
{
    std::array<std::string_view, k_uFields> vFields;  // kind, validity, -, -, id, -, end
    for (std::string_view& sField : vFields) {
        sField = sLine.substr(0, sLine.find(':'));
        sLine.remove_prefix(std::min(sLine.size(), sField.size() + 1));
    }
    const std::string_view sValidity = vFields[1];
    if ((vFields[0] != "pub" && vFields[0] != "sub") || (sValidity != "e" && sValidity != "r")) {
        return {};
    }
    return "key " + std::string(vFields[4]) +
           (sValidity == "r" ? " was revoked" : " expired on " + dateOf(vFields[6]));
}

void inspectKeys(const std::vector<std::string>& vFiles, const std::string& sTemporary,
                 DeviceLog& log, Findings& findings)
{
    static constexpr std::string_view k_sOutput = "INFO:   ";
    const std::string sHome = sTemporary + "gpg";
    for (const std::string& sFile : vFiles) {
        ChildProcess gpg("gpg");
        for (const std::string& sArgument :
             {std::string("--homedir"), sHome, std::string("--batch"), std::string("--with-colons"),
              std::string("--show-keys"), std::string("--"), sFile}) {
            gpg.addArgument(sArgument);
        }
        static_cast<void>(log.take());
        if (!ensureDirectory(sHome) || !gpg.run()) {
            return;
        }
        for (const std::string& sLine : log.take()) {
            const std::string sFault =
                sLine.starts_with(k_sOutput) ? keyFault(sLine.substr(k_sOutput.size())) : "";
            if (!sFault.empty()) {
                findings.push_back(
                    {"key-expired",
                     Severity::WARNING,
                     sFile,
                     sFault,
                     "believe it all the same, unless their rpm is a newer one",
                     "sign with a new key, which a package signed by this one brings",
                     "",
                     {}});
            }
        }
    }
}
