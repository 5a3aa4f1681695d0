// What the fuzz targets share: a valid simulated session to start from, a
// host that drives the library and checks every promise the interface makes
// about one call, and a probe that shows nothing of a fuzzed run survives
// into the next run.
#ifndef DRFUZZ_FUZZ_SUPPORT_H
#define DRFUZZ_FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "drlib.h"

namespace drfuzz {

// One record of the base session, in its own 8-byte aligned buffer.
struct Record {
    std::vector<uint64_t> words;
    const DrInput *get() const { return reinterpret_cast<const DrInput *>(words.data()); }
    DrInput *get() { return reinterpret_cast<DrInput *>(words.data()); }
    size_t bytes() const { return DRLIB_INPUT_SIZE(get()->nsamples); }
};

// A record buffer for any nsamples 0..255, zero-filled.
Record MakeRecord(uint8_t nsamples);

// The survey session every target starts from: still at first (the bank
// starts after one second), then tilting, so the main filter runs after
// about eleven seconds. Built once, on first use.
const std::vector<Record> &BaseSession();

// The pole lever of the base session, antenna above the tip.
extern const double kPole_m[3];

// Drives the library like a host and aborts (a finding) on any broken promise:
// the result is 0 or 1; a processed record gives exactly one tilt status, a
// rejected one none; a status repeats the record's time tag, solution types,
// velocity and its deviations; a status of class 1..3 has tip deviations
// below the class limit, and finite attitude and tip while every record since
// the last refused one carried a position and velocity a receiver could
// report (the library trusts an accepted record's solution: an absurd one
// corrupts the run until the next refusal); calibration reports come only
// inside a processed cycle and carry the documented lengths and ranges (a
// result may be NaN only after an absurd record or with fuzzed settings).
class Host {
public:
    Host();
    void Init(const DrCfg *cfg);      // DrlibInit, then the callback and the pole
    void Destroy(DrCfg *cfg);         // DrlibDestroy, checking the bias written back
    uint32_t Feed(const DrInput *rec);
    void RegisterTilt(bool on);
    void StartCalib(const double *ref_e, uint32_t target, bool with_callback);
    // The fuzzer set the configuration or the pole vector itself (any
    // value, NaN included); a fresh Init goes back to the host's own.
    void SettingsFromFuzzer() { fuzzed_settings_ = true; }
    bool inited() const { return inited_; }
    size_t fed() const { return fed_; }

    // The statuses of the records fed since the last call.
    std::vector<TiltStat> TakeStatuses();

private:
    bool inited_ = false;
    bool tilt_cb_ = false;
    bool absurd_since_refusal_ = false;  // an accepted record no receiver would send
    bool fuzzed_settings_ = false;
    size_t fed_ = 0;
};

// After whatever the fuzzer did: the host restores its setup (default
// configuration, the pole, no calibration) and feeds one record the library
// must refuse. What the library carries into the next record must then equal,
// bit for bit, what a fresh DrlibInit leaves after the same calls. With
// feed_records the probe also feeds the first second of the base session,
// through the bank's start: the statuses and the whole state of the engine
// must equal those of the fresh start fed the same records, which shows that
// nothing the new run reads before writing it (old history entries, the
// bank's members, stale samples) came from the fuzzed run. Aborts otherwise.
void ProbeNothingLeftOver(Host &host, bool feed_records = true);

// Aborts with a message: the fuzzer reports it as a crash with the input.
[[noreturn]] void Fail(const char *what);

}  // namespace drfuzz

#endif
