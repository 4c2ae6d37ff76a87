// Module creation and the import-time work: the module object is made from
// the import spec, then its body binds the standard modules, the constants,
// the 35 functions and _SimpleObject in a fixed order that tools can see in
// the module dictionary.
#include "vxr.hpp"

#include <cstdint>
#include <cstring>

#define VXR_FUNCTION(position, name) extern PyMethodDef vxr_def_##name;
#include "functions.def"
#undef VXR_FUNCTION

namespace vxr {
namespace {

const char module_doc[] = "\nCommon Functions used in VXR\n";

// The module may be initialised once per process, in one interpreter.  A
// module object tells whether its own body has run from its state (see
// exec); no module's address is kept, since a freed module's address can
// come back as another module.
bool g_initialised = false;
int64_t g_interpreter_id = -1;

PyMethodDef* const g_functions[] = {
#define VXR_FUNCTION(position, name) &vxr_def_##name,
#include "functions.def"
#undef VXR_FUNCTION
};
static_assert(sizeof(g_functions) / sizeof(g_functions[0]) == 35, "the module has 35 functions");


// ---------------------------------------------------------------------------
// Creation
// ---------------------------------------------------------------------------

int check_single_interpreter() noexcept {
    int64_t id = PyInterpreterState_GetID(PyInterpreterState_Get());
    if (id == -1) return -1;
    if (g_interpreter_id == -1) {
        g_interpreter_id = id;
        return 0;
    }
    if (g_interpreter_id != id) {
        PyErr_SetString(PyExc_ImportError,
                        "Interpreter change detected - this module can only be loaded into one interpreter per "
                        "process.");
        return -1;
    }
    return 0;
}

// dict[to] = spec.<from>; an absent attribute is skipped, and so is None
// unless allow_none.
void copy_spec_attr(PyObject* spec, PyObject* dict, const char* from, const char* to, bool allow_none) {
    PyObject* value = PyObject_GetAttrString(spec, from);
    if (value == nullptr) {
        if (!PyErr_ExceptionMatches(PyExc_AttributeError)) fail(VXR_HERE);
        PyErr_Clear();
        return;
    }
    Ref owned = Ref::steal(value);
    if (allow_none || value != Py_None) check_status(PyDict_SetItemString(dict, to, value), VXR_HERE);
}

PyObject* create(PyObject* spec, PyModuleDef*) noexcept {
    if (check_single_interpreter() < 0) return nullptr;
    try {
        Ref name = check(PyObject_GetAttrString(spec, "name"), VXR_HERE);
        Ref module = check(PyModule_NewObject(name.get()), VXR_HERE);
        PyObject* dict = PyModule_GetDict(module.get());
        copy_spec_attr(spec, dict, "loader", "__loader__", true);
        copy_spec_attr(spec, dict, "origin", "__file__", true);
        copy_spec_attr(spec, dict, "parent", "__package__", true);
        copy_spec_attr(spec, dict, "submodule_search_locations", "__path__", false);
        return module.release();
    } catch (const PyErrorSet&) {
    } catch (...) {
        set_memory_error();
    }
    return nullptr;
}

// ---------------------------------------------------------------------------
// Execution: the module body
// ---------------------------------------------------------------------------

// Warns (the default warning category) when the running interpreter is not
// the one the module was compiled for; compares major and first minor digit.
void check_binary_version() {
    char compiled[4], running[4];
    PyOS_snprintf(compiled, sizeof compiled, "%d.%d", PY_MAJOR_VERSION, PY_MINOR_VERSION);
    PyOS_snprintf(running, sizeof running, "%s", Py_GetVersion());
    if (compiled[0] != running[0] || compiled[2] != running[2]) {
        char message[200];
        PyOS_snprintf(message, sizeof message, "compiletime version %s of module '%.100s' does not match runtime version %s",
                      compiled, "vxrcomn", running);
        check_status(PyErr_WarnEx(nullptr, message, 1), VXR_HERE);
    }
}

void intern_names(Names& n) {
#define VXR_NAME(id, text) n.id = check(PyUnicode_InternFromString(text), VXR_HERE).release();
#include "names.def"
#undef VXR_NAME
}

// The built-in names the functions use, looked up once; a missing one fails
// the import with NameError.
void cache_builtins(State& st) {
    st.b_object = global(st, st.n.b_object, VXR_HERE).release();
    st.b_print = global(st, st.n.b_print, VXR_HERE).release();
    st.b_max = global(st, st.n.b_max, VXR_HERE).release();
    st.b_open = global(st, st.n.b_open, VXR_HERE).release();
    st.b_zip = global(st, st.n.b_zip, VXR_HERE).release();
    st.b_enumerate = global(st, st.n.b_enumerate, VXR_HERE).release();
    st.b_range = global(st, st.n.b_range, VXR_HERE).release();
    st.b_sum = global(st, st.n.b_sum, VXR_HERE).release();
}

void bind(State& st, PyObject* name, PyObject* value) { check_status(PyDict_SetItem(st.module_dict, name, value), VXR_HERE); }

// import <name> [as <as_name>]
void import_module(State& st, PyObject* name, PyObject* as_name) {
    Ref locals = check(PyDict_New(), VXR_HERE);
    Ref module = check(PyImport_ImportModuleLevelObject(name, st.module_dict, locals.get(), nullptr, 0), VXR_HERE);
    bind(st, as_name, module.get());
}

// The objects that the fast paths stand in for, as the imports gave them.
void record_standard_objects(State& st) {
    st.std_re = global(st, st.n.re, VXR_HERE).release();
    st.std_re_compile = getattr(st.std_re, st.n.compile, VXR_HERE).release();
    st.std_shlex = global(st, st.n.shlex, VXR_HERE).release();
    st.std_shlex_class = getattr(st.std_shlex, st.n.shlex, VXR_HERE).release();
    st.std_shlex_split = getattr(st.std_shlex, st.n.split, VXR_HERE).release();
    st.std_collections = global(st, st.n.collections, VXR_HERE).release();
    st.std_ordered_dict = getattr(st.std_collections, st.n.OrderedDict, VXR_HERE).release();
    if (PyType_Check(st.std_shlex_class)) {
        // A class attribute look-up gives the class a valid version tag.
        auto* cls = reinterpret_cast<PyTypeObject*>(st.std_shlex_class);
        Ref attr = check(PyObject_GetAttr(st.std_shlex_class, st.n.read_token), VXR_HERE);
        if (cls->tp_dict != nullptr) {
            st.shlex_class_attrs = check(PyDict_Copy(cls->tp_dict), VXR_HERE).release();
            st.shlex_class_version = vxr_type_version_tag(cls);
        }
    }
}

Ref new_int(long v) { return check(PyLong_FromLong(v), VXR_HERE); }

Ref int_list(std::initializer_list<long> values) {
    Ref list = new_list(0, VXR_HERE);
    for (long v : values) append(list.get(), new_int(v).get(), VXR_HERE);
    return list;
}

void bind_constants(State& st) {
    Names& n = st.n;
    bind(st, n.PRG_INDENT, n.indent5);
    bind(st, n.PRG_INDENT2, n.indent9);
    bind(st, n.PRG_LINLEN, new_int(100).get());
    bind(st, n.LEN_BUSNUM, new_int(6).get());

    // The latest versions are read back from the lists as bound.
    bind(st, n.ALLOWED_KORA_VRSNS, int_list({34, 33, 32}).get());
    bind(st, n.LATEST_KORA_VRSN, getindex(global(st, n.ALLOWED_KORA_VRSNS, VXR_HERE).get(), 0, VXR_HERE).get());
    bind(st, n.ALLOWED_PSLF_VRSNS, int_list({21, 19, 18}).get());
    bind(st, n.LATEST_PSLF_VRSN, getindex(global(st, n.ALLOWED_PSLF_VRSNS, VXR_HERE).get(), 0, VXR_HERE).get());

    bind(st, n.WRAP_DBLQ, n.dblq);
    bind(st, n.WRAP_SGLQ, n.sglq);
    bind(st, n.WRAP_NO, n.empty);
    bind(st, n.WRAP_CHAR, global(st, n.WRAP_SGLQ, VXR_HERE).get());
    Ref wrap_char = global(st, n.WRAP_CHAR, VXR_HERE);
    if (truthy(wrap_char.get(), VXR_HERE)) {
        bind(st, n.WRAP_PRNT, wrap_char.get());
    } else {
        bind(st, n.WRAP_PRNT, global(st, n.WRAP_SGLQ, VXR_HERE).get());
    }

    bind(st, n.BELONGSTO, n.belongs_to);
    bind(st, n.BELONG2KORA, new_int(2).get());
    bind(st, n.BELONG2PSLF, new_int(1).get());
    bind(st, n.BELONG2BOTH, new_int(0).get());

    // _PY_VRSN = sys.version_info[0] * 10 + sys.version_info[1]
    Ref version_info = getattr(global(st, n.sys, VXR_HERE).get(), n.version_info, VXR_HERE);
    Ref major = getindex(version_info.get(), 0, VXR_HERE);
    Ref minor = getindex(version_info.get(), 1, VXR_HERE);
    Ref tens = check(PyNumber_Multiply(major.get(), new_int(10).get()), VXR_HERE);
    bind(st, n.PY_VRSN, check(PyNumber_Add(tens.get(), minor.get()), VXR_HERE).get());

    Ref py_vrsn = global(st, n.PY_VRSN, VXR_HERE);
    if (check_status(PyObject_RichCompareBool(py_vrsn.get(), new_int(30).get(), Py_GE), VXR_HERE)) {
        import_module(st, n.winreg, n.winreg);
    } else {
        import_module(st, n.winreg_py2, n.winreg);
    }
}

// os.getcwd(), through the module global.
Ref current_directory(State& st) {
    Ref os = global(st, st.n.os, VXR_HERE);
    return method(os.get(), st.n.getcwd, VXR_HERE);
}

// A text signature holding the repr of an import-time default, so that
// inspect.signature shows the default the function really has.  Its text is
// kept for the rest of the process (and not freed at exit): a function
// object, which reads it, can outlive the module and static destructors.
const char* signature_with_default(const char* head, PyObject* value, const char* tail) {
    Ref whole = check(PyUnicode_FromFormat("%s%R%s", head, value, tail), VXR_HERE);
    Py_ssize_t size;
    const char* text = PyUnicode_AsUTF8AndSize(whole.get(), &size);
    if (text == nullptr) fail(VXR_HERE);
    char* kept = new char[static_cast<size_t>(size) + 1];
    std::memcpy(kept, text, static_cast<size_t>(size) + 1);
    return kept;
}

void prepare_default(State& st, int position) {
    if (position == 2) {
        st.default_path = current_directory(st).release();
        vxr_def__get_file_name.ml_doc = signature_with_default(
            "_get_file_name($module, /, basfnam, prefix='', suffix='', extn='.txt', path=", st.default_path,
            ")\n--\n\n");
    } else if (position == 4) {
        st.default_workdir = current_directory(st).release();
        vxr_def__get_unique_tmp_file_name.ml_doc = signature_with_default(
            "_get_unique_tmp_file_name($module, /, basfnam, extn, workdir=", st.default_workdir, ")\n--\n\n");
    } else if (position == 14) {
        st.default_sfxlist = new_list(0, VXR_HERE).release();
    }
}

void remember_function(State& st, PyMethodDef* def, PyObject* function) {
    PyObject** slot = nullptr;
    if (def == &vxr_def__split_textline_kora) slot = &st.fn_split_textline_kora;
    else if (def == &vxr_def__split_txtline_to_values_kora_no_check_vlist) slot = &st.fn_no_check_vlist;
    else if (def == &vxr_def__epc_assign_data_values_common) slot = &st.fn_epc_assign_common;
    else if (def == &vxr_def__get_unwrapped_string) slot = &st.fn_get_unwrapped_string;
    else if (def == &vxr_def__file_PNX) slot = &st.fn_file_pnx;
    else if (def == &vxr_def__print_dict) slot = &st.fn_print_dict;
    if (slot != nullptr) {
        Py_INCREF(function);
        *slot = function;
    }
}

void define_functions(State& st, PyObject* module, int first, int last) {
    for (int position = first; position <= last; ++position) {
        prepare_default(st, position);
        PyMethodDef* def = g_functions[position - 1];
        Ref function = check(PyCFunction_NewEx(def, module, st.n.module_name), VXR_HERE);
        Ref name = check(PyUnicode_InternFromString(def->ml_name), VXR_HERE);
        bind(st, name.get(), function.get());
        remember_function(st, def, function.get());
    }
}

// class _SimpleObject(object): made as a class statement makes it, through
// the metaclass of its base and the namespace that metaclass prepares.
void define_simple_object(State& st) {
    Names& n = st.n;
    PyObject* metaclass = reinterpret_cast<PyObject*>(Py_TYPE(st.b_object));
    Ref bases = tuple_of({st.b_object}, VXR_HERE);
    Ref prepare = getattr(metaclass, n.dunder_prepare, VXR_HERE);
    PyObject* prepare_args[2] = {n.SimpleObject, bases.get()};
    Ref ns = callv(prepare.get(), prepare_args, 2, VXR_HERE);
    setitem(ns.get(), n.dunder_module, n.module_name, VXR_HERE);
    setitem(ns.get(), n.dunder_qualname, n.SimpleObject, VXR_HERE);
    setitem(ns.get(), n.dunder_doc, n.simple_object_doc, VXR_HERE);
    PyObject* class_args[3] = {n.SimpleObject, bases.get(), ns.get()};
    Ref cls = callv(metaclass, class_args, 3, VXR_HERE);
    bind(st, n.SimpleObject, cls.get());
}

// The names that the fast paths rely on, in the dictionaries that hold them
// (see globals_as_imported); with no watcher to spare, every call looks its
// globals up.
void watch_globals(State& st) {
    PyObject* dicts[4] = {st.module_dict};
    int count = 1;
    for (PyObject* module : {st.std_re, st.std_shlex, st.std_collections}) {
        if (!PyModule_Check(module)) return;
        dicts[count++] = PyModule_GetDict(module);
    }
    Names& n = st.n;
    const WatchedName names[] = {
        {0, n.re, st.std_re},
        {0, n.shlex, st.std_shlex},
        {0, n.collections, st.std_collections},
        {0, n.fn_split_textline_kora, st.fn_split_textline_kora},
        {0, n.fn_no_check_vlist, st.fn_no_check_vlist},
        {0, n.fn_epc_assign_common, st.fn_epc_assign_common},
        {0, n.fn_get_unwrapped_string, st.fn_get_unwrapped_string},
        {0, n.fn_file_pnx, st.fn_file_pnx},
        {0, n.fn_print_dict, st.fn_print_dict},
        {1, n.compile, st.std_re_compile},
        {2, n.shlex, st.std_shlex_class},
        {2, n.split, st.std_shlex_split},
        {3, n.OrderedDict, st.std_ordered_dict},
    };
    st.globals_watch.start(dicts, count, names, static_cast<int>(sizeof names / sizeof names[0]));
}

void run_module_body(PyObject* module, State* st) {
    st->module_dict = PyModule_GetDict(module);

    check_binary_version();

    st->builtins = PyImport_AddModule("builtins");
    if (st->builtins == nullptr) fail(VXR_HERE);
    Py_INCREF(st->builtins);
    st->builtins_dict = PyModule_GetDict(st->builtins);
    Py_INCREF(st->builtins_dict);
    intern_names(st->n);
    bind(*st, st->n.dunder_builtins, st->builtins);
    cache_builtins(*st);

    for (PyObject* name : {st->n.sys, st->n.os, st->n.collections, st->n.string, st->n.math, st->n.time,
                           st->n.tempfile, st->n.shlex, st->n.re}) {
        import_module(*st, name, name);
    }
    record_standard_objects(*st);

    bind_constants(*st);
    define_functions(*st, module, 1, 20);
    define_simple_object(*st);
    define_functions(*st, module, 21, 35);
    bind(*st, st->n.dunder_test, new_dict(VXR_HERE).get());
    watch_globals(*st);
    st->ready = true;
}

int clear(PyObject* module);

int exec(PyObject* module) noexcept {
    auto* st = static_cast<State*>(PyModule_GetState(module));
    if (st == nullptr) {
        if (!PyErr_Occurred()) PyErr_SetString(PyExc_SystemError, "vxrcomn: module state missing");
        return -1;
    }
    // The state of a new module object starts zeroed: only the module whose
    // body ran (or is running) has `executed` set.
    if (st->executed) return 0;
    if (g_initialised) {
        PyErr_SetString(PyExc_RuntimeError,
                        "Module 'vxrcomn' has already been imported. Re-initialisation is not supported.");
        return -1;
    }
    g_initialised = true;
    st->executed = true;
    Loc where = VXR_HERE;
    try {
        run_module_body(module, st);
        return 0;
    } catch (const PyErrorSet& e) {
        where = e.where;
    } catch (...) {
        set_memory_error();
    }
    if (PyErr_Occurred()) {
        add_traceback("init vxrcomn", where);
    } else {
        PyErr_SetString(PyExc_ImportError, "init vxrcomn");
    }
    // A failed import leaves nothing behind, so a later one may try again.
    clear(module);
    g_initialised = false;
    st->executed = false;
    return -1;
}

// ---------------------------------------------------------------------------
// State lifetime
// ---------------------------------------------------------------------------

int traverse(PyObject* module, visitproc visit, void* arg) {
    auto* st = static_cast<State*>(PyModule_GetState(module));
    if (st == nullptr) return 0;
#define VXR_NAME(id, text) Py_VISIT(st->n.id);
#include "names.def"
#undef VXR_NAME
#define VXR_VISIT_FIELD(field) Py_VISIT(st->field);
    VXR_STATE_OBJECTS(VXR_VISIT_FIELD)
#undef VXR_VISIT_FIELD
    return st->globals_watch.traverse(visit, arg);
}

int clear(PyObject* module) {
    auto* st = static_cast<State*>(PyModule_GetState(module));
    if (st == nullptr) return 0;
    st->ready = false;
    st->globals_watch.stop();
#define VXR_NAME(id, text) Py_CLEAR(st->n.id);
#include "names.def"
#undef VXR_NAME
#define VXR_CLEAR_FIELD(field) Py_CLEAR(st->field);
    VXR_STATE_OBJECTS(VXR_CLEAR_FIELD)
#undef VXR_CLEAR_FIELD
    return 0;
}

void free_module(void* module) { clear(static_cast<PyObject*>(module)); }

PyModuleDef_Slot g_slots[] = {
    {Py_mod_create, reinterpret_cast<void*>(&create)},
    {Py_mod_exec, reinterpret_cast<void*>(&exec)},
    {0, nullptr},
};

PyModuleDef g_module_def = {
    PyModuleDef_HEAD_INIT,
    "vxrcomn",
    module_doc,
    sizeof(State),
    nullptr,
    g_slots,
    traverse,
    clear,
    free_module,
};

}  // namespace
}  // namespace vxr

PyMODINIT_FUNC PyInit_vxrcomn(void) { return PyModuleDef_Init(&vxr::g_module_def); }
