// Functions whose subsystem has not landed yet.  Each has its final name,
// parameters and text signature, and raises NotImplementedError; a subsystem
// moves its definitions out of this file as it implements them.
#include "vxr.hpp"

namespace {

struct Pending {
    const char* name;
    template <typename... Args>
    vxr::Ref operator()(vxr::State&, Args&&...) const {
        PyErr_Format(PyExc_NotImplementedError, "%s is not implemented yet", name);
        vxr::fail(VXR_HERE);
    }
};

}  // namespace

// --- PSLF EPC reading -------------------------------------------------------
VXR_DEF_ONE_ARG(_split_data_line_text_pslf, "linetxt", Pending{"_split_data_line_text_pslf"})
VXR_DEF_ARGS(_get_values_from_data_line_text_pslf, "($module, /, recgrp, lnumstr, linetxt, progress)", "OOOO", 4,
             Pending{"_get_values_from_data_line_text_pslf"}, "recgrp", "lnumstr", "linetxt", "progress")
VXR_DEF_ARGS(_epc_assign_data_values_common, "($module, /, recgrp, lnumstr, inputvals_dict, frmtdct, progress)",
             "OOOOO", 5, Pending{"_epc_assign_data_values_common"}, "recgrp", "lnumstr", "inputvals_dict", "frmtdct",
             "progress")
VXR_DEF_ARGS(_epc_assign_data_values, "($module, /, recgrp, lnumstr, valslist, vnamlist, frmtdct, progress)",
             "OOOOOO", 6, Pending{"_epc_assign_data_values"}, "recgrp", "lnumstr", "valslist", "vnamlist", "frmtdct",
             "progress")
VXR_DEF_ARGS(_epc_check_frmt_dc_bus_rec, "($module, /, valslist, vnamlist, frmtdct, progress)", "OOOO", 4,
             Pending{"_epc_check_frmt_dc_bus_rec"}, "valslist", "vnamlist", "frmtdct", "progress")
VXR_DEF_ARGS(_epc_assign_data_values_svd, "($module, /, recgrp, lnumstr, valslist, vnamsdct, frmtdct, progress)",
             "OOOOOO", 6, Pending{"_epc_assign_data_values_svd"}, "recgrp", "lnumstr", "valslist", "vnamsdct",
             "frmtdct", "progress")
VXR_DEF_ARGS(_epc_assign_data_values_qtable,
             "($module, /, recgrp, lnumstr, valslist, vnamlist, frmtdct, progress)", "OOOOOO", 6,
             Pending{"_epc_assign_data_values_qtable"}, "recgrp", "lnumstr", "valslist", "vnamlist", "frmtdct",
             "progress")
VXR_DEF_ARGS(_pslf_seq_assign_data_values, "($module, /, recgrp, lnumstr, valslist, frmtdct, progress)", "OOOOO", 5,
             Pending{"_pslf_seq_assign_data_values"}, "recgrp", "lnumstr", "valslist", "frmtdct", "progress")

