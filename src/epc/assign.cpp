// EPC value assignment: item texts become typed values in an ordered
// dictionary, in the order of the record's format dictionary, with defaults
// for absent items and one message for the first item that will not convert.
#include "epc/epc.hpp"

#include <algorithm>

namespace vxr {
namespace epc {

// ---------------------------------------------------------------------------
// Shared by the assigners
// ---------------------------------------------------------------------------

ItemType item_type(State& st, PyObject* vtyp) {
    if (equals(vtyp, st.n.int_)) return ItemType::integer;
    if (equals(vtyp, st.n.float_)) return ItemType::real;
    return ItemType::character;
}

Ref record_ignored_tail(State& st, PyObject* recgrp, PyObject* lnumstr) {
    Ref upper = method(recgrp, st.n.upper);
    Ref tail = add(st.n.epc_tail_head, str(upper.get()).get());
    tail = add(tail.get(), st.n.epc_tail_line);
    tail = add(tail.get(), str(lnumstr).get());
    return add(tail.get(), st.n.epc_tail_end);
}

Ref wrapped(State& st, PyObject* text) {
    Ref wrap = global(st, st.n.WRAP_CHAR);
    return wrap_between(st, text, wrap.get());
}

Ref default_value(State& st, ItemType type) {
    switch (type) {
        case ItemType::integer: return check(PyLong_FromLong(0));
        case ItemType::real: return check(PyFloat_FromDouble(0.0));
        case ItemType::character: break;
    }
    return wrapped(st, st.n.blank);
}

bool assign_item(State& st, PyObject* valsdict, PyObject* nam, PyObject* text, ItemType type, PyObject* recgrp,
                 PyObject* lnumstr, PyObject* progress) {
    if (type == ItemType::character) {
        setitem(valsdict, nam, wrapped(st, text).get());
        return true;
    }
    PyObject* value = type == ItemType::integer ? int_of(text) : PyNumber_Float(text);
    if (value != nullptr) {
        int status = PyObject_SetItem(valsdict, nam, value);
        Py_DECREF(value);
        if (status == 0) return true;
    }
    // except: the record is reported and ignored.  Whatever the message
    // building raises carries the conversion error as its context.
    Handling handling;
    Ref msg = add(type == ItemType::integer ? st.n.epc_integer_item : st.n.epc_float_item, nam);
    msg = add(msg.get(), st.n.epc_not_specified);
    msg = add(msg.get(), str(text).get());
    msg = add(msg.get(), st.n.newline);
    add_to(msg, record_ignored_tail(st, recgrp, lnumstr).get());
    call1(progress, msg.get());
    return false;
}

bool is_separator(State& st, PyObject* nam) {
    if (exact_str(nam)) {
        // "semi", "semi1", "semi2": most names fail on their length.
        const Py_ssize_t len = PyUnicode_GET_LENGTH(nam);
        if (len != 4 && len != 5) return false;
        if (PyUnicode_KIND(nam) == PyUnicode_1BYTE_KIND) {
            const char* t = reinterpret_cast<const char*>(PyUnicode_1BYTE_DATA(nam));
            return t[0] == 's' && t[1] == 'e' && t[2] == 'm' && t[3] == 'i' &&
                   (len == 4 || t[4] == '1' || t[4] == '2');
        }
        return false;
    }
    return equals(nam, st.n.epc_semi) || equals(nam, st.n.epc_semi1) || equals(nam, st.n.epc_semi2);
}

Ref pair_without_separators(State& st, PyObject* names, PyObject* values) {
    Ref tmp = new_dict();
    zip_each(st, names, values, [&](PyObject* nam, PyObject* val) {
        if (!is_separator(st, nam)) setitem(tmp.get(), nam, val);
        return true;
    });
    return tmp;
}

// ---------------------------------------------------------------------------
// GivenTexts
// ---------------------------------------------------------------------------

namespace {

bool same_text(PyObject* a, PyObject* b) {
    return a == b || (PyUnicode_GET_LENGTH(a) == PyUnicode_GET_LENGTH(b) && PyUnicode_Compare(a, b) == 0);
}

}  // namespace

GivenTexts::Entry* GivenTexts::slot(PyObject* nam, Py_hash_t hash) {
    const size_t mask = table_.size() - 1;
    for (size_t i = static_cast<size_t>(hash) & mask;; i = (i + 1) & mask) {
        Entry& e = table_[i];
        if (!e.name || (e.hash == hash && same_text(e.name.get(), nam))) return &e;
    }
}

bool GivenTexts::pair(State& st, PyObject* names, PyObject* values) {
    auto exact = [](PyObject* o) { return PyList_CheckExact(o) || PyTuple_CheckExact(o); };
    if (!exact(names) || !exact(values)) return false;
    const Py_ssize_t count = std::min(PySequence_Fast_GET_SIZE(names), PySequence_Fast_GET_SIZE(values));
    // The dict this table stands for would hold only exact str keys and
    // values the collector does not track: the interpreter would not track
    // it either, so no caller's code could reach it (through gc) and change
    // it while the items are assigned.
    for (Py_ssize_t i = 0; i < count; ++i) {
        if (!exact_str(PySequence_Fast_GET_ITEM(names, i)) || PyObject_IS_GC(PySequence_Fast_GET_ITEM(values, i))) {
            return false;
        }
    }
    size_t capacity = 8;
    while (capacity < 2 * static_cast<size_t>(count)) capacity *= 2;
    table_.clear();
    table_.resize(capacity);
    // Nothing in this loop runs a caller's code, so the lists stay as read.
    for (Py_ssize_t i = 0; i < count; ++i) {
        PyObject* nam = PySequence_Fast_GET_ITEM(names, i);
        if (is_separator(st, nam)) continue;
        const Py_hash_t hash = PyObject_Hash(nam);
        if (hash == -1) fail();
        Entry* e = slot(nam, hash);
        if (!e->name) {
            e->name = Ref::new_ref(nam);
            e->hash = hash;
        }
        e->value = Ref::new_ref(PySequence_Fast_GET_ITEM(values, i));  // a later equal name wins
    }
    return true;
}

// The table as the dict it stands for, for a lookup only a dict can answer
// exactly (a name that is not an exact str).
void GivenTexts::materialize() {
    mapping_ = new_dict();
    for (Entry& e : table_) {
        if (e.name) setitem(mapping_.get(), e.name.get(), e.value.get());
    }
    table_.clear();
}

bool GivenTexts::find(PyObject* nam, Ref& value) {
    if (!mapping_) {
        // The module's own table, which no caller's code can reach; with an
        // exact str name nothing runs between `in` and `[]`.
        if (exact_str(nam)) {
            const Py_hash_t hash = PyObject_Hash(nam);
            if (hash == -1) fail();
            Entry* e = slot(nam, hash);
            if (!e->name) return false;
            value = Ref::new_ref(e->value.get());
            return true;
        }
        materialize();
    }
    // A mapping that can hold keys of the caller's: `in` and `[]` are two
    // look-ups, since an odd key's __eq__ may answer each differently.
    if (!check_status(PySequence_Contains(mapping_.get(), nam))) return false;
    value = getitem(mapping_.get(), nam);
    return true;
}

Ref key_list(State& st, PyObject* frmtdct) {
    if (PyDict_CheckExact(frmtdct)) return check(PyDict_Keys(frmtdct));
    // An exact OrderedDict iterates its keys in order, as its keys view does.
    if (PyODict_CheckExact(frmtdct)) return check(PySequence_List(frmtdct));
    Ref keys = method(frmtdct, st.n.keys);
    return check(PySequence_List(keys.get()));
}

// ---------------------------------------------------------------------------
// _epc_assign_data_values_common
// ---------------------------------------------------------------------------

Ref assign_common(State& st, PyObject* recgrp, PyObject* lnumstr, GivenTexts& given, PyObject* frmtdct,
                  PyObject* progress) {
    bool ierr = false;
    Ref valsdict = new_ordered_dict(st);
    ItemsSnapshot items(st, frmtdct);
    Ref nam, vdct;
    while (items.next(nam, vdct)) {
        Ref vtyp = getitem(vdct.get(), st.n.type);
        Ref vals;
        if (given.find(nam.get(), vals)) {
            if (!assign_item(st, valsdict.get(), nam.get(), vals.get(), item_type(st, vtyp.get()), recgrp, lnumstr,
                             progress)) {
                ierr = true;
                break;
            }
        } else {
            setitem(valsdict.get(), nam.get(), default_value(st, item_type(st, vtyp.get())).get());
        }
    }
    return tuple_of({py_bool(ierr), valsdict.get()});
}

Ref assign_pairs(State& st, PyObject* recgrp, PyObject* lnumstr, PyObject* names, PyObject* values,
                 PyObject* frmtdct, PyObject* progress) {
    const char* qualname = "vxrcomn._epc_assign_data_values_common";
    Ref function;
    GivenTexts given;
    // Pairing exact lists of str runs nothing of the caller's, so the global
    // may be looked up before the pairs are made, and while it is the
    // module's own function they need no dictionary.
    if (given.pair(st, names, values)) {
        function = module_function(st, st.n.fn_epc_assign_common, st.fn_epc_assign_common);
        if (function.get() == st.fn_epc_assign_common) {
            return call_resolved(
                function.get(), st.fn_epc_assign_common, qualname,
                [&] { return assign_common(st, recgrp, lnumstr, given, frmtdct, progress); }, {});
        }
    }
    Ref tmp = pair_without_separators(st, names, values);
    if (!function) function = module_function(st, st.n.fn_epc_assign_common, st.fn_epc_assign_common);
    GivenTexts mapping(tmp.get());
    Ref result = call_resolved(
        function.get(), st.fn_epc_assign_common, qualname,
        [&] { return assign_common(st, recgrp, lnumstr, mapping, frmtdct, progress); },
        {recgrp, lnumstr, tmp.get(), frmtdct, progress});
    // The direct call gives a new pair that nobody else holds: it already is
    // the new tuple (ierr, valsdict).
    if (PyTuple_CheckExact(result.get()) && PyTuple_GET_SIZE(result.get()) == 2 && Py_REFCNT(result.get()) == 1) {
        return result;
    }
    Ref parts[2];
    unpack(result.get(), parts, 2);
    return tuple_of({parts[0].get(), parts[1].get()});
}

}  // namespace epc
}  // namespace vxr

