/* Force-included last before each source in the Microsoft-compatibility pass
   of tools/windows/build.py, after the standard headers the sources use.
   MinGW's headers stand in for Microsoft's (not on this machine) and parse
   only as GCC, so they come first; from here on the compiler presents itself
   as MSVC 19.29 (Visual Studio 2019), the interpreter's headers and the
   sources take the branches MSVC takes, and the GCC spellings MSVC rejects
   are errors. */
#include <assert.h>
#include <ctype.h>
#include <errno.h>
#include <float.h>
#include <inttypes.h>
#include <intrin.h>
#include <limits.h>
#include <math.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>
#include <wchar.h>

#undef __GNUC__
#undef __GNUC_MINOR__
#undef __GNUC_PATCHLEVEL__
#undef __GNUG__
#undef __clang__
#undef __clang_major__
#undef __clang_minor__
#undef __MINGW32__
#undef __MINGW64__
#define _MSC_VER 1929
#define _MSC_FULL_VER 192930133
/* MSVC's /std:c++17 (setup.py) without /Zc:__cplusplus: the language in
   _MSVC_LANG, __cplusplus left at 199711L.  The headers of 3.11 on choose
   by __cplusplus (3.14's _Py_ALIGNED_DEF takes __declspec(align) under
   MSVC, alignas elsewhere), 3.14's Py_CLEAR and Py_SETREF by either. */
#define _MSVC_LANG 201703L
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wbuiltin-macro-redefined"
#undef __cplusplus
#define __cplusplus 199711L
#pragma clang diagnostic pop
#define __INTRIN_H /* MinGW's intrin.h above declared the MSVC intrinsics */

#define PY_SSIZE_T_CLEAN
#include <Python.h>

/* Beyond the compiler: MSVC knows none of these, and POSIX ssize_t is not in
   Microsoft's C library.  __builtin_FILE and __builtin_LINE are MSVC's too. */
#pragma GCC poison __attribute__ __extension__ __typeof__ typeof __int128 __thread __restrict__ __asm__ asm
#pragma GCC poison __builtin_expect __builtin_unreachable __builtin_trap __builtin_constant_p __builtin_prefetch
#pragma GCC poison __builtin_clz __builtin_clzl __builtin_clzll __builtin_ctz __builtin_ctzl __builtin_ctzll
#pragma GCC poison __builtin_popcount __builtin_popcountll __builtin_bswap16 __builtin_bswap32 __builtin_bswap64
#pragma GCC poison __builtin_add_overflow __builtin_sub_overflow __builtin_mul_overflow __builtin_alloca
#pragma GCC poison ssize_t
