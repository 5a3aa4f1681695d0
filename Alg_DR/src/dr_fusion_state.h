// State of the fusion engine shared by its units: the driver (dr_fusion),
// the bank start and convergence test, the standstill detector, the tilt
// status and the mounting calibration. Parts of drlib::g_state; nothing here
// is exported from the shared object.
#pragma once

#include <stdint.h>

#include "dr_state.h"
#include "drlib_toolkit.h"

enum : uint8_t {
    FLT_STATE_IDLE = 0,  // no filter running; waiting to start the bank
    FLT_STATE_CONV = 1,  // the 18-member bank runs until one heading wins
    FLT_STATE_MAIN = 2,  // the promoted main filter runs
};

static constexpr auto &s_FltState = drlib::g_state.flt_state;
static constexpr auto &s_updcnt = drlib::g_state.updcnt;         // filter cycles since the bank start
static constexpr auto &toggleCnts = drlib::g_state.toggle_cnts;  // per-hypothesis neighbour-agreement counters
static constexpr auto &NavGp = drlib::g_state.nav_gp;
static constexpr auto &FltGp = drlib::g_state.flt_gp;
static constexpr auto &NavMain = drlib::g_state.nav_main;
static constexpr auto &FltMain = drlib::g_state.flt_main;
static constexpr auto &FltZupt = drlib::g_state.zupt;
static constexpr auto &FltCub = drlib::g_state.cub_flt;
static constexpr auto &s_cub = drlib::g_state.cub_cfg;
