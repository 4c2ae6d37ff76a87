// KORA RAW record value lists: a data line split and its first item
// classified (group end "0", data end "Q", a record whose first item is
// missing or of the wrong type), and correction-table rows checked.
#include "raw/raw.hpp"

namespace vxr {
namespace raw {
namespace {

// ---------------------------------------------------------------------------
// _split_txtline_to_values_kora
// ---------------------------------------------------------------------------

Ref split_to_values(State& st, PyObject* const* args) {
    PyObject* recgrp = args[0];
    PyObject* line = args[1];
    PyObject* frst_name = args[2];
    PyObject* frst_type = args[3];
    PyObject* progress = args[4];
    Names& n = st.n;

    Ref vlist = call_split_textline_kora(st, line, VXR_HERE);
    FirstItem first =
        classify_first_item(st, vlist.get(), n.raw_item_not_provided, recgrp, frst_name, line, progress);
    Ref frst_val = std::move(first.value);
    bool frst_error = first.error;

    if (!first.found_q) {
        PyObject* which_type = nullptr;  // unbound until a conversion fails
        if (equals(frst_type, n.int_, VXR_HERE)) {
            if (PyObject* v = int_of(frst_val.get())) {
                frst_val = Ref::steal(v);
            } else {
                PyErr_Clear();
                frst_error = true;
                which_type = n.integer;
            }
        } else if (equals(frst_type, n.float_, VXR_HERE)) {
            if (PyObject* v = PyNumber_Float(frst_val.get())) {
                frst_val = Ref::steal(v);
            } else {
                PyErr_Clear();
                frst_error = true;
                which_type = n.float_;
            }
        } else {
            Ref fv = strip(st, frst_val.get(), VXR_HERE);
            if (is_zero_text(st, fv.get(), VXR_HERE)) frst_val = to_int(fv.get(), VXR_HERE);
        }
        if (frst_error) {
            Ref indent = global(st, n.PRG_INDENT, VXR_HERE);
            Ref group = method(recgrp, n.title, VXR_HERE);
            // A missing first item with no type to convert to reaches here
            // without a type word, as the tools have always seen it.
            if (which_type == nullptr) raise_unbound_local("which_type", VXR_HERE);
            Ref head = format(st, n.raw_value_required,
                              {indent.get(), group.get(), frst_name, frst_val.get(), which_type}, VXR_HERE);
            send_record_error(st, std::move(head), line, progress, VXR_HERE);
        }
    }
    return tuple_of({py_bool(first.found_q), py_bool(frst_error), frst_val.get(), vlist.get()}, VXR_HERE);
}

// ---------------------------------------------------------------------------
// The unchecked forms
// ---------------------------------------------------------------------------

struct Unchecked {
    bool found_q = false;
    Ref frst_val;
    Ref vlist;
};

Unchecked split_unchecked(State& st, PyObject* line) {
    Unchecked r;
    r.vlist = call_split_textline_kora(st, line, VXR_HERE);
    r.frst_val = first_item(r.vlist.get());
    if (!r.frst_val) r.frst_val = Ref::new_ref(st.n.empty);
    const bool not_empty = exact_str(r.frst_val.get(), VXR_HERE) ? PyUnicode_GET_LENGTH(r.frst_val.get()) > 0
                                                                 : truthy(r.frst_val.get(), VXR_HERE);
    if (not_empty) {
        Ref fv = strip(st, r.frst_val.get(), VXR_HERE);
        if (is_zero_text(st, fv.get(), VXR_HERE)) {
            r.frst_val = to_int(fv.get(), VXR_HERE);
        } else if (lower_is_q(st, fv.get(), VXR_HERE)) {
            r.found_q = true;
        }
    }
    return r;
}

Ref no_check_vlist(State& st, PyObject* line) {
    Unchecked r = split_unchecked(st, line);
    return tuple_of({py_bool(r.found_q), r.frst_val.get(), r.vlist.get()}, VXR_HERE);
}

Ref no_check_00(State& st, PyObject* line) {
    Unchecked r = split_unchecked(st, line);
    return tuple_of({py_bool(r.found_q), r.frst_val.get()}, VXR_HERE);
}

// Goes through _split_txtline_to_values_kora_no_check_vlist as a module
// global and drops its item list.
Ref no_check(State& st, PyObject* line) {
    Ref result = call_module_function(
        st, st.n.fn_no_check_vlist, st.fn_no_check_vlist, "vxrcomn._split_txtline_to_values_kora_no_check_vlist",
        [&] { return no_check_vlist(st, line); }, {line}, VXR_HERE);
    Ref parts[3];
    unpack(result.get(), parts, 3, VXR_HERE);
    return tuple_of({parts[0].get(), parts[1].get()}, VXR_HERE);
}

// ---------------------------------------------------------------------------
// _check_zcorec_table_kora
// ---------------------------------------------------------------------------

Ref check_zcorec_table(State& st, PyObject* vlst) {
    Ref tlst = new_list(0, VXR_HERE);
    bool verr = false;
    Ref it = iter(vlst, VXR_HERE);
    while (Ref each = next(it.get(), VXR_HERE)) {
        verr = false;
        PyObject* val = PyFloat_CheckExact(each.get()) ? (Py_INCREF(each.get()), each.get()) : PyNumber_Float(each.get());
        if (val == nullptr || PyList_Append(tlst.get(), val) < 0) {
            Py_XDECREF(val);
            PyErr_Clear();
            verr = true;
            break;
        }
        Py_DECREF(val);
    }
    if (verr) return tuple_of({Py_False, new_list(0, VXR_HERE).get()}, VXR_HERE);
    // A row ends the table when its values sum to 0.0 (so 1.0, -1.0 ends it too).
    Ref total = call1(st.b_sum, tlst.get(), VXR_HERE);
    Ref zero = check(PyFloat_FromDouble(0.0), VXR_HERE);
    Ref endtbl = check(PyObject_RichCompare(total.get(), zero.get(), Py_EQ), VXR_HERE);
    return tuple_of({endtbl.get(), tlst.get()}, VXR_HERE);
}

}  // namespace
}  // namespace raw
}  // namespace vxr

VXR_DEF_ARGS(_split_txtline_to_values_kora, "($module, /, recgrp, line, frst_name, frst_type, progress)", "OOOOO", 5,
             vxr::raw::split_to_values, "recgrp", "line", "frst_name", "frst_type", "progress")
VXR_DEF_ONE_ARG(_split_txtline_to_values_kora_no_check_vlist, "line", vxr::raw::no_check_vlist)
VXR_DEF_ONE_ARG(_split_txtline_to_values_kora_no_check, "line", vxr::raw::no_check)
VXR_DEF_ONE_ARG(_check_zcorec_table_kora, "vlst", vxr::raw::check_zcorec_table)
VXR_DEF_ONE_ARG(_split_txtline_to_values_kora_no_check_00, "line", vxr::raw::no_check_00)
