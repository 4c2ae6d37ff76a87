// One pass over a stripped KORA RAW data line that yields the item texts
// the module's documented pipeline yields: the empty-item rewrite
// (",<blanks>," gets "_ifc" between the commas, a leading comma gets an
// "_ifc" before it), then a non-POSIX lexer whose separators are blank, tab,
// CR, LF and comma, whose comment character is "#" and whose quotes are the
// single and double quote, then every quote character dropped from the items.
//
// The rewrite is not done on a copy of the line: wherever the lexer meets a
// comma outside quotes and comments, the rewritten text would hold a lone
// "_ifc" item; inside quotes the rewrite changes the item text; inside
// comments it is dropped with the comment.
//
// Lexer rules that are easy to miss, all as the standard lexer has them:
// - a quote opens a quoted item only at the start of an item; the closing
//   quote ends the item even when more text follows it;
// - a quote inside an unquoted item is an ordinary character;
// - "#" outside quotes drops the rest of its line through the line feed, and
//   an unquoted item that it interrupts goes on after that line feed.
#pragma once

#include "vxr.hpp"

#include <vector>

namespace vxr {
namespace raw {

enum class LexResult { ok, no_closing_quotation, error };

template <typename CharT>
class KoraLexer {
public:
    // `ascii`: the whole line is ASCII, so items can be made by copying bytes.
    KoraLexer(const CharT* text, Py_ssize_t size, bool ascii, PyObject* ifc, ItemBuffer& out)
        : t_(text), n_(size), ascii_(ascii), ifc_(ifc), out_(out) {}

    LexResult run() {
        const CharT* const t = t_;
        const Py_ssize_t n = n_;
        Py_ssize_t i = 0;
        if (n > 0 && t[0] == ',' && !emit_ifc()) return LexResult::error;
        for (;;) {
            // Between items.
            unsigned char k = TEXT;
            while (i < n) {
                k = kind_of(t[i]);
                if (k == SPACE) {
                    ++i;
                } else if (k == COMMA) {
                    // The blanks after a comma are passed over at once: an
                    // empty item when another comma follows them.
                    Py_ssize_t j = after_blanks(i + 1);
                    if (j < n && t[j] == ',' && !emit_ifc()) return LexResult::error;
                    i = j;
                } else if (k == HASH) {
                    i = after_line(i + 1);
                } else {
                    break;
                }
            }
            if (i >= n) return LexResult::ok;
            if (k == QUOTE) {
                Py_ssize_t close = quoted_item(i, t[i]);
                if (close < 0) return close == -1 ? LexResult::no_closing_quotation : LexResult::error;
                i = close + 1;
                continue;
            }
            // An unquoted item; most are plain text up to a separator.
            Py_ssize_t j = i + 1;
            while (j < n && (k = kind_of(t[j])) == TEXT) ++j;
            if (j < n && (k == QUOTE || k == HASH)) {
                i = word(i);
                if (i < 0) return LexResult::error;
            } else {
                if (!emit(make(t + i, j - i))) return LexResult::error;
                i = j;
            }
        }
    }

private:
    // Character classes of ASCII; every other character is plain text.  A
    // one-byte character indexes the whole table, without a range test.
    enum : unsigned char { TEXT, SPACE, COMMA, HASH, QUOTE };
    static unsigned char kind_of(CharT c) {
        static const unsigned char table[256] = {
            TEXT, TEXT, TEXT, TEXT,  TEXT, TEXT, TEXT, TEXT,  TEXT, SPACE, SPACE, TEXT, TEXT, SPACE, TEXT, TEXT,
            TEXT, TEXT, TEXT, TEXT,  TEXT, TEXT, TEXT, TEXT,  TEXT, TEXT,  TEXT,  TEXT, TEXT, TEXT,  TEXT, TEXT,
            SPACE, TEXT, QUOTE, HASH, TEXT, TEXT, TEXT, QUOTE, TEXT, TEXT, TEXT, TEXT, COMMA, TEXT, TEXT, TEXT,
        };  // the rest of the table is TEXT
        if (sizeof(CharT) == 1) return table[c];
        return c < 128 ? table[c] : static_cast<unsigned char>(TEXT);
    }
    static bool is_quote(CharT c) { return kind_of(c) == QUOTE; }

