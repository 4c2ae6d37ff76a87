// What the KORA RAW reading functions share.
#pragma once

#include "vxr.hpp"

namespace vxr {
namespace raw {

// _split_textline_kora(linetxt): the implementation.
Ref split_textline_kora(State& st, PyObject* linetxt);

// _split_textline_kora(line) through the module global, as the other RAW
// readers call it.
Ref call_split_textline_kora(State& st, PyObject* line, Loc where = VXR_CALLER);

// For a str that exact_str() accepted: s is one character c (which is ASCII).
inline bool is_single(PyObject* s, Py_UCS4 c) {
    return PyUnicode_GET_LENGTH(s) == 1 && PyUnicode_READ_CHAR(s, 0) == c;
}

// s.strip(): an exact str that needs nothing stripped is returned itself, as
// str.strip does.
inline Ref strip(State& st, PyObject* s, Loc where = VXR_CALLER) {
    if (exact_str(s, where)) {
        Py_ssize_t start, end;
        strip_bounds(s, start, end);
        if (start == 0 && end == PyUnicode_GET_LENGTH(s)) return Ref::new_ref(s);
        return check(PyUnicode_Substring(s, start, end), where);
    }
    return method(s, st.n.strip, where);
}

// fv.lower() == "q"; only "q" and "Q" lower to "q".
inline bool lower_is_q(State& st, PyObject* fv, Loc where = VXR_CALLER) {
    if (exact_str(fv, where)) return is_single(fv, 'q') || is_single(fv, 'Q');
    Ref lowered = method(fv, st.n.lower, where);
    return equals(lowered.get(), st.n.q, where);
}

// fv == "0"
inline bool is_zero_text(State& st, PyObject* fv, Loc where = VXR_CALLER) {
    if (exact_str(fv, where)) return is_single(fv, '0');
    return equals(fv, st.n.zero, where);
}

// vlist[0], or an empty Ref when that raises anything (the error is dropped,
// as by a catch-all handler).
inline Ref first_item(PyObject* vlist) {
    if (PyList_CheckExact(vlist)) {
        if (PyList_GET_SIZE(vlist) > 0) return Ref::new_ref(PyList_GET_ITEM(vlist, 0));
        return Ref();
    }
    PyObject* zero = PyLong_FromLong(0);
    PyObject* item = zero != nullptr ? PyObject_GetItem(vlist, zero) : nullptr;
    Py_XDECREF(zero);
    if (item == nullptr) PyErr_Clear();
    return Ref::steal(item);
}

// head += " {0}{1}".format(_PRG_INDENT2, line); progress(head)
void send_record_error(State& st, Ref head, PyObject* line, PyObject* progress, Loc where = VXR_CALLER);

// A record error: templ.format(_PRG_INDENT, recgrp.title(), *more) and the
// line, indented, in one call of progress.
void report_record_error(State& st, PyObject* templ, PyObject* recgrp, std::initializer_list<PyObject*> more,
                         PyObject* line, PyObject* progress, Loc where = VXR_CALLER);

// The first item of a record's item list, classified: vlist[0], or the
// empty-item placeholder when that raises; a missing first item ("_ifc") is
// reported with `templ` (and `name`, when given) and becomes "" with `error`
// set; otherwise `found_q` tells whether the record is the "Q" line.
struct FirstItem {
    Ref value;
    bool error = false;
    bool found_q = false;
};
FirstItem classify_first_item(State& st, PyObject* vlist, PyObject* templ, PyObject* recgrp, PyObject* name,
                              PyObject* line, PyObject* progress);

}  // namespace raw
}  // namespace vxr
