// What every subsystem of vxrcomn shares: the reference owner, the error
// model (a C++ exception that means "a Python error is set"), the entry-point
// guard that adds the traceback entry, the module state with its interned
// names, global look-ups at call time, argument parsing, and thin wrappers of
// the Python operations that the functions perform.
#pragma once

#include "compat.hpp"
#include "globals_watch.hpp"

#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <new>
#include <utility>
#include <vector>

namespace vxr {

// ---------------------------------------------------------------------------
// Reference owner
// ---------------------------------------------------------------------------

// Owns one strong reference.  Move-only; borrowed references stay raw
// PyObject pointers.
class Ref {
public:
    Ref() noexcept = default;
    static Ref steal(PyObject* p) noexcept { return Ref(p); }
    static Ref new_ref(PyObject* p) noexcept {
        Py_XINCREF(p);
        return Ref(p);
    }
    Ref(Ref&& other) noexcept : p_(other.p_) { other.p_ = nullptr; }
    Ref& operator=(Ref&& other) noexcept {
        if (this != &other) {
            PyObject* old = p_;
            p_ = other.p_;
            other.p_ = nullptr;
            Py_XDECREF(old);
        }
        return *this;
    }
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    ~Ref() { Py_XDECREF(p_); }

    PyObject* get() const noexcept { return p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }
    [[nodiscard]] PyObject* release() noexcept {
        PyObject* p = p_;
        p_ = nullptr;
        return p;
    }
    void reset() noexcept { Py_CLEAR(p_); }

private:
    explicit Ref(PyObject* p) noexcept : p_(p) {}
    PyObject* p_ = nullptr;
};

// ---------------------------------------------------------------------------
// Errors
// ---------------------------------------------------------------------------

struct Loc {
    const char* file;
    int line;
    // As a default argument, the location of the call that uses the default.
    // (The builtins inside a braced Loc{...} default would name this header.)
    static Loc current(const char* file = VXR_BUILTIN_FILE(), int line = VXR_BUILTIN_LINE()) noexcept {
        return Loc{file, line};
    }
};
#define VXR_HERE ::vxr::Loc{__FILE__, __LINE__}
#define VXR_CALLER ::vxr::Loc::current()

// Thrown when a Python exception is set; carries where it was noticed, for
// the traceback entry.  Never crosses into the interpreter: guard() maps it
// back to NULL.
struct PyErrorSet {
    Loc where;
};

[[noreturn]] inline void fail(Loc where = VXR_CALLER) { throw PyErrorSet{where}; }

inline Ref check(PyObject* p, Loc where = VXR_CALLER) {
    if (VXR_UNLIKELY(p == nullptr)) throw PyErrorSet{where};
    return Ref::steal(p);
}

inline int check_status(int status, Loc where = VXR_CALLER) {
    if (VXR_UNLIKELY(status < 0)) throw PyErrorSet{where};
    return status;
}

[[noreturn]] inline void raise(PyObject* type, const char* message, Loc where = VXR_CALLER) {
    PyErr_SetString(type, message);
    throw PyErrorSet{where};
}

// The text of the unbound-local error that the tools see when a variable of
// the original algorithm is read before it was ever assigned.
[[noreturn]] inline void raise_unbound_local(const char* name, Loc where = VXR_CALLER) {
    PyErr_Format(PyExc_UnboundLocalError, "local variable '%s' referenced before assignment", name);
    throw PyErrorSet{where};
}

// While alive, the exception that was set when it was made is the "handled"
// exception, as inside an `except:` clause: whatever is raised in the handler
// body (by the module or by a callable it calls) gets it as __context__, and
// sys.exc_info() shows it there.
class Handling {
public:
    Handling() noexcept { slot_.enter(); }
    ~Handling() { slot_.leave(); }
    Handling(const Handling&) = delete;
    Handling& operator=(const Handling&) = delete;

private:
    VxrHandlerSlot slot_;
};

void add_traceback(const char* qualname, Loc where) noexcept;

// For a C++ exception other than PyErrorSet, caught by `catch (...)`: the
// only ones the module can meet are the standard library's allocation
// failures (bad_alloc, or length_error for a size past what it can hold).
inline void set_memory_error() noexcept { PyErr_NoMemory(); }

// Runs the body of a module function: every C++ exception is mapped back to
// a set Python error, and the entry "vxrcomn.<name>" is added to the
// traceback of whatever leaves the function.
template <typename Body>
PyObject* guard(const char* qualname, Body&& body) noexcept {
    try {
        PyObject* result = body();
        if (result != nullptr) return result;
        if (!PyErr_Occurred()) PyErr_SetString(PyExc_SystemError, "error return without exception set");
        add_traceback(qualname, Loc{__FILE__, __LINE__});
    } catch (const PyErrorSet& e) {
        add_traceback(qualname, e.where);
    } catch (...) {
        set_memory_error();
        add_traceback(qualname, Loc{__FILE__, __LINE__});
    }
    return nullptr;
}

// ---------------------------------------------------------------------------
// Exact strings, read in place
// ---------------------------------------------------------------------------

// True for an exact str, made ready: a fast path reads only such strings.
// Up to 3.11 a str made through the legacy API holds only wchar_t data until
// it is made ready; its length and characters read as empty before that.
// Anything else (a subclass above all) takes the generic path.
inline bool exact_str(PyObject* obj, Loc where = VXR_CALLER) {
    if (!PyUnicode_CheckExact(obj)) return false;
    if (VXR_UNLIKELY(PyUnicode_READY(obj) < 0)) fail(where);
    return true;
}

// The bounds of text.strip() over its characters: white space is what
// str.strip() strips.
template <typename CharT>
inline void strip_bounds(const CharT* data, Py_ssize_t& start, Py_ssize_t& end) {
    while (start < end && Py_UNICODE_ISSPACE(data[start])) ++start;
    while (end > start && Py_UNICODE_ISSPACE(data[end - 1])) --end;
}

// The bounds of s.strip() for a str that exact_str() accepted.
inline void strip_bounds(PyObject* s, Py_ssize_t& start, Py_ssize_t& end) {
    start = 0;
    end = PyUnicode_GET_LENGTH(s);
    switch (PyUnicode_KIND(s)) {
        case PyUnicode_1BYTE_KIND: strip_bounds(PyUnicode_1BYTE_DATA(s), start, end); break;
        case PyUnicode_2BYTE_KIND: strip_bounds(PyUnicode_2BYTE_DATA(s), start, end); break;
        default: strip_bounds(PyUnicode_4BYTE_DATA(s), start, end); break;
    }
}

// ---------------------------------------------------------------------------
// Item texts of the tokenizers
// ---------------------------------------------------------------------------

// A new str of the characters p[0..len), as str.split makes its items: one
// character is the interpreter's own one-character string (nothing to
// allocate or free), ASCII characters are copied as bytes, anything else
// takes the smallest kind that holds it.  `ascii`: the characters are known
// to be ASCII.  nullptr with an error set on failure.
template <typename CharT>
inline PyObject* new_text(const CharT* p, Py_ssize_t len, bool ascii) noexcept {
    if (len == 1) return PyUnicode_FromOrdinal(static_cast<int>(p[0]));
    if (sizeof(CharT) == 1 && ascii) {
        PyObject* s = PyUnicode_New(len, 127);
        if (s != nullptr && len > 0) std::memcpy(PyUnicode_1BYTE_DATA(s), p, static_cast<size_t>(len));
        return s;
    }
    return PyUnicode_FromKindAndData(static_cast<int>(sizeof(CharT)), p, len);
}

// The items of one line, gathered before their list is made at its final
// size (appending would grow the list several times).
class ItemBuffer {
public:
    ItemBuffer() = default;
    ItemBuffer(const ItemBuffer&) = delete;
    ItemBuffer& operator=(const ItemBuffer&) = delete;
    ~ItemBuffer() {
        for (size_t i = 0; i < count_; ++i) Py_DECREF(at(i));
    }
    // Takes the reference; false (the item released, MemoryError set) when
    // there is no room.
    bool push(PyObject* item) noexcept {
        if (VXR_LIKELY(count_ < kInline)) {
            inline_[count_++] = item;
            return true;
        }
        try {
            more_.push_back(item);
        } catch (...) {
            Py_DECREF(item);
            set_memory_error();
            return false;
        }
        ++count_;
        return true;
    }
    // push() of an item just made, or false when making it failed (nullptr,
    // with the error set).
    bool push_new(PyObject* item) noexcept { return item != nullptr && push(item); }
    // The list of the items, which it now owns; nullptr on error.
    PyObject* take_list() noexcept {
        PyObject* list = PyList_New(static_cast<Py_ssize_t>(count_));
        if (list == nullptr) return nullptr;
        for (size_t i = 0; i < count_; ++i) PyList_SET_ITEM(list, static_cast<Py_ssize_t>(i), at(i));
        count_ = 0;
        more_.clear();
        return list;
    }

private:
    static constexpr size_t kInline = 64;
    PyObject* at(size_t i) const { return i < kInline ? inline_[i] : more_[i - kInline]; }
    PyObject* inline_[kInline];
    std::vector<PyObject*> more_;
    size_t count_ = 0;
};

// ---------------------------------------------------------------------------
// Module state
// ---------------------------------------------------------------------------

// The interned names and constant texts, one field each (see names.def).
struct Names {
#define VXR_NAME(id, text) PyObject* id;
#include "names.def"
#undef VXR_NAME
};

struct State {
    Names n;
    PyObject* module_dict;    // borrowed: the module owns it and outlives calls
    PyObject* builtins;       // the builtins module, bound as __builtins__
    PyObject* builtins_dict;  // its dictionary, where global names fall back to

