#include "log_io.h"

#include <cstdio>
#include <cstring>

namespace drsim {

namespace {

constexpr size_t kHeaderBytes = sizeof(DrInput);
constexpr size_t kSampleBytes = sizeof(ImuSample);
constexpr uint32_t kWeekMs = 604800000U;

std::string format(const char *fmt, unsigned long long a, unsigned long long b = 0) {
    char buf[160];
    std::snprintf(buf, sizeof buf, fmt, a, b);
    return buf;
}

bool valid_pos_type(uint8_t t) {
    return (t >= 0x10 && t <= 0x12) || (t >= 0x20 && t <= 0x22) || (t >= 0x30 && t <= 0x32);
}
bool valid_vel_type(uint8_t v, uint8_t p) { return v == 8 || v == 9 || (v >= 0x10 && v <= 0x12) || v == p; }

struct Fail {
    size_t field;  // byte offset of the offending field inside the record
    std::string reason;
};

// Rules for one header on its own; an empty reason means it passes.
Fail header_rules(const DrInput &h) {
    if (h.tow_ms > kWeekMs + 1000U) return {offsetof(DrInput, tow_ms), format("tow_ms %llu beyond one week plus one second", h.tow_ms)};
    const uint32_t r = h.tow_ms % 100U;
    if (r > 1U && r < 99U) return {offsetof(DrInput, tow_ms), format("tow_ms %llu not within 1 ms of a 100 ms boundary", h.tow_ms)};
    if (!valid_pos_type(h.pos_type)) return {offsetof(DrInput, pos_type), format("invalid pos_type 0x%llx", h.pos_type)};
    if (!valid_vel_type(h.vel_type, h.pos_type)) return {offsetof(DrInput, vel_type), format("invalid vel_type 0x%llx", h.vel_type)};
    const float ps = h.pos_std[0] * h.pos_std[0] + h.pos_std[1] * h.pos_std[1] + h.pos_std[2] * h.pos_std[2];
    if (ps > 100.0f) return {offsetof(DrInput, pos_std), "position deviations above 10 m combined"};
    const float vs = h.vel_std[0] * h.vel_std[0] + h.vel_std[1] * h.vel_std[1] + h.vel_std[2] * h.vel_std[2];
    if (vs > 0.49f) return {offsetof(DrInput, vel_std), "velocity deviations above 0.7 m/s combined"};
    return {0, ""};
}

Fail continuity_rules(const DrInput &h, const DrInput &prev) {
    if (h.seq != prev.seq + 1U)
        return {offsetof(DrInput, seq), format("seq %llu does not follow %llu", h.seq, prev.seq)};
    const uint32_t d = h.tow_ms >= prev.tow_ms ? h.tow_ms - prev.tow_ms : h.tow_ms + kWeekMs - prev.tow_ms;
    if (d < 99U || d > 101U)
        return {offsetof(DrInput, tow_ms), format("tow_ms %llu is %llu ms after the previous record", h.tow_ms, d)};
    return {0, ""};
}

// Spacing of two IMU stamps within the second, in us; equal stamps count as a full second.
uint32_t stamp_spacing(uint32_t now, uint32_t before) {
    const uint32_t a = now % 1000000U, b = before % 1000000U;
    return a > b ? a - b : a + 1000000U - b;
}

}  // namespace

void append_record(std::vector<uint8_t> &log, const DrInput &header, const std::vector<ImuSample> &samples) {
    DrInput h = header;
    h.nsamples = static_cast<uint8_t>(samples.size());
    const size_t at = log.size();
    log.resize(at + kHeaderBytes + samples.size() * kSampleBytes);
    std::memcpy(&log[at], &h, kHeaderBytes);
    if (!samples.empty()) std::memcpy(&log[at + kHeaderBytes], samples.data(), samples.size() * kSampleBytes);
}

LogCheck check_log(const uint8_t *data, size_t size, bool strict) {
    LogCheck c;
    size_t at = 0;
    DrInput prev{};
    uint32_t prev_stamp = 0;
    bool have_prev = false;
    auto fail = [&](size_t field, const std::string &why) {
        c.ok = false;
        c.record_offset = at;
        c.byte_offset = at + field;
        c.reason = why;
        return c;
    };
    while (at < size) {
        const size_t left = size - at;
        if (left < kHeaderBytes)
            return fail(left, format("truncated header: %llu of 88 bytes", left));
        DrInput h;
        std::memcpy(&h, data + at, kHeaderBytes);
        if (h.version != 4) return fail(offsetof(DrInput, version), format("version %llu, expected 4", h.version));
        if (h.nsamples < 8 || h.nsamples > 12)
            return fail(offsetof(DrInput, nsamples), format("nsamples %llu outside 8..12", h.nsamples));
        const size_t length = kHeaderBytes + h.nsamples * kSampleBytes;
        if (left < length)
            return fail(left, format("truncated record: %llu of %llu bytes", left, length));
        if (strict) {
            Fail f = header_rules(h);
            if (f.reason.empty() && have_prev) f = continuity_rules(h, prev);
            if (!f.reason.empty()) return fail(f.field, f.reason);
            for (size_t i = 0; i < h.nsamples; ++i) {
                ImuSample s;
                const size_t so = kHeaderBytes + i * kSampleBytes;
                std::memcpy(&s, data + at + so, kSampleBytes);
                if (have_prev || i > 0) {
                    const uint32_t d = stamp_spacing(s.time_us, prev_stamp);
                    if (d < 2000U || d > 18000U)
                        return fail(so + offsetof(ImuSample, time_us),
                                    format("IMU sample %llu is %llu us after the one before", i, d));
                }
                prev_stamp = s.time_us;
            }
        }
        prev = h;
        have_prev = true;
        at += length;
        ++c.records;
    }
    return c;
}

std::string log_fault_text(const LogCheck &c) {
    return format("byte %llu: ", c.byte_offset) + c.reason +
           format(" (record %llu, from byte %llu)", c.records, c.record_offset);  // records: 0-based index
}

std::vector<LogRecord> read_log(const uint8_t *data, size_t size, LogCheck *check) {
    const LogCheck c = check_log(data, size, false);
    if (check) *check = c;
    std::vector<LogRecord> out;
    out.reserve(c.records);
    size_t at = 0;
    for (size_t r = 0; r < c.records; ++r) {
        LogRecord rec;
        rec.offset = at;
        std::memcpy(&rec.header, data + at, kHeaderBytes);
        rec.samples.resize(rec.header.nsamples);
        std::memcpy(rec.samples.data(), data + at + kHeaderBytes, rec.samples.size() * kSampleBytes);
        at += kHeaderBytes + rec.samples.size() * kSampleBytes;
        out.push_back(std::move(rec));
    }
    return out;
}

bool read_file(const std::string &path, std::vector<uint8_t> &bytes) {
    FILE *f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    bytes.clear();
    uint8_t buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) bytes.insert(bytes.end(), buf, buf + n);
    const bool ok = !std::ferror(f);
    std::fclose(f);
    return ok;
}

bool write_file(const std::string &path, const std::vector<uint8_t> &bytes) {
    FILE *f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    return std::fclose(f) == 0 && ok;
}

}  // namespace drsim
