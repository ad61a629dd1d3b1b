// Message text from and to text.
#include <kiv/object.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

#include "containers/binbuf_record.h"
#include "containers/tokenizer.h"
#include "containers/utf8.h"
#include "kernel/internal.h"

namespace kiv {

namespace {

constexpr size_t batch_size = 4096;  // atoms between two growths of the store

bool needs_backslash(char c) noexcept {
    return c == '"' || c == '\\' || c == ',' || c == ';';
}

bool has_blank(std::string_view text) noexcept {
    for (const char c : text) {
        if (is_blank(c)) {
            return true;
        }
    }
    return false;
}

// A symbol that would be read as something else than itself is put in quotes.
void symbol_write(Text &out, const Symbol *symbol) {
    const std::string_view name = symbol ? symbol->name : "";
    Atom other;
    const bool quoted = name.empty() || has_blank(name) || read_number(name, true, &other) ||
                        read_placeholder(name.data(), '$', &other);
    if (quoted) {
        out.push_back('"');
    }
    for (const char c : name) {
        if (quoted ? c == '"' || c == '\\' : needs_backslash(c)) {
            out.push_back('\\');
        }
        out.push_back(c);
    }
    if (quoted) {
        out.push_back('"');
    }
}

// Quotes would make a placeholder a plain symbol, so its blanks are escaped one by one.
void placeholder_write(Text &out, const Symbol *symbol) {
    out.push_back('$');
    for (const char c : std::string_view(symbol ? symbol->name : "")) {
        if (needs_backslash(c) || is_blank(c)) {
            out.push_back('\\');
        }
        out.push_back(c);
    }
}

void integer_write(Text &out, int64_t value) {
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    out.append(digits, result.ptr);
}

void object_write(Text &out, void *x) {
    const Symbol *name = object_classname(x);
    out.append(name ? name->name : "<nogood_object>");
}

// Appends the atoms of a text. False when a word is too long or memory ends; the buffer then holds
// part of them.
bool append_text(Binbuf *buf, std::string_view text, bool separators) {
    // A text has no more atoms, and no longer words, than it has bytes.
    Vector<Atom> batch(std::min(batch_size, text.size() + 1));
    Vector<char> word(std::min(longest_word, text.size()) + 1);
    Tokenizer tokenizer(text);
    size_t filled = 0;
    bool more = true;
    while (more) {
        Atom &atom = batch[filled];
        more = tokenizer.next(word.data(), &atom);
        if (more) {
            if (!separators && (atom.type == TypeSemicolon || atom.type == TypeComma)) {
                atom = {TypeSymbol, {.sym = gensym(word.data())}};
            }
            ++filled;
        }
        if (tokenizer.failed()) {
            return false;
        }
        if (filled == batch.size() || !more) {
            if (!store_append(buf->store, static_cast<int32_t>(filled), batch.data())) {
                return false;
            }
            filled = 0;
        }
    }
    return true;
}

int32_t add_text(Binbuf *buf, char *const *text, int64_t size, bool separators) noexcept {
    if (!buf) {
        return 1;
    }
    const bool empty = !text || !*text || size <= 0;
    const std::string_view given =
        empty ? std::string_view{} : std::string_view(*text, static_cast<size_t>(size));
    const int32_t count = buf->store->count;
    bool done = false;
    try {
        done = is_utf8(given) ? append_text(buf, given, separators)
                              : append_text(buf, to_utf8(given), separators);
    } catch (const std::bad_alloc &) {
    }
    if (!done) {
        store_remove(buf->store, count, buf->store->count);
    }
    binbuf_counted(buf);
    return done ? 0 : 1;
}

}  // namespace

void float_write(Text &out, double value) {
    if (std::isinf(value)) {
        // A number too large for a float reads as infinity.
        out.append(value < 0 ? "-1" : "1").append(400, '0').push_back('.');
        return;
    }
    char digits[400];
    const auto result =
        std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed);
    const std::string_view text(digits, static_cast<size_t>(result.ptr - digits));
    out.append(text);
    if (!std::isnan(value) && text.find('.') == std::string_view::npos) {
        out.push_back('.');
    }
}

void atom_write(Text &out, const Atom &atom) {
    switch (atom.type) {
        case TypeLong:
            integer_write(out, atom.value.i);
            break;
        case TypeFloat:
            float_write(out, atom.value.f);
            break;
        case TypeSymbol:
            symbol_write(out, atom.value.sym);
            break;
        case TypeObject:
            object_write(out, atom.value.obj);
            break;
        case TypeSemicolon:
            out.push_back(';');
            break;
        case TypeComma:
            out.push_back(',');
            break;
        case TypeDollar:
            out.push_back('$');
            integer_write(out, atom.value.i);
            break;
        case TypeDollarSymbol:
            placeholder_write(out, atom.value.sym);
            break;
        default:
            break;
    }
}

Text store_write(const BinbufStore *store, char line_end) {
    Text out;
    Atom atom;
    char between = '\0';
    for (int64_t i = 0; store_atom(store, i, &atom); ++i) {
        const bool separator = atom.type == TypeSemicolon || atom.type == TypeComma;
        if (between && !separator) {
            out.push_back(between);
        }
        atom_write(out, atom);
        between = atom.type == TypeSemicolon ? line_end : ' ';
    }
    return out;
}

}  // namespace kiv

using namespace kiv;

int32_t binbuf_text(Binbuf *buf, char **text, int64_t size) noexcept {
    binbuf_clear(buf);
    return add_text(buf, text, size, true);
}

int32_t binbuf_addtext(Binbuf *buf, char **text, int64_t size) noexcept {
    return add_text(buf, text, size, false);
}

int32_t binbuf_totext(Binbuf *buf, char **text, int64_t *size) noexcept {
    if (size) {
        *size = 0;
    }
    if (!text || !size) {
        return -1;
    }
    *text = nullptr;
    if (!buf) {
        return -1;
    }
    try {
        const Text out = store_write(buf->store, ' ');
        *text = static_cast<char *>(sysmem_newptr(static_cast<int64_t>(out.size()) + 1));
        if (!*text) {
            return -1;
        }
        std::memcpy(*text, out.c_str(), out.size() + 1);
        *size = static_cast<int64_t>(out.size());
        return 0;
    } catch (const std::bad_alloc &) {
        return -1;
    }
}
