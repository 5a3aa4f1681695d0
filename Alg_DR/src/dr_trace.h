// Trace points of the fusion engine. They go to empty_function, which keeps
// the call sites (level, category, format, arguments) in the code while the
// library prints nothing.
#pragma once

#include <stdint.h>

#include "drlib_toolkit.h"

namespace drlib {

constexpr int32_t kTraceLevelDebug = 0;
constexpr uint32_t kTraceMaskFusion = 0x800u;      // driver and filter updates
constexpr uint32_t kTraceMaskTiltStatus = 0x100u;  // tilt status composition

}  // namespace drlib
