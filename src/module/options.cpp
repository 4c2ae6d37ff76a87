// The options object of a tool: declared defaults merged with the user's
// keywords, each value brought to its default's type where it can be, and a
// work folder created on demand.  Bad values never raise: the default stays.
#include "vxr.hpp"

namespace vxr {
namespace {

// The given value converted to the default's type, for int and float only.
// A boolean default takes the given value unconverted ("False" stays a
// string): the tools have always received it so.
Ref converted(PyObject* v, PyObject* vin) {
    PyTypeObject* vtyp = Py_TYPE(v);
    if (Py_TYPE(vin) == vtyp) return Ref::new_ref(vin);
    PyObject* result = nullptr;
    if (vtyp == &PyLong_Type) {
        result = PyNumber_Long(vin);
    } else if (vtyp == &PyFloat_Type) {
        result = PyNumber_Float(vin);
    } else {
        return Ref::new_ref(vin);
    }
    if (result == nullptr) {
        PyErr_Clear();  // a bare except: the default is kept
        return Ref::new_ref(v);
    }
    return Ref::steal(result);
}

// hasattr(obj, name): an AttributeError means no; other errors propagate.
bool has_attribute(PyObject* obj, PyObject* name) {
    PyObject* value = PyObject_GetAttr(obj, name);
    if (value != nullptr) {
        Py_DECREF(value);
        return true;
    }
    if (!PyErr_ExceptionMatches(PyExc_AttributeError)) fail();
    PyErr_Clear();
    return false;
}

// os.makedirs(args.workdir), every step of it guarded as one.
bool make_work_folder(State& st, PyObject* args) {
    try {
        Ref makedirs = getattr(global(st, st.n.os).get(), st.n.opt_makedirs);
        Ref workdir = getattr(args, st.n.opt_workdir);
        call1(makedirs.get(), workdir.get());
        return true;
    } catch (const PyErrorSet&) {
        return false;
    }
}

Ref get_arguments_as_attr(State& st, PyObject* const* a) {
    PyObject* default_args_dict = a[0];
    PyObject* kwds = a[1];

    Ref args = call0(global(st, st.n.SimpleObject).get());
    ItemsSnapshot items(st, default_args_dict);
    Ref key, declaration;
    while (items.next(key, declaration)) {
        PyObject* k = key.get();
        PyObject* vals = declaration.get();

        Ref v;
        Ref allowed;
        if (Py_TYPE(vals) == &PyDict_Type) {
            v = getitem(vals, st.n.opt_value);
            if (check_status(PyDict_Contains(vals, st.n.opt_allowed))) allowed = getitem(vals, st.n.opt_allowed);
        } else {
            v = Ref::new_ref(vals);
        }

        Ref vin = Ref::steal(PyObject_GetItem(kwds, k));
        if (vin) {
            vin = converted(v.get(), vin.get());
        } else {
            PyErr_Clear();  // a bare except: not given, or kwds not indexable
            vin = Ref::new_ref(v.get());
        }
        if (allowed && !check_status(PySequence_Contains(allowed.get(), vin.get()))) vin = Ref::new_ref(v.get());
        check_status(PyObject_SetAttr(args.get(), k, vin.get()));
    }

    if (has_attribute(args.get(), st.n.opt_workdir)) {
        Ref exists = getattr(getattr(global(st, st.n.os).get(), st.n.msg_path).get(), st.n.msg_exists);
        Ref workdir = getattr(args.get(), st.n.opt_workdir);
        if (!truthy(call1(exists.get(), workdir.get()).get()) && !make_work_folder(st, args.get())) {
            // The declaration as it stands, even a whole {"value": ...}
            // dictionary, as the tools have always received it.
            Handling handling;
            Ref fallback = getitem(default_args_dict, st.n.opt_workdir);
            check_status(PyObject_SetAttr(args.get(), st.n.opt_workdir, fallback.get()));
        }
    }
    return args;
}

}  // namespace
}  // namespace vxr

VXR_DEF_ARGS(_get_arguments_as_attr, "($module, /, default_args_dict, kwds)", "OO", 2, vxr::get_arguments_as_attr,
             "default_args_dict", "kwds")
