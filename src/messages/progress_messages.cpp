// Progress text: laid-out item lists under a heading, record-group headings
// and record counts.  The text goes to the caller's progress callable, or to
// the built-in print where the function allows none.
#include "text/field_text.hpp"

#include <vector>

namespace vxr {
namespace {

// The text form of each item turned into a tuple, exact strings unwrapped
// first.  An item's values wait where the collector cannot reach them: up to
// 3.11 the tuple's allocation may run a finalizer, which could empty a list
// of them found through gc while its items were being copied.
Ref tuple_texts(State& st, PyObject* inlist) {
    Ref texts = new_list();
    Ref items = iter(inlist);
    std::vector<Ref> values;
    while (Ref each = next(items.get())) {
        values.clear();
        Ref it = iter(each.get());
        while (Ref v = next(it.get())) {
            if (Py_TYPE(v.get()) == &PyUnicode_Type) v = call_get_unwrapped_string(st, v.get());
            values.push_back(std::move(v));
        }
        Ref tuple = check(PyTuple_New(static_cast<Py_ssize_t>(values.size())));
        for (size_t i = 0; i < values.size(); ++i) {
            PyTuple_SET_ITEM(tuple.get(), static_cast<Py_ssize_t>(i), values[i].release());
        }
        append(texts.get(), str(tuple.get()).get());
    }
    return texts;
}

// max([len(x) for x in texts]) through the built-in max, so an empty list
// fails as max fails.
Ref longest(State& st, PyObject* texts) {
    Ref lengths = new_list();
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(texts); ++i) {
        Ref n = check(PyLong_FromSsize_t(length(PyList_GET_ITEM(texts, i))));
        append(lengths.get(), n.get());
    }
    return call1(st.b_max, lengths.get());
}

void emit(State& st, PyObject* progress, PyObject* text) {
    if (truthy(progress)) {
        call1(progress, text);
    } else {
        call1(st.b_print, text);
    }
}

Ref progress_message_format_print(State& st, PyObject* const* a) {
    PyObject* inlist = a[1];
    PyObject* vtyp = a[2];
    PyObject* prgfull = a[3] != nullptr ? a[3] : Py_True;
    PyObject* fmtsz = a[4] != nullptr ? a[4] : Py_None;
    PyObject* progress = a[5] != nullptr ? a[5] : Py_None;

    Ref prgmsg = add(global(st, st.n.PRG_INDENT).get(), a[0]);
    if (!truthy(prgfull)) {
        emit(st, progress, prgmsg.get());
        return Ref::new_ref(Py_None);
    }

    Ref items = Ref::new_ref(inlist);
    Ref uselen = Ref::new_ref(Py_None);
    if (equals(vtyp, st.n.msg_tuple)) {
        items = tuple_texts(st, inlist);
        uselen = longest(st, items.get());
    }

    Ref txline = global(st, st.n.PRG_INDENT2);
    Ref it = iter(items.get());
    while (Ref each = next(it.get())) {
        Ref tx;
        if (equals(vtyp, st.n.int_)) {
            tx = format(st, st.n.msg_int_item, {each.get(), fmtsz});
        } else if (equals(vtyp, st.n.msg_tuple)) {
            if (truthy(uselen.get())) {
                tx = format(st, st.n.msg_sized_item, {each.get(), uselen.get()});
            } else {
                tx = format(st, st.n.msg_item, {each.get()});
            }
        } else {
            break;  // an unknown type lays out no item at all
        }
        // The test counts the item's trailing ", "; a line of exactly the
        // limit is kept.
        Ref candidate = add(txline.get(), tx.get());
        Ref linlen = global(st, st.n.PRG_LINLEN);
        Ref size = check(PyLong_FromSsize_t(length(candidate.get())));
        if (check_status(PyObject_RichCompareBool(size.get(), linlen.get(), Py_GT))) {
            append_text(prgmsg, add(txline.get(), st.n.newline).get());
            txline = add(global(st, st.n.PRG_INDENT2).get(), tx.get());
        } else if (PyUnicode_CheckExact(txline.get()) && PyUnicode_CheckExact(tx.get())) {
            txline = std::move(candidate);
        } else {
            add_to(txline, tx.get());
        }
    }
    Ref minus_two = check(PyLong_FromLong(-2));
    Ref cut = check(PySlice_New(nullptr, minus_two.get(), nullptr));
    txline = getitem(txline.get(), cut.get());
    append_text(prgmsg, add(txline.get(), st.n.newline).get());

    if (truthy(progress)) {
        call1(progress, prgmsg.get());
        call1(progress, st.n.newline);
    } else {
        call1(st.b_print, prgmsg.get());
    }
    return Ref::new_ref(Py_None);
}

Ref recgrp_name_prgmsg(State& st, PyObject* const* a) {
    Ref name = method(a[0], st.n.title);
    Ref prgmsg = format(st, st.n.msg_recgrp_heading, {name.get()});
    call1(a[1], prgmsg.get());
    return Ref::new_ref(Py_None);
}

Ref recgrp_name_prgmsg_numrecs(State& st, PyObject* const* a) {
    PyObject* nrec = a[0];
    Ref one = check(PyLong_FromLong(1));
    PyObject* templ = equals(nrec, one.get()) ? st.n.msg_one_record : st.n.msg_records;
    Ref prgmsg = format(st, templ, {global(st, st.n.PRG_INDENT).get(), nrec});
    call1(a[1], prgmsg.get());
    return Ref::new_ref(Py_None);
}

}  // namespace
}  // namespace vxr

VXR_DEF_ARGS_DOC(_progress_message_format_print,
                 "($module, /, prgmsg, inlist, vtyp, prgfull=True, fmtsz=None, progress=None)",
                 // The docstring shows two calls as the tools make them.
                 "\n"
                 "    --> call example 1\n"
                 "    prgmsg = ' {0:d} PSLF three winding transformer star point buses are not exported to KORA raw data.\n"
                 "'.format(len(wdg3starbuslist))\n"
                 "    _progress_message_format_print(prgmsg, wdg3starbuslist, vtyp='int', prgfull=prgfull, "
                 "fmtsz=_LEN_RAW_NUMBER_BUS, progress=progress)\n"
                 "\n"
                 "    --> call example 2\n"
                 "    prgmsg = ' For {0:d} loads owner<=0 changed to default owner={1:d}.\n"
                 "'.format(len(eachlist), _DEFAULT_OWNER)\n"
                 "    _progress_message_format_print(prgmsg, eachlist, vtyp='tuple', fmtsz=None, progress=progress)\n"
                 "    ",
                 "OOO|OOO", 3, vxr::progress_message_format_print, "prgmsg", "inlist",
                 "vtyp", "prgfull", "fmtsz", "progress")
VXR_DEF_ARGS(_recgrp_name_prgmsg, "($module, /, recgrp, progress)", "OO", 2, vxr::recgrp_name_prgmsg, "recgrp",
             "progress")
VXR_DEF_ARGS(_recgrp_name_prgmsg_numrecs, "($module, /, nrec, progress)", "OO", 2, vxr::recgrp_name_prgmsg_numrecs,
             "nrec", "progress")
