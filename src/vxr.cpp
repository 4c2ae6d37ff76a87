// Out-of-line parts of the shared core (see vxr.hpp).
#include "vxr.hpp"

namespace vxr {

void add_traceback(const char* qualname, Loc where) noexcept {
    if (PyErr_Occurred()) _PyTraceback_Add(qualname, where.file, where.line);
}

// As a function's global name is looked up: its module's dictionary, then
// the dictionary of the built-ins (not the builtins module's attributes: a
// module __getattr__ there is never asked).
Ref global(State& st, PyObject* name, Loc where) {
    PyObject* value = PyDict_GetItemWithError(st.module_dict, name);
    if (value != nullptr) return Ref::new_ref(value);
    if (PyErr_Occurred()) fail(where);
    value = PyDict_GetItemWithError(st.builtins_dict, name);
    if (value != nullptr) return Ref::new_ref(value);
    if (!PyErr_Occurred()) PyErr_Format(PyExc_NameError, "name '%U' is not defined", name);
    fail(where);
}

bool check_globals_as_imported(State& st) noexcept {
    const GlobalsWatch& watch = st.globals_watch;
    for (int i = 0; i < watch.count(); ++i) {
        const WatchedName& w = watch.name(i);
        // Held: a look-up can run an odd key's __eq__, which can stop the watch.
        Ref dict = Ref::new_ref(watch.dict(w.dict));
        PyObject* value = PyDict_GetItemWithError(dict.get(), w.name);
        if (value == nullptr) PyErr_Clear();
        if (value != w.expected) return false;
    }
    return watch.count() != 0;
}

bool shlex_class_restored(State& st) noexcept {
    auto* cls = reinterpret_cast<PyTypeObject*>(st.std_shlex_class);
    unsigned int tag = vxr_type_version_tag(cls);
    if (tag != 0 && tag == st.shlex_class_changed) return false;  // compared before
    // A look-up in the class's dict can run the code of an odd key's __eq__,
    // which can reach and change both dicts: what is compared is held here.
    Ref now = Ref::new_ref(cls->tp_dict);
    Ref then = Ref::new_ref(st.shlex_class_attrs);
    bool same = now && PyDict_Size(now.get()) == PyDict_Size(then.get());
    Py_ssize_t pos = 0;
    PyObject *key, *value;
    while (same && PyDict_Next(then.get(), &pos, &key, &value)) {
        Ref held_key = Ref::new_ref(key), held_value = Ref::new_ref(value);
        PyObject* current = PyDict_GetItemWithError(now.get(), held_key.get());
        if (current == nullptr) PyErr_Clear();
        same = current == held_value.get();
    }
    if (tag == 0) {
        // A class attribute look-up gives the class a valid tag again.
        PyObject* attr = PyObject_GetAttr(st.std_shlex_class, st.n.read_token);
        if (attr == nullptr) PyErr_Clear();
        Py_XDECREF(attr);
        tag = vxr_type_version_tag(cls);
        if (tag == 0) return false;
    }
    if (same) {
        st.shlex_class_version = tag;
    } else {
        st.shlex_class_changed = tag;
    }
    return same;
}

void parse_args_slow(const Params& params, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames,
                     PyObject** out) {
    Ref tuple = check(PyTuple_New(nargs), VXR_HERE);
    for (Py_ssize_t i = 0; i < nargs; ++i) {
        Py_INCREF(args[i]);
        PyTuple_SET_ITEM(tuple.get(), i, args[i]);
    }
    Ref kwargs;
    if (kwnames != nullptr && PyTuple_GET_SIZE(kwnames) > 0) {
        kwargs = check(PyDict_New(), VXR_HERE);
        for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(kwnames); ++i) {
            check_status(PyDict_SetItem(kwargs.get(), PyTuple_GET_ITEM(kwnames, i), args[nargs + i]), VXR_HERE);
        }
    }
    for (int i = 0; i < params.total; ++i) out[i] = nullptr;
    auto kw = const_cast<vxr_kwlist_t>(reinterpret_cast<const char* const*>(params.keywords));
    int ok = 0;
    // The parsed objects are borrowed from the caller's argument array, which
    // outlives the call.
    switch (params.total) {
        case 1: ok = PyArg_ParseTupleAndKeywords(tuple.get(), kwargs.get(), params.format, kw, &out[0]); break;
        case 2: ok = PyArg_ParseTupleAndKeywords(tuple.get(), kwargs.get(), params.format, kw, &out[0], &out[1]); break;
        case 3:
            ok = PyArg_ParseTupleAndKeywords(tuple.get(), kwargs.get(), params.format, kw, &out[0], &out[1], &out[2]);
            break;
        case 4:
            ok = PyArg_ParseTupleAndKeywords(tuple.get(), kwargs.get(), params.format, kw, &out[0], &out[1], &out[2],
                                             &out[3]);
            break;
        case 5:
            ok = PyArg_ParseTupleAndKeywords(tuple.get(), kwargs.get(), params.format, kw, &out[0], &out[1], &out[2],
                                             &out[3], &out[4]);
            break;
        case 6:
            ok = PyArg_ParseTupleAndKeywords(tuple.get(), kwargs.get(), params.format, kw, &out[0], &out[1], &out[2],
                                             &out[3], &out[4], &out[5]);
            break;
        default: raise(PyExc_SystemError, "vxrcomn: unsupported parameter count", VXR_HERE);
    }
    if (!ok) fail(VXR_HERE);
}

