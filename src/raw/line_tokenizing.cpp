// KORA RAW line tokenizing: end of file, blank and comment lines; a data
// line split into its items with the "_ifc" placeholder for empty ones; and
// key=value lines with their first item classified.
#include "raw/kora_lexer.hpp"
#include "raw/raw.hpp"

namespace vxr {
namespace raw {

void send_record_error(State& st, Ref head, PyObject* line, PyObject* progress, Loc where) {
    Ref indent2 = global(st, st.n.PRG_INDENT2, where);
    Ref tail = format(st, st.n.fmt_indent_line, {indent2.get(), line}, where);
    add_to(head, tail.get(), where);
    call1(progress, head.get(), where);
}

void report_record_error(State& st, PyObject* templ, PyObject* recgrp, std::initializer_list<PyObject*> more,
                         PyObject* line, PyObject* progress, Loc where) {
    Ref indent = global(st, st.n.PRG_INDENT, where);
    Ref group = method(recgrp, st.n.title, where);
    PyObject* args[8] = {indent.get(), group.get()};
    size_t n = 2;
    for (PyObject* a : more) {
        if (a != nullptr && n < 8) args[n++] = a;
    }
    Ref head = format(st, templ, args, n, where);
    send_record_error(st, std::move(head), line, progress, where);
}

FirstItem classify_first_item(State& st, PyObject* vlist, PyObject* templ, PyObject* recgrp, PyObject* name,
                              PyObject* line, PyObject* progress) {
    FirstItem first;
    first.value = first_item(vlist);
    if (!first.value) first.value = Ref::new_ref(st.n.ifc);
    if (equals(first.value.get(), st.n.ifc, VXR_HERE)) {
        first.error = true;
        first.value = Ref::new_ref(st.n.empty);
    }
    if (first.error) {
        report_record_error(st, templ, recgrp, {name}, line, progress, VXR_HERE);
    } else {
        Ref fv = strip(st, first.value.get(), VXR_HERE);
        first.found_q = lower_is_q(st, fv.get(), VXR_HERE);
    }
    return first;
}

namespace {

// ---------------------------------------------------------------------------
// _check_eof_blank_line_kora
// ---------------------------------------------------------------------------

Ref check_eof_blank_line(State& st, PyObject* line) {
    bool eof, blank;
    if (exact_str(line, VXR_HERE)) {
        const Py_ssize_t n = PyUnicode_GET_LENGTH(line);
        Py_ssize_t start, end;
        strip_bounds(line, start, end);
        eof = n == 0;
        blank = start == end;
        // A comment starts in the first column; "@!" after blanks is data.
        if (!blank && n >= 2 && PyUnicode_READ_CHAR(line, 0) == '@' && PyUnicode_READ_CHAR(line, 1) == '!') {
            blank = true;
        }
    } else {
        eof = length(line, VXR_HERE) == 0;
        Ref stripped = method(line, st.n.strip, VXR_HERE);
        // Empty is false: whatever a subclass's strip() gives is answered.
        blank = !truthy(stripped.get(), VXR_HERE);
        if (!blank) {
            Ref two = check(PyLong_FromLong(2), VXR_HERE);
            Ref first_two = check(PySlice_New(nullptr, two.get(), nullptr), VXR_HERE);
            Ref head = getitem(line, first_two.get(), VXR_HERE);
            blank = equals(head.get(), st.n.comment_mark, VXR_HERE);
        }
    }
    return tuple_of({py_bool(eof), py_bool(blank)}, VXR_HERE);
}

// ---------------------------------------------------------------------------
// _split_textline_kora
// ---------------------------------------------------------------------------

template <typename CharT>
LexResult lex(State& st, PyObject* linetxt, Py_ssize_t start, Py_ssize_t end, ItemBuffer& out) {
    const auto* data = static_cast<const CharT*>(PyUnicode_DATA(linetxt));
    KoraLexer<CharT> lexer(data + start, end - start, PyUnicode_IS_ASCII(linetxt), st.n.ifc, out);
    return lexer.run();
}

// The one-pass path for a str that exact_str() accepted, while `re` and
// `shlex` are the standard modules.
Ref split_fast(State& st, PyObject* linetxt) {
    Py_ssize_t start, end;
    strip_bounds(linetxt, start, end);
    if (start == end) return new_list(0, VXR_HERE);
    const Py_ssize_t stripped_end = end;
    if (PyUnicode_READ_CHAR(linetxt, end - 1) == ',') --end;  // one trailing comma only
    if (start == end) getindex(st.n.empty, 0, VXR_HERE);  // txt[0] of "": the str's own IndexError

    ItemBuffer items;
    LexResult result;
    switch (PyUnicode_KIND(linetxt)) {
        case PyUnicode_1BYTE_KIND: result = lex<Py_UCS1>(st, linetxt, start, end, items); break;
        case PyUnicode_2BYTE_KIND: result = lex<Py_UCS2>(st, linetxt, start, end, items); break;
        default: result = lex<Py_UCS4>(st, linetxt, start, end, items); break;
    }
    if (result == LexResult::error) fail(VXR_HERE);
    if (result == LexResult::no_closing_quotation) {
        // What the lexer raises, replaced as the documented pipeline replaces it.
        PyErr_SetString(PyExc_ValueError, "No closing quotation");
        Handling handling;
        Ref stripped = check(PyUnicode_Substring(linetxt, start, stripped_end), VXR_HERE);
        Ref message = add(st.n.error_reading_line, stripped.get(), VXR_HERE);
        PyErr_SetObject(PyExc_Exception, message.get());
        fail(VXR_HERE);
    }
    return check(items.take_list(), VXR_HERE);
}

// The documented pipeline, step by step, through the module's `re` and
// `shlex` globals: used whenever the fast path cannot stand in for it.
Ref split_generic(State& st, PyObject* linetxt) {
    Names& n = st.n;
    Ref stripped = method(linetxt, n.strip, VXR_HERE);
    if (!truthy(stripped.get(), VXR_HERE)) return new_list(0, VXR_HERE);

    Ref txt = Ref::new_ref(stripped.get());
    Ref minus_one = check(PyLong_FromLong(-1), VXR_HERE);
    Ref last = getitem(txt.get(), minus_one.get(), VXR_HERE);
    if (equals(last.get(), n.comma, VXR_HERE)) {
        Ref all_but_last = check(PySlice_New(nullptr, minus_one.get(), nullptr), VXR_HERE);
        txt = getitem(txt.get(), all_but_last.get(), VXR_HERE);
    }

    Ref re = global(st, n.re, VXR_HERE);
    Ref pattern = method(re.get(), n.compile, n.re_empty_item, VXR_HERE);
    for (;;) {
        Ref result = method(pattern.get(), n.subn, n.comma_ifc_comma, txt.get(), VXR_HERE);
        Ref parts[2];
        unpack(result.get(), parts, 2, VXR_HERE);
        txt = std::move(parts[0]);
        Ref zero = check(PyLong_FromLong(0), VXR_HERE);
        if (!check_status(PyObject_RichCompareBool(parts[1].get(), zero.get(), Py_NE), VXR_HERE)) break;
    }

    Ref first = getindex(txt.get(), 0, VXR_HERE);
    if (equals(first.get(), n.comma, VXR_HERE)) txt = add(n.ifc, txt.get(), VXR_HERE);

    Ref shlex = global(st, n.shlex, VXR_HERE);
    Ref lexer_class = getattr(shlex.get(), n.shlex, VXR_HERE);
    Ref lexer = call1(lexer_class.get(), txt.get(), VXR_HERE);
    Ref whitespace = getattr(lexer.get(), n.whitespace, VXR_HERE);
    add_to(whitespace, n.comma, VXR_HERE);
    check_status(PyObject_SetAttr(lexer.get(), n.whitespace, whitespace.get()), VXR_HERE);
    check_status(PyObject_SetAttr(lexer.get(), n.whitespace_split, Py_True), VXR_HERE);

    PyObject* tokens = PySequence_List(lexer.get());
    if (tokens == nullptr) {
        Handling handling;
        Ref message = add(n.error_reading_line, stripped.get(), VXR_HERE);
        PyErr_SetObject(PyExc_Exception, message.get());
        fail(VXR_HERE);
    }
    Ref vlist = Ref::steal(tokens);

    Ref vlist2 = new_list(0, VXR_HERE);
    Ref it = iter(vlist.get(), VXR_HERE);
    while (Ref token = next(it.get(), VXR_HERE)) {
        Ref once = method(token.get(), n.replace, n.sglq, n.empty, VXR_HERE);
        Ref twice = method(once.get(), n.replace, n.dblq, n.empty, VXR_HERE);
        append(vlist2.get(), twice.get(), VXR_HERE);
    }
    return vlist2;
}

}  // namespace

Ref split_textline_kora(State& st, PyObject* linetxt) {
    if (exact_str(linetxt, VXR_HERE) && std_re_in_use(st) && std_shlex_in_use(st)) return split_fast(st, linetxt);
    return split_generic(st, linetxt);
}

Ref call_split_textline_kora(State& st, PyObject* line, Loc where) {
    return call_module_function(
        st, st.n.fn_split_textline_kora, st.fn_split_textline_kora, "vxrcomn._split_textline_kora",
        [&] { return split_textline_kora(st, line); }, {line}, where);
}

namespace {

// ---------------------------------------------------------------------------
// _split_textline_kora_keyvalue_pair
// ---------------------------------------------------------------------------

// re.compile("( *= *)").sub("=", line) for a str that exact_str() accepted:
// every "=" with the blanks around it becomes a bare "=".  The text is
// copied in the line's own kind, the blanks kept where no "=" follows.
template <typename CharT>
Ref squeeze_equals(PyObject* line, const CharT* data, Py_ssize_t n) {
    std::vector<CharT> out;
    out.reserve(static_cast<size_t>(n));
    Py_ssize_t i = 0;
    while (i < n) {
        const CharT c = data[i];
        if (c == ' ') {
            Py_ssize_t j = i;
            while (j < n && data[j] == ' ') ++j;
            // The blanks belong to an "=" that follows them.
            if (j >= n || data[j] != '=') out.insert(out.end(), data + i, data + j);
            i = j;
        } else if (c == '=') {
            out.push_back(c);
            ++i;
            while (i < n && data[i] == ' ') ++i;
        } else {
            out.push_back(c);
            ++i;
        }
    }
    return check(new_text(out.data(), static_cast<Py_ssize_t>(out.size()), PyUnicode_IS_ASCII(line)), VXR_HERE);
}

Ref squeeze_equals(PyObject* line) {
    const Py_ssize_t n = PyUnicode_GET_LENGTH(line);
    if (PyUnicode_FindChar(line, '=', 0, n, 1) < 0) {
        if (PyErr_Occurred()) fail(VXR_HERE);
        return Ref::new_ref(line);
    }
    const void* data = PyUnicode_DATA(line);
    switch (PyUnicode_KIND(line)) {
        case PyUnicode_1BYTE_KIND: return squeeze_equals(line, static_cast<const Py_UCS1*>(data), n);
        case PyUnicode_2BYTE_KIND: return squeeze_equals(line, static_cast<const Py_UCS2*>(data), n);
        default: return squeeze_equals(line, static_cast<const Py_UCS4*>(data), n);
    }
}

Ref split_keyvalue_pair(State& st, PyObject* const* args) {
    PyObject* recgrp = args[0];
    PyObject* line = args[1];
    PyObject* progress = args[2];
    Names& n = st.n;

    Ref ltxt;
    if (exact_str(line, VXR_HERE) && std_re_in_use(st)) {
        ltxt = squeeze_equals(line);
    } else {
        Ref re = global(st, n.re, VXR_HERE);
        Ref pattern = method(re.get(), n.compile, n.re_equals, VXR_HERE);
        ltxt = method(pattern.get(), n.sub, n.equals_sign, line, VXR_HERE);
    }
    Ref vlist = call_split_textline_kora(st, ltxt.get(), VXR_HERE);
    FirstItem first = classify_first_item(st, vlist.get(), n.raw_record_ignored, recgrp, nullptr, line, progress);
    Ref frst_val = std::move(first.value);
    if (!first.found_q) {
        Ref fv = strip(st, frst_val.get(), VXR_HERE);
        if (is_zero_text(st, fv.get(), VXR_HERE)) frst_val = to_int(fv.get(), VXR_HERE);
    }
    return tuple_of({py_bool(first.found_q), py_bool(first.error), frst_val.get(), vlist.get()}, VXR_HERE);
}

}  // namespace
}  // namespace raw
}  // namespace vxr

VXR_DEF_ONE_ARG(_check_eof_blank_line_kora, "line", vxr::raw::check_eof_blank_line)
VXR_DEF_ONE_ARG(_split_textline_kora, "linetxt", vxr::raw::split_textline_kora)
VXR_DEF_ARGS(_split_textline_kora_keyvalue_pair, "($module, /, recgrp, line, progress)", "OOO", 3,
             vxr::raw::split_keyvalue_pair, "recgrp", "line", "progress")
