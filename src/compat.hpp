// Interpreter-version differences, in one place.  The module is built for
// CPython 3.9 and also builds and runs unchanged on 3.10 to 3.13.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#if PY_VERSION_HEX < 0x03090000
#error "vxrcomn needs CPython 3.9 or newer"
#endif

// Adds a traceback entry "funcname" at filename:lineno to the current
// exception.  Public up to 3.12; 3.13 moved the declaration to the internal
// headers but still exports the function.
#if PY_VERSION_HEX >= 0x030D0000
extern "C" PyAPI_FUNC(void) _PyTraceback_Add(const char*, const char*, int);
#endif

// The attribute version tag of a type, 0 when it has none.  3.13 no longer
// keeps Py_TPFLAGS_VALID_VERSION_TAG: a zero tag means "none" there.
inline unsigned int vxr_type_version_tag(PyTypeObject* type) {
#if PY_VERSION_HEX >= 0x030D0000
    return type->tp_version_tag;
#else
    return PyType_HasFeature(type, Py_TPFLAGS_VALID_VERSION_TAG) ? type->tp_version_tag : 0;
#endif
}

// PyArg_ParseTupleAndKeywords took "char **" before 3.13.
#if PY_VERSION_HEX >= 0x030D0000
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
