// Writes the seed corpus of the fuzz targets from the simulator's base
// session: fuzz/corpus/<target>/<name>. The seeds are small programs that
// reach every driver state, and short logs cut from a simulated session.
//
// The targets read their bytes with FuzzedDataProvider, which takes byte
// strings from the front of the input and integers from its back, one byte
// per integer of a range below 256; Seed mirrors that.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "log_io.h"

namespace {

struct Seed {
    std::vector<uint8_t> front, back;  // back in the order the target consumes it
    Seed &Int(uint8_t v) { back.push_back(v); return *this; }
    Seed &Bytes(const void *p, size_t n) {
        const auto *b = static_cast<const uint8_t *>(p);
        front.insert(front.end(), b, b + n);
        return *this;
    }
    std::vector<uint8_t> Data() const {
        std::vector<uint8_t> d = front;
        d.insert(d.end(), back.rbegin(), back.rend());
        return d;
    }
};

void Write(const std::string &dir, const std::string &name, const std::vector<uint8_t> &bytes) {
    const std::string path = dir + "/" + name;
    if (!drsim::write_file(path, bytes)) {
        std::fprintf(stderr, "cannot write %s\n", path.c_str());
        std::exit(1);
    }
}

std::vector<uint8_t> LogOf(size_t first, size_t count) {
    std::vector<uint8_t> log;
    for (size_t i = first; i < first + count; ++i) {
        const drfuzz::Record &r = drfuzz::BaseSession()[i];
        const auto *p = reinterpret_cast<const uint8_t *>(r.get());
        log.insert(log.end(), p, p + r.bytes());
    }
    return log;
}

}  // namespace

int main(int argc, char **argv) {
    const std::string root = argc > 1 ? argv[1] : "fuzz/corpus";
    // Record programs: the start (0 fresh, 1 idle with history, 2 bank, 3 bank
    // before its decision, 4 main filter, 5 calibrating, 6 calibration near
    // its result, 7 options with the bank, 8 options with the main filter),
    // then the ops; op 0 feeds n valid records ((n - 1) % 8 as one byte).
    const std::string rec = root + "/records";
    const char *const starts[] = {"fresh", "idle", "bank", "bank_deciding", "main",
                                  "calibrating", "calibration_end", "options_bank", "options_main"};
    for (uint8_t k = 0; k < 9; ++k) Write(rec, starts[k], Seed().Int(k).Int(0).Int(7).Int(0).Int(7).Data());
    // Main filter, a NaN position (op 2, field 5, axis 0, kind 0), then on.
    Write(rec, "main_nan_pos", Seed().Int(4).Int(2).Int(5).Int(0).Int(0).Int(0).Int(7).Data());
    // Main filter, then a record with 255 samples (op 2, field 9), then on.
    Write(rec, "main_255_samples", Seed().Int(4).Int(2).Int(9).Int(0).Int(255).Int(10).Int(0).Int(0).Int(7).Data());
    // Bank, a reset request (op 5), a gap (op 10) and on.
    Write(rec, "bank_reset_gap", Seed().Int(2).Int(0).Int(1).Int(5).Int(0).Int(3).Int(10).Int(4).Int(0).Int(7).Data());
    // Near the end of the week (op 11), on through the rollover.
    Write(rec, "week_rollover", Seed().Int(4).Int(11).Int(1).Int(5).Int(0).Int(0).Int(0).Int(0).Int(0).Int(7).Data());
    // A calibration on the antenna's point (op 9), then the session.
    Write(rec, "calibration", Seed().Int(4).Int(9).Int(0).Int(0).Int(1).Int(0).Int(0).Int(0).Int(0).Int(1).Int(0).Int(7).Int(0).Int(7).Data());
    // A simulated record as raw bytes (op 4).
    {
        const drfuzz::Record &r = drfuzz::BaseSession()[3];
        Write(rec, "raw_record", Seed().Int(1).Int(4).Int(r.get()->nsamples).Bytes(r.get(), r.bytes()).Data());
    }
    // Logs for the reader.
    const std::string log = root + "/log_reader";
    Write(log, "three_records", LogOf(0, 3));
    Write(log, "twelve_records", LogOf(100, 12));
    std::vector<uint8_t> cut = LogOf(0, 2);
    cut.resize(cut.size() - 40);
    Write(log, "truncated", cut);
    // Configuration records: the defaults, twice, over 160 records.
    const std::string cfg = root + "/config";
    DrCfg d{};
    d.bias_store_mode = 3;
    d.reserved1 = 1.52587890625e-06;
    d.reserved2 = 1.9073486328125e-05;
    d.gyro_scale = 1.0058283805847168e-06;
    d.acc_scale = 1.862645149230957e-07;
    Write(cfg, "defaults", Seed().Bytes(&d, sizeof d).Bytes(&d, sizeof d).Int(160).Int(80).Int(0).Data());
    DrCfg m = d;
    m.mount_rph[0] = 0.02;
    m.mount_rph[1] = -0.0209;
    m.gyro_bias_code[0] = 1.001;
    m.gyro_bias_code[1] = 2.0;
    m.gyro_bias_code[2] = 3.0;
    Write(cfg, "mount_and_bias", Seed().Bytes(&m, sizeof m).Bytes(&d, sizeof d).Int(200).Int(150).Int(1).Data());
    return 0;
}
