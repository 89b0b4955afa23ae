#include "testing/testing.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

std::string replaced(std::string sText, const std::string& sPart, const std::string& sNew)
{
    std::size_t u = sText.find(sPart);
    if (u == std::string::npos) {
        throw std::invalid_argument(sPart);
    }
    for (; u != std::string::npos; u = sText.find(sPart, u + sNew.size())) {
        sText.replace(u, sPart.size(), sNew);
    }
    return sText;
}

TempDir::TempDir()
{
    m_sPath = std::filesystem::temp_directory_path() / "updater-test-XXXXXX";
    if (mkdtemp(m_sPath.data()) == nullptr) {
        throw std::runtime_error("cannot make " + m_sPath);
    }
}

TempDir::~TempDir()
{
    std::error_code error;
    std::filesystem::remove_all(m_sPath, error);
}

std::string TempDir::write(const std::string& sName, const std::string& sContents) const
{
    std::ofstream(file(sName), std::ios::binary) << sContents;
    return file(sName);
}

std::string TempDir::read(const std::string& sName) const
{
    std::ifstream stream(file(sName), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

bool TempDir::exists(const std::string& sName) const
{
    return std::filesystem::exists(std::filesystem::symlink_status(file(sName)));
}

LogCapture::LogCapture(int iLevel)
{
    Logger::instance().setThreshold(iLevel);
    Logger::instance().setStderr(false);
    Logger::instance().addFile(m_dir.file("log"), TRACE, true);
}

LogCapture::~LogCapture()
{
    Logger::instance().removeFile(m_dir.file("log"));
    Logger::instance().setStderr(true);
    Logger::instance().setThreshold(INFO);
}