    // Built-in names, looked up once at initialisation.
    PyObject* b_object;
    PyObject* b_print;
    PyObject* b_max;
    PyObject* b_open;
    PyObject* b_zip;
    PyObject* b_enumerate;
    PyObject* b_range;
    PyObject* b_sum;

    // The standard objects as imported; a fast path runs only while the
    // module's globals still refer to these.
    PyObject* std_re;
    PyObject* std_re_compile;
    PyObject* std_shlex;
    PyObject* std_shlex_class;
    PyObject* std_shlex_split;
    PyObject* std_collections;
    PyObject* std_ordered_dict;
    unsigned int shlex_class_version;  // 0: unknown, so never fast
    PyObject* shlex_class_attrs;       // a copy of the lexer class's dict at import
    unsigned int shlex_class_changed;  // a version tag seen with other attributes

    // Import-time defaults shared by every call.
    PyObject* default_path;      // _get_file_name(path=)
    PyObject* default_workdir;   // _get_unique_tmp_file_name(workdir=)
    PyObject* default_sfxlist;   // _get_sized_string(sfxlist=)

    // The module's own function objects, so that a global that still holds
    // one is called directly instead of through the interpreter.
    PyObject* fn_split_textline_kora;
    PyObject* fn_no_check_vlist;
    PyObject* fn_epc_assign_common;
    PyObject* fn_get_unwrapped_string;
    PyObject* fn_file_pnx;
    PyObject* fn_print_dict;

