// The one error type of the command line's readers and writers: a message
// that names the file and, where known, the line, and what was expected.
// Every command turns it into a one-line message and exit status 2.
#ifndef KIVGEO_TOOLS_IO_ERROR_H
#define KIVGEO_TOOLS_IO_ERROR_H

#include <stdexcept>
#include <string>

namespace kivcli {

class CKivIoError : public std::runtime_error {
public:
    // line 0 means the message concerns the file as a whole.
    CKivIoError(const std::string& file, long line, const std::string& what)
        : std::runtime_error(Compose(file, line, what))
    {
    }

private:
    static std::string Compose(const std::string& file, long line, const std::string& what)
    {
        return line > 0 ? file + ":" + std::to_string(line) + ": " + what : file + ": " + what;
    }
};

} // namespace kivcli

#endif
