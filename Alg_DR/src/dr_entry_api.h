// Library flags shared by the public functions and the update cycle.
#pragma once

#include <stdint.h>

#include "drlib_toolkit.h"

namespace drlib {

extern uint8_t bLibInited;              // 1 between DrlibInit and DrlibDestroy
extern uint8_t bResetNotice;            // reset requested, carried out by the next update
extern DrlibTiltCallback tiltUpdateCB;  // the host's tilt-status callback, or null

}  // namespace drlib
