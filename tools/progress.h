// A progress bar on stderr for long work, drawn only when stderr is a
// terminal (never into logs or pipes) and at most a few times a second.
#ifndef KIVGEO_TOOLS_PROGRESS_H
#define KIVGEO_TOOLS_PROGRESS_H

#include <chrono>
#include <functional>
#include <string>

namespace kivcli {

class CKivProgress {
public:
    explicit CKivProgress(std::string label);
    ~CKivProgress();
    CKivProgress(const CKivProgress&) = delete;
    CKivProgress& operator=(const CKivProgress&) = delete;

    // fraction in [0, 1]; values out of range are clamped.
    void Update(double fraction);
    // Clears the bar's line.
    void Done();
    // A callback for the library's progress hooks.
    std::function<void(double)> Callback()
    {
        return [this](double f) { Update(f); };
    }

    // Turns bars off for the whole run (--quiet).
    static void SetEnabled(bool bOn);

private:
    std::string m_strLabel;
    bool m_bActive;
    bool m_bDrawn = false;
    std::chrono::steady_clock::time_point m_tLast;
};

} // namespace kivcli

#endif
