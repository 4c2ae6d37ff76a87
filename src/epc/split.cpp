// EPC data line splitting: the plain splitter at blanks, and the careful
// reader that checks the double quotes and splits the line as shlex does.
#include "epc/epc.hpp"
#include "epc/posix_lexer.hpp"

namespace {

using vxr::Ref;
using vxr::State;

// ---------------------------------------------------------------------------
// _split_data_line_text_pslf
// ---------------------------------------------------------------------------

// linetxt.strip(), then runs of blanks collapsed to one, then split(" "),
// in one pass over an exact str: the items are the runs of non-blanks
// between the stripped ends (only U+0020 separates; tabs stay inside items).
template <typename CharT>
Ref split_at_blanks(PyObject* line, const CharT* data, Py_ssize_t n) {
    Py_ssize_t lo = 0, hi = n;
    vxr::strip_bounds(data, lo, hi);
    const bool ascii = PyUnicode_IS_ASCII(line);
    vxr::ItemBuffer items;
    Py_ssize_t start = lo;
    for (Py_ssize_t i = lo; i <= hi; ++i) {
        if (i < hi && data[i] != ' ') continue;
        // The stripped ends are no blanks, so a blank run never starts an
        // item; an empty line gives the one empty item of "".split(" ").  An
        // item that is the whole line is the line itself, as split gives it.
        PyObject* item = start == 0 && i == n ? (Py_INCREF(line), line) : vxr::new_text(data + start, i - start, ascii);
        if (!items.push_new(item)) vxr::fail();
        while (i + 1 < hi && data[i + 1] == ' ') ++i;
        start = i + 1;
    }
    return vxr::check(items.take_list());
}

// For a str that exact_str() accepted.
Ref split_exact(PyObject* line) {
    Py_ssize_t n = PyUnicode_GET_LENGTH(line);
    void* data = PyUnicode_DATA(line);
    switch (PyUnicode_KIND(line)) {
        case PyUnicode_1BYTE_KIND: return split_at_blanks(line, static_cast<const Py_UCS1*>(data), n);
        case PyUnicode_2BYTE_KIND: return split_at_blanks(line, static_cast<const Py_UCS2*>(data), n);
        default: return split_at_blanks(line, static_cast<const Py_UCS4*>(data), n);
    }
}

Ref split_data_line_text_pslf(State& st, PyObject* linetxt) {
    if (vxr::exact_str(linetxt)) return split_exact(linetxt);
    // Anything else runs the steps through its own methods (its strip()
    // need not strip, so the find() test is kept as it is).
    Ref line = vxr::method(linetxt, st.n.strip);
    Ref zero = vxr::check(PyLong_FromLong(0));
    for (;;) {
        Ref pos = vxr::method(line.get(), st.n.find, st.n.epc_two_blanks);
        if (!vxr::truthy(vxr::check(PyObject_RichCompare(pos.get(), zero.get(), Py_GT)).get())) break;
        line = vxr::method(line.get(), st.n.replace, st.n.epc_two_blanks, st.n.blank);
    }
    return vxr::method(line.get(), st.n.split, st.n.blank);
}

// ---------------------------------------------------------------------------
// _get_values_from_data_line_text_pslf
// ---------------------------------------------------------------------------

// The number of double quotes, as linetxt.count('"') gives it.
struct QuoteCount {
    Ref object;            // the count as an interpreter object, made on need
    Py_ssize_t value = 0;  // the count of an exact str

