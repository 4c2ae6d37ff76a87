// KORA RAW key/value and rating records turned into ordered dictionaries
// laid out by the tool's format dictionary, with defaults.
#include "raw/raw.hpp"

namespace vxr {
namespace raw {
namespace {

// text.upper() for a str that exact_str() accepted; ASCII is done here.
Ref upper(State& st, PyObject* text) {
    if (!PyUnicode_IS_ASCII(text)) return method(text, st.n.upper, VXR_HERE);
    const Py_ssize_t len = PyUnicode_GET_LENGTH(text);
    const Py_UCS1* src = PyUnicode_1BYTE_DATA(text);
    Py_ssize_t k = 0;
    while (k < len && !(src[k] >= 'a' && src[k] <= 'z')) ++k;
    if (k == len) return Ref::new_ref(text);
    Ref out = check(PyUnicode_New(len, 127), VXR_HERE);
    Py_UCS1* dst = PyUnicode_1BYTE_DATA(out.get());
    for (Py_ssize_t i = 0; i < len; ++i) dst[i] = (src[i] >= 'a' && src[i] <= 'z') ? src[i] - 'a' + 'A' : src[i];
    return out;
}

// elst = each.split("="); vnam = elst[0].upper(); vval = elst[1]
void split_pair(State& st, PyObject* each, Ref& vnam, Ref& vval) {
    Py_ssize_t first = -1;
    if (exact_str(each, VXR_HERE)) first = PyUnicode_FindChar(each, '=', 0, PyUnicode_GET_LENGTH(each), 1);
    if (first == -2) fail(VXR_HERE);
    // An exact str with "=" is cut here; anything else, and a text without
    // "=" (which fails at elst[1], with the list's own IndexError), takes the
    // steps as written.
    if (first >= 0) {
        const Py_ssize_t len = PyUnicode_GET_LENGTH(each);
        Ref name = check(PyUnicode_Substring(each, 0, first), VXR_HERE);
        vnam = upper(st, name.get());
        Py_ssize_t second = PyUnicode_FindChar(each, '=', first + 1, len, 1);
        if (second == -2) fail(VXR_HERE);
        vval = check(PyUnicode_Substring(each, first + 1, second < 0 ? len : second), VXR_HERE);
        return;
    }
    Ref elst = method(each, st.n.split, st.n.equals_sign, VXR_HERE);
    Ref head = getindex(elst.get(), 0, VXR_HERE);
    vnam = method(head.get(), st.n.upper, VXR_HERE);
    vval = getindex(elst.get(), 1, VXR_HERE);
}

// The guarded conversion of a given field: int(tdct[vnam]) or
// float(tdct[vnam]) by the type word, each step in the order written, so
// that the text is read only once the type test has chosen a conversion.
// An empty Ref when the type word asks for none; the error set when a step
// fails.
Ref converted_field(State& st, PyObject* tdct, PyObject* vnam, PyObject* vartyp) {
    const bool is_int = equals(vartyp, st.n.int_, VXR_HERE);
    if (!is_int && !equals(vartyp, st.n.float_, VXR_HERE)) return Ref();
    Ref text = getitem(tdct, vnam, VXR_HERE);
    return is_int ? to_int(text.get(), VXR_HERE) : to_float(text.get(), VXR_HERE);
}

// ---------------------------------------------------------------------------
// _list_of_key_value_pairs_to_dict_kora
// ---------------------------------------------------------------------------

Ref key_value_pairs_to_dict(State& st, PyObject* const* args) {
    PyObject* vlist = args[0];
    PyObject* frmt_dict = args[1];
    Names& n = st.n;

    Ref tdct = new_dict(VXR_HERE);
    Ref it = iter(vlist, VXR_HERE);
    while (Ref each = next(it.get(), VXR_HERE)) {
        Ref vnam, vval;
        split_pair(st, each.get(), vnam, vval);
        check_status(PyDict_SetItem(tdct.get(), vnam.get(), vval.get()), VXR_HERE);
    }

    Ref tdct2 = new_ordered_dict(st, VXR_HERE);
    // Not reset between fields: a field whose type is neither "int" nor
    // "float" takes whatever the previous field left here.
    Ref v;
    ItemsSnapshot items(st, frmt_dict);
    Ref vnam, fdct;
    while (items.next(vnam, fdct)) {
        Ref defval = getitem(fdct.get(), n.defval, VXR_HERE);
        Ref vartyp = getitem(fdct.get(), n.type, VXR_HERE);
        if (!check_status(PyDict_Contains(tdct.get(), vnam.get()), VXR_HERE)) {
            v = std::move(defval);
        } else {
            // Any failure, the comparisons and the look-up included, gives the
            // default, silently.
            try {
                if (Ref converted = converted_field(st, tdct.get(), vnam.get(), vartyp.get())) v = std::move(converted);
            } catch (const PyErrorSet&) {
                PyErr_Clear();
                v = std::move(defval);
            }
        }
        if (!v) raise_unbound_local("v", VXR_HERE);
        setitem(tdct2.get(), vnam.get(), v.get(), VXR_HERE);
    }
    return tdct2;
}

// ---------------------------------------------------------------------------
// _list_of_ratings_items_to_dict_kora
// ---------------------------------------------------------------------------

// tdct[key] if key in tdct else frmt_dict[key]["defval"]
Ref given_or_default(State& st, PyObject* tdct, PyObject* frmt_dict, PyObject* key) {
    if (check_status(PyDict_Contains(tdct, key), VXR_HERE)) return getitem(tdct, key, VXR_HERE);
    Ref descriptor = getitem(frmt_dict, key, VXR_HERE);
    return getitem(descriptor.get(), st.n.defval, VXR_HERE);
}

Ref ratings_to_dict(State& st, PyObject* const* args) {
    PyObject* recgrp = args[0];
    PyObject* vlist = args[1];
    PyObject* frmt_dict = args[2];
    PyObject* line = args[3];
    PyObject* progress = args[4];
    Names& n = st.n;

    Ref keys = method(frmt_dict, n.keys, VXR_HERE);
    Ref rat_keys = check(PySequence_List(keys.get()), VXR_HERE);
    Ref k_rat_num = getindex(rat_keys.get(), 0, VXR_HERE);
    Ref k_rat_nam = getindex(rat_keys.get(), 1, VXR_HERE);
    Ref k_rat_dsc = getindex(rat_keys.get(), 2, VXR_HERE);

    // Items are matched to the fields by position, as zip() pairs them.
    Ref tdct = new_dict(VXR_HERE);
    PyObject* zip_args[2] = {rat_keys.get(), vlist};
    Ref pairs = callv(st.b_zip, zip_args, 2, VXR_HERE);
    Ref it = iter(pairs.get(), VXR_HERE);
    while (Ref pair = next(it.get(), VXR_HERE)) {
        Ref kv[2];
        unpack(pair.get(), kv, 2, VXR_HERE);
        setitem(tdct.get(), kv[0].get(), kv[1].get(), VXR_HERE);
    }

    Ref num_val = Ref::new_ref(Py_None);
    bool ierr = true;
    if (check_status(PyDict_Contains(tdct.get(), k_rat_num.get()), VXR_HERE)) {
        PyObject* number = PyObject_GetItem(tdct.get(), k_rat_num.get());
        PyObject* converted = number != nullptr ? PyNumber_Long(number) : nullptr;
        Py_XDECREF(number);
        if (converted != nullptr) {
            num_val = Ref::steal(converted);
            ierr = false;
        } else {
            Handling handling;
            Ref indent = global(st, n.PRG_INDENT, VXR_HERE);
            Ref group = method(recgrp, n.title, VXR_HERE);
            Ref shown = getitem(tdct.get(), k_rat_num.get(), VXR_HERE);  // read after the title, as written
            Ref head = format(st, n.raw_rating_not_recognized, {indent.get(), group.get(), shown.get()}, VXR_HERE);
            send_record_error(st, std::move(head), line, progress, VXR_HERE);
        }
    } else {
        report_record_error(st, n.raw_rating_not_provided, recgrp, {}, line, progress, VXR_HERE);
    }

    Ref tdct2 = new_ordered_dict(st, VXR_HERE);
    if (!ierr) {
        Ref nam_val = given_or_default(st, tdct.get(), frmt_dict, k_rat_nam.get());
        Ref dsc_val = given_or_default(st, tdct.get(), frmt_dict, k_rat_dsc.get());
        setitem(tdct2.get(), k_rat_num.get(), num_val.get(), VXR_HERE);
        setitem(tdct2.get(), k_rat_nam.get(), nam_val.get(), VXR_HERE);
        setitem(tdct2.get(), k_rat_dsc.get(), dsc_val.get(), VXR_HERE);
    }
    return tuple_of({num_val.get(), tdct2.get()}, VXR_HERE);
}

}  // namespace
}  // namespace raw
}  // namespace vxr

VXR_DEF_ARGS(_list_of_key_value_pairs_to_dict_kora, "($module, /, vlist, frmt_dict)", "OO", 2,
             vxr::raw::key_value_pairs_to_dict, "vlist", "frmt_dict")
VXR_DEF_ARGS(_list_of_ratings_items_to_dict_kora, "($module, /, recgrp, vlist, frmt_dict, line, progress)", "OOOOO",
             5, vxr::raw::ratings_to_dict, "recgrp", "vlist", "frmt_dict", "line", "progress")
