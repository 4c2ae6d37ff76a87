// Field text as the other subsystems reach it: _get_unwrapped_string through
// the module global of that name, so that a tool's replacement is honoured.
#pragma once

#include "vxr.hpp"

namespace vxr {

Ref get_unwrapped_string(State& st, PyObject* instr);

// _get_unwrapped_string(instr), looked up in the module's globals now.
inline Ref call_get_unwrapped_string(State& st, PyObject* instr, Loc where = VXR_CALLER) {
    return call_module_function(
        st, st.n.fn_get_unwrapped_string, st.fn_get_unwrapped_string, "vxrcomn._get_unwrapped_string",
        [&] { return get_unwrapped_string(st, instr); }, {instr}, where);
}

}  // namespace vxr
