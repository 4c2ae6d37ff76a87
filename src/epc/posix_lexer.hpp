// The standard shlex.split(line) in one pass: POSIX mode, no comment
// characters, white space ' \t\r\n' only, both quote kinds, the backslash
// escape (outside quotes it escapes any character; inside double quotes
// only '"' and '\\', otherwise it stays), empty quoted items kept.  It
// raises ValueError "No closing quotation" and "No escaped character" where
// shlex raises them.  Tokens that are an unchanged slice of the line are
// returned as substrings; others are built in one buffer.
//
// With read_marks_as_underscore, every ',' and '\'' of the line is read as
// '_' (the EPC reader replaces both before splitting; doing it here spares
// two copies of the line).
#pragma once

#include "compat.hpp"

namespace vxr {
namespace epc {

namespace lexer_detail {

template <typename CharT>
class PosixLexer {
public:
    PosixLexer(PyObject* line, const CharT* data, Py_ssize_t n, bool marks) noexcept
        : line_(line), data_(data), n_(n), marks_(marks) {}
    ~PosixLexer() {
        if (heap_ != nullptr) PyMem_Free(heap_);
    }
    PosixLexer(const PosixLexer&) = delete;
    PosixLexer& operator=(const PosixLexer&) = delete;

    // Returns a new list, or nullptr with an exception set.
    PyObject* run() noexcept {
        tokens_ = PyList_New(0);
        if (tokens_ == nullptr) return nullptr;
        // The end of the line goes through the same switch as a sentinel.
        for (Py_ssize_t i = 0; i <= n_; ++i) {
            Py_UCS4 c = i < n_ ? static_cast<Py_UCS4>(data_[i]) : END;
            if (marks_ && (c == ',' || c == '\'')) c = MARK;
            if (step(i, c) < 0) {
                Py_CLEAR(tokens_);
                return nullptr;
            }
        }
        return tokens_;
    }

private:
    enum State { BETWEEN, WORD, SINGLE_QUOTED, DOUBLE_QUOTED, ESCAPED };
    // Pseudo-characters outside Unicode: end of line, and a ',' or '\''
    // that reads as '_'.
    static constexpr Py_UCS4 END = 0xFFFFFFFFu;
    static constexpr Py_UCS4 MARK = 0xFFFFFFFEu;

