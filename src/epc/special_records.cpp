// EPC special records: the separator check of DC bus records, SVD records
// whose items depend on their type, and Q tables whose all-zero points are
// dropped.  Both assigners end in _epc_assign_data_values_common.
#include "epc/epc.hpp"

#include <vector>

namespace {

using vxr::Ref;
using vxr::State;

// ---------------------------------------------------------------------------
// _epc_check_frmt_dc_bus_rec
// ---------------------------------------------------------------------------

// The ":" stands at position 3, or at 4 when the record has a long
// identifier.  vnamlist and frmtdct are part of the call, not of the check.
Ref epc_check_frmt_dc_bus_rec(State& st, PyObject* const* a) {
    PyObject *valslist = a[0], *progress = a[3];
    bool found_semi = false, ierr = false, has_long_id = false;
    Py_ssize_t i = 0;
    vxr::epc::Walk items(valslist);
    for (Py_ssize_t position = 0;; ++position) {
        Ref item = items.next();
        if (!item) break;
        i = position;
        if (vxr::equals(item.get(), st.n.epc_colon)) {
            found_semi = true;
            break;
        }
    }
    if (found_semi && (i == 3 || i == 4)) {
        has_long_id = i == 4;
    } else {
        ierr = true;
    }
    if (ierr) {
        Ref msg = Ref::new_ref(st.n.epc_dc_bus_heading);
        if (found_semi) {
            Ref position = vxr::check(PyLong_FromSsize_t(i));
            vxr::add_to(msg, vxr::format(st, st.n.epc_dc_bus_semi_at, {position.get()}).get());
        } else {
            vxr::add_to(msg, st.n.epc_dc_bus_no_semi);
        }
        vxr::call1(progress, msg.get());
    }
    return vxr::tuple_of({vxr::py_bool(ierr), vxr::py_bool(has_long_id)});
}

// ---------------------------------------------------------------------------
// _epc_assign_data_values_svd
// ---------------------------------------------------------------------------

// seq[:].  An exact list is copied as list() copies it, which reads its items
// only once the new list is made: the slice reads them after making it, and
// up to 3.11 that can run a finalizer that empties the list.
Ref full_slice(PyObject* seq) {
    if (PyList_CheckExact(seq)) return vxr::check(PySequence_List(seq));
    Ref all = vxr::check(PySlice_New(nullptr, nullptr, nullptr));
    return vxr::getitem(seq, all.get());
}

// The name-list key of an SVD type, or nullptr for a type outside 0 to 7.
// int() gives an exact int, compared in C; anything else (only a __trunc__
// could make it) is compared by the interpreter.
PyObject* svd_type_key(State& st, PyObject* vnamsdct, PyObject* ty) {
    long type = -1;
    if (PyLong_CheckExact(ty)) {
        int overflow = 0;
        type = PyLong_AsLongAndOverflow(ty, &overflow);
        if (type == -1 && PyErr_Occurred()) vxr::fail();
        if (overflow != 0) type = -1;
    } else {
        for (long k = 0; k <= 7; ++k) {
            Ref candidate = vxr::check(PyLong_FromLong(k));
            if (vxr::equals(ty, candidate.get())) {
                type = k;
                break;
            }
        }
    }
    auto present = [&](PyObject* key) { return vxr::check_status(PySequence_Contains(vnamsdct, key)) != 0; };
    if (type >= 0 && type <= 2) return present(st.n.epc_ty_012) ? st.n.epc_ty_012 : st.n.epc_ty_01234;
    if (type == 3 || type == 4) return present(st.n.epc_ty_34) ? st.n.epc_ty_34 : st.n.epc_ty_01234;
    if (type == 5 || type == 6) return st.n.epc_ty_56;
    if (type == 7) return st.n.epc_ty_7;
    return nullptr;
}

// vnamlist.extend(vnamsdct[key]): the method is looked up before the key is
// read, so a copied name list without one (a tuple's) fails first.
void extend_by(State& st, PyObject* vnamlist, PyObject* vnamsdct, PyObject* key) {
    Ref extend = vxr::getattr(vnamlist, st.n.epc_extend);
    vxr::call1(extend.get(), vxr::getitem(vnamsdct, key).get());
}

// " SVD type found is '<ty>'. ..." and the record-ignored tail; the SVD
// reader's early return gives its plain dictionary back.
Ref report_svd_type(State& st, PyObject* ty, PyObject* recgrp, PyObject* lnumstr, PyObject* progress,
                    PyObject* valsdict) {
    Ref msg = vxr::check(PyNumber_Remainder(st.n.epc_svd_type_found, vxr::str(ty).get()));
    vxr::add_to(msg, vxr::epc::record_ignored_tail(st, recgrp, lnumstr).get());
    vxr::call1(progress, msg.get());
    return vxr::tuple_of({Py_True, valsdict});
}

Ref epc_assign_data_values_svd(State& st, PyObject* const* a) {
    PyObject *recgrp = a[0], *lnumstr = a[1], *valslist = a[2], *vnamsdct = a[3], *frmtdct = a[4],
             *progress = a[5];
    Ref valsdict = vxr::new_dict();
    Ref begin_all = vxr::getitem(vnamsdct, st.n.epc_begin_all);
    Ref idx_ty = vxr::method(begin_all.get(), st.n.index, st.n.epc_ty);

    PyObject* item = PyObject_GetItem(valslist, idx_ty.get());
    if (item == nullptr) {
        // The handler's message would show the type item that was never
        // read: the reference to it raises at once.
        vxr::Handling handling;
        vxr::raise_unbound_local("ty");
    }
    Ref ty = Ref::steal(item);

    PyObject* type = PyNumber_Long(ty.get());
    if (type == nullptr) {
        vxr::Handling handling;
        return report_svd_type(st, ty.get(), recgrp, lnumstr, progress, valsdict.get());
    }
    ty = Ref::steal(type);  // from here on the type is the integer

    Ref vnamlist = full_slice(begin_all.get());
    PyObject* group = svd_type_key(st, vnamsdct, ty.get());
    if (group == nullptr) return report_svd_type(st, ty.get(), recgrp, lnumstr, progress, valsdict.get());
    extend_by(st, vnamlist.get(), vnamsdct, group);
    extend_by(st, vnamlist.get(), vnamsdct, st.n.epc_end_all);

    return vxr::epc::assign_pairs(st, recgrp, lnumstr, vnamlist.get(), valslist, frmtdct, progress);
}

// ---------------------------------------------------------------------------
// _epc_assign_data_values_qtable
// ---------------------------------------------------------------------------

// float(text), or 0.0 for a text that float() refuses (silently).
double float_or_zero(PyObject* text) {
    PyObject* value = PyNumber_Float(text);
    if (value == nullptr) {
        PyErr_Clear();
        return 0.0;
    }
    double d = PyFloat_AS_DOUBLE(value);  // float() gives an exact float
    Py_DECREF(value);
    return d;
}

Ref epc_assign_data_values_qtable(State& st, PyObject* const* a) {
    PyObject *recgrp = a[0], *lnumstr = a[1], *valslist = a[2], *vnamlist = a[3], *frmtdct = a[4],
             *progress = a[5];
    // The head up to and with the ":".
    Ref vlist2 = vxr::new_list();
    Py_ssize_t i1 = -1;  // unassigned until the walk reads an item
    vxr::epc::Walk items(valslist);
    for (Py_ssize_t position = 0;; ++position) {
        Ref item = items.next();
        if (!item) break;
        i1 = position;
        vxr::append(vlist2.get(), item.get());
        if (vxr::equals(item.get(), st.n.epc_colon)) break;
    }
    if (i1 < 0) vxr::raise_unbound_local("i1");
    i1 += 1;

    // The points after it, all read before any is converted; an incomplete
    // last triple is left out.  The length the list reports bounds the walk
    // only: a sequence may claim far more items than it gives.
    Py_ssize_t end = vxr::length(valslist);
    std::vector<Ref> points;
    for (Py_ssize_t i2 = i1; i2 < end; ++i2) points.push_back(vxr::getindex(valslist, i2));
    for (size_t t = 0; t + 3 <= points.size(); t += 3) {
        double fp = float_or_zero(points[t].get());
        double fqmx = float_or_zero(points[t + 1].get());
        double fqmn = float_or_zero(points[t + 2].get());
        if (fp == 0.0 && fqmx == 0.0 && fqmn == 0.0) continue;
        for (size_t k = t; k < t + 3; ++k) vxr::append(vlist2.get(), points[k].get());
    }

    return vxr::epc::assign_pairs(st, recgrp, lnumstr, vnamlist, vlist2.get(), frmtdct, progress);
}

}  // namespace

VXR_DEF_ARGS(_epc_check_frmt_dc_bus_rec, "($module, /, valslist, vnamlist, frmtdct, progress)", "OOOO", 4,
             epc_check_frmt_dc_bus_rec, "valslist", "vnamlist", "frmtdct", "progress")
VXR_DEF_ARGS(_epc_assign_data_values_svd, "($module, /, recgrp, lnumstr, valslist, vnamsdct, frmtdct, progress)",
             "OOOOOO", 6, epc_assign_data_values_svd, "recgrp", "lnumstr", "valslist", "vnamsdct", "frmtdct",
             "progress")
VXR_DEF_ARGS(_epc_assign_data_values_qtable,
             "($module, /, recgrp, lnumstr, valslist, vnamlist, frmtdct, progress)", "OOOOOO", 6,
             epc_assign_data_values_qtable, "recgrp", "lnumstr", "valslist", "vnamlist", "frmtdct", "progress")
