// PSLF sequential assignment: item texts are given to the items of a format
// dictionary by position.  Separators are passed over, "!" texts are kept
// as they stand, and the items beyond the last text take defaults.
#include "epc/epc.hpp"

namespace {

using vxr::Ref;
using vxr::State;

// text.strip() == "!"; an exact str is looked at in place.
bool is_keep_mark(State& st, PyObject* text) {
    if (!vxr::exact_str(text)) {
        Ref stripped = vxr::method(text, st.n.strip);
        return vxr::equals(stripped.get(), st.n.epc_bang);
    }
    Py_ssize_t lo, hi;
    vxr::strip_bounds(text, lo, hi);
    return hi - lo == 1 && PyUnicode_READ_CHAR(text, lo) == '!';
}

// list(frmtdct.keys())[ii].  An exact dict's keys are walked in place (the
// walk runs nothing of the caller's), without listing them; past the end the
// list is made, for the IndexError its indexing raises.
Ref nth_key(State& st, PyObject* frmtdct, Py_ssize_t ii) {
    if (PyDict_CheckExact(frmtdct)) {
        Py_ssize_t pos = 0, seen = 0;
        PyObject *key, *value;
        while (PyDict_Next(frmtdct, &pos, &key, &value)) {
            if (seen++ == ii) return Ref::new_ref(key);
        }
    }
    return vxr::getindex(vxr::epc::key_list(st, frmtdct).get(), ii);
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
    // walk ended or stopped at a bad item; separators included.  The count of
    // keys is taken once, each default item's name from the keys as they are
    // at that item.
    const Py_ssize_t nvals = vxr::length(valslist);
    const bool exact = PyDict_CheckExact(frmtdct) || PyODict_CheckExact(frmtdct);
    const Py_ssize_t nkeys =
        exact ? PyDict_GET_SIZE(frmtdct) : PyList_GET_SIZE(vxr::epc::key_list(st, frmtdct).get());
    for (Py_ssize_t ii = nvals; ii < nkeys; ++ii) {
        Ref nam = nth_key(st, frmtdct, ii);
        Ref descriptor = vxr::getitem(frmtdct, nam.get());
        Ref vtyp = vxr::getitem(descriptor.get(), st.n.type);
        Ref value = vxr::epc::default_value(st, vxr::epc::item_type(st, vtyp.get()));
        vxr::setitem(valsdict.get(), nam.get(), value.get());
    }
    return vxr::tuple_of({vxr::py_bool(ierr), valsdict.get()});
}

}  // namespace

VXR_DEF_ARGS(_pslf_seq_assign_data_values, "($module, /, recgrp, lnumstr, valslist, frmtdct, progress)", "OOOOO", 5,
             pslf_seq_assign_data_values, "recgrp", "lnumstr", "valslist", "frmtdct", "progress")
