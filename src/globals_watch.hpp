// The module's globals and the standard modules' attributes that the fast
// paths rely on, watched so that a call need not look each of them up.
#pragma once

#include "compat.hpp"

#include <cstdint>

namespace vxr {

// One name in one watched dictionary, and the object it held at import.  The
// name and the object are the module state's, which outlives the watch.
struct WatchedName {
    int dict;  // index into the watched dictionaries
    PyObject* name;
    PyObject* expected;
};

// Tells whether every watched name still holds its object.
//
// Up to 3.11 a dictionary's version tag moves on every change, after the
// change is made: the watch gives the highest tag of its dictionaries as a
// stamp, and whoever asks compares the names again when it moves.
//
// From 3.12 a dictionary watcher is told of each change before it is made,
// with the key and the new value, and code can run in between (another
// watcher, or sys.unraisablehook when one fails).  A look-up made then reads
// what is about to change, so the names are tracked from the events alone,
// as each dictionary will be once its change lands, and a change is taken as
// pending (every call looks its globals up) until the dictionary shows it
// made.  A dictionary's next change comes after its last one has landed:
// changing a dictionary while its watchers are being told is not supported
// by the interpreter.  An event whose effect on a name cannot be told without
// running code (a key that is not an exact str, which may compare equal to
// any name) leaves that dictionary unsure until it is emptied or replaced
// whole; until then, too, every call looks its globals up.
//
// The dictionaries are owned: the module and a standard module can be
// collected in the same pass, and a dictionary freed first must not be
// unwatched afterwards.
class GlobalsWatch {
public:
    static constexpr int kMaxDicts = 4;
    static constexpr int kMaxNames = 16;

    // Watches names[0..count) in dicts[0..ndicts).  False, with nothing
    // watched and no error set, when there is no watcher to spare.
    bool start(PyObject* const* dicts, int ndicts, const WatchedName* names, int count) noexcept;
    void stop() noexcept;
    int traverse(visitproc visit, void* arg) noexcept;

    bool watching() const noexcept { return ndicts_ != 0; }
    PyObject* dict(int i) const noexcept { return dicts_[i]; }
    int count() const noexcept { return count_; }
    const WatchedName& name(int i) const noexcept { return names_[i]; }

#if VXR_DICT_WATCHERS
    // Every watched name holds its object, as the events tell, and no change
    // that could alter that is still to be made.
    bool unchanged() noexcept {
        if (VXR_LIKELY((differ_ | unsure_ | pending_) == 0)) return ndicts_ != 0;
        return (differ_ | unsure_) == 0 && all_landed();
    }
    void on_event(PyDict_WatchEvent event, PyObject* dict, PyObject* key, PyObject* value) noexcept;
#else
    // A number that moves on whenever a watched dictionary changes; 0 while
    // nothing is watched.
    uint64_t stamp() const noexcept {
        uint64_t high = 0;
        for (int i = 0; i < ndicts_; ++i) {
            uint64_t tag = reinterpret_cast<PyDictObject*>(dicts_[i])->ma_version_tag;
            if (tag > high) high = tag;
        }
        return high;
    }
#endif

private:
#if VXR_DICT_WATCHERS
    void set(int i, bool differs) noexcept {
        if (differs) differ_ |= 1u << i;
        else differ_ &= ~(1u << i);
    }
    void take_whole(int d, PyObject* source) noexcept;
    bool all_landed() noexcept;
    static constexpr int kEmptied = -1, kFilled = -2;  // pending_name_ of a whole-dictionary change
    int watcher_ = -1;
    uint32_t differ_ = 0;   // names whose dictionary holds another object, or none
    uint32_t unsure_ = 0;   // dictionaries whose names cannot be told from the events
    uint32_t pending_ = 0;  // dictionaries with a change told of and perhaps not yet made
    int pending_name_[kMaxDicts] = {};
    PyObject* pending_value_[kMaxDicts] = {};  // compared, never read: null for a deletion
#endif
    PyObject* dicts_[kMaxDicts] = {};  // owned
    int ndicts_ = 0;
    WatchedName names_[kMaxNames] = {};
    int count_ = 0;
};

}  // namespace vxr
