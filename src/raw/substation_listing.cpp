// The echo of stored substation blocks: one RAW-like line per record, in the
// order of the stored dictionaries, each through the caller's progress.
#include "text/field_text.hpp"

namespace vxr {
namespace {

// ---------------------------------------------------------------------------
// template.format(**mapping)
// ---------------------------------------------------------------------------

// A record given as None is refused with the message the tools have always
// seen; anything else that is not a dict is first made one by dict().  A dict
// is merged into a new one, as ** merges it: PyDict_Copy of an instance's
// __dict__ reads its values after making the copy, and up to 3.11 that can
// run a finalizer that empties it.
Ref format_mapping(State& st, PyObject* templ, PyObject* mapping) {
    Ref func = getattr(templ, st.n.format);
    if (mapping == Py_None) raise(PyExc_TypeError, "argument after ** must be a mapping, not NoneType");
    Ref kwargs;
    if (PyDict_CheckExact(mapping)) {
        kwargs = new_dict();
        check_status(PyDict_Merge(kwargs.get(), mapping, 1));
    } else {
        kwargs = call1(reinterpret_cast<PyObject*>(&PyDict_Type), mapping);
    }
    Ref no_args = check(PyTuple_New(0));
    return check(PyObject_Call(func.get(), no_args.get(), kwargs.get()));
}

// ---------------------------------------------------------------------------
// The listing
// ---------------------------------------------------------------------------

// Each record of a list through one line template.
void print_records(State& st, PyObject* recdct, PyObject* templ, PyObject* progress) {
    Ref it = iter(recdct);
    while (Ref eachdct = next(it.get())) call1(progress, format_mapping(st, templ, eachdct.get()).get());
}

// The terminal line is chosen by the unquoted type; the type itself is
// printed as stored.
Ref terminal_line(State& st, PyObject* eachdct) {
    // _get_unwrapped_string(eachdct["TERTYP"]): the function is looked up first.
    Ref unwrap = global(st, st.n.fn_get_unwrapped_string);
    Ref stored = getitem(eachdct, st.n.ss_TERTYP);
    Ref tertyp = call_resolved(
        unwrap.get(), st.fn_get_unwrapped_string, "vxrcomn._get_unwrapped_string",
        [&] { return get_unwrapped_string(st, stored.get()); }, {stored.get()});
    PyObject* t = tertyp.get();
    if (equals(t, st.n.ss_term_L) || equals(t, st.n.ss_term_F) || equals(t, st.n.ss_term_M)) {
        return format_mapping(st, st.n.ss_term_line_lfm, eachdct);
    }
    if (equals(t, st.n.ss_term_2)) return format_mapping(st, st.n.ss_term_line_2, eachdct);
    if (equals(t, st.n.ss_term_3)) return format_mapping(st, st.n.ss_term_line_3, eachdct);
    if (equals(t, st.n.ss_term_S)) return format_mapping(st, st.n.ss_term_line_s, eachdct);
    Ref txt = add(st.n.ss_junk, str(eachdct).get());
    return add(txt.get(), st.n.newline);
}

Ref print_kora_substation_block_data_as_stored(State& st, PyObject* const* a) {
    PyObject* progress = a[1];
    ItemsSnapshot substations(st, a[0]);
    Ref ss_num, ss_vdct;
    while (substations.next(ss_num, ss_vdct)) {
        call1(progress, st.n.newline);
        ItemsSnapshot kinds(st, ss_vdct.get());
        Ref kind, records;
        while (kinds.next(kind, records)) {
            PyObject* rectyp = kind.get();
            PyObject* recdct = records.get();
            if (equals(rectyp, st.n.ss_id)) {
                call1(progress, format_mapping(st, st.n.ss_id_line, recdct).get());
            } else if (equals(rectyp, st.n.ss_node)) {
                print_records(st, recdct, st.n.ss_node_line, progress);
            } else if (equals(rectyp, st.n.ss_swd)) {
                print_records(st, recdct, st.n.ss_swd_line, progress);
            } else if (equals(rectyp, st.n.ss_term)) {
                Ref it = iter(recdct);
                while (Ref eachdct = next(it.get())) call1(progress, terminal_line(st, eachdct.get()).get());
            }
            // Other record kinds are not echoed.
        }
    }
    return Ref::new_ref(Py_None);
}

}  // namespace
}  // namespace vxr

VXR_DEF_ARGS(_print_kora_substation_block_data_as_stored, "($module, /, sub_block_data_dict, progress)", "OO", 2,
             vxr::print_kora_substation_block_data_as_stored, "sub_block_data_dict", "progress")
