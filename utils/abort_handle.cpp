// Exported assertion-handling module: a fixed-form assertion message that
// stops the calling thread, a stored weak-assert flag and abort hooks that do
// nothing. The library's own checks go through DR_ASSERT instead.
#include <stdio.h>
#include <unistd.h>

#include "dr_state.h"
#include "drlib_toolkit.h"

namespace {
constexpr auto &s_bEnAssertWeak = drlib::g_state.assert_weak;  // 1 from load time
}

extern "C" {

DRLIB_API void setup_abort_callback(void) {}

DRLIB_API void set_abort_behavior(uint32_t behavior) { (void)behavior; }

DRLIB_API uint32_t get_abort_behavior(void) { return 0; }

DRLIB_API void enable_assert_weak(uint32_t flag) { s_bEnAssertWeak = flag; }

DRLIB_API uint32_t get_assert_weak(void) { return s_bEnAssertWeak; }

DRLIB_API void assert_fail_handle(const char *expr, const char *file, int32_t line,
                                  const char *func) {
    (void)func;  // the message names expression, file and line only
    static const char rule[] = "\r\n-------------------------------------------------------------";
    printf("%s", rule);
    printf("%s", rule);
    printf("\r\nASSERT ERROR\"%s\":file\"%s\"Line\"%d\"\r\n", expr, file, static_cast<int>(line));
    fflush(stdout);
    // The handler is the end of the calling thread: park it for good, without
    // spinning a core.
    for (;;) pause();
}

}  // extern "C"