namespace {

vxr::Ref epc_assign_data_values_common(vxr::State& st, PyObject* const* a) {
    vxr::epc::GivenTexts given(a[2]);
    return vxr::epc::assign_common(st, a[0], a[1], given, a[3], a[4]);
}

// _epc_assign_data_values: names paired with texts, separators dropped.
vxr::Ref epc_assign_data_values(vxr::State& st, PyObject* const* a) {
    PyObject *recgrp = a[0], *lnumstr = a[1], *valslist = a[2], *vnamlist = a[3], *frmtdct = a[4], *progress = a[5];
    return vxr::epc::assign_pairs(st, recgrp, lnumstr, vnamlist, valslist, frmtdct, progress);
}

}  // namespace

VXR_DEF_ARGS(_epc_assign_data_values_common, "($module, /, recgrp, lnumstr, inputvals_dict, frmtdct, progress)",
             "OOOOO", 5, epc_assign_data_values_common, "recgrp", "lnumstr", "inputvals_dict", "frmtdct", "progress")
VXR_DEF_ARGS(_epc_assign_data_values, "($module, /, recgrp, lnumstr, valslist, vnamlist, frmtdct, progress)",
             "OOOOOO", 6, epc_assign_data_values, "recgrp", "lnumstr", "valslist", "vnamlist", "frmtdct", "progress")
