/* The settings of the interpreter's own Windows pyconfig.h that its public
   headers read, for a 64-bit Windows build of CPython 3.9 to 3.15 with the
   core in python3X.dll.  It takes the place of the Linux pyconfig.h when the
   module is compiled for Windows here (tools/windows/build.py). */
#ifndef Py_CONFIG_H
#define Py_CONFIG_H

#if !defined(_WIN64)
#error "this pyconfig.h describes 64-bit Windows only"
#endif

/* The default build, whose modules the cp3X wheels hold.  The free-threaded
   one (another object layout, python3Xt.dll, cp3Xt wheels) is selected by
   Py_GIL_DISABLED, and from 3.15 on also by Py_TARGET_ABI3T, which makes
   the headers define it; either must come before Python.h, so before this
   file. */
#if defined(Py_GIL_DISABLED) || defined(Py_TARGET_ABI3T)
#error "Py_GIL_DISABLED or Py_TARGET_ABI3T selects the free-threaded ABI, which these wheels are not for"
#endif

#define MS_WIN32
#define MS_WIN64
#define MS_WINDOWS
#define NT_THREADS
#define WITH_THREAD

/* The core is in python3X.dll: with these two, the headers declare every
   PyAPI_FUNC and PyAPI_DATA __declspec(dllimport) and PyMODINIT_FUNC
   __declspec(dllexport). */
#define Py_ENABLE_SHARED 1
#define HAVE_DECLSPEC_DLL

/* LLP64: long stays 32 bits; wchar_t is UTF-16. */
#define SIZEOF_INT 4
#define SIZEOF_LONG 4
#define SIZEOF_LONG_LONG 8
#define SIZEOF_LONG_DOUBLE 8
#define SIZEOF_VOID_P 8
#define SIZEOF_SIZE_T 8
#define SIZEOF_UINTPTR_T 8
#define SIZEOF_TIME_T 8
#define SIZEOF_WCHAR_T 2
#define SIZEOF__BOOL 1
#define ALIGNOF_MAX_ALIGN_T 8
#define HAVE_LARGEFILE_SUPPORT
#define HAVE_LONG_LONG 1
#define HAVE_WCHAR_H 1
#define HAVE_USABLE_WCHAR_T 1
#define SIZEOF_PID_T SIZEOF_INT
#define DOUBLE_IS_LITTLE_ENDIAN_IEEE754 1

/* No ssize_t here (3.9's Windows pyconfig.h made one, 3.13's does not):
   Py_ssize_t comes from intptr_t, so that code relying on POSIX ssize_t fails
   to build for both. */
#define HAVE_ERRNO_H 1
#define HAVE_STDDEF_H 1
#define HAVE_SYS_STAT_H 1
#define HAVE_SYS_TYPES_H 1
#define HAVE_COPYSIGN 1
#define HAVE_ROUND 1
#define HAVE_HYPOT 1
#define WITH_PYMALLOC 1
#define WITH_MIMALLOC 1 /* 3.13 on: the allocator names of PyMemAllocatorName */

#endif /* Py_CONFIG_H */
