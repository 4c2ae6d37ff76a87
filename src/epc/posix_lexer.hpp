// The standard shlex.split(line) in one pass: POSIX mode, no comment
// characters, white space ' \t\r\n' only, both quote kinds, the backslash
// escape (outside quotes it escapes any character; inside double quotes
// only '"' and '\\', otherwise it stays), empty quoted items kept.  It
// raises ValueError "No closing quotation" and "No escaped character" where
// shlex raises them.  A token of plain characters is made straight from the
// line; the others go through the state machine, which keeps a token that
// stays an unchanged run of the line as its bounds and builds the rest in
// one buffer.
//
// With read_marks_as_underscore, every ',' and '\'' of the line is read as
// '_' (the EPC reader replaces both before splitting; doing it here spares
// two copies of the line).  The double quotes of the whole line are counted
// on the way, as line.count('"') counts them.
#pragma once

#include "vxr.hpp"

namespace vxr {
namespace epc {

namespace lexer_detail {

template <typename CharT>
class PosixLexer {
public:
    PosixLexer(PyObject* line, const CharT* data, Py_ssize_t n, bool ascii, bool marks) noexcept
        : line_(line), data_(data), n_(n), ascii_(ascii), marks_(marks),
          table_(marks ? kClasses.marked : kClasses.plain) {}
    ~PosixLexer() {
        if (heap_ != nullptr) PyMem_Free(heap_);
    }
    PosixLexer(const PosixLexer&) = delete;
    PosixLexer& operator=(const PosixLexer&) = delete;

    // Returns a new list, or nullptr with an exception set; either way
    // quotes() then gives the number of '"' in the line.
    PyObject* run() noexcept {
        const CharT* const t = data_;
        const Py_ssize_t n = n_;
        Py_ssize_t i = 0;
        for (;;) {
            while (i < n && class_of(t[i]) == SPACE) ++i;
            if (i >= n) return tokens_.take_list();
            Py_ssize_t j = i;
            while (j < n && class_of(t[j]) == PLAIN) ++j;
            if (j >= n || class_of(t[j]) == SPACE) {
                if (!tokens_.push_new(slice(i, j - i))) return failed(j);
                i = j;
                continue;
            }
            if (j == i && t[i] == '"') {
                // A name between double quotes, with blanks but no quote,
                // backslash or mark inside, and nothing after it: its text.
                Py_ssize_t k = i + 1;
                while (k < n && class_of(t[k]) != SPECIAL) ++k;
                if (k < n && t[k] == '"' && (k + 1 >= n || class_of(t[k + 1]) == SPACE)) {
                    quotes_ += 2;
                    if (!tokens_.push_new(slice(i + 1, k - i - 1))) return failed(k + 1);
                    i = k + 1;
                    continue;
                }
            }
            // A quote, backslash or mark: the state machine takes the token
            // from there, its plain start already read.
            start_ = i;
            length_ = j - i;
            verbatim_ = true;
            state_ = j > i ? WORD : BETWEEN;
            // The end of the line goes through the same switch as a sentinel.
            for (;; ++j) {
                Py_UCS4 c = j < n ? static_cast<Py_UCS4>(t[j]) : END;
                if (c == '"') ++quotes_;
                if (marks_ && (c == ',' || c == '\'')) c = MARK;
                if (step(j, c) < 0) return failed(j + 1);
                if (state_ == BETWEEN) break;  // the token ended at j
            }
            i = j + 1;
        }
    }

    Py_ssize_t quotes() const noexcept { return quotes_; }

private:
    enum State { BETWEEN, WORD, SINGLE_QUOTED, DOUBLE_QUOTED, ESCAPED };
    // Pseudo-characters outside Unicode: end of line, and a ',' or '\''
    // that reads as '_'.
    static constexpr Py_UCS4 END = 0xFFFFFFFFu;
    static constexpr Py_UCS4 MARK = 0xFFFFFFFEu;

    // Character classes of ASCII, one table for each reading of ',' and
    // '\''; every other character is plain.  A one-byte character indexes
    // the whole table, without a range test.
    enum : unsigned char { PLAIN, SPACE, SPECIAL };
    struct Classes {
        unsigned char plain[256], marked[256];
        constexpr Classes() : plain(), marked() {
            for (int c : {' ', '\t', '\r', '\n'}) plain[c] = marked[c] = SPACE;
            for (int c : {'"', '\'', '\\'}) plain[c] = marked[c] = SPECIAL;
            marked[static_cast<int>(',')] = SPECIAL;
        }
    };
    static constexpr Classes kClasses{};

    unsigned char class_of(CharT c) const noexcept {
        if (sizeof(CharT) == 1 || c < 256) return table_[c];
        return PLAIN;
    }

    static bool is_space(Py_UCS4 c) noexcept { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

    // A failure at position `from`: the rest of the line's double quotes
    // are counted, then nullptr.
    PyObject* failed(Py_ssize_t from) noexcept {
        for (Py_ssize_t k = from; k < n_; ++k) quotes_ += data_[k] == '"';
        return nullptr;
    }

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

    // line[start:start + length]; the whole line is the line itself.
    PyObject* slice(Py_ssize_t start, Py_ssize_t length) noexcept {
        if (length == n_) {
            Py_INCREF(line_);
            return line_;
        }
        return new_text(data_ + start, length, ascii_);
    }

    int emit() noexcept {
        PyObject* token = verbatim_ ? slice(start_, length_) : new_text(buffer_, length_, ascii_);
        length_ = 0;
        start_ = 0;
        verbatim_ = true;
        return tokens_.push_new(token) ? 0 : -1;
    }

    PyObject* line_;
    const CharT* data_;
    Py_ssize_t n_;
    bool ascii_;  // the line is ASCII: tokens are copies of its bytes
    bool marks_;
    const unsigned char* table_;
    ItemBuffer tokens_;
    Py_ssize_t quotes_ = 0;

    State state_ = BETWEEN;
    State escaped_from_ = WORD;
    bool verbatim_ = true;  // the token is line[start_:start_ + length_]
    Py_ssize_t start_ = 0, length_ = 0;
    CharT local_[256];
    CharT* heap_ = nullptr;
    CharT* buffer_ = nullptr;
};

template <typename CharT>
inline PyObject* posix_split_kind(PyObject* line, bool ascii, bool read_marks_as_underscore,
                                  Py_ssize_t& quotes) noexcept {
    PosixLexer<CharT> lexer(line, static_cast<const CharT*>(PyUnicode_DATA(line)), PyUnicode_GET_LENGTH(line), ascii,
                            read_marks_as_underscore);
    PyObject* tokens = lexer.run();
    quotes = lexer.quotes();
    return tokens;
}

}  // namespace lexer_detail

// A new list of str, or nullptr with an exception set; `quotes` receives
// the number of '"' in the line either way.  `line` must be a str that
// exact_str() accepted.
inline PyObject* posix_split(PyObject* line, bool read_marks_as_underscore, Py_ssize_t& quotes) noexcept {
    const bool ascii = PyUnicode_IS_ASCII(line);
    switch (PyUnicode_KIND(line)) {
        case PyUnicode_1BYTE_KIND:
            return lexer_detail::posix_split_kind<Py_UCS1>(line, ascii, read_marks_as_underscore, quotes);
        case PyUnicode_2BYTE_KIND:
            return lexer_detail::posix_split_kind<Py_UCS2>(line, ascii, read_marks_as_underscore, quotes);
        default:
            return lexer_detail::posix_split_kind<Py_UCS4>(line, ascii, read_marks_as_underscore, quotes);
    }
}

}  // namespace epc
}  // namespace vxr
