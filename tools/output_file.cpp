#include "output_file.h"

#include "io_error.h"

#include <cstdio>
#include <unistd.h>

namespace kivcli {

CKivOutputFile::CKivOutputFile(const std::string& path) : m_strPath(path)
{
    // Same folder as the target so that the rename cannot cross file systems.
    const std::size_t slash = path.find_last_of('/');
    const std::string dir = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    if (base.empty()) {
        throw CKivIoError(path, 0, "expected a file name, got a folder");
    }
    m_strTemp = dir + "." + base + ".tmp" + std::to_string(static_cast<long>(getpid()));
    m_out.open(m_strTemp, std::ios::binary | std::ios::trunc);
    if (!m_out) {
        throw CKivIoError(path, 0, "cannot create the file (missing folder or no write permission)");
    }
}

CKivOutputFile::~CKivOutputFile()
{
    if (!m_bDone) {
        if (m_out.is_open()) {
            m_out.close();
        }
        std::remove(m_strTemp.c_str());
    }
}

const std::string& CKivOutputFile::TempPath()
{
    if (m_out.is_open()) {
        m_out.close();
    }
    return m_strTemp;
}

void CKivOutputFile::Commit()
{
    if (m_out.is_open()) {
        m_out.flush();
        const bool ok = static_cast<bool>(m_out);
        m_out.close();
        if (!ok) {
            throw CKivIoError(m_strPath, 0, "write error (disk full?)");
        }
    }
    if (std::rename(m_strTemp.c_str(), m_strPath.c_str()) != 0) {
        throw CKivIoError(m_strPath, 0, "cannot replace the file");
    }
    m_bDone = true;
}

} // namespace kivcli
