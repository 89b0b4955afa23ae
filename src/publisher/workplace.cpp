#include "publisher/workplace.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

Workplace::~Workplace()
{
    if (!m_sPath.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(m_sPath, ignored);
    }
}

bool Workplace::make()
{
    const char* pTemporary = std::getenv("TMPDIR");
    std::string sTemplate =
        std::string(pTemporary != nullptr && *pTemporary == '/' ? pTemporary : "/tmp") +
        "/updater-repocheck-XXXXXX";
    if (mkdtemp(sTemplate.data()) == nullptr) {
        return false;
    }
    m_sPath = sTemplate + "/";
    return true;
}