    // The module's dictionary and those of `re`, `shlex` and `collections`,
    // watched so that the names a fast path relies on need not be looked up
    // while none of them changes (see globals_as_imported).
    GlobalsWatch globals_watch;
#if !VXR_DICT_WATCHERS
    uint64_t globals_stamp;  // the watch's stamp when they were last checked
    bool globals_standard;   // what that check found
#endif

    bool ready;     // the body has run: the functions may use the state
    bool executed;  // the body has been run on this module object
};

// Every owned object field of State, for traverse, clear and free.
#define VXR_STATE_OBJECTS(X)                                                                        \
    X(builtins) X(builtins_dict) X(b_object) X(b_print) X(b_max) X(b_open) X(b_zip) X(b_enumerate)  \
    X(b_range) X(b_sum) X(std_re) X(std_re_compile) X(std_shlex) X(std_shlex_class) X(std_shlex_split) \
    X(std_collections) X(std_ordered_dict) X(shlex_class_attrs) X(default_path) X(default_workdir)  \
    X(default_sfxlist) X(fn_split_textline_kora) X(fn_no_check_vlist) X(fn_epc_assign_common)      \
    X(fn_get_unwrapped_string) X(fn_file_pnx) X(fn_print_dict)

// The state of the module object that a function is bound to.
inline State& state_of(PyObject* module) {
    auto* st = static_cast<State*>(PyModule_GetState(module));
    if (VXR_UNLIKELY(st == nullptr || !st->ready)) {
        if (!PyErr_Occurred()) PyErr_SetString(PyExc_SystemError, "vxrcomn: module state is not available");
        fail(VXR_HERE);
    }
    return *st;
}

// ---------------------------------------------------------------------------
// Globals, looked up at call time
// ---------------------------------------------------------------------------

// A module global by name, falling back to the built-ins; NameError when
// neither has it.  At initialisation it finds the built-in names the module
// keeps (the module's dictionary holds none of them yet).
Ref global(State& st, PyObject* name, Loc where = VXR_CALLER);

// True while the module global `name` is still the object `expected`.
// A failing look-up counts as "not the standard object".
inline bool global_is(State& st, PyObject* name, PyObject* expected) noexcept {
    PyObject* value = PyDict_GetItemWithError(st.module_dict, name);
    if (value == nullptr) PyErr_Clear();
    return value == expected;
}

// True while the module attribute `name` of `module` is still `expected`.
inline bool attribute_is(PyObject* module, PyObject* name, PyObject* expected) noexcept {
    PyObject* dict = PyModule_Check(module) ? PyModule_GetDict(module) : nullptr;
    if (dict == nullptr) return false;
    PyObject* value = PyDict_GetItemWithError(dict, name);
    if (value == nullptr) PyErr_Clear();
    return value == expected;
}

// Every global and module attribute that a fast path looks at, as the
// import left it: `re`, `shlex` and `collections` the standard modules with
// the compile function, lexer class, split function and OrderedDict they
// had, and the module's own functions under their names (the watch's names).
bool check_globals_as_imported(State& st) noexcept;

// True while every name that a fast path relies on (see
// check_globals_as_imported) is known to hold what the import left there;
// false (the look-ups are then made one by one where they are needed) while
// that is not known, or no dictionary is watched.  From 3.12 the watch's
// events tell; up to 3.11 the names are compared again whenever one of the
// watched dictionaries has changed since they were last compared.
inline bool globals_as_imported(State& st) noexcept {
#if VXR_DICT_WATCHERS
    return st.globals_watch.unchanged();
#else
    const uint64_t stamp = st.globals_watch.stamp();
    if (VXR_LIKELY(stamp != 0 && stamp == st.globals_stamp)) return st.globals_standard;
    if (stamp == 0) return false;
    const bool standard = check_globals_as_imported(st);
    // A look-up can run an odd key's __eq__, which can change a dictionary:
    // the answer is kept only when none changed meanwhile.
    if (st.globals_watch.stamp() == stamp) {
        st.globals_stamp = stamp;
        st.globals_standard = standard;
    }
    return standard;
#endif
}

// The standard `re` module with its compile function, as imported.
inline bool std_re_in_use(State& st) noexcept {
    return globals_as_imported(st) ||
           (global_is(st, st.n.re, st.std_re) && attribute_is(st.std_re, st.n.compile, st.std_re_compile));
}

// True when the lexer class, changed since import, holds again exactly the
// attributes it had then (a tool's tests may patch it for a while); its new
// version tag is then taken as the unchanged one.
bool shlex_class_restored(State& st) noexcept;

// The standard `shlex` module with its lexer class unchanged since import
// (its attribute version tag moves on any class attribute assignment).
inline bool std_shlex_class_unchanged(State& st) noexcept {
    auto* cls = reinterpret_cast<PyTypeObject*>(st.std_shlex_class);
    if (st.shlex_class_version == 0) return false;
    return vxr_type_version_tag(cls) == st.shlex_class_version || shlex_class_restored(st);
}

inline bool std_shlex_in_use(State& st) noexcept {
    return (globals_as_imported(st) ||
            (global_is(st, st.n.shlex, st.std_shlex) && attribute_is(st.std_shlex, st.n.shlex, st.std_shlex_class))) &&
           std_shlex_class_unchanged(st);
}

// std_shlex_in_use(), and `shlex.split` the standard function.
inline bool std_shlex_split_in_use(State& st) noexcept {
    return std_shlex_in_use(st) &&
           (globals_as_imported(st) || attribute_is(st.std_shlex, st.n.split, st.std_shlex_split));
}

// ---------------------------------------------------------------------------
// Argument parsing
// ---------------------------------------------------------------------------

// Parameters of a function taking positional-or-keyword arguments.  The
// common call (all positional, count in range) costs a copy of pointers;
// anything else goes through the interpreter's own parser, so the errors are
// the interpreter's own.
struct Params {
    const char* name;
    const char* const* keywords;  // nullptr-terminated
    int required;
    int total;
    const char* format;  // for PyArg_ParseTupleAndKeywords, e.g. "OO|O:name"
};

void parse_args_slow(const Params& params, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames,
                     PyObject** out);

// Fills out[0..total) with borrowed references (nullptr for an omitted
// optional argument).  Throws when the arguments do not fit.
inline void parse_args(const Params& params, PyObject* const* args, Py_ssize_t nargsf, PyObject* kwnames,
                       PyObject** out) {
    Py_ssize_t nargs = PyVectorcall_NARGS(nargsf);
    if (VXR_LIKELY(kwnames == nullptr && nargs >= params.required && nargs <= params.total)) {
        Py_ssize_t i = 0;
        for (; i < nargs; ++i) out[i] = args[i];
        for (; i < params.total; ++i) out[i] = nullptr;
        return;
    }
    parse_args_slow(params, args, nargs, kwnames, out);
}

// ---------------------------------------------------------------------------
// Python operations
// ---------------------------------------------------------------------------

inline Ref call0(PyObject* callable, Loc where = VXR_CALLER) { return check(PyObject_CallNoArgs(callable), where); }

inline Ref call1(PyObject* callable, PyObject* a, Loc where = VXR_CALLER) {
    return check(PyObject_CallOneArg(callable, a), where);
}

inline Ref callv(PyObject* callable, PyObject* const* args, size_t n, Loc where = VXR_CALLER) {
    return check(PyObject_Vectorcall(callable, args, n, nullptr), where);
}

// obj.name(*args)
inline Ref method(PyObject* obj, PyObject* name, Loc where = VXR_CALLER) {
    PyObject* stack[1] = {obj};
    return check(PyObject_VectorcallMethod(name, stack, 1 | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr), where);
}
inline Ref method(PyObject* obj, PyObject* name, PyObject* a, Loc where = VXR_CALLER) {
    PyObject* stack[2] = {obj, a};
    return check(PyObject_VectorcallMethod(name, stack, 2 | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr), where);
}
inline Ref method(PyObject* obj, PyObject* name, PyObject* a, PyObject* b, Loc where = VXR_CALLER) {
    PyObject* stack[3] = {obj, a, b};
    return check(PyObject_VectorcallMethod(name, stack, 3 | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr), where);
}

// template.format(*args): the interpreter's own str.format.
Ref format(State& st, PyObject* templ, std::initializer_list<PyObject*> args, Loc where = VXR_CALLER);
Ref format(State& st, PyObject* templ, PyObject* const* args, size_t nargs, Loc where = VXR_CALLER);

// "{1}{0}{1}".format(text, wrap): for two exact str, the concatenation it
// comes to, made in one allocation.
Ref wrap_between(State& st, PyObject* text, PyObject* wrap, Loc where = VXR_CALLER);

inline Ref getattr(PyObject* obj, PyObject* name, Loc where = VXR_CALLER) {
    return check(PyObject_GetAttr(obj, name), where);
}

// obj[key].  An exact dict is read directly: one look-up, and the KeyError
// the dict itself raises (its key packed in a tuple, so that a tuple key
// stays one argument).
inline Ref getitem(PyObject* obj, PyObject* key, Loc where = VXR_CALLER) {
    if (PyDict_CheckExact(obj)) {
        PyObject* value = PyDict_GetItemWithError(obj, key);
        if (value != nullptr) return Ref::new_ref(value);
        if (!PyErr_Occurred()) {
            Ref args = check(PyTuple_Pack(1, key), where);
            PyErr_SetObject(PyExc_KeyError, args.get());
        }
        fail(where);
    }
    return check(PyObject_GetItem(obj, key), where);
}

// obj[i] with a small non-negative constant index.
inline Ref getindex(PyObject* obj, Py_ssize_t i, Loc where = VXR_CALLER) {
    if (PyList_CheckExact(obj)) {
        if (i < PyList_GET_SIZE(obj)) return Ref::new_ref(PyList_GET_ITEM(obj, i));
    } else if (PyTuple_CheckExact(obj)) {
        if (i < PyTuple_GET_SIZE(obj)) return Ref::new_ref(PyTuple_GET_ITEM(obj, i));
    }
    Ref key = check(PyLong_FromSsize_t(i), where);
    return check(PyObject_GetItem(obj, key.get()), where);
}

inline void setitem(PyObject* obj, PyObject* key, PyObject* value, Loc where = VXR_CALLER) {
    check_status(PyObject_SetItem(obj, key, value), where);
}

inline bool truthy(PyObject* obj, Loc where = VXR_CALLER) { return check_status(PyObject_IsTrue(obj), where) != 0; }

// a == b, as the `==` of an if statement.
inline bool equals(PyObject* a, PyObject* b, Loc where = VXR_CALLER) {
    if (exact_str(a, where) && exact_str(b, where)) {
        if (a == b) return true;
        return PyUnicode_GET_LENGTH(a) == PyUnicode_GET_LENGTH(b) && PyUnicode_Compare(a, b) == 0;
    }
    return check_status(PyObject_RichCompareBool(a, b, Py_EQ), where) != 0;
}

// a + b
inline Ref add(PyObject* a, PyObject* b, Loc where = VXR_CALLER) {
    if (PyUnicode_CheckExact(a) && PyUnicode_CheckExact(b)) return check(PyUnicode_Concat(a, b), where);
    return check(PyNumber_Add(a, b), where);
}

// a += b (a is replaced by the result)
inline void add_to(Ref& a, PyObject* b, Loc where = VXR_CALLER) {
    if (PyUnicode_CheckExact(a.get()) && PyUnicode_CheckExact(b)) {
        a = check(PyUnicode_Concat(a.get(), b), where);
    } else {
        a = check(PyNumber_InPlaceAdd(a.get(), b), where);
    }
}

// a += b for a text that grows in a loop: while `a` holds the only reference
// to an exact str, the interpreter's in-place append reuses its buffer (as the
// interpreter does for `s += t`), so building a long message stays linear.
inline void append_text(Ref& a, PyObject* b, Loc where = VXR_CALLER) {
    if (PyUnicode_CheckExact(a.get()) && PyUnicode_CheckExact(b)) {
        PyObject* p = a.release();
        PyUnicode_Append(&p, b);  // on failure p is NULL and the old text released
        a = check(p, where);
    } else {
        add_to(a, b, where);
    }
}

inline Ref str(PyObject* obj, Loc where = VXR_CALLER) { return check(PyObject_Str(obj), where); }

// int(text) for a short ASCII decimal text (blanks around it, a sign and up
// to 18 digits), read here; nullptr for anything else, which int() itself
// must read (or with an error set when the text cannot be made ready).
inline PyObject* int_from_decimal_text(PyObject* text) noexcept {
    if (!PyUnicode_CheckExact(text) || PyUnicode_READY(text) < 0 || !PyUnicode_IS_ASCII(text)) return nullptr;
    const char* p = reinterpret_cast<const char*>(PyUnicode_1BYTE_DATA(text));
    const char* end = p + PyUnicode_GET_LENGTH(text);
    while (p < end && *p == ' ') ++p;
    while (end > p && end[-1] == ' ') --end;
    bool negative = false;
    if (p < end && (*p == '-' || *p == '+')) negative = *p++ == '-';
    if (p == end || end - p > 18) return nullptr;
    long long value = 0;
    for (; p < end; ++p) {
        if (*p < '0' || *p > '9') return nullptr;
        value = value * 10 + (*p - '0');
    }
    return PyLong_FromLongLong(negative ? -value : value);
}

// int(obj)
inline PyObject* int_of(PyObject* obj) noexcept {
    if (PyObject* quick = int_from_decimal_text(obj)) return quick;
    if (PyErr_Occurred()) return nullptr;
    return PyNumber_Long(obj);
}
inline Ref to_int(PyObject* obj, Loc where = VXR_CALLER) { return check(int_of(obj), where); }
inline Ref to_float(PyObject* obj, Loc where = VXR_CALLER) {
    if (PyFloat_CheckExact(obj)) return Ref::new_ref(obj);
    return check(PyNumber_Float(obj), where);
}

inline Ref iter(PyObject* obj, Loc where = VXR_CALLER) { return check(PyObject_GetIter(obj), where); }

// next(it), or an empty Ref at the end.
inline Ref next(PyObject* it, Loc where = VXR_CALLER) {
    PyObject* item = PyIter_Next(it);
    if (item == nullptr && PyErr_Occurred()) fail(where);
    return Ref::steal(item);
}

inline Py_ssize_t length(PyObject* obj, Loc where = VXR_CALLER) {
    Py_ssize_t n = PyObject_Size(obj);
    if (n < 0) fail(where);
    return n;
}

inline Ref new_list(Py_ssize_t n = 0, Loc where = VXR_CALLER) { return check(PyList_New(n), where); }
inline Ref new_dict(Loc where = VXR_CALLER) { return check(PyDict_New(), where); }

inline void append(PyObject* list, PyObject* item, Loc where = VXR_CALLER) {
    check_status(PyList_Append(list, item), where);
}

// a, b, ... = obj: out[0..n) receive new references, with the interpreter's
// own errors for a value that does not unpack into exactly n parts.
void unpack(PyObject* obj, Ref* out, Py_ssize_t n, Loc where = VXR_CALLER);

// (a, b, ...) as a new tuple; the items are borrowed.
Ref tuple_of(std::initializer_list<PyObject*> items, Loc where = VXR_CALLER);

inline PyObject* py_bool(bool b) noexcept { return b ? Py_True : Py_False; }

// list(mapping.items()), taken before a walk over it.  An exact dict is read
// directly into (key, value) pairs (its items() runs nothing of the
// caller's); anything else is listed through its items() and each element
// unpacked when the walk reaches it.
class ItemsSnapshot {
public:
    ItemsSnapshot(State& st, PyObject* mapping) {
        if (PyDict_CheckExact(mapping)) {
            pairs_.reserve(static_cast<size_t>(PyDict_GET_SIZE(mapping)));
            Py_ssize_t pos = 0;
            PyObject *key, *value;
            while (PyDict_Next(mapping, &pos, &key, &value)) {
                pairs_.emplace_back(Ref::new_ref(key), Ref::new_ref(value));
            }
        } else if (PyODict_CheckExact(mapping)) {
            // An exact OrderedDict in its own order (which move_to_end may
            // have made different from its storage order), without the
            // (key, value) tuples of its items view.
            pairs_.reserve(static_cast<size_t>(PyDict_GET_SIZE(mapping)));
            Ref keys = iter(mapping);
            while (Ref key = vxr::next(keys.get())) {
                PyObject* value = PyDict_GetItemWithError(mapping, key.get());
                if (value == nullptr) {
                    if (!PyErr_Occurred()) PyErr_SetObject(PyExc_KeyError, key.get());
                    fail();
                }
                pairs_.emplace_back(std::move(key), Ref::new_ref(value));
            }
        } else {
            Ref items = method(mapping, st.n.items);
            list_ = check(PySequence_List(items.get()));
        }
    }
    // The next (key, value) pair, as `for key, value in snapshot` gives it;
    // false at the end.  The listed items are a list that the caller's code
    // can reach (through gc) and change as any list: its size is read anew
    // at each step, as the list's iterator does.
    bool next(Ref& key, Ref& value) {
        if (!list_) {
            if (next_ >= pairs_.size()) return false;  // each pair is handed out once
            key = std::move(pairs_[next_].first);
            value = std::move(pairs_[next_].second);
            ++next_;
            return true;
        }
        if (static_cast<Py_ssize_t>(next_) >= PyList_GET_SIZE(list_.get())) return false;
        Ref item = Ref::new_ref(PyList_GET_ITEM(list_.get(), static_cast<Py_ssize_t>(next_++)));
        Ref pair[2];
        unpack(item.get(), pair, 2);
        key = std::move(pair[0]);
        value = std::move(pair[1]);
        return true;
    }

private:
    std::vector<std::pair<Ref, Ref>> pairs_;
    Ref list_;
    size_t next_ = 0;
};

// collections.OrderedDict(), through the module global.
Ref new_ordered_dict(State& st, Loc where = VXR_CALLER);

// Calls `function`, the value of a module function's global, with `args`.
// While it is still the module's own function object `own`, `direct` (the
// implementation, called in C++) runs instead of a call through the
// interpreter; an error leaving it gets the traceback entry `qualname`, as
// the interpreter call would have given it.
template <typename Direct>
Ref call_resolved(PyObject* function, PyObject* own, const char* qualname, Direct&& direct,
                  std::initializer_list<PyObject*> args, Loc where = VXR_CALLER) {
    if (function == own) {
        try {
            return direct();
        } catch (const PyErrorSet& e) {
            add_traceback(qualname, e.where);
            throw PyErrorSet{where};
        }
    }
    PyObject* stack[8];
    if (args.size() > 8) raise(PyExc_SystemError, "vxrcomn: too many arguments", where);
    size_t n = 0;
    for (PyObject* a : args) stack[n++] = a;
    return callv(function, stack, n, where);
}

// The module global `name`, which held the module's own function `own` at
// import.
inline Ref module_function(State& st, PyObject* name, PyObject* own, Loc where = VXR_CALLER) {
    if (globals_as_imported(st)) return Ref::new_ref(own);
    return global(st, name, where);
}

// Calls the module function bound to the global `name` now (see
// call_resolved).  The arguments are evaluated before the look-up; where the
// order matters, look the global up first and use call_resolved.
template <typename Direct>
Ref call_module_function(State& st, PyObject* name, PyObject* own, const char* qualname, Direct&& direct,
                         std::initializer_list<PyObject*> args, Loc where = VXR_CALLER) {
    Ref function = module_function(st, name, own, where);
    return call_resolved(function.get(), own, qualname, std::forward<Direct>(direct), args, where);
}

}  // namespace vxr

