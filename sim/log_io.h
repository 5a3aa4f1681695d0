// Input logs: the records exactly as a host passes them to
// DrlibUpdateFusion, one after the other. Each record is the 88-byte DrInput
// header followed by its `nsamples` 32-byte ImuSample records, so a record's
// length follows from its own header and a firmware dump of the input
// buffers is a log.
#ifndef DRSIM_LOG_IO_H
#define DRSIM_LOG_IO_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "drlib.h"

namespace drsim {

struct LogRecord {
    size_t offset = 0;                // byte offset of the record in the log
    DrInput header{};
    std::vector<ImuSample> samples;
};

// The outcome of walking a log.
struct LogCheck {
    bool ok = true;
    size_t records = 0;          // well-formed records before the first problem (all, if ok)
    size_t record_offset = 0;    // start of the first bad record
    size_t byte_offset = 0;      // the first byte found wrong (or the end, if truncated)
    std::string reason;
};

// Appends one record; the header's nsamples is set from the sample count.
void append_record(std::vector<uint8_t> &log, const DrInput &header, const std::vector<ImuSample> &samples);

// Walks a log. Always checked: the version byte, nsamples in 8..12 and that the
// whole record is present. With `strict` also every rule a fusion host relies
// on: the validity of each header (time tag, solution types, deviations), the
// continuity between records (sequence plus one, 99 to 101 ms with the week
// rollover) and the IMU time-stamp spacing (2000 to 18000 us).
LogCheck check_log(const uint8_t *data, size_t size, bool strict);

// Decodes the well-formed records up to the first problem; `check` (if given)
// receives the outcome of the structural walk.
std::vector<LogRecord> read_log(const uint8_t *data, size_t size, LogCheck *check = nullptr);

// The one way the tools name a fault: "byte B: REASON (record K, from byte R)",
// B the first byte found wrong (the end of the data when truncated).
std::string log_fault_text(const LogCheck &check);

bool read_file(const std::string &path, std::vector<uint8_t> &bytes);
bool write_file(const std::string &path, const std::vector<uint8_t> &bytes);

}  // namespace drsim

#endif
