// Line-by-line reading of text formats with line numbers, strict number
// parsing and a progress hook.
//
// Every reader of the command line goes through here so that malformed input
// is reported the same way: file, line, and what was expected.
#ifndef KIVGEO_TOOLS_TEXT_READER_H
#define KIVGEO_TOOLS_TEXT_READER_H

#include "io_error.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kivcli {

// Reads a whole file into memory; throws CKivIoError when it cannot be read.
std::string ReadFileBytes(const std::string& path);

// Lowercase extension of a path without the dot ("ts", "geojson"), or "".
std::string FileExtension(const std::string& path);

class CKivTextReader {
public:
    // Reads the file at once; throws CKivIoError when it cannot be opened.
    explicit CKivTextReader(const std::string& path);
    // Reads from text already in memory (path only names it in messages).
    CKivTextReader(const std::string& path, std::string text);

    // Next line without its end-of-line characters; false at the end.
    bool NextLine(std::string_view& line);
    long LineNo() const { return m_nLine; }
    const std::string& Path() const { return m_strPath; }
    // Fraction of the file consumed so far, for progress bars.
    double Fraction() const;

    // Throws CKivIoError naming the current line.
    [[noreturn]] void Fail(const std::string& what) const;
    // Parses a finite number from the whole token, or fails with the token
    // and what it should have been.
    double ParseNumber(std::string_view token, const char* what) const;
    // Parses a non-negative integer id from the whole token, or fails.
    long ParseIndex(std::string_view token, const char* what) const;

private:
    std::string m_strPath;
    std::string m_strText;
    std::size_t m_nPos = 0;
    long m_nLine = 0;
};

// Splits on whitespace.
void SplitWords(std::string_view line, std::vector<std::string_view>& out);
// Splits on commas when the line has any, else on whitespace; fields are trimmed.
void SplitFields(std::string_view line, std::vector<std::string_view>& out);
// Strips a '#' comment and surrounding whitespace.
std::string_view StripComment(std::string_view line);
std::string_view Trim(std::string_view s);

// Strict conversion of a whole token; false for anything but a finite number.
bool ToNumber(std::string_view token, double& value);

} // namespace kivcli

#endif
