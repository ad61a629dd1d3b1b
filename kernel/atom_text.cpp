// Atoms as text. Numbers print without regard to the locale. Two renderings: atom_gettext quotes
// and escapes, so that its text reads back; atoms_totext and atom_string are for people.
#include <kiv/atom.h>
#include <kiv/console.h>
#include <kiv/symbol.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string_view>

#include "kernel/internal.h"
#include "sched/internal.h"

using namespace kiv::literals;

namespace kiv {

namespace {

enum TextFlag : int32_t {
    TextRaw = 2,             // symbols are never quoted or escaped
    TextQuote = 4,           // symbols are always quoted
    TextCommas = 8,          // ", " between atoms
    TextTrailingZeros = 16,  // floats keep their trailing zeros
    TextTwelveDecimals = 32,
    TextTwoDecimals = 64
};

constexpr size_t text_per_atom = 64;  // first size of the work buffer
constexpr size_t reserve_limit = 1 << 20;
constexpr size_t longest_text = 32768;  // the longest name with its terminator

// A number as text in a buffer of its own; large enough for any double with twelve decimals.
class NumberText {
  public:
    explicit NumberText(int64_t value) noexcept {
        end_ = std::to_chars(buffer_, buffer_ + sizeof buffer_, value).ptr;
    }
    NumberText(double value, int decimals) noexcept {
        end_ = std::to_chars(buffer_, buffer_ + sizeof buffer_, value, std::chars_format::fixed,
                             decimals)
                   .ptr;
    }
    // Keeps the first character and the decimal point.
    void drop_trailing_zeros() noexcept {
        while (end_ - buffer_ > 1 && end_[-1] == '0') {
            --end_;
        }
    }
    operator std::string_view() const noexcept {
        return {buffer_, static_cast<size_t>(end_ - buffer_)};
    }

  private:
    char buffer_[352];
    char *end_;
};

// "%ld" is 32 bits wide in the interface's printed forms, whatever the width of a long here.
NumberText short_number(int64_t value) noexcept {
    return NumberText(static_cast<int64_t>(static_cast<int32_t>(value)));
}

const char *name_of(const Symbol *symbol) noexcept {
    return symbol ? symbol->name : "";
}

const char *class_name_of(const void *x) noexcept {
    return object_valid(x) ? name_of(object_classname(x)) : "";
}

void add_escaped(Text &out, std::string_view name, const char *special) {
    for (const char c : name) {
        if (c != '\0' && std::strchr(special, c)) {
            out += '\\';
        }
        out += c;
    }
}

// The mark of a placeholder symbol carries an opening quote of its own, which is closed only when
// the name is quoted.
void add_symbol(Text &out, std::string_view name, bool placeholder, int32_t flags) {
    const bool raw = (flags & TextRaw) && !(flags & TextQuote);
    const bool quoted = !raw && ((flags & TextQuote) || name.find(' ') != name.npos);
    if (placeholder) {
        out += "\"$";
    } else if (quoted) {
        out += '"';
    }
    if (raw) {
        out += name;
    } else {
        add_escaped(out, name, quoted ? "\"\\" : "\"\\,;$");
    }
    if (quoted) {
        out += '"';
    }
}

void add_object(Text &out, void *x) {
    if (!object_valid(x)) {
        out += "<nogood_object>";
        return;
    }
    char *text = nullptr;
    object_method(x, "getvaluetext"_sym, &text);
    if (!text) {
        out += class_name_of(x);
        return;
    }
    const struct FreeText {
        char *text;
        ~FreeText() { sysmem_freeptr(text); }
    } owner{text};
    out += text;
}

void add_float(Text &out, double value, int32_t flags) {
    const int decimals = flags & TextTwelveDecimals ? 12 : flags & TextTwoDecimals ? 2 : 6;
    NumberText text(value, decimals);
    if (!(flags & TextTrailingZeros)) {
        text.drop_trailing_zeros();
    }
    out += std::string_view(text);
}

void add_atom(Text &out, const Atom &atom, int32_t flags) {
    switch (atom.type) {
        case TypeLong:
            out += std::string_view(NumberText(atom.value.i));
            break;
        case TypeFloat:
            add_float(out, atom.value.f, flags);
            break;
        case TypeObject:
            add_object(out, atom.value.obj);
            break;
        case TypeSemicolon:
            out += ';';
            break;
        case TypeComma:
            out += ',';
            break;
        case TypeDollar:
            out += '$';
            out += std::string_view(NumberText(atom.value.i));
            break;
        case TypeSymbol:
        case TypeDollarSymbol:
            if (atom.value.sym) {
                add_symbol(out, atom.value.sym->name, atom.type == TypeDollarSymbol, flags);
                break;
            }
            [[fallthrough]];
        default:
            out += "<unknown>";
            break;
    }
}

// A comma atom attaches to what precedes it, and a blank is enough behind it.
const char *separator(const Atom &before, const Atom &after, int32_t flags) noexcept {
    if (after.type == TypeComma) {
        return "";
    }
    return (flags & TextCommas) && before.type != TypeComma ? ", " : " ";
}

ErrorCode write_text(int32_t count, const Atom *atoms, int64_t *size, char **text, int32_t flags) {
    Text out;
    out.reserve(std::min((static_cast<size_t>(count) + 1) * text_per_atom, reserve_limit));
    for (int32_t i = 0; i < count; ++i) {
        add_atom(out, atoms[i], flags);
        if (i + 1 < count) {
            out += separator(atoms[i], atoms[i + 1], flags);
        }
    }
    size_t copied = out.size();
    if (*size == 0 || !*text) {
        auto *block = static_cast<char *>(sysmem_newptr(static_cast<int64_t>(out.size()) + 1));
        if (!block) {
            return ErrorGeneric;
        }
        *text = block;
        *size = static_cast<int64_t>(out.size()) + 1;
    } else {
        copied = std::min(copied, static_cast<size_t>(std::max<int64_t>(*size, 1)) - 1);
    }
    std::memcpy(*text, out.data(), copied);
    (*text)[copied] = '\0';
    return ErrorNone;
}

ErrorCode write_empty(int64_t *size, char **text) noexcept {
    if (*text && *size != 0) {
        **text = '\0';
        return ErrorNone;
    }
    auto *block = static_cast<char *>(sysmem_newptr(1));
    if (!block) {
        return ErrorGeneric;
    }
    *block = '\0';
    *text = block;
    *size = 0;
    return ErrorNone;
}

// Appends text to a buffer whose size nobody knows.
char *put(char *at, std::string_view text) noexcept {
    std::memcpy(at, text.data(), text.size());
    return at + text.size();
}

char *put_plain(char *at, const Atom &atom) noexcept {
    switch (atom.type) {
        case TypeLong:
            return put(put(at, short_number(atom.value.i)), " ");
        case TypeFloat:
            return put(put(at, NumberText(atom.value.f, 6)), " ");
        case TypeSymbol:
            return put(put(at, name_of(atom.value.sym)), " ");
        case TypeObject:
            return put(put(at, class_name_of(atom.value.obj)), " ");
        case TypeDollar:
            return put(put(put(at, "$"), short_number(atom.value.i)), " ");
        case TypeDollarSymbol:
            return put(put(at, "$"), name_of(atom.value.sym));
        default:
            return at;
    }
}

}  // namespace

}  // namespace kiv