// ---------------------------------------------------------------------------
// Function definitions
// ---------------------------------------------------------------------------

// Each module function is defined by one of these; the module binds them in
// the order of functions.def.  IMPL is a function of (State&, arguments...)
// returning a vxr::Ref.
#define VXR_DEF_NOARGS(NAME, IMPL)                                                             \
    static PyObject* NAME##_entry(PyObject* module, PyObject*) noexcept {                      \
        return ::vxr::guard("vxrcomn." #NAME, [&] { return IMPL(::vxr::state_of(module)).release(); }); \
    }                                                                                          \
    PyMethodDef vxr_def_##NAME = {#NAME, NAME##_entry, METH_NOARGS, #NAME "($module, /)\n--\n\n"};

#define VXR_DEF_ONE_ARG(NAME, ARG, IMPL)                                                        \
    static PyObject* NAME##_entry(PyObject* module, PyObject* arg) noexcept {                   \
        return ::vxr::guard("vxrcomn." #NAME, [&] { return IMPL(::vxr::state_of(module), arg).release(); }); \
    }                                                                                           \
    PyMethodDef vxr_def_##NAME = {#NAME, NAME##_entry, METH_O, #NAME "($module, " ARG ", /)\n--\n\n"};

// NAME with N parameters of which REQUIRED are required; KEYWORDS the
// parameter names; SIGNATURE the text signature (with defaults); IMPL is
// called with a PyObject* const* of N borrowed arguments (nullptr where an
// optional one was omitted).
#define VXR_DEF_ARGS(NAME, SIGNATURE, FORMAT, REQUIRED, IMPL, ...) \
    VXR_DEF_ARGS_DOC(NAME, SIGNATURE, "", FORMAT, REQUIRED, IMPL, __VA_ARGS__)

