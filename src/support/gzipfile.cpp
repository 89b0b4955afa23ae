#include "support/gzipfile.h"

#include <cerrno>
#include <utility>

GzipFile::GzipFile(const std::string& sPath)
{
    errno = 0;
    m_pFile = gzopen(sPath.c_str(), "rbe");
}

int GzipFile::close()
{
    gzFile pFile = std::exchange(m_pFile, nullptr);
    return pFile != nullptr ? gzclose(pFile) : Z_OK;
}

int GzipFile::read(void* pBuffer, unsigned uLength)
{
    if (m_pFile == nullptr) {
        return m_iEnd;
    }
    const int iRead = gzread(m_pFile, pBuffer, uLength);
    if (iRead <= 0) {
        const int iClosed = close();  // tells whether the end was a real one
        m_iEnd = iRead == 0 && iClosed == Z_OK ? 0 : -1;
        return m_iEnd;
    }
    return iRead;
}
