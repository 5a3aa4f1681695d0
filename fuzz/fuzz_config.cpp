// Configuration records of any content (NaN or zero scales, huge mounting
// angles, stray bias codes) through DrlibInit and DrlibUpdateCfg, before and
// in the middle of a valid session, with the bias store at the end. The
// fuzzer's bytes: a DrCfg for DrlibInit, a second one for DrlibUpdateCfg,
// the record after which it is applied, and how far the session runs.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <vector>

#include "fuzz_support.h"

namespace {

DrCfg TakeCfg(FuzzedDataProvider &in) {
    DrCfg c{};
    const std::vector<uint8_t> raw = in.ConsumeBytes<uint8_t>(sizeof c);
    if (!raw.empty()) std::memcpy(&c, raw.data(), raw.size());
    return c;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    drfuzz::BaseSession();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    const DrCfg at_init = TakeCfg(in);
    const DrCfg later = TakeCfg(in);
    const std::vector<drfuzz::Record> &base = drfuzz::BaseSession();
    const size_t records = in.ConsumeIntegralInRange<size_t>(0, 200);
    const size_t change_at = in.ConsumeIntegralInRange<size_t>(0, records);
    drfuzz::Host host;
    host.Init(&at_init);
    if (in.ConsumeBool()) host.StartCalib(base[0].get()->pos, 0, true);
    for (size_t i = 0; i < records; ++i) {
        if (i == change_at) DrlibUpdateCfg(&later);
        host.Feed(base[i].get());
    }
    DrCfg store = later;
    store.bias_store_mode = 3;
    host.Destroy(&store);
    // The stored code must load again as whatever it is.
    host.Init(&store);
    drfuzz::ProbeNothingLeftOver(host);
    return 0;
}
