// Arbitrary bytes as an input log for the tools' reader: the structural and
// the strict walk, the decoder, and (for short logs) the replay through the
// library. The walks must agree with each other and with the decoder, and
// the replay must see each decoded record once.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "common_replay.h"
#include "fuzz_support.h"
#include "log_io.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using drfuzz::Fail;
    const drsim::LogCheck loose = drsim::check_log(data, size, false);
    const drsim::LogCheck strict = drsim::check_log(data, size, true);
    drsim::LogCheck seen;
    const std::vector<drsim::LogRecord> recs = drsim::read_log(data, size, &seen);
    if (seen.ok != loose.ok || seen.records != loose.records) Fail("reader and walk disagree");
    if (recs.size() != loose.records) Fail("decoded record count differs from the walk");
    if (strict.records > loose.records || (strict.ok && !loose.ok)) Fail("strict walk accepts more than the loose one");
    for (const drsim::LogCheck *c : {&loose, &strict}) {
        if (!c->ok && (c->record_offset > c->byte_offset || c->byte_offset > size || c->reason.empty()))
            Fail("problem located outside the log");
    }
    size_t at = 0;
    for (const drsim::LogRecord &r : recs) {
        if (r.offset != at || r.samples.size() != r.header.nsamples) Fail("record decoded at the wrong place");
        if (std::memcmp(&r.header, data + at, sizeof(DrInput)) != 0) Fail("header decoded wrongly");
        at += DRLIB_INPUT_SIZE(r.header.nsamples);
    }
    if (at > size || (loose.ok && at != size) || (!loose.ok && at != loose.record_offset))
        Fail("decoded records do not tile the log");
    if (recs.size() <= 24) {
        const std::vector<uint8_t> log(data, data + size);
        const drtools::ReplayOutput out = drtools::replay_log(log, drtools::ReplayOptions{});
        if (out.epochs.size() != recs.size()) Fail("replay saw another number of records");
        size_t rejected = 0;
        for (const drtools::EpochResult &e : out.epochs) {
            if (e.result > 1u || e.has_status != (e.result == 0u)) Fail("replay result and status disagree");
            rejected += e.result;
        }
        if (rejected != out.rejected) Fail("replay miscounted the rejected records");
    }
    return 0;
}
