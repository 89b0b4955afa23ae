#include "publisher/devicelog.h"

#include "support/logger.h"

#include <libxml/xmlerror.h>
#include <fstream>

namespace {

/// For what libxml2 says besides, of the contents of a file.
void ignoreMessage(void* /*pData*/, const char* /*pFormat*/, ...) {}

}  // namespace

bool DeviceLog::open(const std::string& sPath)
{
    m_sPath = sPath;
    if (!Logger::instance().addFile(sPath, TRACE, false)) {
        return false;
    }
    Logger::instance().setStderr(false);
    xmlSetGenericErrorFunc(nullptr, ignoreMessage);
    return true;
}

std::vector<std::string> DeviceLog::take()
{
    std::ifstream file(m_sPath);
    file.seekg(static_cast<std::streamoff>(m_uTaken));
    std::vector<std::string> vLines;
    for (std::string sLine; std::getline(file, sLine);) {
        m_uTaken += sLine.size() + 1;
        if (!sLine.empty()) {
            vLines.push_back(sLine);
        }
    }
    return vLines;
}
