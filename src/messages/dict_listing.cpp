// Dictionary listings: a title and one aligned "key : value" line per item,
// built whole and emitted in one call, to a progress callable, the console
// or a new file.
#include "vxr.hpp"

namespace vxr {
namespace {

// The key text padded with blanks to the longest key's width: one blank
// formatted into the missing width.
Ref padded_key(State& st, PyObject* kstr, PyObject* maxlen) {
    Ref klen = check(PyLong_FromSsize_t(length(kstr)));
    Ref again = check(PyLong_FromSsize_t(length(kstr)));
    if (equals(maxlen, again.get())) return format(st, st.n.msg_field0, {kstr});
    Ref width = check(PyNumber_Subtract(maxlen, klen.get()));
    return format(st, st.n.msg_padded_key, {kstr, st.n.blank, width.get()});
}

Ref print_dict_impl(State& st, PyObject* prgmsg_arg, PyObject* dictnam, PyObject* progress) {
    Ref prgmsg = add(global(st, st.n.PRG_INDENT).get(), prgmsg_arg);
    if (!truthy(dictnam)) {
        append_text(prgmsg, st.n.msg_dict_empty);
    } else {
        Ref keys = check(PySequence_List(method(dictnam, st.n.keys).get()));
        Ref keylens = new_list();
        for (Py_ssize_t i = 0; i < PyList_GET_SIZE(keys.get()); ++i) {
            Ref k = Ref::new_ref(PyList_GET_ITEM(keys.get(), i));
            Ref kstr = str(k.get());
            Ref klen = check(PyLong_FromSsize_t(length(kstr.get())));
            append(keylens.get(), klen.get());
        }
        Ref maxlen = call1(st.b_max, keylens.get());

        Ref txt = Ref::new_ref(st.n.empty);
        ItemsSnapshot items(st, dictnam);
        Ref k, v;
        while (items.next(k, v)) {
            Ref kstr = padded_key(st, str(k.get()).get(), maxlen.get());
            Ref indent = global(st, st.n.PRG_INDENT);
            Ref line = format(st, st.n.msg_dict_line, {indent.get(), kstr.get(), str(v.get()).get()});
            append_text(txt, line.get());
        }
        if (truthy(txt.get())) append_text(prgmsg, add(st.n.newline, txt.get()).get());
    }
    if (truthy(progress)) {
        call1(progress, prgmsg.get());
    } else {
        call1(st.b_print, prgmsg.get());
    }
    return Ref::new_ref(Py_None);
}

Ref print_dict(State& st, PyObject* const* a) {
    return print_dict_impl(st, a[0], a[1], a[2] != nullptr ? a[2] : Py_None);
}

// The listing of _print_dict, written by one write() into a new file.  An
// error while listing leaves closing to the file object's release.
Ref print_dict_to_file(State& st, PyObject* const* a) {
    PyObject* open_args[2] = {a[2], st.n.msg_mode_write};
    Ref fobj = callv(st.b_open, open_args, 2);
    Ref progress = getattr(fobj.get(), st.n.write);
    call_module_function(
        st, st.n.fn_print_dict, st.fn_print_dict, "vxrcomn._print_dict",
        [&] { return print_dict_impl(st, a[0], a[1], progress.get()); }, {a[0], a[1], progress.get()});
    method(fobj.get(), st.n.close);
    return Ref::new_ref(Py_None);
}

}  // namespace
}  // namespace vxr

VXR_DEF_ARGS(_print_dict, "($module, /, prgmsg, dictnam, progress=None)", "OO|O", 2, vxr::print_dict, "prgmsg",
             "dictnam", "progress")
VXR_DEF_ARGS(_print_dict_to_file, "($module, /, prgmsg, dictnam, filename)", "OOO", 3, vxr::print_dict_to_file,
             "prgmsg", "dictnam", "filename")
