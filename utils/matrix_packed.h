// Addressing of row-packed lower triangles, shared by the matrix kernels.
//
// Every row start comes from gk_L_start so that a kernel never recomputes
// i * (i + 1) / 2 in its inner loops.
#pragma once

#include <stdint.h>

#include "drlib.h"

namespace drlib {

// Element (i, j), j <= i, of a packed lower triangle.
inline int32_t packed_index(int32_t i, int32_t j) { return gk_L_start[i] + j; }

// Element (i, j) of a packed symmetric matrix, either triangle: the stored
// lower triangle mirrors the upper one.
inline int32_t sym_index(int32_t i, int32_t j) {
    return i >= j ? gk_L_start[i] + j : gk_L_start[j] + i;
}

}  // namespace drlib
