// The watch of the module's globals (see globals_watch.hpp).
#include "globals_watch.hpp"

namespace vxr {

#if VXR_DICT_WATCHERS
namespace {

// A watcher callback is told nothing but the event: one module per process,
// so one watch to tell.
GlobalsWatch* g_active = nullptr;

int on_dict_event(PyDict_WatchEvent event, PyObject* dict, PyObject* key, PyObject* value) noexcept {
    if (g_active != nullptr) g_active->on_event(event, dict, key, value);
    return 0;
}

// Two exact strs compared as a dictionary of exact str keys compares them:
// by text, with no code run.
bool same_text(PyObject* a, PyObject* b) noexcept {
    return a == b || (PyUnicode_GET_LENGTH(a) == PyUnicode_GET_LENGTH(b) && PyUnicode_Compare(a, b) == 0);
}

}  // namespace

// Dictionary d is about to hold what `source` holds (nothing when null).
void GlobalsWatch::take_whole(int d, PyObject* source) noexcept {
    unsure_ &= ~(1u << d);
    for (int i = 0; i < count_; ++i) {
        if (names_[i].dict == d) set(i, true);
    }
    if (source == nullptr) return;
    Py_ssize_t pos = 0;
    PyObject *key, *value;
    while (PyDict_Next(source, &pos, &key, &value)) {
        if (!PyUnicode_CheckExact(key)) {
            unsure_ |= 1u << d;
            return;
        }
        for (int i = 0; i < count_; ++i) {
            if (names_[i].dict == d && same_text(key, names_[i].name)) set(i, value != names_[i].expected);
        }
    }
}

void GlobalsWatch::on_event(PyDict_WatchEvent event, PyObject* dict, PyObject* key, PyObject* value) noexcept {
    int d = 0;
    while (d < ndicts_ && dicts_[d] != dict) ++d;
    if (d == ndicts_) return;
    const uint32_t bit = 1u << d;
    pending_ &= ~bit;  // its last change has landed
    switch (event) {
    case PyDict_EVENT_ADDED:
    case PyDict_EVENT_MODIFIED:
    case PyDict_EVENT_DELETED:
        if (unsure_ & bit) return;
        if (!PyUnicode_CheckExact(key)) {
            unsure_ |= bit;
            return;
        }
        for (int i = 0; i < count_; ++i) {
            if (names_[i].dict == d && same_text(key, names_[i].name)) {
                // `value` is null for a deletion: the name then holds nothing.
                set(i, value != names_[i].expected);
                pending_ |= bit;
                pending_name_[d] = i;
                pending_value_[d] = value;
                return;
            }
        }
        return;
    case PyDict_EVENT_CLEARED:
        take_whole(d, nullptr);
        pending_ |= bit;
        pending_name_[d] = kEmptied;
        return;
    case PyDict_EVENT_CLONED:  // `key` is the dictionary copied in whole
        take_whole(d, PyDict_Check(key) ? key : nullptr);
        if (!PyDict_Check(key)) unsure_ |= bit;
        pending_ |= bit;
        pending_name_[d] = kFilled;  // only an empty dictionary is filled so
        return;
    default:  // deallocation cannot come while the dictionary is owned
        unsure_ |= bit;
        return;
    }
}

// Whether each pending change shows made.  The dictionaries are sure, so
// their keys are exact strs and a look-up runs no code.
bool GlobalsWatch::all_landed() noexcept {
    for (int d = 0; d < ndicts_; ++d) {
        if (!(pending_ & (1u << d))) continue;
        PyObject* dict = dicts_[d];
        const int i = pending_name_[d];
        bool landed;
        if (i == kEmptied) {
            landed = PyDict_GET_SIZE(dict) == 0;
        } else if (i == kFilled) {
            landed = PyDict_GET_SIZE(dict) != 0;
        } else {
            landed = PyDict_GetItem(dict, names_[i].name) == pending_value_[d];
        }
        if (!landed) return false;
        pending_ &= ~(1u << d);
    }
    return ndicts_ != 0;
}
#endif

bool GlobalsWatch::start(PyObject* const* dicts, int ndicts, const WatchedName* names, int count) noexcept {
    if (ndicts_ != 0 || ndicts > kMaxDicts || count > kMaxNames) return false;
#if VXR_DICT_WATCHERS
    if (g_active != nullptr) return false;
    int id = PyDict_AddWatcher(on_dict_event);
    if (id < 0) {
        PyErr_Clear();
        return false;
    }
    for (int d = 0; d < ndicts; ++d) {
        if (PyDict_Watch(id, dicts[d]) < 0) {
            PyErr_Clear();
            for (int w = 0; w < d; ++w) {
                if (PyDict_Unwatch(id, dicts[w]) < 0) PyErr_Clear();
            }
            if (PyDict_ClearWatcher(id) < 0) PyErr_Clear();
            return false;
        }
    }
    watcher_ = id;
    g_active = this;
#endif
    for (int i = 0; i < count; ++i) names_[i] = names[i];
    count_ = count;
    for (int d = 0; d < ndicts; ++d) {
        Py_INCREF(dicts[d]);
        dicts_[d] = dicts[d];
    }
    ndicts_ = ndicts;
#if VXR_DICT_WATCHERS
    // Read when no change can be pending: the module's body runs no code
    // between these dictionaries' last changes and here.
    for (int d = 0; d < ndicts; ++d) take_whole(d, dicts_[d]);
#endif
    return true;
}

void GlobalsWatch::stop() noexcept {
    if (ndicts_ == 0) return;
    PyObject* dicts[kMaxDicts];
    const int n = ndicts_;
    for (int d = 0; d < n; ++d) dicts[d] = dicts_[d];
    ndicts_ = 0;
    count_ = 0;
#if VXR_DICT_WATCHERS
    g_active = nullptr;
    for (int d = 0; d < n; ++d) {
        if (PyDict_Unwatch(watcher_, dicts[d]) < 0) PyErr_Clear();
    }
    if (PyDict_ClearWatcher(watcher_) < 0) PyErr_Clear();
    watcher_ = -1;
    differ_ = unsure_ = pending_ = 0;
#endif
    // Last: freeing a dictionary can run code.
    for (int d = 0; d < n; ++d) {
        dicts_[d] = nullptr;
        Py_DECREF(dicts[d]);
    }
}

int GlobalsWatch::traverse(visitproc visit, void* arg) noexcept {
    for (int d = 0; d < ndicts_; ++d) Py_VISIT(dicts_[d]);
    return 0;
}

}  // namespace vxr
