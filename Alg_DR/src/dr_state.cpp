// The library's one state record and the values it holds at load time.
#include "dr_state.h"

#include "dr_entry.h"
#include "dr_fusion_state.h"

namespace drlib {

LibState g_state;  // zero-initialised: takes no room in the file

namespace {

// What a host sees before its first DrlibInit (and, for the pole lever and
// the weak-assert flag, until it sets them: DrlibInit keeps both). Set when
// the library is loaded, so that the record itself stays all zeros.
__attribute__((constructor)) void SetLoadTimeValues() {
    drcfg = drcfg16470;
    hwcfg = HwCfg{{0.0, 0.0, -1.892}};  // m: a host lever of (0, 0, 1.892), stored negated
    s_cub = CubCfg{{1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0}};
    g_state.assert_weak = 1u;
}

}  // namespace

}  // namespace drlib
