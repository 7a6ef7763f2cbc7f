#include "peer_run.h"

#include <malloc.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

namespace {

// A field of /proc/self/status in KiB ("VmRSS", "VmHWM"); -1 when unreadable.
long ReadStatusKiB(const char* field)
{
    std::FILE* f = std::fopen("/proc/self/status", "r");
    if (!f) {
        return -1;
    }
    const std::size_t len = std::strlen(field);
    char line[256];
    long value = -1;
    while (std::fgets(line, sizeof(line), f)) {
        if (std::strncmp(line, field, len) == 0 && line[len] == ':') {
            value = std::strtol(line + len + 1, nullptr, 10);
            break;
        }
    }
    std::fclose(f);
    return value;
}

// Resets VmHWM to the current resident size; false where the kernel does not
// allow it (the peak then includes everything the child inherited).
bool ResetPeakMark()
{
    std::FILE* f = std::fopen("/proc/self/clear_refs", "w");
    if (!f) {
        return false;
    }
    const bool ok = std::fputs("5", f) >= 0;
    return std::fclose(f) == 0 && ok;
}

double ProcessCpuSeconds()
{
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

// What the child sends back through its pipe.
struct SWire {
    double dSeconds;
    double dWallSeconds;
    double dPeakMiB;
    double dCheck;
    double dCheck2;
};

bool ReadAll(int fd, void* buf, std::size_t n)
{
    char* p = static_cast<char*>(buf);
    while (n > 0) {
        const ssize_t r = read(fd, p, n);
        if (r < 0 && errno == EINTR) {
            continue;
        }
        if (r <= 0) {
            return false;
        }
        p += r;
        n -= static_cast<std::size_t>(r);
    }
    return true;
}

} // namespace

CKivPeerClock::CKivPeerClock()
    : m_tStart(std::chrono::steady_clock::now()), m_tStop(m_tStart), m_bStopped(false), m_nBaseKiB(0),
      m_nPeakKiB(0)
{
}

void CKivPeerClock::Start()
{
    // Hand freed setup memory back to the kernel first, so that the measured
    // code cannot reuse resident pages for free and look smaller than it is.
    malloc_trim(0);
    m_nBaseKiB = ResetPeakMark() ? ReadStatusKiB("VmRSS") : 0;
    m_bStopped = false;
    m_dCpuStart = ProcessCpuSeconds();
    m_tStart = std::chrono::steady_clock::now();
}

void CKivPeerClock::Stop()
{
    if (!m_bStopped) {
        m_tStop = std::chrono::steady_clock::now();
        m_dCpuStop = ProcessCpuSeconds();
        m_bStopped = true;
        m_nPeakKiB = ReadStatusKiB("VmHWM");
    }
}

double CKivPeerClock::Seconds() const
{
    return m_dCpuStop - m_dCpuStart;
}

double CKivPeerClock::WallSeconds() const
{
    return std::chrono::duration<double>(m_tStop - m_tStart).count();
}

double CKivPeerClock::PeakMiB() const
{
    return static_cast<double>(std::max(0L, m_nPeakKiB - m_nBaseKiB)) / 1024.0;
}

SPeerSample RunInChild(const PeerFn& fn, unsigned nTimeoutSec)
{
    SPeerSample sample;
    int fds[2];
    if (pipe(fds) != 0) {
        sample.strFail = "pipe failed";
        return sample;
    }
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) {
        close(fds[0]);
        close(fds[1]);
        sample.strFail = "fork failed";
        return sample;
    }
    if (pid == 0) {
        close(fds[0]);
        alarm(nTimeoutSec); // default action of SIGALRM ends the child
        CKivPeerClock clock;
        SWire wire{};
        fn(clock, wire.dCheck, wire.dCheck2);
        clock.Stop();
        wire.dSeconds = clock.Seconds();
        wire.dWallSeconds = clock.WallSeconds();
        wire.dPeakMiB = clock.PeakMiB();
        const ssize_t w = write(fds[1], &wire, sizeof(wire));
        // No destructors, no atexit: tearing down a large structure is not
        // part of the measurement.
        _exit(w == static_cast<ssize_t>(sizeof(wire)) ? 0 : 3);
    }
    close(fds[1]);
    SWire wire{};
    const bool got = ReadAll(fds[0], &wire, sizeof(wire));
    close(fds[0]);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (got && WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        sample.bOk = true;
        sample.dSeconds = wire.dSeconds;
        sample.dWallSeconds = wire.dWallSeconds;
        sample.dPeakMiB = wire.dPeakMiB;
        sample.dCheck = wire.dCheck;
        sample.dCheck2 = wire.dCheck2;
    } else if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
        sample.strFail = "timed out after " + std::to_string(nTimeoutSec) + " s";
    } else if (WIFSIGNALED(status)) {
        sample.strFail = std::string("killed by ") + strsignal(WTERMSIG(status));
    } else {
        sample.strFail = "exit status " + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    }
    return sample;
}

double MedianSeconds(const std::vector<SPeerSample>& samples, bool bWall)
{
    std::vector<double> t;
    for (const SPeerSample& s : samples) {
        if (s.bOk) {
            t.push_back(bWall ? s.dWallSeconds : s.dSeconds);
        }
    }
    if (t.empty()) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    std::sort(t.begin(), t.end());
    const std::size_t m = t.size() / 2;
    return t.size() % 2 ? t[m] : 0.5 * (t[m - 1] + t[m]);
}

double MaxPeakMiB(const std::vector<SPeerSample>& samples)
{
    double peak = std::numeric_limits<double>::quiet_NaN();
    for (const SPeerSample& s : samples) {
        if (s.bOk && !(s.dPeakMiB <= peak)) {
            peak = s.dPeakMiB;
        }
    }
    return peak;
}
