// A simulated survey session replayed through the public interface, with
// the records sorted by the driver state they are processed in, and the
// engine's state saved at the start of each run of records so a benchmark
// can go back to it.
#ifndef DRBENCH_SESSION_H
#define DRBENCH_SESSION_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "drlib.h"

namespace drbench {

enum class Phase { kIdle, kBank, kMain };

class Session {
public:
    // Simulates the survey session (seed 1, MEMS IMU) once.
    static const Session &Get();
    // The library's options word for the session (DrCfg.options, default 0);
    // takes effect only before the first Get().
    static void UseOptions(uint32_t word);

    // The records processed with the driver in `phase` before and after the
    // call: all of them one run of consecutive records.
    size_t First(Phase phase) const;
    size_t Count(Phase phase) const;
    const DrInput *Record(size_t i) const;

    // Puts the library into the state it had just before record First(phase).
    void Restore(Phase phase) const;

private:
    Session();
    std::vector<std::vector<uint64_t>> records_;
    size_t first_[3] = {0, 0, 0}, count_[3] = {0, 0, 0};
    struct Saved;
    std::vector<Saved *> saved_;
};

}  // namespace drbench

#endif