ErrorCode atom_gettext(int32_t count, const Atom *atoms, int64_t *size, char **text,
                       int32_t flags) noexcept {
    if (count < 0 || !size || !text || (count > 0 && !atoms)) {
        return ErrorGeneric;
    }
    if (count == 0) {
        return kiv::write_empty(size, text);
    }
    try {
        return kiv::write_text(count, atoms, size, text, flags);
    } catch (const std::bad_alloc &) {
        return ErrorGeneric;
    } catch (const std::length_error &) {
        return ErrorGeneric;
    }
}

int32_t atoms_totext(char *buffer, int32_t count, const Atom *atoms) noexcept {
    if (!buffer) {
        return 0;
    }
    char *at = buffer;
    for (int32_t i = 0; atoms && i < count; ++i) {
        at = kiv::put_plain(at, atoms[i]);
    }
    if (at > buffer && at[-1] == ' ') {
        --at;
    }
    *at = '\0';
    return static_cast<int32_t>(at - buffer);
}

const char *atom_string(const Atom *atom) noexcept {
    static char buffer[kiv::longest_text];
    using kiv::put;
    char *at = buffer;
    switch (atom_gettype(atom)) {
        case TypeNothing:
            at = put(at, "(end)");
            break;
        case TypeLong:
            at = put(at, kiv::short_number(atom->value.i));
            break;
        case TypeFloat:
            at = put(at, kiv::NumberText(atom->value.f, 2));
            break;
        case TypeSymbol:
            at = put(at, kiv::name_of(atom->value.sym));
            break;
        case TypeObject:
            at = put(at, atom->value.obj ? kiv::class_name_of(atom->value.obj) : "NULL");
            break;
        case TypeSemicolon:
            at = put(at, ";");
            break;
        case TypeComma:
            at = put(at, ",");
            break;
        case TypeDollar:
            at = put(put(at, "$"), kiv::short_number(atom->value.i));
            break;
        case TypeDollarSymbol:
            // One character less than the longest name leaves room for the mark.
            at = put(put(at, "$"),
                     std::string_view(kiv::name_of(atom->value.sym)).substr(0, sizeof buffer - 2));
            break;
        default:
            at = put(at, "?");
            break;
    }
    *at = '\0';
    return buffer;
}

void postatom(const Atom *atom) noexcept {
    char text[kiv::longest_text + 2];  // a name with "$" and a blank around it
    if (atom && atoms_totext(text, 1, atom) > 0) {
        post("%s", text);
    }
}