    Py_ssize_t after_blanks(Py_ssize_t i) const {
        while (i < n_ && t_[i] == ' ') ++i;
        return i;
    }

    // The position after the next line feed, or the end.
    Py_ssize_t after_line(Py_ssize_t i) const {
        while (i < n_ && t_[i] != '\n') ++i;
        return i < n_ ? i + 1 : n_;
    }

    bool emit_ifc() {
        Py_INCREF(ifc_);
        return out_.push(ifc_);
    }

    bool emit(PyObject* item) { return out_.push_new(item); }

    PyObject* make(const CharT* p, Py_ssize_t len) const { return new_text(p, len, ascii_); }

    // A quoted item opened by the quote at `open`: its text runs to the next
    // equal quote; returns that quote's position, -1 when there is none, -2
    // on error.
    Py_ssize_t quoted_item(Py_ssize_t open, CharT quote) {
        bool rewrite = false;  // the item text loses or gains characters
        Py_ssize_t close = open + 1;
        for (; close < n_; ++close) {
            const CharT c = t_[close];
            if (c == quote) break;
            if (is_quote(c)) {
                rewrite = true;
            } else if (c == ',') {
                Py_ssize_t j = after_blanks(close + 1);
                if (j < n_ && t_[j] == ',') rewrite = true;
            }
        }
        if (close >= n_) return -1;
        const CharT* body = t_ + open + 1;
        const Py_ssize_t len = close - open - 1;
        if (!rewrite) return emit(make(body, len)) ? close : -2;
        buf_.clear();
        for (Py_ssize_t k = 0; k < len; ++k) {
            const CharT c = body[k];
            if (is_quote(c)) continue;
            buf_.push_back(c);
            if (c == ',') {
                Py_ssize_t j = k + 1;
                while (j < len && body[j] == ' ') ++j;
                if (j < len && body[j] == ',') {
                    static const char ifc[] = "_ifc";
                    buf_.insert(buf_.end(), ifc, ifc + 4);
                    k = j - 1;
                }
            }
        }
        return emit(make(buf_.data(), static_cast<Py_ssize_t>(buf_.size()))) ? close : -2;
    }

    // An unquoted item starting at `start`; returns the position after it,
    // -1 on error.
    Py_ssize_t word(Py_ssize_t start) {
        bool pieces = false;  // buf_ holds the item's text so far
        bool quotes = false;
        Py_ssize_t i = start;
        for (;;) {
            while (i < n_) {
                const unsigned char k = kind_of(t_[i]);
                if (k == TEXT) {
                    ++i;
                } else if (k == QUOTE) {
                    quotes = true;
                    ++i;
                } else {
                    break;  // a separator or "#"
                }
            }
            if (i >= n_ || t_[i] != '#') break;
            if (!pieces) {
                buf_.clear();
                pieces = true;
            }
            append_unquoted(start, i);
            i = after_line(i + 1);
            start = i;
        }
        if (!pieces && !quotes) return emit(make(t_ + start, i - start)) ? i : -1;
        if (!pieces) buf_.clear();
        append_unquoted(start, i);
        return emit(make(buf_.data(), static_cast<Py_ssize_t>(buf_.size()))) ? i : -1;
    }

    void append_unquoted(Py_ssize_t from, Py_ssize_t to) {
        for (Py_ssize_t k = from; k < to; ++k) {
            if (!is_quote(t_[k])) buf_.push_back(t_[k]);
        }
    }

    const CharT* t_;
    Py_ssize_t n_;
    bool ascii_;
    PyObject* ifc_;
    ItemBuffer& out_;
    std::vector<CharT> buf_;  // item text that loses or gains characters
};

}  // namespace raw
}  // namespace vxr
