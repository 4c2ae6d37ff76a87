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

// True when every key of an exact dict, or every item of a list, is an exact
// str: looking such keys up, or storing them, runs nothing of the caller's.
bool exact_str_keys(PyObject* container) {
    if (PyList_CheckExact(container)) {
        for (Py_ssize_t i = 0; i < PyList_GET_SIZE(container); ++i) {
            if (!PyUnicode_CheckExact(PyList_GET_ITEM(container, i))) return false;
        }
        return true;
    }
    Py_ssize_t pos = 0;
    PyObject *key, *value;
    while (PyDict_Next(container, &pos, &key, &value)) {
        if (!PyUnicode_CheckExact(key)) return false;
    }
    return true;
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
    const bool exact = PyDict_CheckExact(frmtdct) || PyODict_CheckExact(frmtdct);
    const Py_ssize_t nkeys =
        exact ? PyDict_GET_SIZE(frmtdct) : PyList_GET_SIZE(vxr::epc::key_list(st, frmtdct).get());
    // Each default item is named by the keys as they are at that item.  An
    // exact dict's are listed again only after an item whose reading could
    // have run the caller's code and so changed them; otherwise listing
    // runs nothing and would give the same list.
    bool current = false;
    Ref keys;
    for (Py_ssize_t ii = nvals; ii < nkeys; ++ii) {
        if (!current) {
            keys = vxr::epc::key_list(st, frmtdct);
            current = exact && exact_str_keys(keys.get()) && PyODict_CheckExact(valsdict.get()) &&
                      exact_str_keys(valsdict.get());
        }
        PyObject* nam = PyList_GetItem(keys.get(), ii);  // its own IndexError past the end; kept by keys
        if (nam == nullptr) vxr::fail();
        Ref descriptor = vxr::getitem(frmtdct, nam);
        Ref vtyp = vxr::getitem(descriptor.get(), st.n.type);
        const vxr::epc::ItemType type = vxr::epc::item_type(st, vtyp.get());
        Ref wrap;
        if (type == vxr::epc::ItemType::character) wrap = vxr::global(st, st.n.WRAP_CHAR);
        Ref value = wrap ? vxr::wrap_between(st, st.n.blank, wrap.get()) : vxr::epc::default_value(st, type);
        vxr::setitem(valsdict.get(), nam, value.get());
        current = current && PyDict_CheckExact(descriptor.get()) && exact_str_keys(descriptor.get()) &&
                  PyUnicode_CheckExact(vtyp.get()) && (!wrap || PyUnicode_CheckExact(wrap.get()));
    }
    return vxr::tuple_of({vxr::py_bool(ierr), valsdict.get()});
}

}  // namespace

VXR_DEF_ARGS(_pslf_seq_assign_data_values, "($module, /, recgrp, lnumstr, valslist, frmtdct, progress)", "OOOOO", 5,
             pslf_seq_assign_data_values, "recgrp", "lnumstr", "valslist", "frmtdct", "progress")