    PyObject* get() {
        if (!object) object = vxr::check(PyLong_FromSsize_t(value));
        return object.get();
    }
};

// The uneven-quote report; the line is not split.
Ref report_uneven_quotes(State& st, PyObject* recgrp, PyObject* lnumstr, QuoteCount& ndbleqt, PyObject* progress) {
    Ref result = vxr::new_list();
    Ref msg = vxr::check(PyNumber_Remainder(st.n.epc_uneven_quotes, ndbleqt.get()));
    vxr::add_to(msg, vxr::epc::record_ignored_tail(st, recgrp, lnumstr).get());
    vxr::call1(progress, msg.get());
    return result;
}

// The handler of a failed split.  Its message has no conversion for the
// count, so the % itself raises TypeError (with the split error as its
// context) and no report is made; the rest is kept for a count object that
// % would take.
Ref report_unreadable_line(State& st, PyObject* recgrp, PyObject* lnumstr, QuoteCount& ndbleqt,
                           PyObject* progress) {
    vxr::Handling handling;
    Ref result = vxr::new_list();
    Ref msg = vxr::check(PyNumber_Remainder(st.n.epc_line_not_interpreted, ndbleqt.get()));
    vxr::add_to(msg, vxr::epc::record_ignored_tail(st, recgrp, lnumstr).get());
    vxr::call1(progress, msg.get());
    return result;
}

// shlex.split(line) through the module global.
PyObject* shlex_split(State& st, PyObject* line) noexcept {
    try {
        Ref shlex = vxr::global(st, st.n.shlex);
        Ref split = vxr::getattr(shlex.get(), st.n.split);
        return vxr::call1(split.get(), line).release();
    } catch (const vxr::PyErrorSet&) {
    } catch (...) {
        vxr::set_memory_error();
    }
    return nullptr;
}

// The documented steps one by one: the double quotes counted, then the line
// split through the module's `shlex` (or as the standard one splits it).
PyObject* count_then_split(State& st, PyObject* linetxt, bool exact, QuoteCount& ndbleqt, bool& uneven) {
    if (exact) {
        ndbleqt.value = PyUnicode_Count(linetxt, st.n.dblq, 0, PY_SSIZE_T_MAX);
        if (ndbleqt.value < 0) vxr::fail();
        uneven = (ndbleqt.value & 1) != 0;
    } else {
        ndbleqt.object = vxr::method(linetxt, st.n.count, st.n.dblq);
        Ref two = vxr::check(PyLong_FromLong(2));
        uneven = vxr::truthy(vxr::check(PyNumber_Remainder(ndbleqt.object.get(), two.get())).get());
    }
    if (uneven) return nullptr;

    // Commas and apostrophes become underscores.  An exact str is split with
    // them read as underscores, without the two copies.
    Ref line;
    if (exact) {
        line = Ref::new_ref(linetxt);
    } else {
        Ref once = vxr::method(linetxt, st.n.replace, st.n.comma, st.n.epc_underscore);
        line = vxr::method(once.get(), st.n.replace, st.n.sglq, st.n.epc_underscore);
    }
    if (vxr::exact_str(line.get()) && vxr::std_shlex_split_in_use(st)) {
        Py_ssize_t quotes;
        return vxr::epc::posix_split(line.get(), exact, quotes);
    }
    if (exact) {
        line = vxr::check(PyUnicode_Replace(linetxt, st.n.comma, st.n.epc_underscore, -1));
        line = vxr::check(PyUnicode_Replace(line.get(), st.n.sglq, st.n.epc_underscore, -1));
    }
    return shlex_split(st, line.get());
}

Ref get_values_from_data_line_text_pslf(State& st, PyObject* const* a) {
    PyObject *recgrp = a[0], *lnumstr = a[1], *linetxt = a[2], *progress = a[3];
    const bool exact = vxr::exact_str(linetxt);
    QuoteCount ndbleqt;
    bool uneven = false;
    PyObject* items;
    if (exact && vxr::globals_as_imported(st) && vxr::std_shlex_class_unchanged(st)) {
        // One pass splits the line and counts its double quotes: a line
        // with an odd count is not split, so its items are dropped.
        items = vxr::epc::posix_split(linetxt, true, ndbleqt.value);
        uneven = (ndbleqt.value & 1) != 0;
        if (uneven) {
            if (items == nullptr) PyErr_Clear();
            Py_XDECREF(items);
        }
    } else {
        items = count_then_split(st, linetxt, exact, ndbleqt, uneven);
    }
    if (uneven) return report_uneven_quotes(st, recgrp, lnumstr, ndbleqt, progress);
    if (items == nullptr) return report_unreadable_line(st, recgrp, lnumstr, ndbleqt, progress);
    return Ref::steal(items);
}

}  // namespace

VXR_DEF_ONE_ARG(_split_data_line_text_pslf, "linetxt", split_data_line_text_pslf)
VXR_DEF_ARGS(_get_values_from_data_line_text_pslf, "($module, /, recgrp, lnumstr, linetxt, progress)", "OOOO", 4,
             get_values_from_data_line_text_pslf, "recgrp", "lnumstr", "linetxt", "progress")
