// Interpreter-version differences, in one place: the module builds and runs
// on CPython 3.9 to 3.15.  A branch compiled for some versions only is tested
// on those versions (make test-all, and make check's sanitizer suite on 3.13
// and debug interpreters of 3.14 and 3.15).
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#if PY_VERSION_HEX < 0x03090000
#error "vxrcomn needs CPython 3.9 or newer"
#endif

// What differs between the interpreter versions the module supports.
// 3.11: the exception being handled is kept as one instance, not a triple.
#define VXR_HANDLED_EXCEPTION_IS_INSTANCE (PY_VERSION_HEX >= 0x030B0000)
// 3.12: the raised exception is taken as one instance.
#define VXR_RAISED_EXCEPTION_IS_INSTANCE (PY_VERSION_HEX >= 0x030C0000)
// 3.13: _PyTraceback_Add is no longer declared in the public headers; type
// version tags have no validity flag; keyword lists are "char * const *".
#define VXR_TRACEBACK_ADD_UNDECLARED (PY_VERSION_HEX >= 0x030D0000)
#define VXR_TYPE_TAG_WITHOUT_FLAG (PY_VERSION_HEX >= 0x030D0000)
#define VXR_CONST_KWLIST (PY_VERSION_HEX >= 0x030D0000)
// 3.12: a dictionary can be watched (PyDict_AddWatcher); the version tag that
// every dictionary carries up to 3.11 is deprecated there, and gone in 3.14.
#define VXR_DICT_WATCHERS (PY_VERSION_HEX >= 0x030C0000)

// Adds a traceback entry "funcname" at filename:lineno to the current
// exception.  Public up to 3.12; 3.13 moved the declaration to the internal
// headers but still exports the function.
#if VXR_TRACEBACK_ADD_UNDECLARED
extern "C" PyAPI_FUNC(void) _PyTraceback_Add(const char*, const char*, int);
#endif

// The attribute version tag of a type, 0 when it has none.  3.13 no longer
// keeps Py_TPFLAGS_VALID_VERSION_TAG: a zero tag means "none" there.
inline unsigned int vxr_type_version_tag(PyTypeObject* type) {
#if VXR_TYPE_TAG_WITHOUT_FLAG
    return type->tp_version_tag;
#else
    return PyType_HasFeature(type, Py_TPFLAGS_VALID_VERSION_TAG) ? type->tp_version_tag : 0;
#endif
}

// The exception an `except` clause handles lives in the thread's current
// exception-state slot: a running generator's own, else the thread's.  On
// entry the interpreter saves what the slot holds and puts the raised
// exception there; on exit it puts the saved contents back.  The public
// PyErr_GetExcInfo reads the topmost exception of the whole chain instead,
// so saving with it would write a caller's exception into a generator's slot.
// 3.11 keeps only the exception instance (its traceback is on it).
class VxrHandlerSlot {
public:
    // Takes the raised exception (normalised, its traceback attached) into
    // the current slot.
    void enter() noexcept {
        slot_ = PyThreadState_Get()->exc_info;
#if VXR_RAISED_EXCEPTION_IS_INSTANCE
        PyObject* value = PyErr_GetRaisedException();
#else
        PyObject *type, *value, *tb;
        PyErr_Fetch(&type, &value, &tb);
        PyErr_NormalizeException(&type, &value, &tb);
        if (tb != nullptr && value != nullptr) PyException_SetTraceback(value, tb);
#endif
#if VXR_HANDLED_EXCEPTION_IS_INSTANCE
#if !VXR_RAISED_EXCEPTION_IS_INSTANCE
        Py_XDECREF(type);
        Py_XDECREF(tb);
#endif
        saved_value_ = slot_->exc_value;
        slot_->exc_value = value;
#else
        saved_type_ = slot_->exc_type;
        saved_value_ = slot_->exc_value;
        saved_tb_ = slot_->exc_traceback;
        slot_->exc_type = type;
        slot_->exc_value = value;
        slot_->exc_traceback = tb;
#endif
    }
    // Puts back what the slot held before enter().
    void leave() noexcept {
#if VXR_HANDLED_EXCEPTION_IS_INSTANCE
        PyObject* value = slot_->exc_value;
        slot_->exc_value = saved_value_;
        Py_XDECREF(value);
#else
        PyObject *type = slot_->exc_type, *value = slot_->exc_value, *tb = slot_->exc_traceback;
        slot_->exc_type = saved_type_;
        slot_->exc_value = saved_value_;
        slot_->exc_traceback = saved_tb_;
        Py_XDECREF(type);
        Py_XDECREF(value);
        Py_XDECREF(tb);
#endif
    }

private:
    _PyErr_StackItem* slot_ = nullptr;
    PyObject* saved_value_ = nullptr;
#if !VXR_HANDLED_EXCEPTION_IS_INSTANCE
    PyObject* saved_type_ = nullptr;
    PyObject* saved_tb_ = nullptr;
#endif
};

// PyArg_ParseTupleAndKeywords took "char **" before 3.13.
#if VXR_CONST_KWLIST
using vxr_kwlist_t = char* const*;
#else
using vxr_kwlist_t = char**;
#endif

// Source location of the caller, for the traceback entry of an exception that
// leaves a module function.  GCC, Clang and MSVC 16.6+ evaluate these builtins
// at the call site when they stand in a default argument.
#if defined(__GNUC__) || defined(__clang__) || (defined(_MSC_VER) && _MSC_VER >= 1926)
#define VXR_BUILTIN_FILE() __builtin_FILE()
#define VXR_BUILTIN_LINE() __builtin_LINE()
#else
#define VXR_BUILTIN_FILE() "vxrcomn"
#define VXR_BUILTIN_LINE() 0
#endif

#if defined(__GNUC__) || defined(__clang__)
#define VXR_LIKELY(x) __builtin_expect(!!(x), 1)
#define VXR_UNLIKELY(x) __builtin_expect(!!(x), 0)
#else
#define VXR_LIKELY(x) (x)
#define VXR_UNLIKELY(x) (x)
#endif
