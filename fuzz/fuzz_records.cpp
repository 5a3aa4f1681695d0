// Sequences of input records through the public interface, with resets,
// configuration changes, calibration starts and re-initialisation in
// between. Each run starts from a snapshot of the whole library taken while
// the base session ran: freshly initialised, idle with history, the bank
// converging (early, and three epochs before its decision), the main filter
// running, the main filter with a calibration running (just started, or a few
// updates before its result), and with the configuration's options on. So a
// handful of records reaches the deep code. The fuzzer's bytes pick the start
// and then form a small program: feed the session's next records as they are,
// feed one with a header field or an IMU sample replaced (NaN, infinities,
// extremes, any nsamples 0..255, any time tag), feed a record made of raw
// bytes, skip records, shift the time tags (the week rollover), and call the
// other functions of the interface. Every call is checked by the host; at the
// end the probe shows that the next run starts as from a fresh DrlibInit.
#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>

#include "dr_entry.h"
#include "dr_fusion_state.h"
#include "dr_state_snapshot.h"
#include "fuzz_support.h"

namespace {

using drfuzz::Record;

// Bound the time of one run: a bank epoch costs as much as seven of the main
// filter (eighteen members), so the bank's epochs have a bound of their own.
constexpr size_t kMaxRecordsPerRun = 24;
constexpr size_t kMaxBankEpochsPerRun = 4;
// One run in this many (chosen by a hash of its bytes, so that a finding
// replays) ends with the probe that feeds records; every run ends with the
// probe's comparison of what the next record starts from.
constexpr uint32_t kFeedingProbeEvery = 8;
constexpr uint32_t kWeekMs = 604800000u;

double PickDouble(FuzzedDataProvider &in, double valid) {
    switch (in.ConsumeIntegralInRange<int>(0, 9)) {
        case 0: return std::numeric_limits<double>::quiet_NaN();
        case 1: return std::numeric_limits<double>::infinity();
        case 2: return -std::numeric_limits<double>::infinity();
        case 3: return 0.0;
        case 4: return std::numeric_limits<double>::max();
        case 5: return std::numeric_limits<double>::denorm_min();
        case 6: return valid * in.ConsumeFloatingPointInRange<double>(-4.0, 4.0);
        case 7: return valid + in.ConsumeFloatingPointInRange<double>(-1e3, 1e3);
        case 8: return -valid;
        default: return in.ConsumeFloatingPoint<double>();
    }
}

float PickFloat(FuzzedDataProvider &in, float valid) {
    switch (in.ConsumeIntegralInRange<int>(0, 6)) {
        case 0: return std::numeric_limits<float>::quiet_NaN();
        case 1: return std::numeric_limits<float>::infinity();
        case 2: return -valid;
        case 3: return 0.0f;
        case 4: return std::numeric_limits<float>::max();
        case 5: return valid * in.ConsumeFloatingPointInRange<float>(0.0f, 50.0f);
        default: return in.ConsumeFloatingPoint<float>();
    }
}

int32_t PickCount(FuzzedDataProvider &in, int32_t valid) {
    switch (in.ConsumeIntegralInRange<int>(0, 4)) {
        case 0: return std::numeric_limits<int32_t>::max();
        case 1: return std::numeric_limits<int32_t>::min();
        case 2: return 0;
        case 3: return valid + in.ConsumeIntegralInRange<int32_t>(-100000, 100000);
        default: return in.ConsumeIntegral<int32_t>();
    }
}

// Host-side state of one run over the base session.
struct Run {
    drfuzz::Host host;
    size_t cursor = 0;        // next base record
    size_t fed_before = 0;    // records the host had fed when the run started
    uint32_t tow_shift = 0;   // whole seconds, so the IMU stamps stay valid
    uint32_t seq_shift = 0;

    size_t bank_epochs = 0;

