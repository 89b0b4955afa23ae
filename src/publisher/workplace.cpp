#include "publisher/workplace.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace {

bool isPlain(char c)
{
    return (std::isalnum(static_cast<unsigned char>(c)) != 0 && static_cast<signed char>(c) > 0) ||
           std::string_view("/._+-").find(c) != std::string_view::npos;
}

}  // namespace

Workplace::~Workplace()
{
    if (!m_sPath.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(m_sPath, ignored);
    }
}

bool Workplace::make()
{
    const char* pGiven = std::getenv("TMPDIR");
    const std::string sTemporary = pGiven != nullptr ? pGiven : "/tmp";
    // The path goes into macros and arguments of rpm, which reads more into other characters.
    if (!sTemporary.starts_with('/') ||
        !std::all_of(sTemporary.begin(), sTemporary.end(), isPlain)) {
        errno = EINVAL;
        return false;
    }
    std::string sTemplate = sTemporary + "/updater-repocheck-XXXXXX";
    if (mkdtemp(sTemplate.data()) == nullptr) {
        return false;
    }
    m_sPath = sTemplate + "/";
    return true;
}
