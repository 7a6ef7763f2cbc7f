// Helpers of the command line's tests: a scratch folder, file text, running
// the built executable.
#ifndef KIVGEO_TESTS_CLI_TEST_UTIL_H
#define KIVGEO_TESTS_CLI_TEST_UTIL_H

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace kivtest {

// A fresh folder under the system's temporary folder, removed at the end.
class CKivScratch {
public:
    CKivScratch()
    {
        std::string tmpl = (std::filesystem::temp_directory_path() / "kivgeo_cli_XXXXXX").string();
        if (mkdtemp(tmpl.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        m_dir = tmpl;
    }
    ~CKivScratch()
    {
        std::error_code ec;
        std::filesystem::remove_all(m_dir, ec);
    }
    std::string operator/(const std::string& name) const { return (m_dir / name).string(); }
    const std::filesystem::path& Dir() const { return m_dir; }
    // Names of the files in the folder, sorted, one per line.
    std::string Listing() const
    {
        std::vector<std::string> names;
        for (const auto& e : std::filesystem::directory_iterator(m_dir)) {
            names.push_back(e.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        std::string out;
        for (const auto& n : names) {
            out += n + "\n";
        }
        return out;
    }

private:
    std::filesystem::path m_dir;
};

inline std::string ReadText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

inline void WriteText(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

inline bool Exists(const std::string& path)
{
    return std::filesystem::exists(path);
}

struct CKivRunResult {
    int nStatus = -1;
    std::string strOut;
    std::string strErr;
};

#ifdef KIVGEO_EXE
// Runs `kivgeo ARGS` (arguments as shell words) with stdout and stderr
// captured into files of the scratch folder.
inline CKivRunResult RunKivgeo(const CKivScratch& scratch, const std::string& args)
{
    const std::string out = scratch / ".stdout", err = scratch / ".stderr";
    const std::string cmd =
        std::string("'") + KIVGEO_EXE + "' " + args + " >'" + out + "' 2>'" + err + "' </dev/null";
    const int rc = std::system(cmd.c_str());
    CKivRunResult r;
    r.nStatus = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    r.strOut = ReadText(out);
    r.strErr = ReadText(err);
    std::filesystem::remove(out);
    std::filesystem::remove(err);
    return r;
}
#endif

} // namespace kivtest

#endif
