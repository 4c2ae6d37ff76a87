// The KORA version a tool asked for, brought to a supported one.  Integers
// are taken as they are, floats truncated, and only dotted strings read as
// numbers; anything else falls back to the newest version with a notice.
#include "vxr.hpp"

namespace vxr {
namespace {

// ",".join([str(each) for each in _ALLOWED_KORA_VRSNS])
Ref allowed_versions_text(State& st) {
    Ref texts = new_list();
    Ref it = iter(global(st, st.n.ALLOWED_KORA_VRSNS).get());
    while (Ref each = next(it.get())) append(texts.get(), str(each.get()).get());
    return check(PyUnicode_Join(st.n.comma, texts.get()));
}

Ref check_kora_version(State& st, PyObject* kora_vrsn_arg) {
    Ref prgmsg = Ref::new_ref(st.n.empty);
    Ref kora_vrsn = Ref::new_ref(kora_vrsn_arg);

    // By exact type: a bool is not an int here, and a str subclass stays
    // unconverted.
    PyTypeObject* type = Py_TYPE(kora_vrsn_arg);
    if (type == &PyFloat_Type) {
        kora_vrsn = to_int(kora_vrsn_arg);
    } else if (type == &PyUnicode_Type && check_status(PyUnicode_Contains(kora_vrsn_arg, st.n.ft_dot))) {
        // "33" has no dot and is left a string, so it fails the test below
        // with the not-allowed notice; "33.0" reads as 33.
        Ref tlst = check(PyUnicode_Split(kora_vrsn_arg, st.n.ft_dot, -1));
        Ref first = getindex(tlst.get(), 0);
        Ref number = Ref::steal(PyNumber_Long(first.get()));
        if (number) {
            kora_vrsn = std::move(number);
        } else {
            Handling handling;  // a bare except: unknown version text
            prgmsg = format(st, st.n.ver_unknown,
                            {global(st, st.n.PRG_INDENT).get(), kora_vrsn_arg,
                             global(st, st.n.LATEST_KORA_VRSN).get()});
            kora_vrsn = global(st, st.n.LATEST_KORA_VRSN);
        }
    }

    Ref allowed = global(st, st.n.ALLOWED_KORA_VRSNS);
    if (!check_status(PySequence_Contains(allowed.get(), kora_vrsn.get()))) {
        Ref vstr = allowed_versions_text(st);
        prgmsg = format(st, st.n.ver_not_allowed,
                        {global(st, st.n.PRG_INDENT).get(), kora_vrsn.get(), vstr.get(),
                         global(st, st.n.LATEST_KORA_VRSN).get()});
        kora_vrsn = global(st, st.n.LATEST_KORA_VRSN);
    }
    if (truthy(prgmsg.get())) call1(st.b_print, prgmsg.get());
    return kora_vrsn;
}

}  // namespace
}  // namespace vxr

VXR_DEF_ONE_ARG(_check_kora_version, "kora_vrsn", vxr::check_kora_version)
