// What the PSLF EPC readers share: the typed item assignment with its
// record-error message, wrapped character values and defaults, the pairing
// of item names with item texts, and the call of the common assigner that
// the special readers end in.
#pragma once

#include "vxr.hpp"

#include <utility>
#include <vector>

namespace vxr {
namespace epc {

// The three item kinds of a format descriptor's "type".
enum class ItemType { integer, real, character };

// vtyp == "int", then vtyp == "float", as the readers test them.
ItemType item_type(State& st, PyObject* vtyp);

// "     '<RECGRP>' record specified on line <lnumstr> ignored.\n"
Ref record_ignored_tail(State& st, PyObject* recgrp, PyObject* lnumstr);

// "{1}{0}{1}".format(text, _WRAP_CHAR), _WRAP_CHAR read now.
Ref wrapped(State& st, PyObject* text);

// 0, 0.0 or a wrapped blank.
Ref default_value(State& st, ItemType type);

// valsdict[nam] = the converted text.  A failing int() or float() (or a
// failing store) is handled: the record-error message goes to progress and
// false comes back, the caller then leaves its loop with ierr set.
bool assign_item(State& st, PyObject* valsdict, PyObject* nam, PyObject* text, ItemType type, PyObject* recgrp,
                 PyObject* lnumstr, PyObject* progress);

// True when nam is one of the separator names "semi", "semi1", "semi2".
bool is_separator(State& st, PyObject* nam);

// {nam: val for nam, val in zip(names, values) if nam is no separator}
Ref pair_without_separators(State& st, PyObject* names, PyObject* values);

// The item texts by name that the common assigner reads with `nam in given`
// then `given[nam]`: either the caller's mapping, or, where no caller can see
// the dictionary that the pairing of a name list with a text list would
// build, a table of the module's own with the same contents and lookups.
class GivenTexts {
public:
    explicit GivenTexts(PyObject* mapping) : mapping_(Ref::new_ref(mapping)) {}
    GivenTexts() = default;

    // Fills the table from exact lists or tuples of which every name is an
    // exact str and every value one the collector does not track; false (and
    // nothing done) for anything else.
    bool pair(State& st, PyObject* names, PyObject* values);

    // `nam in given`, then given[nam] into value; false when absent.
    bool find(PyObject* nam, Ref& value);

private:
    struct Entry {
        Ref name, value;
        Py_hash_t hash = 0;
    };
    Entry* slot(PyObject* nam, Py_hash_t hash);
    void materialize();

    Ref mapping_;               // the caller's mapping, or the table made a dict
    std::vector<Entry> table_;  // open addressing; a power of two in size
};

// list(frmtdct.keys())
Ref key_list(State& st, PyObject* frmtdct);

// The body of _epc_assign_data_values_common; returns (ierr, valsdict).
Ref assign_common(State& st, PyObject* recgrp, PyObject* lnumstr, GivenTexts& given, PyObject* frmtdct,
                  PyObject* progress);

// The ending of every assigner that pairs names with texts: the pairs
// without separators handed to _epc_assign_data_values_common through the
// module global, its two results returned as a new tuple.
Ref assign_pairs(State& st, PyObject* recgrp, PyObject* lnumstr, PyObject* names, PyObject* values,
                 PyObject* frmtdct, PyObject* progress);

// The items of a sequence read by position, as a for loop reads them: an
// exact list or tuple by index (the list's size read afresh at each step, as
// its iterator does), anything else through its iterator.
class Walk {
public:
    explicit Walk(PyObject* seq, Loc where = VXR_CALLER) {
        if (PyList_CheckExact(seq) || PyTuple_CheckExact(seq)) {
            seq_ = Ref::new_ref(seq);
        } else {
            it_ = iter(seq, where);
        }
    }
    // The next item, or an empty Ref at the end.
    Ref next(Loc where = VXR_CALLER) {
        if (it_) return vxr::next(it_.get(), where);
        if (!seq_) return Ref();
        PyObject* s = seq_.get();
        Py_ssize_t size = PyList_CheckExact(s) ? PyList_GET_SIZE(s) : PyTuple_GET_SIZE(s);
        if (index_ >= size) {
            seq_.reset();  // an exhausted iterator stays exhausted
            return Ref();
        }
        PyObject* item = PyList_CheckExact(s) ? PyList_GET_ITEM(s, index_) : PyTuple_GET_ITEM(s, index_);
        ++index_;
        return Ref::new_ref(item);
    }

private:
    Ref seq_, it_;
    Py_ssize_t index_ = 0;
};

// for a, b in zip(first, second): if not body(a, b): break
// Two exact lists or tuples are walked directly (the first one's next item
// taken before the second one's, as zip does); anything else goes through
// the built-in zip, for its own errors.
template <typename Body>
void zip_each(State& st, PyObject* first, PyObject* second, Body&& body) {
    auto exact = [](PyObject* o) { return PyList_CheckExact(o) || PyTuple_CheckExact(o); };
    if (exact(first) && exact(second)) {
        Walk a(first), b(second);
        for (;;) {
            Ref x = a.next();
            if (!x) return;
            Ref y = b.next();
            if (!y) return;
            if (!body(x.get(), y.get())) return;
        }
    }
    PyObject* args[2] = {first, second};
    Ref zipped = callv(st.b_zip, args, 2);
    for (;;) {
        Ref pair = next(zipped.get());
        if (!pair) return;
        // zip gives pairs; the tuple is held while the body runs.
        if (!body(PyTuple_GET_ITEM(pair.get(), 0), PyTuple_GET_ITEM(pair.get(), 1))) return;
    }
}

}  // namespace epc
}  // namespace vxr
