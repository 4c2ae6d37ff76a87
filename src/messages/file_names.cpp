// File names and time stamps.  Path rules are those of the interpreter's
// os.path, and the clock is its time module, both looked up at each call.
#include "vxr.hpp"

namespace vxr {
namespace {

// os.path.<name>, through the module global os.
Ref os_path_function(State& st, PyObject* name) {
    Ref os = global(st, st.n.os);
    Ref path = getattr(os.get(), st.n.msg_path);
    return getattr(path.get(), name);
}

// time.strftime(form, time.localtime())
Ref local_time_text(State& st, PyObject* form) {
    Ref strftime = getattr(global(st, st.n.time).get(), st.n.msg_strftime);
    Ref localtime = getattr(global(st, st.n.time).get(), st.n.msg_localtime);
    Ref now = call0(localtime.get());
    PyObject* args[2] = {form, now.get()};
    return callv(strftime.get(), args, 2);
}

Ref file_pnx(State& st, PyObject* basfnam) {
    Ref split = os_path_function(st, st.n.split);
    Ref p_nx[2];
    unpack(call1(split.get(), basfnam).get(), p_nx, 2);
    Ref splitext = os_path_function(st, st.n.msg_splitext);
    Ref n_x[2];
    unpack(call1(splitext.get(), p_nx[1].get()).get(), n_x, 2);
    Ref xlw = method(n_x[1].get(), st.n.lower);
    return tuple_of({p_nx[0].get(), p_nx[1].get(), n_x[0].get(), n_x[1].get(), xlw.get()});
}

// (p, nx, n, x, xlw) = _file_PNX(basfnam), through the module global.
void call_file_pnx(State& st, PyObject* basfnam, Ref (&parts)[5]) {
    Ref result = call_module_function(
        st, st.n.fn_file_pnx, st.fn_file_pnx, "vxrcomn._file_PNX", [&] { return file_pnx(st, basfnam); },
        {basfnam});
    unpack(result.get(), parts, 5);
}

// An extension without a leading dot is doubled, dot between: raw becomes
// raw.raw.  The tools pass extensions with their dot; this is kept as the
// tools have always seen it.
void double_undotted(State& st, Ref& extn) {
    Ref first = getindex(extn.get(), 0);
    if (check_status(PyObject_RichCompareBool(first.get(), st.n.ft_dot, Py_NE))) {
        Ref dotted = add(st.n.ft_dot, extn.get());
        add_to(extn, dotted.get());
    }
}

Ref get_file_name(State& st, PyObject* const* a) {
    PyObject* prefix = a[1] != nullptr ? a[1] : st.n.empty;
    PyObject* suffix = a[2] != nullptr ? a[2] : st.n.empty;
    PyObject* extn_arg = a[3] != nullptr ? a[3] : st.n.msg_default_extn;
    PyObject* path = a[4] != nullptr ? a[4] : st.default_path;

    Ref parts[5];
    call_file_pnx(st, a[0], parts);
    Ref n = std::move(parts[2]);  // only the bare name is kept
    Ref extn = method(extn_arg, st.n.strip);
    double_undotted(st, extn);
    if (truthy(prefix)) n = add(prefix, n.get());
    if (truthy(suffix)) n = add(n.get(), suffix);
    Ref join = os_path_function(st, st.n.join);
    Ref name = add(n.get(), extn.get());
    PyObject* args[2] = {path, name.get()};
    return callv(join.get(), args, 2);
}

Ref validate_file_extension(State& st, PyObject* const* a) {
    PyObject* basfnam = a[0];
    Ref parts[5];
    call_file_pnx(st, basfnam, parts);
    Ref extn = method(method(a[1], st.n.strip).get(), st.n.lower);
    double_undotted(st, extn);
    if (equals(parts[4].get(), extn.get())) return Ref::new_ref(basfnam);
    Ref join = os_path_function(st, st.n.join);
    Ref name = add(parts[2].get(), extn.get());
    PyObject* args[2] = {parts[0].get(), name.get()};
    return callv(join.get(), args, 2);
}

// A name in workdir that is free at the moment of the test.  When the plain
// name is taken, mkstemp finds a free one; its file is removed at once, so
// only the name is handed out.
Ref get_unique_tmp_file_name(State& st, PyObject* const* a) {
    PyObject* workdir = a[2] != nullptr ? a[2] : st.default_workdir;

    Ref parts[5];
    call_file_pnx(st, a[0], parts);
    Ref nam = std::move(parts[2]);
    for (PyObject* nochar : {st.n.msg_nochar_backslash, st.n.msg_nochar_slash, st.n.msg_nochar_colon,
                             st.n.msg_nochar_question, st.n.dblq, st.n.msg_nochar_less, st.n.msg_nochar_greater,
                             st.n.msg_nochar_bar}) {
        if (check_status(PySequence_Contains(nam.get(), nochar))) {
            nam = method(nam.get(), st.n.replace, nochar, st.n.msg_underscore);
        }
    }
    Ref extn = Ref::new_ref(a[1]);
    if (truthy(extn.get())) {
        Ref first = getindex(extn.get(), 0);
        if (check_status(PyObject_RichCompareBool(first.get(), st.n.ft_dot, Py_NE))) extn = add(st.n.ft_dot, extn.get());
    }
    Ref str_time = local_time_text(st, st.n.msg_tmp_time);
    Ref tmpfnam = add(add(nam.get(), str_time.get()).get(), extn.get());
    Ref join = os_path_function(st, st.n.join);
    PyObject* join_args[2] = {workdir, tmpfnam.get()};
    Ref tmpfnam1 = callv(join.get(), join_args, 2);

    Ref exists = os_path_function(st, st.n.msg_exists);
    if (truthy(call1(exists.get(), tmpfnam1.get()).get())) {
        Ref mkstemp = getattr(global(st, st.n.tempfile).get(), st.n.msg_mkstemp);
        Ref kwnames = tuple_of({st.n.msg_prefix, st.n.msg_suffix, st.n.msg_dir, st.n.msg_text});
        PyObject* kwargs[4] = {tmpfnam.get(), extn.get(), workdir, Py_True};
        Ref made = check(PyObject_Vectorcall(mkstemp.get(), kwargs, 0, kwnames.get()));
        Ref fd_name[2];
        unpack(made.get(), fd_name, 2);
        tmpfnam1 = std::move(fd_name[1]);
        call1(getattr(global(st, st.n.os).get(), st.n.close).get(), fd_name[0].get());
        call1(getattr(global(st, st.n.os).get(), st.n.msg_remove).get(), tmpfnam1.get());
    }
    return tmpfnam1;
}

// Month-day-year and the 12-hour time with the locale's AM/PM, and a blank
// after it that the tools write their message against.
Ref get_time_stamp(State& st) { return local_time_text(st, st.n.msg_time_stamp); }

}  // namespace
}  // namespace vxr

// The defaults of path and workdir are the folders current at import; the
// module fills them into these signatures when it defines the functions.
VXR_DEF_ONE_ARG(_file_PNX, "basfnam", vxr::file_pnx)
VXR_DEF_ARGS(_get_file_name, "($module, /, basfnam, prefix='', suffix='', extn='.txt', path=None)", "O|OOOO", 1,
             vxr::get_file_name, "basfnam", "prefix", "suffix", "extn", "path")
VXR_DEF_ARGS(_validate_file_extension, "($module, /, basfnam, extn)", "OO", 2, vxr::validate_file_extension,
             "basfnam", "extn")
VXR_DEF_ARGS(_get_unique_tmp_file_name, "($module, /, basfnam, extn, workdir=None)", "OO|O", 2,
             vxr::get_unique_tmp_file_name, "basfnam", "extn", "workdir")
VXR_DEF_NOARGS(_get_time_stamp, vxr::get_time_stamp)
