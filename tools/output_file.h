// An output file that appears only when complete: everything is written to a
// temporary name in the same folder and renamed over the target on Commit().
// Destroying an uncommitted file removes the temporary, so a failed command
// leaves neither a partial file nor a stray temporary behind.
#ifndef KIVGEO_TOOLS_OUTPUT_FILE_H
#define KIVGEO_TOOLS_OUTPUT_FILE_H

#include <fstream>
#include <string>

namespace kivcli {

class CKivOutputFile {
public:
    // Opens the temporary file (binary mode); throws CKivIoError naming path
    // when it cannot be created.
    explicit CKivOutputFile(const std::string& path);
    ~CKivOutputFile();
    CKivOutputFile(const CKivOutputFile&) = delete;
    CKivOutputFile& operator=(const CKivOutputFile&) = delete;

    std::ofstream& Stream() { return m_out; }
    const std::string& Path() const { return m_strPath; }
    // For writers that open the file themselves (cairo): the stream is closed
    // first and the caller writes to this name.
    const std::string& TempPath();
    // Flushes, checks for write errors and renames onto the target.
    void Commit();

private:
    std::string m_strPath;
    std::string m_strTemp;
    std::ofstream m_out;
    bool m_bDone = false;
};

} // namespace kivcli

#endif