    size_t fed() const { return host.fed() - fed_before; }
    bool may_feed() const { return fed() < kMaxRecordsPerRun && bank_epochs < kMaxBankEpochsPerRun; }
    Record Next() {
        const std::vector<Record> &base = drfuzz::BaseSession();
        const Record &src = base[cursor];
        cursor = (cursor + 1) % base.size();
        Record r = src;
        DrInput *h = r.get();
        h->tow_ms = (h->tow_ms + tow_shift) % kWeekMs;
        h->seq += seq_shift;
        return r;
    }
    void Feed(const Record &r) {
        host.Feed(r.get());
        if (s_FltState == FLT_STATE_CONV) ++bank_epochs;
    }
};

// A driver state to start from: the whole library, and the host's view of it.
struct Start {
    std::unique_ptr<drlib::LibState> library;
    drfuzz::Host host;
    size_t cursor;  // the base record that follows
};

std::vector<Start> g_starts;

// The options word of the configuration, read when its upper half is 0xD7C0:
// bit 0 aligned GNSS velocity, bit 1 screening.
constexpr uint32_t kOptionsOn = 0xD7C00003u;

// Runs the base session and keeps a start in each driver state.
void MakeStarts() {
    const std::vector<Record> &base = drfuzz::BaseSession();
    drfuzz::Host host;
    size_t next = 0;
    auto keep = [&](uint8_t driver_state) {
        if (s_FltState != driver_state) drfuzz::Fail("start: the base session misses a driver state");
        Start s{std::unique_ptr<drlib::LibState>(new drlib::LibState), host, next};
        drlib::TakeStateSnapshot(*s.library);
        g_starts.push_back(std::move(s));
    };
    auto feed_to = [&](size_t end) {
        for (; next < end; ++next) host.Feed(base[next].get());
    };
    auto feed_past_promotion = [&](size_t extra) {
        while (s_FltState != FLT_STATE_MAIN && next + extra < base.size()) feed_to(next + 1);
        feed_to(next + extra);
    };

    host.Init(nullptr);
    feed_past_promotion(0);
    const size_t promotion = next;  // the record that promoted a bank member

    host.Init(nullptr);
    next = 0;
    keep(FLT_STATE_IDLE);
    feed_to(6);
    keep(FLT_STATE_IDLE);  // history, no filter yet
    feed_to(30);
    keep(FLT_STATE_CONV);
    feed_to(promotion - 3);
    keep(FLT_STATE_CONV);  // three epochs before the bank's decision
    feed_past_promotion(20);
    keep(FLT_STATE_MAIN);
    // A calibration on the point where the library puts the tip, once the
    // tip is certain enough for the calibration to take it.
    auto tip_certain = [](const TiltStat &t) {
        for (float sd : t.tip_std_total) {
            if (!(sd < 0.02f)) return false;
        }
        return t.status == 1;
    };
    host.TakeStatuses();
    TiltStat last{};
    while (!tip_certain(last) && next < base.size()) {
        feed_to(next + 1);
        last = host.TakeStatuses().back();
    }
    double tip[3];
    std::memcpy(tip, last.tip_pos, sizeof tip);
    host.StartCalib(tip, 1200, true);
    while (FltCub.running != 0u && FltCub.count < 10u && next < base.size()) feed_to(next + 1);
    if (FltCub.running == 0u || FltCub.count < 10u) drfuzz::Fail("start: the calibration does not take the tip's point");
    keep(FLT_STATE_MAIN);
    // The same calibration a few updates before its result (its count moved
    // on as 1,200 updates on the point would have).
    FltCub.count = FltCub.target - 6u;
    FltCub.last_percent = FltCub.count * 100u / FltCub.target;
    keep(FLT_STATE_MAIN);

    DrCfg options = drlib::drcfg16470;
    options.options = kOptionsOn;
    host.Init(&options);
    next = 0;
    feed_to(30);
    keep(FLT_STATE_CONV);
    feed_past_promotion(20);
    keep(FLT_STATE_MAIN);
    host.TakeStatuses();
}

void MutateHeader(FuzzedDataProvider &in, Record &r) {
    DrInput *h = r.get();
    const int field = in.ConsumeIntegralInRange<int>(0, 10);
    const int axis = in.ConsumeIntegralInRange<int>(0, 2);
    switch (field) {
        case 0: h->version = in.ConsumeIntegral<uint8_t>(); break;
        case 1: h->pos_type = in.ConsumeIntegral<uint8_t>(); break;
        case 2: h->vel_type = in.ConsumeIntegral<uint8_t>(); break;
        case 3: h->seq += in.ConsumeIntegral<uint32_t>(); break;
        case 4: h->tow_ms = in.ConsumeBool() ? in.ConsumeIntegral<uint32_t>()
                                             : h->tow_ms + in.ConsumeIntegralInRange<uint32_t>(0, 2000) - 1000u;
            break;
        case 5: h->pos[axis] = PickDouble(in, h->pos[axis]); break;
        case 6: h->vel[axis] = PickDouble(in, 1.0); break;
        case 7: h->pos_std[axis] = PickFloat(in, h->pos_std[axis]); break;
        case 8: h->vel_std[axis] = PickFloat(in, h->vel_std[axis]); break;
        case 9: {  // any sample count: the record is cut or extended with stamped samples
            const uint8_t n = in.ConsumeIntegral<uint8_t>();
            Record out = drfuzz::MakeRecord(n);
            const uint8_t have = h->nsamples;
            std::memcpy(out.get(), h, sizeof(DrInput));
            out.get()->nsamples = n;
            const ImuSample *src = DRLIB_INPUT_SAMPLES(h);
            auto *dst = const_cast<ImuSample *>(DRLIB_INPUT_SAMPLES(out.get()));
            const uint32_t step = in.ConsumeIntegralInRange<uint32_t>(0, 20000);
            for (uint32_t i = 0; i < n; ++i) {
                dst[i] = src[i < have ? i : have - 1u];
                if (i >= have) dst[i].time_us = src[have - 1u].time_us + (i - have + 1u) * step;
            }
            r = out;
            break;
        }
        default: std::memset(h->reserved, 0xff, sizeof h->reserved); break;
    }
}

void MutateSample(FuzzedDataProvider &in, Record &r) {
    const uint8_t n = r.get()->nsamples;
    auto *s = const_cast<ImuSample *>(DRLIB_INPUT_SAMPLES(r.get())) + in.ConsumeIntegralInRange<uint8_t>(0, n - 1u);
    const int axis = in.ConsumeIntegralInRange<int>(0, 2);
    switch (in.ConsumeIntegralInRange<int>(0, 3)) {
        case 0: s->time_us += in.ConsumeIntegral<uint32_t>(); break;
        case 1: s->gyro[axis] = PickCount(in, s->gyro[axis]); break;
        case 2: s->acc[axis] = PickCount(in, s->acc[axis]); break;
        default: s->time_us = in.ConsumeIntegral<uint32_t>(); break;
    }
}

DrCfg PickCfg(FuzzedDataProvider &in) {
    DrCfg c{};
    if (in.ConsumeBool()) {
        const std::vector<uint8_t> raw = in.ConsumeBytes<uint8_t>(sizeof c);
        if (!raw.empty()) std::memcpy(&c, raw.data(), raw.size());
        return c;
    }
    c.options = in.ConsumeBool() ? DRLIB_OPTIONS_MARKER | in.ConsumeIntegral<uint16_t>() : 0u;
    c.bias_store_mode = 3;
    c.gyro_scale = 1.0058283805847168e-06;
    c.acc_scale = 1.862645149230957e-07;
    c.gyro_bias_code[0] = 1.0;
    c.gyro_bias_code[1] = 2.0;
    c.gyro_bias_code[2] = 3.0;
    double *fields[] = {&c.gyro_scale, &c.acc_scale, &c.gyro_bias_code[0], &c.gyro_bias_code[1],
                        &c.gyro_bias_code[2], &c.mount_rph[0], &c.mount_rph[1], &c.mount_rph[2]};
    double &f = *fields[in.ConsumeIntegralInRange<int>(0, 7)];
    f = PickDouble(in, f == 0.0 ? 0.02 : f);
    return c;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    MakeStarts();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    const Start &start = g_starts[in.ConsumeIntegralInRange<size_t>(0, g_starts.size() - 1)];
    drlib::RestoreStateSnapshot(*start.library);
    // A calibration's time limit counts from its start: it starts now.
    FltCub.start_time = static_cast<int32_t>(time(nullptr));
    Run run;
    run.host = start.host;
    run.host.TakeStatuses();
    run.cursor = start.cursor;
    run.fed_before = run.host.fed();
    while (in.remaining_bytes() > 0 && run.may_feed()) {
        switch (in.ConsumeIntegralInRange<int>(0, 13)) {
            case 0: case 1: {  // a stretch of valid records
                const size_t n = in.ConsumeIntegralInRange<size_t>(1, 8);
                for (size_t i = 0; i < n && run.may_feed(); ++i) run.Feed(run.Next());
                break;
            }
            case 2: { Record r = run.Next(); MutateHeader(in, r); run.Feed(r); break; }
            case 3: { Record r = run.Next(); MutateSample(in, r); run.Feed(r); break; }
            case 4: {  // raw bytes, any sample count
                const uint8_t n = in.ConsumeIntegral<uint8_t>();
                Record r = drfuzz::MakeRecord(n);
                const std::vector<uint8_t> raw = in.ConsumeBytes<uint8_t>(DRLIB_INPUT_SIZE(n));
                if (!raw.empty()) std::memcpy(r.get(), raw.data(), raw.size());
                r.get()->nsamples = n;
                run.Feed(r);
                break;
            }
            case 5: DrlibReset(); break;
            case 6: {
                const DrCfg c = PickCfg(in);
                const bool own = in.ConsumeBool();
                DrlibUpdateCfg(own ? &c : nullptr);
                if (own) run.host.SettingsFromFuzzer();
                break;
            }
            case 7: {
                const DrCfg c = PickCfg(in);
                const bool own = in.ConsumeBool();
                run.host.Init(own ? &c : nullptr);
                if (own) run.host.SettingsFromFuzzer();
                break;
            }
            case 8: {
                double v[3] = {0.0, 0.0, 1.892};
                v[in.ConsumeIntegralInRange<int>(0, 2)] = PickDouble(in, 1.892);
                DrlibSetHwCfg(in.ConsumeBool() ? v : nullptr);
                run.host.SettingsFromFuzzer();
                break;
            }
            case 9: {  // calibration on the antenna's point or anywhere
                double ref[3];
                std::memcpy(ref, drfuzz::BaseSession()[run.cursor].get()->pos, sizeof ref);
                ref[2] -= 1.892 * in.ConsumeFloatingPointInRange<double>(0.0, 1.0);
                if (in.ConsumeBool()) ref[in.ConsumeIntegralInRange<int>(0, 2)] = PickDouble(in, ref[2]);
                run.host.StartCalib(in.ConsumeIntegralInRange<int>(0, 3) == 0 ? nullptr : ref,
                                    in.ConsumeIntegral<uint32_t>(), in.ConsumeBool());
                break;
            }
            case 10: run.cursor = (run.cursor + in.ConsumeIntegralInRange<size_t>(1, 50)) % drfuzz::BaseSession().size(); break;
            case 11:  // whole seconds keep the IMU stamps valid; near the week's end exercises the rollover
                run.tow_shift = in.ConsumeBool() ? kWeekMs - 345600000u - 1000u * in.ConsumeIntegralInRange<uint32_t>(0, 30)
                                                 : 1000u * in.ConsumeIntegralInRange<uint32_t>(0, 604800u);
                run.seq_shift = in.ConsumeIntegral<uint32_t>();
                break;
            case 12: {
                DrCfg c = PickCfg(in);
                c.bias_store_mode = 3;
                run.host.Destroy(in.ConsumeBool() ? &c : nullptr);
                if (in.ConsumeBool()) {
                    run.host.Init(&c);
                    run.host.SettingsFromFuzzer();
                }
                break;
            }
            default: {
                run.host.RegisterTilt(in.ConsumeBool());
                char buf[64];
                DrlibVerInfo(in.ConsumeBool() ? buf : nullptr, in.ConsumeIntegralInRange<int32_t>(-2, 64));
                DrlibSetCoord(in.ConsumeIntegral<uint32_t>());
                break;
            }
        }
    }
    uint32_t hash = 2166136261u;  // FNV-1a
    for (size_t i = 0; i < size; ++i) hash = (hash ^ data[i]) * 16777619u;
    drfuzz::ProbeNothingLeftOver(run.host, hash % kFeedingProbeEvery == 0u);
    return 0;
}
