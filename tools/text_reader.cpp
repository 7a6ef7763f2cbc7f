#include "text_reader.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace kivcli {

std::string ReadFileBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw CKivIoError(path, 0, "cannot open for reading");
    }
    std::ostringstream ss;
    ss << in.rdbuf();
    if (in.bad()) {
        throw CKivIoError(path, 0, "read error");
    }
    return ss.str();
}

std::string FileExtension(const std::string& path)
{
    const std::size_t slash = path.find_last_of('/');
    const std::size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        return std::string();
    }
    std::string ext = path.substr(dot + 1);
    for (char& c : ext) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return ext;
}

CKivTextReader::CKivTextReader(const std::string& path) : m_strPath(path), m_strText(ReadFileBytes(path)) {}

CKivTextReader::CKivTextReader(const std::string& path, std::string text)
    : m_strPath(path), m_strText(std::move(text))
{
}

bool CKivTextReader::NextLine(std::string_view& line)
{
    if (m_nPos >= m_strText.size()) {
        return false;
    }
    std::size_t end = m_strText.find('\n', m_nPos);
    if (end == std::string::npos) {
        end = m_strText.size();
    }
    std::size_t stop = end;
    if (stop > m_nPos && m_strText[stop - 1] == '\r') {
        --stop;
    }
    line = std::string_view(m_strText).substr(m_nPos, stop - m_nPos);
    m_nPos = end + 1;
    ++m_nLine;
    return true;
}

double CKivTextReader::Fraction() const
{
    return m_strText.empty() ? 1.0 : static_cast<double>(m_nPos) / static_cast<double>(m_strText.size());
}

void CKivTextReader::Fail(const std::string& what) const
{
    throw CKivIoError(m_strPath, m_nLine, what);
}

double CKivTextReader::ParseNumber(std::string_view token, const char* what) const
{
    double v = 0.0;
    if (!ToNumber(token, v)) {
        Fail(std::string("expected ") + what + " as a finite number, got '" + std::string(token) + "'");
    }
    return v;
}

long CKivTextReader::ParseIndex(std::string_view token, const char* what) const
{
    const std::string s(token);
    char* end = nullptr;
    errno = 0;
    const long v = s.empty() ? -1 : std::strtol(s.c_str(), &end, 10);
    if (s.empty() || errno != 0 || end != s.c_str() + s.size() || v < 0) {
        Fail(std::string("expected ") + what + " as a non-negative integer, got '" + s + "'");
    }
    return v;
}

bool ToNumber(std::string_view token, double& value)
{
    if (token.empty() || token.size() > 64) {
        return false;
    }
    char buf[72];
    token.copy(buf, token.size());
    buf[token.size()] = '\0';
    char* end = nullptr;
    const double v = std::strtod(buf, &end);
    // strtod also accepts "nan", "inf" and hexadecimal floats; only finite
    // values are coordinates.
    if (end != buf + token.size() || !std::isfinite(v)) {
        return false;
    }
    value = v;
    return true;
}

std::string_view Trim(std::string_view s)
{
    const char* ws = " \t\r\n\f\v";
    const std::size_t b = s.find_first_not_of(ws);
    if (b == std::string_view::npos) {
        return std::string_view();
    }
    const std::size_t e = s.find_last_not_of(ws);
    return s.substr(b, e - b + 1);
}

std::string_view StripComment(std::string_view line)
{
    const std::size_t hash = line.find('#');
    return Trim(hash == std::string_view::npos ? line : line.substr(0, hash));
}

void SplitWords(std::string_view line, std::vector<std::string_view>& out)
{
    out.clear();
    std::size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')) {
            ++i;
        }
        const std::size_t b = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r') {
            ++i;
        }
        if (i > b) {
            out.push_back(line.substr(b, i - b));
        }
    }
}

void SplitFields(std::string_view line, std::vector<std::string_view>& out)
{
    if (line.find(',') == std::string_view::npos && line.find(';') == std::string_view::npos) {
        SplitWords(line, out);
        return;
    }
    out.clear();
    const char sep = line.find(',') != std::string_view::npos ? ',' : ';';
    std::size_t b = 0;
    for (;;) {
        const std::size_t e = line.find(sep, b);
        out.push_back(Trim(line.substr(b, e == std::string_view::npos ? std::string_view::npos : e - b)));
        if (e == std::string_view::npos) {
            break;
        }
        b = e + 1;
    }
}

} // namespace kivcli
