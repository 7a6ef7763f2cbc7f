#include "progress.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace kivcli {

namespace {
bool g_bEnabled = true;
}

void CKivProgress::SetEnabled(bool bOn)
{
    g_bEnabled = bOn;
}

CKivProgress::CKivProgress(std::string label)
    : m_strLabel(std::move(label)), m_bActive(g_bEnabled && isatty(STDERR_FILENO) == 1),
      m_tLast(std::chrono::steady_clock::now())
{
}

CKivProgress::~CKivProgress()
{
    Done();
}

void CKivProgress::Update(double fraction)
{
    if (!m_bActive) {
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    // Redraw at most ten times a second; the library may call far more often.
    if (m_bDrawn && fraction < 1.0 && now - m_tLast < std::chrono::milliseconds(100)) {
        return;
    }
    m_tLast = now;
    const double f = std::clamp(fraction, 0.0, 1.0);
    constexpr int kWidth = 30;
    const int filled = static_cast<int>(f * kWidth + 0.5);
    char bar[kWidth + 1];
    for (int i = 0; i < kWidth; ++i) {
        bar[i] = i < filled ? '#' : '-';
    }
    bar[kWidth] = '\0';
    std::fprintf(stderr, "\r%-14s [%s] %3d%%", m_strLabel.c_str(), bar, static_cast<int>(f * 100.0 + 0.5));
    std::fflush(stderr);
    m_bDrawn = true;
}

void CKivProgress::Done()
{
    if (m_bActive && m_bDrawn) {
        std::fprintf(stderr, "\r%*s\r", 60, "");
        std::fflush(stderr);
    }
    m_bDrawn = false;
}

} // namespace kivcli
