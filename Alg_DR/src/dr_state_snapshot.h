// Test builds only (the tests and fuzz targets, linked with the static
// library): copies the whole library state and puts it back. Header-only, so
// nothing of it reaches the shared object.
//
// A snapshot holds the host's callback pointers as they were: restore it only
// in the process that took it. It is about 350 KB; keep it off the stack.
#pragma once

#include <string.h>

#include <type_traits>

#include "dr_state.h"

namespace drlib {

static_assert(std::is_trivially_copyable<LibState>::value, "the state must copy as bytes");

inline void TakeStateSnapshot(LibState &out) { memcpy(&out, &g_state, sizeof out); }
inline void RestoreStateSnapshot(const LibState &in) { memcpy(&g_state, &in, sizeof g_state); }

}  // namespace drlib
