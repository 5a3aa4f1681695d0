// The trace sink: the library owns no output channel, so every trace point
// ends here and is dropped.
#include "dr_trace.h"

extern "C" DRLIB_API int32_t empty_function(int32_t level, uint32_t mask, const char *fmt, ...) {
    (void)level;
    (void)mask;
    (void)fmt;
    return 0;
}
