// The echo of stored substation blocks: one RAW-like line per record, in the
// order of the stored dictionaries, each through the caller's progress.
#include "text/field_text.hpp"

namespace vxr {
namespace {

// ---------------------------------------------------------------------------
// template.format(**mapping)
// ---------------------------------------------------------------------------

// How the interpreter names a callable in its call errors: "str.format()".
Ref function_text(State& st, PyObject* func) {
    PyObject* qualname = PyObject_GetAttr(func, st.n.dunder_qualname);
    if (qualname == nullptr) {
        if (!PyErr_ExceptionMatches(PyExc_AttributeError)) fail();
        PyErr_Clear();
        return str(func);
    }
    Ref owned_qualname = Ref::steal(qualname);
    PyObject* module = PyObject_GetAttr(func, st.n.dunder_module);
    if (module == nullptr) {
        if (!PyErr_ExceptionMatches(PyExc_AttributeError)) fail();
        PyErr_Clear();
    }
    Ref owned_module = Ref::steal(module);
    if (module != nullptr && module != Py_None &&
        !(PyUnicode_Check(module) && PyUnicode_Compare(module, st.n.ss_builtins) == 0)) {
        return check(PyUnicode_FromFormat("%S.%S()", module, qualname));
    }
    return check(PyUnicode_FromFormat("%S()", qualname));
}

// The new dictionary that `**mapping` makes: a dict (iterated as a dict) is
// copied; any other object is read through keys() and [], and a key that
// comes twice is an error.
int merge_keywords(PyObject* target, PyObject* mapping) {
    if (PyDict_Check(mapping) && Py_TYPE(mapping)->tp_iter == PyDict_Type.tp_iter) {
        return PyDict_Merge(target, mapping, 1);  // the target is empty: no key repeats
    }
    Ref keys = Ref::steal(PyMapping_Keys(mapping));
    if (!keys) return -1;
    Ref it = Ref::steal(PyObject_GetIter(keys.get()));
    if (!it) return -1;
    while (PyObject* raw_key = PyIter_Next(it.get())) {
        Ref key = Ref::steal(raw_key);
        int seen = PyDict_Contains(target, key.get());
        if (seen != 0) {
            if (seen > 0) {
                Ref args = Ref::steal(PyTuple_Pack(1, key.get()));
                if (args) PyErr_SetObject(PyExc_KeyError, args.get());
            }
            return -1;
        }
        Ref value = Ref::steal(PyObject_GetItem(mapping, key.get()));
        if (!value || PyDict_SetItem(target, key.get(), value.get()) < 0) return -1;
    }
    return PyErr_Occurred() ? -1 : 0;
}

// The interpreter's rewording of a failed `**` merge.
void keywords_error(State& st, PyObject* func, PyObject* mapping) {
    if (PyErr_ExceptionMatches(PyExc_AttributeError)) {
        PyErr_Clear();
        Ref name = function_text(st, func);
        PyErr_Format(PyExc_TypeError, "%U argument after ** must be a mapping, not %.200s", name.get(),
                     Py_TYPE(mapping)->tp_name);
    } else if (PyErr_ExceptionMatches(PyExc_KeyError)) {
        PyObject *type, *value, *tb;
        PyErr_Fetch(&type, &value, &tb);
        if (value != nullptr && PyTuple_Check(value) && PyTuple_GET_SIZE(value) == 1) {
            Ref owned_type = Ref::steal(type), owned_value = Ref::steal(value), owned_tb = Ref::steal(tb);
            Ref name = function_text(st, func);
            PyErr_Format(PyExc_TypeError, "%U got multiple values for keyword argument '%S'", name.get(),
                         PyTuple_GET_ITEM(value, 0));
        } else {
            PyErr_Restore(type, value, tb);
        }
    }
}

Ref format_mapping(State& st, PyObject* templ, PyObject* mapping) {
    Ref func = getattr(templ, st.n.format);
    Ref kwargs = new_dict();
    if (merge_keywords(kwargs.get(), mapping) < 0) {
        keywords_error(st, func.get(), mapping);
        fail();
    }
    Ref no_args = check(PyTuple_New(0));
    return check(PyObject_Call(func.get(), no_args.get(), kwargs.get()));
}

// ---------------------------------------------------------------------------
// The listing
// ---------------------------------------------------------------------------

// Each record of a list through one line template.
void print_records(State& st, PyObject* recdct, PyObject* templ, PyObject* progress) {
    Ref it = iter(recdct);
    while (Ref eachdct = next(it.get())) call1(progress, format_mapping(st, templ, eachdct.get()).get());
}

// The terminal line is chosen by the unquoted type; the type itself is
// printed as stored.
Ref terminal_line(State& st, PyObject* eachdct) {
    // _get_unwrapped_string(eachdct["TERTYP"]): the function is looked up first.
    Ref unwrap = global(st, st.n.fn_get_unwrapped_string);
    Ref stored = getitem(eachdct, st.n.ss_TERTYP);
    Ref tertyp = call_resolved(
        unwrap.get(), st.fn_get_unwrapped_string, "vxrcomn._get_unwrapped_string",
        [&] { return get_unwrapped_string(st, stored.get()); }, {stored.get()});
    PyObject* t = tertyp.get();
    if (equals(t, st.n.ss_term_L) || equals(t, st.n.ss_term_F) || equals(t, st.n.ss_term_M)) {
        return format_mapping(st, st.n.ss_term_line_lfm, eachdct);
    }
    if (equals(t, st.n.ss_term_2)) return format_mapping(st, st.n.ss_term_line_2, eachdct);
    if (equals(t, st.n.ss_term_3)) return format_mapping(st, st.n.ss_term_line_3, eachdct);
    if (equals(t, st.n.ss_term_S)) return format_mapping(st, st.n.ss_term_line_s, eachdct);
    Ref txt = add(st.n.ss_junk, str(eachdct).get());
    return add(txt.get(), st.n.newline);
}

Ref print_kora_substation_block_data_as_stored(State& st, PyObject* const* a) {
    PyObject* progress = a[1];
    Ref substations = check(PySequence_List(method(a[0], st.n.items).get()));
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(substations.get()); ++i) {
        Ref ss[2];  // ss_num, ss_vdct
        unpack(PyList_GET_ITEM(substations.get(), i), ss, 2);
        call1(progress, st.n.newline);
        Ref kinds = check(PySequence_List(method(ss[1].get(), st.n.items).get()));
        for (Py_ssize_t j = 0; j < PyList_GET_SIZE(kinds.get()); ++j) {
            Ref kind[2];  // rectyp, recdct
            unpack(PyList_GET_ITEM(kinds.get(), j), kind, 2);
            PyObject* rectyp = kind[0].get();
            PyObject* recdct = kind[1].get();
            if (equals(rectyp, st.n.ss_id)) {
                call1(progress, format_mapping(st, st.n.ss_id_line, recdct).get());
            } else if (equals(rectyp, st.n.ss_node)) {
                print_records(st, recdct, st.n.ss_node_line, progress);
            } else if (equals(rectyp, st.n.ss_swd)) {
                print_records(st, recdct, st.n.ss_swd_line, progress);
            } else if (equals(rectyp, st.n.ss_term)) {
                Ref it = iter(recdct);
                while (Ref eachdct = next(it.get())) call1(progress, terminal_line(st, eachdct.get()).get());
            }
            // Other record kinds are not echoed.
        }
    }
    return Ref::new_ref(Py_None);
}

}  // namespace
}  // namespace vxr

VXR_DEF_ARGS(_print_kora_substation_block_data_as_stored, "($module, /, sub_block_data_dict, progress)", "OO", 2,
             vxr::print_kora_substation_block_data_as_stored, "sub_block_data_dict", "progress")
