// One timed run in a fresh child process.
//
// Every run of either library is forked from the driver, so each starts from
// the same heap and address space, a crash or a hang ends only that run, and
// its memory can be read on its own: the child resets the kernel's peak
// resident-set mark (VmHWM, by writing 5 to /proc/self/clear_refs) once its
// input is ready, and reports the peak minus the resident size at that moment.
// Input pages shared with the driver are therefore not counted, only what the
// measured code itself makes resident.
#ifndef KIVGEO_PEER_RUN_H
#define KIVGEO_PEER_RUN_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

// Handed to the measured code: Start() once the input is ready (resets the
// peak-memory mark and starts the clocks), Stop() before any work that should
// not count (result checks). Without Start() the clocks start at the fork.
//
// Two clocks run: the wall clock, and the processor time of the process (user
// and system, CLOCK_PROCESS_CPUTIME_ID). All measured code is single-threaded,
// so on an idle machine the two agree; on a shared machine the processor time
// is far less disturbed by other jobs, and it is the one the tables use.
class CKivPeerClock {
public:
    CKivPeerClock();
    void Start();
    void Stop();

    double Seconds() const;
    double WallSeconds() const;
    // Peak resident size since Start(), above the resident size at Start().
    double PeakMiB() const;

private:
    std::chrono::steady_clock::time_point m_tStart;
    std::chrono::steady_clock::time_point m_tStop;
    double m_dCpuStart;
    double m_dCpuStop;
    bool m_bStopped;
    long m_nBaseKiB;
    mutable long m_nPeakKiB;
};

struct SPeerSample {
    bool bOk = false;
    double dSeconds = 0.0; // processor time
    double dWallSeconds = 0.0;
    double dPeakMiB = 0.0;
    // A value the measured code returns to show what it built (a triangle
    // count, a checksum); compared between the two libraries.
    double dCheck = 0.0;
    double dCheck2 = 0.0;
    std::string strFail;
};

// The measured code: returns its check values through the two doubles.
using PeerFn = std::function<void(CKivPeerClock&, double& check, double& check2)>;

// Runs fn in a forked child; a run that takes longer than nTimeoutSec is
// killed and reported as failed.
SPeerSample RunInChild(const PeerFn& fn, unsigned nTimeoutSec);

// Median of the successful samples' processor (or wall) times; NaN when none
// succeeded.
double MedianSeconds(const std::vector<SPeerSample>& samples, bool bWall = false);
// Largest peak among the successful samples (NaN when none succeeded).
double MaxPeakMiB(const std::vector<SPeerSample>& samples);

#endif
