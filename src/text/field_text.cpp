// Field text: single values turned into the text the writers put into data
// records.  The quote characters are the module globals _WRAP_PRNT and
// _WRAP_CHAR, read at each use, so a tool may switch them at run time.
#include "text/field_text.hpp"

namespace vxr {
namespace {

// ---------------------------------------------------------------------------
// _convert_float_to_string
// ---------------------------------------------------------------------------

// The "g" text (six significant digits, not the shortest text that reads
// back as the value), with ".0" added when it would otherwise read as an
// integer; texts that stop being numbers with ".0" (inf, nan) stay bare.
Ref convert_float_to_string(State& st, PyObject* inval) {
    Ref ouvstr = format(st, st.n.ft_general, {inval});
    // str.format always gives an exact str.
    Py_ssize_t len = PyUnicode_GET_LENGTH(ouvstr.get());
    if (PyUnicode_FindChar(ouvstr.get(), '.', 0, len, 1) >= 0) return ouvstr;
    if (PyUnicode_FindChar(ouvstr.get(), 'e', 0, len, 1) >= 0) return ouvstr;
    append_text(ouvstr, st.n.ft_point_zero);
    Ref jnk = Ref::steal(PyFloat_FromString(ouvstr.get()));
    if (!jnk) {
        Handling handling;  // a bare except: the text is made again
        ouvstr = format(st, st.n.ft_general, {inval});
    }
    return ouvstr;
}

// ---------------------------------------------------------------------------
// _get_wrapped_string
// ---------------------------------------------------------------------------

Ref get_wrapped_string(State& st, PyObject* instr) {
    Ref widx;
    Ref wrap = global(st, st.n.WRAP_PRNT);
    if (truthy(wrap.get())) {
        wrap = global(st, st.n.WRAP_PRNT);
        if (exact_str(instr) && exact_str(wrap.get())) {
            Py_ssize_t found = PyUnicode_Find(instr, wrap.get(), 0, PyUnicode_GET_LENGTH(instr), 1);
            if (found == -2) fail();
            // Already quoted, or holding the quote somewhere: left as it is.
            if (found >= 0) return Ref::new_ref(instr);
        } else {
            widx = method(instr, st.n.find, wrap.get());
        }
    }
    if (widx) {
        Ref zero = check(PyLong_FromLong(0));
        if (!check_status(PyObject_RichCompareBool(widx.get(), zero.get(), Py_LT))) return Ref::new_ref(instr);
    }
    wrap = global(st, st.n.WRAP_PRNT);
    return wrap_between(st, instr, wrap.get());
}

// ---------------------------------------------------------------------------
// _get_sized_string
// ---------------------------------------------------------------------------

// The text cut or padded to outsiz - sfxsiz characters, the suffixes (as
// text, unquoted) appended, and the whole between _WRAP_CHAR quotes.
Ref get_sized_string(State& st, PyObject* const* a) {
    PyObject* outsiz_arg = a[1];
    Ref zero = check(PyLong_FromLong(0));
    PyObject* sfxsiz = a[2] != nullptr ? a[2] : zero.get();
    PyObject* sfxlist = a[3] != nullptr ? a[3] : st.default_sfxlist;

    Ref instr = call_get_unwrapped_string(st, a[0]);
    Ref outsiz = check(PyNumber_Subtract(outsiz_arg, sfxsiz));
    Ref cut = check(PySlice_New(nullptr, outsiz.get(), nullptr));
    instr = getitem(instr.get(), cut.get());
    Ref tmpstr = format(st, st.n.ft_left_padded, {instr.get(), outsiz.get()});

    Ref it = iter(sfxlist);
    while (Ref each = next(it.get())) {
        if (Py_TYPE(each.get()) != &PyUnicode_Type) each = str(each.get());
        each = call_get_unwrapped_string(st, each.get());
        append_text(tmpstr, each.get());
    }
    Ref wrap = global(st, st.n.WRAP_CHAR);
    return wrap_between(st, tmpstr.get(), wrap.get());
}

}  // namespace

// ---------------------------------------------------------------------------
// _get_unwrapped_string
// ---------------------------------------------------------------------------

// Every _WRAP_PRNT quote removed, wherever it stands; None gives "".
Ref get_unwrapped_string(State& st, PyObject* instr) {
    if (instr == Py_None) return Ref::new_ref(st.n.empty);
    if (exact_str(instr)) {
        // str.replace is always there: only the global can fail.
        Ref wrap = global(st, st.n.WRAP_PRNT);
        if (exact_str(wrap.get())) return check(PyUnicode_Replace(instr, wrap.get(), st.n.empty, -1));
        return method(instr, st.n.replace, wrap.get(), st.n.empty);
    }
    // instr.replace is looked up before the global is read.
    Ref replace = getattr(instr, st.n.replace);
    Ref wrap = global(st, st.n.WRAP_PRNT);
    PyObject* args[2] = {wrap.get(), st.n.empty};
    return callv(replace.get(), args, 2);
}

}  // namespace vxr

VXR_DEF_ONE_ARG(_convert_float_to_string, "inval", vxr::convert_float_to_string)
VXR_DEF_ONE_ARG(_get_wrapped_string, "instr", vxr::get_wrapped_string)
VXR_DEF_ONE_ARG(_get_unwrapped_string, "instr", vxr::get_unwrapped_string)
VXR_DEF_ARGS(_get_sized_string, "($module, /, instr, outsiz, sfxsiz=0, sfxlist=[])", "OO|OO", 2,
             vxr::get_sized_string, "instr", "outsiz", "sfxsiz", "sfxlist")
