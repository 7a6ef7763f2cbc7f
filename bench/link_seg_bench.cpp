// Segment linking on bags the size of large surface intersections.
#include <kivgeo/polyline.h>
#include <kivgeo/seg3d.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

void Scramble(std::vector<CKivSeg3d>& segs, std::mt19937& rng)
{
    for (CKivSeg3d& s : segs) {
        if (rng() % 2) {
            std::swap(s.m_pt[0], s.m_pt[1]);
        }
    }
    std::shuffle(segs.begin(), segs.end(), rng);
}

// One closed ring of n segments, in random order and directions.
std::vector<CKivSeg3d> Ring(int n)
{
    std::mt19937 rng(1);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::vector<CKivPoint3d> v;
    for (int i = 0; i < n; ++i) {
        const double a = 6.283185307179586 * i / n;
        v.emplace_back(5.0e5 + 2000.0 * std::cos(a), 3.9e6 + 2000.0 * std::sin(a), 100.0 + u(rng));
    }
    std::vector<CKivSeg3d> segs;
    for (int i = 0; i < n; ++i) {
        segs.emplace_back(v[static_cast<size_t>(i)], v[static_cast<size_t>((i + 1) % n)]);
    }
    Scramble(segs, rng);
    return segs;
}

// nChains separate open chains of len segments each, all mixed together.
std::vector<CKivSeg3d> Chains(int nChains, int len)
{
    std::mt19937 rng(2);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::vector<CKivSeg3d> segs;
    for (int c = 0; c < nChains; ++c) {
        CKivPoint3d p(1000.0 * (c % 40), 1000.0 * (c / 40), 0.0);
        for (int i = 0; i < len; ++i) {
            const CKivPoint3d q = p + CKivPoint3d(5.0 + u(rng), 3.0 * u(rng), u(rng));
            segs.emplace_back(p, q);
            p = q;
        }
    }
    Scramble(segs, rng);
    return segs;
}

// n segments from one common point (a fan), every one stored twice: the
// crowded end-point cells that branching surfaces produce.
std::vector<CKivSeg3d> Fan(int n)
{
    std::mt19937 rng(3);
    std::vector<CKivSeg3d> segs;
    const CKivPoint3d centre(100.0, 200.0, 0.0);
    for (int i = 0; i < n; ++i) {
        const double a = 6.283185307179586 * i / n;
        const CKivSeg3d s(centre, centre + CKivPoint3d(std::cos(a), std::sin(a), 0.0) * 10.0);
        segs.push_back(s);
        segs.push_back(s);
    }
    Scramble(segs, rng);
    return segs;
}

void Run(benchmark::State& state, const std::vector<CKivSeg3d>& input)
{
    size_t nLines = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<CKivSeg3d> segs = input;
        std::vector<CKivPolyLine> lines;
        state.ResumeTiming();
        CKivSeg3d::LinkSeg(segs, lines);
        nLines = lines.size();
        benchmark::DoNotOptimize(lines.data());
    }
    state.counters["segments"] = static_cast<double>(input.size());
    state.counters["lines"] = static_cast<double>(nLines);
}

void BM_LinkSegScrambledRing(benchmark::State& state)
{
    Run(state, Ring(static_cast<int>(state.range(0))));
}
BENCHMARK(BM_LinkSegScrambledRing)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_LinkSegSeparateChains(benchmark::State& state)
{
    Run(state, Chains(static_cast<int>(state.range(0)), static_cast<int>(state.range(1))));
}
BENCHMARK(BM_LinkSegSeparateChains)->Args({1000, 100})->Unit(benchmark::kMillisecond);

void BM_LinkSegCrowdedFan(benchmark::State& state)
{
    Run(state, Fan(static_cast<int>(state.range(0))));
}
BENCHMARK(BM_LinkSegCrowdedFan)->Arg(50000)->Unit(benchmark::kMillisecond);

} // namespace
