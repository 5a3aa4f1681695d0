// Sizes of the error-state filters and of their scratch buffers.
//
// Error state: 0..2 velocity (m/s, n), 3..5 attitude psi (rad, n),
// 6..8 accelerometer bias (m/s^2, body), 9..11 gyro bias (rad/s, body).
#pragma once

#include <stdint.h>

namespace drlib {

constexpr int32_t kKfMaxStates = 12;      // main filter
constexpr int32_t kKfBankStates = 6;      // each bank filter: velocity and attitude
constexpr int32_t kKfMaxUpdateDim = 15;   // measurements + states of one update

constexpr int32_t kKfVel = 0;       // first velocity state
constexpr int32_t kKfAtt = 3;       // first attitude state
constexpr int32_t kKfAccBias = 6;   // first accelerometer-bias state
constexpr int32_t kKfGyroBias = 9;  // first gyro-bias state

// Whether an n-state filter carries the accelerometer (gyro) bias states.
constexpr bool has_acc_bias(int32_t n) { return n >= kKfAccBias + 3; }
constexpr bool has_gyro_bias(int32_t n) { return n >= kKfGyroBias + 3; }

constexpr int32_t packed_size(int32_t n) { return n * (n + 1) / 2; }

static_assert(packed_size(kKfMaxStates) == 78, "KfFilter.L holds a 12-state factor");
static_assert(packed_size(kKfMaxUpdateDim) == 120, "factor of the largest update");

}  // namespace drlib