Ref format(State& st, PyObject* templ, PyObject* const* args, size_t nargs, Loc where) {
    PyObject* stack[8];
    if (nargs >= 8) raise(PyExc_SystemError, "vxrcomn: too many format arguments", where);
    stack[0] = templ;
    for (size_t i = 0; i < nargs; ++i) stack[i + 1] = args[i];
    return check(PyObject_VectorcallMethod(st.n.format, stack, (nargs + 1) | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr),
                 where);
}

Ref format(State& st, PyObject* templ, std::initializer_list<PyObject*> args, Loc where) {
    return format(st, templ, args.begin(), args.size(), where);
}

Ref wrap_between(State& st, PyObject* text, PyObject* wrap, Loc where) {
    if (!exact_str(text, where) || !exact_str(wrap, where)) {
        return format(st, st.n.wrap_template, {text, wrap}, where);
    }
    const Py_ssize_t nt = PyUnicode_GET_LENGTH(text), nw = PyUnicode_GET_LENGTH(wrap);
    if (nw == 0) return Ref::new_ref(text);
    Py_UCS4 maxchar = PyUnicode_MAX_CHAR_VALUE(text);
    if (PyUnicode_MAX_CHAR_VALUE(wrap) > maxchar) maxchar = PyUnicode_MAX_CHAR_VALUE(wrap);
    if (nt > PY_SSIZE_T_MAX - 2 * nw) {
        PyErr_NoMemory();
        fail(where);
    }
    Ref out = check(PyUnicode_New(nt + 2 * nw, maxchar), where);
    if (PyUnicode_CopyCharacters(out.get(), 0, wrap, 0, nw) < 0 ||
        PyUnicode_CopyCharacters(out.get(), nw, text, 0, nt) < 0 ||
        PyUnicode_CopyCharacters(out.get(), nw + nt, wrap, 0, nw) < 0) {
        fail(where);
    }
    return out;
}

void unpack(PyObject* obj, Ref* out, Py_ssize_t n, Loc where) {
    if ((PyTuple_CheckExact(obj) && PyTuple_GET_SIZE(obj) == n) || (PyList_CheckExact(obj) && PyList_GET_SIZE(obj) == n)) {
        PyObject** items = PySequence_Fast_ITEMS(obj);
        for (Py_ssize_t i = 0; i < n; ++i) out[i] = Ref::new_ref(items[i]);
        return;
    }
    // The interpreter's generic unpacking, with its messages.
    PyObject* it = PyObject_GetIter(obj);
    if (it == nullptr) {
        if (PyErr_ExceptionMatches(PyExc_TypeError) && Py_TYPE(obj)->tp_iter == nullptr && !PySequence_Check(obj)) {
            PyErr_Format(PyExc_TypeError, "cannot unpack non-iterable %.200s object", Py_TYPE(obj)->tp_name);
        }
        fail(where);
    }
    Ref iterator = Ref::steal(it);
    for (Py_ssize_t i = 0; i < n; ++i) {
        out[i] = next(iterator.get(), where);
        if (!out[i]) {
            PyErr_Format(PyExc_ValueError, "not enough values to unpack (expected %d, got %d)", static_cast<int>(n),
                         static_cast<int>(i));
            fail(where);
        }
    }
    Ref extra = next(iterator.get(), where);
    if (extra) {
        PyErr_Format(PyExc_ValueError, "too many values to unpack (expected %d)", static_cast<int>(n));
        fail(where);
    }
}

Ref tuple_of(std::initializer_list<PyObject*> items, Loc where) {
    Ref t = check(PyTuple_New(static_cast<Py_ssize_t>(items.size())), where);
    Py_ssize_t i = 0;
    for (PyObject* item : items) {
        Py_INCREF(item);
        PyTuple_SET_ITEM(t.get(), i++, item);
    }
    return t;
}

Ref new_ordered_dict(State& st, Loc where) {
    // While collections.OrderedDict is the standard class, calling it with
    // no arguments makes what PyODict_New makes, without the call.
    const bool standard_class = st.std_ordered_dict == reinterpret_cast<PyObject*>(&PyODict_Type);
    if (standard_class && globals_as_imported(st)) return check(PyODict_New(), where);
    Ref collections = global(st, st.n.collections, where);
    if (standard_class && collections.get() == st.std_collections &&
        attribute_is(st.std_collections, st.n.OrderedDict, st.std_ordered_dict)) {
        return check(PyODict_New(), where);
    }
    Ref ordered_dict = getattr(collections.get(), st.n.OrderedDict, where);
    return call0(ordered_dict.get(), where);
}

}  // namespace vxr
