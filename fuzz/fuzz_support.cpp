#include "fuzz_support.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "dr_entry.h"
#include "dr_entry_api.h"
#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "dr_state_snapshot.h"
#include "log_io.h"
#include "simulator.h"

namespace drfuzz {

const double kPole_m[3] = {0.0, 0.0, 1.892};

namespace {

// Records of the base session fed by the probe: the bank starts at the
// eleventh and has run one epoch on every member by the last.
constexpr size_t kProbeRecords = 12;
constexpr double kDegPerRad = 57.29577951308232;

// Calibration reports of the current cycle; the callbacks carry no user pointer.
bool g_in_update = false;
bool g_processed_cycle = false;
size_t g_tilt_calls = 0;
TiltStat g_last{};
std::vector<TiltStat> g_statuses;

void OnTilt(const TiltStat *stat) {
    if (!g_in_update) Fail("tilt callback outside DrlibUpdateFusion");
    if (stat == nullptr) Fail("null tilt status");
    ++g_tilt_calls;
    std::memcpy(&g_last, stat, sizeof g_last);
}

bool g_expect_finite = true;  // every record since the last refusal was receiver-like

void OnCalib(uint32_t code, const void *data, uint32_t len) {
    if (!g_in_update) Fail("calibration callback outside DrlibUpdateFusion");
    if (code == 1) {
        if (len != 4 || data == nullptr) Fail("progress report without its 4 bytes");
        uint32_t percent;
        std::memcpy(&percent, data, 4);
        if (percent > 99u) Fail("progress above 99 %");
    } else if (code == 0) {
        if (len != 24 || data == nullptr) Fail("calibration result without its 24 bytes");
        double r[3];
        std::memcpy(r, data, 24);
        for (double a : r) {
            // A NaN result follows a NaN the library took as it stood (an
            // absurd record, a fuzzed scale or pole); the limit holds for
            // every result a receiver's data and the host's settings give.
            if (std::isnan(a) && !g_expect_finite) continue;
            if (!(std::fabs(a) * kDegPerRad <= 1.08 + 1e-9)) {
                std::fprintf(stderr, "calibration result %.17g %.17g %.17g rad\n", r[0], r[1], r[2]);
                Fail("calibration result beyond 1.08 deg");
            }
        }
    } else if (code == 2) {
        if (len != 0 || data != nullptr) Fail("time-out report with data");
    } else {
        Fail("unknown calibration report code");
    }
}

bool SameBits(const void *a, const void *b, size_t n) { return std::memcmp(a, b, n) == 0; }

// A solution a receiver on the Earth could report: near the surface (within
// several hundred kilometres, whatever the latitude), slower than any vehicle
// a pole rides on, and with finite deviations (the tip's total deviation and
// the calibration carry the position deviation as it stands).
bool ReceiverLike(const DrInput &rec) {
    double r2 = 0.0;
    for (int i = 0; i < 3; ++i) {
        if (!std::isfinite(rec.pos[i]) || !(std::fabs(rec.vel[i]) < 1e3)) return false;
        if (!std::isfinite(rec.pos_std[i]) || !std::isfinite(rec.vel_std[i])) return false;
        r2 += rec.pos[i] * rec.pos[i];
    }
    return r2 > 6.0e6 * 6.0e6 && r2 < 7.0e6 * 7.0e6;
}

void CheckStatus(const TiltStat &s, const DrInput &rec, bool expect_finite) {
    if (s.version != 2) Fail("status version is not 2");
    if (s.status > 3) Fail("status class above 3");
    if (s.tow_ms != rec.tow_ms || s.pos_type != rec.pos_type || s.vel_type != rec.vel_type)
        Fail("status does not repeat the record's tag and types");
    if (!SameBits(s.vel, rec.vel, sizeof s.vel) || !SameBits(s.vel_std, rec.vel_std, sizeof s.vel_std))
        Fail("status does not repeat the record's velocity");
    if (s.status == 0) return;
    static const float kClassLimit_m[4] = {0.0f, 0.012f, 0.06f, 0.35f};
    float sum = 0.0f;
    for (int i = 0; i < 3; ++i) {
        const bool finite = std::isfinite(s.att[i]) && std::isfinite(s.tip_pos[i]) && std::isfinite(s.tip_std[i]);
        if (expect_finite && !finite) Fail("tilt solution that is not finite");
        sum += s.tip_std[i] * s.tip_std[i];
    }
    const float limit = kClassLimit_m[s.status];
    if (!(sum <= limit * limit * 1.0001f)) Fail("tip deviations above the limit of the class");
}

// Everything of the engine a run could leave behind, as bits.
struct EngineBits {
    uint8_t state = 0;
    uint32_t updcnt = 0;
    uint8_t toggles[kBankSize] = {};
    NavState nav[kBankSize];
    struct Filter {
        uint8_t dim;
        double acc_bias[3], gyro_bias[3], L[78];
    } flt[kBankSize], main;
    NavState nav_main;
    ZuptState zupt;
    CubCfg cub;
    uint32_t cub_enabled = 0, cub_running = 0, cub_count = 0;
    uint32_t history_num = 0, imu_wpos = 0, imu_rpos = 0;
    struct Interface {  // what the host set up, and the flags of the interface
        DrCfg cfg;
        HwCfg hw;
        double level_arm_b[3];
        const double *bg_from_cfg;
        uint8_t inited, reset_notice;
        DrlibTiltCallback tilt_cb;
    } iface;
    std::vector<FusionIn> history;  // the probe's entries, oldest first
};

EngineBits::Filter FilterBits(const KfFilter &f) {
    EngineBits::Filter b;
    std::memset(&b, 0, sizeof b);
    b.dim = f.state_dim;
    std::memcpy(b.acc_bias, f.acc_bias, sizeof b.acc_bias);
    std::memcpy(b.gyro_bias, f.gyro_bias, sizeof b.gyro_bias);
    std::memcpy(b.L, f.L, sizeof b.L);
    return b;
}

EngineBits Snapshot(size_t entries) {
    EngineBits e;
    e.state = s_FltState;
    e.updcnt = s_updcnt;
    std::memcpy(e.toggles, toggleCnts, sizeof e.toggles);
    for (int k = 0; k < kBankSize; ++k) {
        e.nav[k] = NavGp[k];
        e.flt[k] = FilterBits(FltGp[k]);
    }
    e.main = FilterBits(FltMain);
    e.nav_main = NavMain;
    e.zupt = FltZupt;
    e.cub = s_cub;
    e.cub_enabled = FltCub.enabled;
    e.cub_running = FltCub.running;
    e.cub_count = FltCub.count;
    e.history_num = g_FusionInNum;
    e.imu_wpos = drlib::ImuDataWPos;
    e.imu_rpos = drlib::ImuDataRPos;
    e.iface.cfg = drlib::drcfg;
    e.iface.hw = drlib::hwcfg;
    std::memcpy(e.iface.level_arm_b, g_level_arm_b, sizeof e.iface.level_arm_b);
    e.iface.bg_from_cfg = g_BgFromCfg;
    e.iface.inited = drlib::bLibInited;
    e.iface.reset_notice = drlib::bResetNotice;
    e.iface.tilt_cb = drlib::tiltUpdateCB;
    for (size_t k = entries; k > 0; --k) e.history.push_back(GET_FUSION_IN(g_FusionInPos - 1u, -static_cast<int32_t>(k - 1)));
    return e;
}

// What a run starts from: everything the library carries from one record
// to the next, but for the parts a new run writes before it reads them (the
// history's entries, the staged samples, the bank and its counters, the main
// filter and the calibration's estimate).
void CompareStarts(const EngineBits &got, const EngineBits &want) {
    if (got.state != want.state) Fail("probe: driver state differs from a fresh start");
    if (got.history_num != want.history_num || got.imu_wpos != want.imu_wpos || got.imu_rpos != want.imu_rpos)
        Fail("probe: history or staged samples differ from a fresh start");
    if (!SameBits(&got.zupt, &want.zupt, sizeof got.zupt)) Fail("probe: standstill estimator differs from a fresh start");
    if (!SameBits(&got.cub, &want.cub, sizeof got.cub)) Fail("probe: mounting rotation differs from a fresh start");
    if (got.cub_enabled != want.cub_enabled || got.cub_running != want.cub_running || got.cub_count != want.cub_count)
        Fail("probe: calibration state differs from a fresh start");
    const EngineBits::Interface &gi = got.iface, &wi = want.iface;
    if (!SameBits(&gi.cfg, &wi.cfg, sizeof gi.cfg) || !SameBits(&gi.hw, &wi.hw, sizeof gi.hw) ||
        !SameBits(gi.level_arm_b, wi.level_arm_b, sizeof gi.level_arm_b) || gi.bg_from_cfg != wi.bg_from_cfg)
        Fail("probe: configuration differs from a fresh start");
    if (gi.inited != wi.inited || gi.reset_notice != wi.reset_notice || gi.tilt_cb != wi.tilt_cb)
        Fail("probe: interface flags differ from a fresh start");
}

void CompareEngines(const EngineBits &got, const EngineBits &want) {
    CompareStarts(got, want);
    if (got.updcnt != want.updcnt) Fail("probe: driver state differs from a fresh start");
    if (!SameBits(got.toggles, want.toggles, sizeof got.toggles)) Fail("probe: bank counters differ from a fresh start");
    if (want.state == FLT_STATE_CONV) {
        for (int k = 0; k < kBankSize; ++k) {
            if (!SameBits(&got.nav[k], &want.nav[k], sizeof got.nav[k])) Fail("probe: bank navigation state differs");
            if (!SameBits(&got.flt[k], &want.flt[k], sizeof got.flt[k])) Fail("probe: bank filter differs");
        }
    }
    if (want.state == FLT_STATE_MAIN) {
        if (!SameBits(&got.nav_main, &want.nav_main, sizeof got.nav_main) ||
            !SameBits(&got.main, &want.main, sizeof got.main))
            Fail("probe: main filter differs");
    }
    for (size_t k = 0; k < want.history.size(); ++k) {
        const FusionIn &a = got.history[k], &b = want.history[k];
        if (!SameBits(&a.header, &b.header, sizeof a.header)) Fail("probe: history header differs");
        // The first entries of a run may be short: the slots before the
        // first staged sample keep what the ring entry held before (nothing
        // reads them); the first entry has no slot 0 (nothing came before it).
        const size_t first = std::max<size_t>(k == 0 ? 1 : 0, 11u - a.header.nsamples);
        if (!SameBits(a.dtheta[first], b.dtheta[first], (11 - first) * sizeof a.dtheta[0]) ||
            !SameBits(a.dvel[first], b.dvel[first], (11 - first) * sizeof a.dvel[0]))
            Fail("probe: resampled increments differ");
    }
}

}  // namespace

void Fail(const char *what) {
    std::fprintf(stderr, "drlib fuzz finding: %s\n", what);
    std::abort();
}

Record MakeRecord(uint8_t nsamples) {
    Record r;
    r.words.assign(DRLIB_INPUT_SIZE(nsamples) / sizeof(uint64_t) + 1, 0);
    r.get()->nsamples = nsamples;
    return r;
}

const std::vector<Record> &BaseSession() {
    static std::vector<Record> records = [] {
        drsim::SimOptions opt;
        opt.scenario.name = "survey";
        opt.scenario.duration_scale = 0.4;  // still 8 s, then tilting
        opt.scenario.seed = 7;
        const drsim::SimResult sim = drsim::simulate(opt);
        std::vector<Record> out;
        for (const drsim::LogRecord &lr : drsim::read_log(sim.log.data(), sim.log.size())) {
            Record r = MakeRecord(lr.header.nsamples);
            std::memcpy(r.get(), &lr.header, sizeof(DrInput));
            std::memcpy(r.words.data() + sizeof(DrInput) / sizeof(uint64_t), lr.samples.data(),
                        lr.samples.size() * sizeof(ImuSample));
            out.push_back(std::move(r));
        }
        return out;
    }();
    return records;
}

Host::Host() = default;

void Host::Init(const DrCfg *cfg) {
    DrlibInit(cfg);
    absurd_since_refusal_ = false;
    fuzzed_settings_ = false;
    DrlibSetHwCfg(kPole_m);
    inited_ = true;
    RegisterTilt(true);
}

void Host::Destroy(DrCfg *cfg) {
    DrlibDestroy(cfg);
    inited_ = false;
    if (cfg == nullptr || cfg->bias_store_mode != 3) return;
    // Written back: zeros, or a code DrlibInit recognises as a stored bias.
    const double *c = cfg->gyro_bias_code;
    if (c[0] == 0.0 && c[1] == 0.0 && c[2] == 0.0) return;
    for (int i = 0; i < 3; ++i) {
        if (!(std::fabs(c[i] - (i + 1.0)) < 0.003490658503988659)) Fail("bias store wrote an unusable code");
    }
}

void Host::RegisterTilt(bool on) {
    DrlibRegisterCB(on ? OnTilt : nullptr);
    tilt_cb_ = on;
}

void Host::StartCalib(const double *ref_e, uint32_t target, bool with_callback) {
    DrlibCalibStart(ref_e, target, with_callback ? OnCalib : nullptr);
}

uint32_t Host::Feed(const DrInput *rec) {
    g_tilt_calls = 0;
    g_expect_finite = !absurd_since_refusal_ && !fuzzed_settings_ && ReceiverLike(*rec);
    g_in_update = true;
    const uint32_t result = DrlibUpdateFusion(rec);
    g_in_update = false;
    ++fed_;
    if (result > 1u) Fail("result other than 0 or 1");
    if (!inited_ && result != 1u) Fail("processed a record while not initialised");
    // A refusal empties the history; nothing of the records before it is read again.
    if (result == 1u && inited_) absurd_since_refusal_ = false;
    if (result == 0u && !ReceiverLike(*rec)) absurd_since_refusal_ = true;
    const size_t want_calls = (result == 0u && tilt_cb_) ? 1u : 0u;
    if (g_tilt_calls != want_calls) Fail("tilt callback count does not match the result");
    if (g_tilt_calls == 1u) {
        CheckStatus(g_last, *rec, !absurd_since_refusal_);
        g_statuses.push_back(g_last);
    }
    return result;
}

std::vector<TiltStat> Host::TakeStatuses() {
    std::vector<TiltStat> out;
    out.swap(g_statuses);
    return out;
}

namespace {

// The host's setup restored, and a record the library must refuse.
void RestartRun(Host &host) {
    if (!host.inited()) host.Init(nullptr);
    DrlibUpdateCfg(nullptr);
    DrlibSetHwCfg(kPole_m);
    host.RegisterTilt(true);
    host.StartCalib(nullptr, 0, false);
    Record refused = MakeRecord(10);  // version 0
    if (host.Feed(refused.get()) != 1u) Fail("probe: an invalid record was accepted");
    host.TakeStatuses();
}

}  // namespace

void ProbeNothingLeftOver(Host &host, bool feed_records) {
    const std::vector<Record> &base = BaseSession();
    static bool have_reference = false;
    static EngineBits reference_start, reference;
    static std::vector<TiltStat> reference_statuses;
    if (!have_reference) {
        // Made once, on the side: the run being probed is put back after.
        std::unique_ptr<drlib::LibState> probed(new drlib::LibState);
        drlib::TakeStateSnapshot(*probed);
        const std::vector<TiltStat> probed_statuses = host.TakeStatuses();
        Host fresh;
        fresh.Init(nullptr);
        RestartRun(fresh);
        reference_start = Snapshot(0);
        for (size_t i = 0; i < kProbeRecords; ++i) fresh.Feed(base[i].get());
        reference = Snapshot(kProbeRecords);
        reference_statuses = fresh.TakeStatuses();
        if (reference.state != FLT_STATE_CONV || reference_statuses.size() != kProbeRecords)
            Fail("probe: the base session does not start the bank");
        have_reference = true;
        drlib::RestoreStateSnapshot(*probed);
        g_statuses = probed_statuses;
    }
    RestartRun(host);
    CompareStarts(Snapshot(0), reference_start);
    if (!feed_records) return;
    for (size_t i = 0; i < kProbeRecords; ++i) {
        if (host.Feed(base[i].get()) != 0u) Fail("probe: a valid record was refused after a reset");
    }
    const std::vector<TiltStat> got = host.TakeStatuses();
    for (size_t i = 0; i < got.size(); ++i) {
        if (!SameBits(&got[i], &reference_statuses[i], sizeof got[i])) Fail("probe: status differs from a fresh start");
    }
    CompareEngines(Snapshot(kProbeRecords), reference);
}

}  // namespace drfuzz
