// PSLF sequential assignment: item texts are given to the items of a format
// dictionary by position.  Separators are passed over, "!" texts are kept
// as they stand, and the items beyond the last text take defaults.
#include "epc/epc.hpp"

namespace {

using vxr::Ref;
using vxr::State;

// text.strip() == "!"; an exact str is looked at in place.
bool is_keep_mark(State& st, PyObject* text) {
    if (!PyUnicode_CheckExact(text)) {
        Ref stripped = vxr::method(text, st.n.strip);
        return vxr::equals(stripped.get(), st.n.epc_bang);
    }
    if (PyUnicode_READY(text) < 0) vxr::fail();
    const int kind = PyUnicode_KIND(text);
    const void* data = PyUnicode_DATA(text);
    Py_ssize_t lo = 0, hi = PyUnicode_GET_LENGTH(text);
    while (lo < hi && Py_UNICODE_ISSPACE(PyUnicode_READ(kind, data, lo))) ++lo;
    while (hi > lo && Py_UNICODE_ISSPACE(PyUnicode_READ(kind, data, hi - 1))) --hi;
    return hi - lo == 1 && PyUnicode_READ(kind, data, lo) == '!';
}

Ref pslf_seq_assign_data_values(State& st, PyObject* const* a) {
    PyObject *recgrp = a[0], *lnumstr = a[1], *valslist = a[2], *frmtdct = a[3], *progress = a[4];
    bool ierr = false;
    Ref valsdict = vxr::new_ordered_dict(st);

    Ref names = vxr::epc::key_list(st, frmtdct);
    vxr::epc::zip_each(st, names.get(), valslist, [&](PyObject* nam, PyObject* val) {
        if (vxr::epc::is_separator(st, nam)) return true;
        if (is_keep_mark(st, val)) {
            vxr::setitem(valsdict.get(), nam, val);
            return true;
        }
        Ref vtyp = vxr::getitem(vxr::getitem(frmtdct, nam).get(), st.n.type);
        if (vxr::epc::assign_item(st, valsdict.get(), nam, val, vxr::epc::item_type(st, vtyp.get()), recgrp, lnumstr,
                                  progress)) {
            return true;
        }
        ierr = true;
        return false;
    });

    // Defaults from the position of the first missing text on, whether the
    // walk ended or stopped at a bad item; separators included.
    Py_ssize_t nvals = vxr::length(valslist);
    // The key list is taken afresh only when defaults are due; for an exact
    // dict its length is the dict's, with nothing to run.
    if ((PyDict_CheckExact(frmtdct) || PyODict_CheckExact(frmtdct)) && nvals >= PyDict_GET_SIZE(frmtdct)) {
        return vxr::tuple_of({vxr::py_bool(ierr), valsdict.get()});
    }
    Ref keys = vxr::epc::key_list(st, frmtdct);
    for (Py_ssize_t ii = nvals; ii < PyList_GET_SIZE(keys.get()); ++ii) {
        PyObject* nam = PyList_GET_ITEM(keys.get(), ii);  // the list is ours alone
        Ref vtyp = vxr::getitem(vxr::getitem(frmtdct, nam).get(), st.n.type);
        vxr::setitem(valsdict.get(), nam, vxr::epc::default_value(st, vxr::epc::item_type(st, vtyp.get())).get());
    }
    return vxr::tuple_of({vxr::py_bool(ierr), valsdict.get()});
}

}  // namespace

VXR_DEF_ARGS(_pslf_seq_assign_data_values, "($module, /, recgrp, lnumstr, valslist, frmtdct, progress)", "OOOOO", 5,
             pslf_seq_assign_data_values, "recgrp", "lnumstr", "valslist", "frmtdct", "progress")
