// The kernels that dominate an epoch: the LQ triangularisation at the sizes
// the filters use, one mechanization step, one covariance time update and one
// GNSS update of a bank member (6 states) and of the main filter (12).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "drlib_toolkit.h"
#include "session.h"

namespace {

using drbench::Phase;
using drbench::Session;

// A is destroyed by the decomposition: each iteration works on a fresh copy
// (a copy of at most 288 doubles, a few percent of the smallest case).
void BM_LqDecompose(benchmark::State &state) {
    const int32_t n = static_cast<int32_t>(state.range(0)), m = static_cast<int32_t>(state.range(1));
    std::mt19937_64 rng(5);
    std::normal_distribution<double> g;
    std::vector<double> a0(static_cast<size_t>(n * m)), a(a0.size()), work(static_cast<size_t>(m));
    std::vector<double> L(static_cast<size_t>(n * (n + 1) / 2));
    for (double &v : a0) v = g(rng);
    for (auto _ : state) {
        std::memcpy(a.data(), a0.data(), a.size() * sizeof(double));
        lq_decompose(L.data(), a.data(), n, m, work.data());
        benchmark::DoNotOptimize(L.data());
    }
}
BENCHMARK(BM_LqDecompose)->Args({6, 12})->Args({9, 9})->Args({12, 24})->Args({15, 15});

// The main filter's state in the middle of the survey, and an epoch's increments.
struct MainState {
    NavState nav;
    KfFilter flt;
    FusionIn entry;
};

const MainState &MainAtMidSession() {
    static const MainState st = [] {
        const Session &s = Session::Get();
        s.Restore(Phase::kMain);
        const size_t first = s.First(Phase::kMain), count = s.Count(Phase::kMain);
        for (size_t i = first; i < first + count / 2; ++i) DrlibUpdateFusion(s.Record(i));
        MainState m;
        m.nav = NavMain;
        m.flt = FltMain;
        m.entry = GET_FUSION_IN(g_FusionInPos - 1u, 0u);
        return m;
    }();
    return st;
}

// A bank member with the main filter's navigation state and its 6-state corner.
KfFilter BankFilter(const KfFilter &main) {
    KfFilter f = main;
    f.state_dim = 6;
    return f;
}

void BM_MechanizationStep(benchmark::State &state) {
    const MainState &m = MainAtMidSession();
    NavState nav = m.nav;
    for (auto _ : state) {
        dr_mech(&nav, m.entry.dtheta[4], m.entry.dvel[4], 1, 0.01);
        benchmark::DoNotOptimize(&nav);
    }
}
BENCHMARK(BM_MechanizationStep);

void BM_TimeUpdate(benchmark::State &state) {
    const MainState &m = MainAtMidSession();
    const KfFilter start = state.range(0) == 6 ? BankFilter(m.flt) : m.flt;
    KfFilter flt = start;
    for (auto _ : state) {
        flt = start;  // keeps the factor from growing without bound
        KFInflatePMatrix(&flt, &m.nav, m.entry.dtheta[4], m.entry.dvel[4], 0.01);
        benchmark::DoNotOptimize(&flt);
    }
}
BENCHMARK(BM_TimeUpdate)->Arg(6)->Arg(12);

void BM_GnssUpdate(benchmark::State &state) {
    const MainState &m = MainAtMidSession();
    const KfFilter start = state.range(0) == 6 ? BankFilter(m.flt) : m.flt;
    const double rate[3] = {m.entry.dtheta[10][0] * 100.0, m.entry.dtheta[10][1] * 100.0, m.entry.dtheta[10][2] * 100.0};
    KfFilter flt;
    NavState nav;
    for (auto _ : state) {
        flt = start;
        nav = m.nav;
        KFUpdateGnssSol(&flt, &nav, m.entry.header.pos, m.entry.header.vel, rate, m.entry.header.vel_std);
        benchmark::DoNotOptimize(&flt);
        benchmark::DoNotOptimize(&nav);
    }
}
BENCHMARK(BM_GnssUpdate)->Arg(6)->Arg(12);

}  // namespace
