// Library flags shared by the public functions and the update cycle.
#pragma once

#include <stdint.h>

#include "dr_state.h"
#include "drlib_toolkit.h"

namespace drlib {

static constexpr auto &bLibInited = g_state.lib_inited;      // 1 between DrlibInit and DrlibDestroy
static constexpr auto &bResetNotice = g_state.reset_notice;  // reset requested, carried out by the next update
static constexpr auto &tiltUpdateCB = g_state.tilt_cb;       // the host's tilt-status callback, or null

}  // namespace drlib