    static bool is_space(Py_UCS4 c) noexcept { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

    int step(Py_ssize_t i, Py_UCS4 c) noexcept {
        switch (state_) {
            case BETWEEN:
                if (c == END || is_space(c)) return 0;
                if (c == '\\') {
                    escaped_from_ = WORD;
                    state_ = ESCAPED;
                } else if (c == '"' || c == '\'') {
                    state_ = c == '"' ? DOUBLE_QUOTED : SINGLE_QUOTED;
                } else {
                    state_ = WORD;
                    return add(i, c);
                }
                return 0;
            case WORD:
                // A word always holds a character or has been quoted (even
                // as ""), so it is always emitted.
                if (c == END || is_space(c)) {
                    state_ = BETWEEN;
                    return emit();
                }
                if (c == '\\') {
                    escaped_from_ = WORD;
                    state_ = ESCAPED;
                } else if (c == '"' || c == '\'') {
                    state_ = c == '"' ? DOUBLE_QUOTED : SINGLE_QUOTED;
                } else {
                    return add(i, c);
                }
                return 0;
            case SINGLE_QUOTED:
            case DOUBLE_QUOTED:
                if (c == END) {
                    PyErr_SetString(PyExc_ValueError, "No closing quotation");
                    return -1;
                }
                if (c == (state_ == DOUBLE_QUOTED ? Py_UCS4('"') : Py_UCS4('\''))) {
                    state_ = WORD;
                } else if (c == '\\' && state_ == DOUBLE_QUOTED) {
                    escaped_from_ = DOUBLE_QUOTED;
                    state_ = ESCAPED;
                } else {
                    return add(i, c);
                }
                return 0;
            case ESCAPED:
                if (c == END) {
                    PyErr_SetString(PyExc_ValueError, "No escaped character");
                    return -1;
                }
                // Inside double quotes only the quote and the backslash
                // itself are escaped; before anything else the backslash
                // (the character just before) stays.
                state_ = escaped_from_;
                if (state_ == DOUBLE_QUOTED && c != '\\' && c != '"' && add(i - 1, '\\') < 0) return -1;
                return add(i, c);
        }
        return 0;
    }

    // Appends the character c read at position i.  While the token is one
    // unbroken run of the line's characters, only its bounds are kept.
    int add(Py_ssize_t i, Py_UCS4 c) noexcept {
        if (verbatim_) {
            if (c != MARK) {
                if (length_ == 0) {
                    start_ = i;
                    length_ = 1;
                    return 0;
                }
                if (i == start_ + length_) {
                    ++length_;
                    return 0;
                }
            }
            if (to_buffer() < 0) return -1;
        }
        buffer_[length_++] = c == MARK ? CharT('_') : static_cast<CharT>(c);
        return 0;
    }

    // Moves the token so far into the buffer, made on first need; it holds
    // any token, since a token never has more characters than the line.
    int to_buffer() noexcept {
        if (buffer_ == nullptr) {
            if (n_ <= static_cast<Py_ssize_t>(sizeof(local_) / sizeof(local_[0]))) {
                buffer_ = local_;
            } else {
                heap_ = static_cast<CharT*>(PyMem_Malloc(static_cast<size_t>(n_) * sizeof(CharT)));
                if (heap_ == nullptr) {
                    PyErr_NoMemory();
                    return -1;
                }
                buffer_ = heap_;
            }
        }
        for (Py_ssize_t k = 0; k < length_; ++k) buffer_[k] = data_[start_ + k];
        verbatim_ = false;
        return 0;
    }

    int emit() noexcept {
        PyObject* token = verbatim_ ? PyUnicode_Substring(line_, start_, start_ + length_)
                                    : PyUnicode_FromKindAndData(static_cast<int>(sizeof(CharT)), buffer_, length_);
        length_ = 0;
        start_ = 0;
        verbatim_ = true;
        if (token == nullptr) return -1;
        int status = PyList_Append(tokens_, token);
        Py_DECREF(token);
        return status;
    }

    PyObject* line_;
    const CharT* data_;
    Py_ssize_t n_;
    bool marks_;
    PyObject* tokens_ = nullptr;

    State state_ = BETWEEN;
    State escaped_from_ = WORD;
    bool verbatim_ = true;  // the token is line[start_:start_ + length_]
    Py_ssize_t start_ = 0, length_ = 0;
    CharT local_[256];
    CharT* heap_ = nullptr;
    CharT* buffer_ = nullptr;
};

}  // namespace lexer_detail

// A new list of str, or nullptr with an exception set.  `line` must be a
// str that exact_str() accepted.
inline PyObject* posix_split(PyObject* line, bool read_marks_as_underscore) noexcept {
    Py_ssize_t n = PyUnicode_GET_LENGTH(line);
    void* data = PyUnicode_DATA(line);
    switch (PyUnicode_KIND(line)) {
        case PyUnicode_1BYTE_KIND:
            return lexer_detail::PosixLexer<Py_UCS1>(line, static_cast<const Py_UCS1*>(data), n,
                                                     read_marks_as_underscore)
                .run();
        case PyUnicode_2BYTE_KIND:
            return lexer_detail::PosixLexer<Py_UCS2>(line, static_cast<const Py_UCS2*>(data), n,
                                                     read_marks_as_underscore)
                .run();
        default:
            return lexer_detail::PosixLexer<Py_UCS4>(line, static_cast<const Py_UCS4*>(data), n,
                                                     read_marks_as_underscore)
                .run();
    }
}

}  // namespace epc
}  // namespace vxr