// As VXR_DEF_ARGS, with DOC as the function's docstring after its signature.
#define VXR_DEF_ARGS_DOC(NAME, SIGNATURE, DOC, FORMAT, REQUIRED, IMPL, ...)                      \
    static const char* const NAME##_keywords[] = {__VA_ARGS__, nullptr};                         \
    static const ::vxr::Params NAME##_params = {                                                 \
        #NAME, NAME##_keywords, REQUIRED, static_cast<int>(sizeof(NAME##_keywords) / sizeof(char*)) - 1, \
        FORMAT ":" #NAME};                                                                       \
    static PyObject* NAME##_entry(PyObject* module, PyObject* const* args, Py_ssize_t nargsf,    \
                                  PyObject* kwnames) noexcept {                                  \
        return ::vxr::guard("vxrcomn." #NAME, [&] {                                              \
            PyObject* a[sizeof(NAME##_keywords) / sizeof(char*) - 1];                            \
            ::vxr::parse_args(NAME##_params, args, nargsf, kwnames, a);                          \
            return IMPL(::vxr::state_of(module), a).release();                                   \
        });                                                                                      \
    }                                                                                            \
    PyMethodDef vxr_def_##NAME = {                                                               \
        #NAME, reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)(void)>(NAME##_entry)),    \
        METH_FASTCALL | METH_KEYWORDS, #NAME SIGNATURE "\n--\n\n" DOC};
