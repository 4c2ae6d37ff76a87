// EPC value assignment: item texts become typed values in an ordered
// dictionary, in the order of the record's format dictionary, with defaults
// for absent items and one message for the first item that will not convert.
#include "epc/epc.hpp"

namespace vxr {
namespace epc {

// ---------------------------------------------------------------------------
// Shared by the assigners
// ---------------------------------------------------------------------------

ItemType item_type(State& st, PyObject* vtyp) {
    if (equals(vtyp, st.n.int_)) return ItemType::integer;
    if (equals(vtyp, st.n.float_)) return ItemType::real;
    return ItemType::character;
}

Ref record_ignored_tail(State& st, PyObject* recgrp, PyObject* lnumstr) {
    Ref upper = method(recgrp, st.n.upper);
    Ref tail = add(st.n.epc_tail_head, str(upper.get()).get());
    tail = add(tail.get(), st.n.epc_tail_line);
    tail = add(tail.get(), str(lnumstr).get());
    return add(tail.get(), st.n.epc_tail_end);
}

namespace {

// wrap + text + wrap in one allocation, for two exact str.
Ref concat_around(PyObject* text, PyObject* wrap) {
    Py_ssize_t nt = PyUnicode_GET_LENGTH(text), nw = PyUnicode_GET_LENGTH(wrap);
    if (nw == 0) return Ref::new_ref(text);
    Py_UCS4 maxchar = PyUnicode_MAX_CHAR_VALUE(text);
    if (PyUnicode_MAX_CHAR_VALUE(wrap) > maxchar) maxchar = PyUnicode_MAX_CHAR_VALUE(wrap);
    if (nt > PY_SSIZE_T_MAX - 2 * nw) {
        PyErr_NoMemory();
        fail(VXR_HERE);
    }
    Ref out = check(PyUnicode_New(nt + 2 * nw, maxchar), VXR_HERE);
    if (PyUnicode_CopyCharacters(out.get(), 0, wrap, 0, nw) < 0 ||
        PyUnicode_CopyCharacters(out.get(), nw, text, 0, nt) < 0 ||
        PyUnicode_CopyCharacters(out.get(), nw + nt, wrap, 0, nw) < 0) {
        fail(VXR_HERE);
    }
    return out;
}

}  // namespace

Ref wrapped(State& st, PyObject* text) {
    Ref wrap = global(st, st.n.WRAP_CHAR);
    // str.format of an exact str with no format given is the str itself, so
    // for two exact str the template is a plain concatenation.
    if (PyUnicode_CheckExact(text) && PyUnicode_CheckExact(wrap.get())) {
        if (PyUnicode_READY(text) < 0 || PyUnicode_READY(wrap.get()) < 0) fail(VXR_HERE);
        return concat_around(text, wrap.get());
    }
    return format(st, st.n.wrap_template, {text, wrap.get()});
}

Ref default_value(State& st, ItemType type) {
    switch (type) {
        case ItemType::integer: return check(PyLong_FromLong(0));
        case ItemType::real: return check(PyFloat_FromDouble(0.0));
        case ItemType::character: break;
    }
    return wrapped(st, st.n.blank);
}

bool assign_item(State& st, PyObject* valsdict, PyObject* nam, PyObject* text, ItemType type, PyObject* recgrp,
                 PyObject* lnumstr, PyObject* progress) {
    if (type == ItemType::character) {
        setitem(valsdict, nam, wrapped(st, text).get());
        return true;
    }
    PyObject* value = type == ItemType::integer ? PyNumber_Long(text) : PyNumber_Float(text);
    if (value != nullptr) {
        int status = PyObject_SetItem(valsdict, nam, value);
        Py_DECREF(value);
        if (status == 0) return true;
    }
    // except: the record is reported and ignored.  Whatever the message
    // building raises carries the conversion error as its context.
    Handling handling;
    Ref msg = add(type == ItemType::integer ? st.n.epc_integer_item : st.n.epc_float_item, nam);
    msg = add(msg.get(), st.n.epc_not_specified);
    msg = add(msg.get(), str(text).get());
    msg = add(msg.get(), st.n.newline);
    add_to(msg, record_ignored_tail(st, recgrp, lnumstr).get());
    call1(progress, msg.get());
    return false;
}

bool is_separator(State& st, PyObject* nam) {
    return equals(nam, st.n.epc_semi) || equals(nam, st.n.epc_semi1) || equals(nam, st.n.epc_semi2);
}

Ref pair_without_separators(State& st, PyObject* names, PyObject* values) {
    Ref tmp = new_dict();
    zip_each(st, names, values, [&](PyObject* nam, PyObject* val) {
        if (!is_separator(st, nam)) setitem(tmp.get(), nam, val);
        return true;
    });
    return tmp;
}

Ref key_list(State& st, PyObject* frmtdct) {
    if (PyDict_CheckExact(frmtdct)) return check(PyDict_Keys(frmtdct));
    Ref keys = method(frmtdct, st.n.keys);
    return check(PySequence_List(keys.get()));
}

// ---------------------------------------------------------------------------
// _epc_assign_data_values_common
// ---------------------------------------------------------------------------

namespace {

}  // namespace

Ref assign_common(State& st, PyObject* recgrp, PyObject* lnumstr, PyObject* inputvals, PyObject* frmtdct,
                  PyObject* progress) {
    bool ierr = false;
    Ref valsdict = new_ordered_dict(st);
    ItemsSnapshot items(st, frmtdct);
    for (Py_ssize_t i = 0; i < items.size(); ++i) {
        Ref nam, vdct;
        items.get(i, nam, vdct);
        Ref vtyp = getitem(vdct.get(), st.n.type);
        if (check_status(PySequence_Contains(inputvals, nam.get()))) {
            Ref vals = getitem(inputvals, nam.get());
            if (!assign_item(st, valsdict.get(), nam.get(), vals.get(), item_type(st, vtyp.get()), recgrp, lnumstr,
                             progress)) {
                ierr = true;
                break;
            }
        } else {
            setitem(valsdict.get(), nam.get(), default_value(st, item_type(st, vtyp.get())).get());
        }
    }
    return tuple_of({py_bool(ierr), valsdict.get()});
}

Ref call_assign_common(State& st, PyObject* recgrp, PyObject* lnumstr, PyObject* inputvals, PyObject* frmtdct,
                       PyObject* progress) {
    Ref result = call_module_function(
        st, st.n.fn_epc_assign_common, st.fn_epc_assign_common, "vxrcomn._epc_assign_data_values_common",
        [&] { return assign_common(st, recgrp, lnumstr, inputvals, frmtdct, progress); },
        {recgrp, lnumstr, inputvals, frmtdct, progress});
    // The direct call gives a new pair that nobody else holds: it already is
    // the new tuple (ierr, valsdict).
    if (PyTuple_CheckExact(result.get()) && PyTuple_GET_SIZE(result.get()) == 2 && Py_REFCNT(result.get()) == 1) {
        return result;
    }
    Ref parts[2];
    unpack(result.get(), parts, 2);
    return tuple_of({parts[0].get(), parts[1].get()});
}

}  // namespace epc
}  // namespace vxr

