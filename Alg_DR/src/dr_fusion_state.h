// State of the fusion engine shared by its units: the driver (dr_fusion),
// the bank start and convergence test, the standstill detector, the tilt
// status and the mounting calibration. Defined in dr_fusion.cpp; nothing here
// is exported from the shared object.
#pragma once

#include <stdint.h>

#include "drlib_toolkit.h"

enum : uint8_t {
    FLT_STATE_IDLE = 0,  // no filter running; waiting to start the bank
    FLT_STATE_CONV = 1,  // the 18-member bank runs until one heading wins
    FLT_STATE_MAIN = 2,  // the promoted main filter runs
};

constexpr int kBankSize = 18;  // heading hypotheses, 20 degrees apart

// Standstill gyro-bias estimator, one scalar filter per body axis.
struct ZuptState {
    double bias_var[3];  // (rad/s)^2
    double bias[3];      // rad/s, body x, y, z
    int32_t hold_cnt;    // measurement-variance inflation after an update
};

// Configured mounting rotation between IMU and pole.
struct CubCfg {
    double dcm[9];  // row-major; identity without usable configured angles
};

extern uint8_t s_FltState;
extern uint32_t s_updcnt;                 // filter cycles since the bank start
extern uint8_t toggleCnts[kBankSize];     // per-hypothesis neighbour-agreement counters
extern NavState NavGp[kBankSize];
extern KfFilter FltGp[kBankSize];
extern NavState NavMain;
extern KfFilter FltMain;
extern ZuptState FltZupt;
extern CubFilter FltCub;
extern CubCfg s_cub;