namespace {

vxr::Ref epc_assign_data_values_common(vxr::State& st, PyObject* const* a) {
    return vxr::epc::assign_common(st, a[0], a[1], a[2], a[3], a[4]);
}

// _epc_assign_data_values: names paired with texts, separators dropped.
vxr::Ref epc_assign_data_values(vxr::State& st, PyObject* const* a) {
    PyObject *recgrp = a[0], *lnumstr = a[1], *valslist = a[2], *vnamlist = a[3], *frmtdct = a[4], *progress = a[5];
    vxr::Ref tmp = vxr::epc::pair_without_separators(st, vnamlist, valslist);
    return vxr::epc::call_assign_common(st, recgrp, lnumstr, tmp.get(), frmtdct, progress);
}

}  // namespace

VXR_DEF_ARGS(_epc_assign_data_values_common, "($module, /, recgrp, lnumstr, inputvals_dict, frmtdct, progress)",
             "OOOOO", 5, epc_assign_data_values_common, "recgrp", "lnumstr", "inputvals_dict", "frmtdct", "progress")
VXR_DEF_ARGS(_epc_assign_data_values, "($module, /, recgrp, lnumstr, valslist, vnamlist, frmtdct, progress)",
             "OOOOOO", 6, epc_assign_data_values, "recgrp", "lnumstr", "valslist", "vnamlist", "frmtdct", "progress")
