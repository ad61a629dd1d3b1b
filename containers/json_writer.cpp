// The JSON writer.
//
// The layout, by which documents are compared and kept under version control, is fixed: an object's
// braces stand on lines of their own, each after one tab for each container around it, also when
// something stands before them on the line; arrays stay on one line until an object breaks it.
//
// Nested values are written by a loop over a stack of its own, at most max_nesting deep. A
// dictionary must not be changed by another thread while it is written.
#include <kiv/atom.h>
#include <kiv/class.h>
#include <kiv/console.h>
#include <kiv/object.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string_view>

#include "containers/families.h"
#include "containers/json.h"
#include "containers/values.h"

namespace kiv {

namespace {

__extension__ using Wide = unsigned __int128;

// What follows the backslash for each byte that needs one, 0 for all others.
constexpr std::array<char, 256> make_escapes() {
    std::array<char, 256> escapes{};
    escapes['"'] = '"';
    escapes['\\'] = '\\';
    escapes['\n'] = 'n';
    escapes['\r'] = 'r';
    escapes['\t'] = 't';
    escapes['\b'] = 'b';
    return escapes;
}
constexpr std::array<char, 256> escapes = make_escapes();

class Writer {
  public:
    explicit Writer(JsonText &out) noexcept : out_(out) {}

    // False when values are nested too deeply, which is posted.
    bool write(const Atom &root) {
        bool going = write_atom(root);
        while (going && !open_.empty()) {
            going = step();
        }
        return going;
    }

  private:
    // A container whose text is begun but not ended: one of the two.
    struct Open {
        const Dictionary *dictionary;
        const Atomarray *array;
        size_t begin;  // what remains to be written: of pending_ or of the array
        size_t next;
        size_t end;
    };

    bool write_atom(const Atom &atom);
    void write_long(int64_t value);
    void write_float(double value);
    bool write_exactly(double value);
    void write_symbol(const Symbol *symbol);
    bool write_object(const void *x);
    bool begin(const Open &open);
    bool step();
    void end(const Open &open);
    void indent(size_t level) { out_.put('\t', std::min<size_t>(level, 511)); }

    JsonText &out_;
    Vector<Open> open_;
    Vector<EntryView> pending_;  // the entries of the open dictionaries
};

// Has an object that is written soon fetched into the cache meanwhile.
void prefetch(const Atom &atom) noexcept {
    if (atom.type == TypeObject) {
        const auto *object = static_cast<const char *>(atom.value.obj);
        __builtin_prefetch(object);
        __builtin_prefetch(object + 64);
    }
}

bool Writer::write_atom(const Atom &atom) {
    switch (atom.type) {
        case TypeNothing:
            out_.put("null");
            break;
        case TypeLong:
            write_long(atom.value.i);
            break;
        case TypeFloat:
            write_float(atom.value.f);
            break;
        case TypeSymbol:
            write_symbol(atom.value.sym);
            break;
        case TypeObject:
            return write_object(atom.value.obj);
        case TypeSemicolon:
            out_.put("\";\"");
            break;
        case TypeComma:
            out_.put("\",\"");
            break;
        case TypeDollar:
            out_.put("\"$");
            write_long(atom.value.i);
            out_.put("\"");
            break;
        case TypeDollarSymbol: {
            Text text = "$";
            text += atom.value.sym ? atom.value.sym->name : "";
            out_.put_quoted(text);
            break;
        }
        default:
            error("jsonwriter_writeatom: unsupported atom type: %d", atom.type);
            out_.put("null");
    }
    return true;
}

void Writer::write_long(int64_t value) {
    constexpr size_t most = 20;
    char *to = out_.room(most);
    out_.end(std::to_chars(to, to + most, value).ptr);
}

void Writer::write_float(double value) {
    if (!std::isfinite(value)) {
        object_warn(nullptr,
                    "detected out-of-range float value (inf or nan) when writing JSON file, "
                    "replacing with 0");
        out_.put("0.");
        return;
    }
    if (!write_exactly(value)) {
        char buffer[std::numeric_limits<double>::max_exponent10 + 24];
        const char *end =
            std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 15).ptr;
        while (end[-1] == '0' && end[-2] != '.') {
            --end;
        }
        out_.put({buffer, static_cast<size_t>(end - buffer)});
    }
}

// Fifteen decimals by whole numbers, several times faster than the general conversion and the same
// to the last digit. False for what is too large or too small for it.
bool Writer::write_exactly(double value) {
    constexpr uint64_t scale = 1000000000000000;
    const double size = std::fabs(value);
    if (size >= 9e18) {
        return false;
    }
    auto whole = static_cast<uint64_t>(size);
    const double fraction = size - static_cast<double>(whole);
    uint64_t decimals = 0;
    if (fraction > 0.0) {
        int exponent = 0;
        const double mantissa = std::frexp(fraction, &exponent);
        if (exponent < -50) {
            return false;
        }
        // The fraction is bits / 2^shift.
        const auto bits = static_cast<uint64_t>(mantissa * 0x1p53);
        const int shift = 53 - exponent;
        const Wide product = Wide{bits} * scale;
        decimals = static_cast<uint64_t>(product >> shift);
        const Wide rest = product & ((Wide{1} << shift) - 1);
        const Wide half = Wide{1} << (shift - 1);
        decimals += rest > half || (rest == half && decimals % 2 == 1);
        whole += decimals == scale ? 1 : 0;
        decimals = decimals == scale ? 0 : decimals;
    }

    constexpr size_t most = 40;
    char *at = out_.room(most);
    *at = '-';
    at += std::signbit(value) ? 1 : 0;
    at = std::to_chars(at, at + 20, whole).ptr;
    *at++ = '.';
    int digits = decimals ? 15 : 1;
    if (decimals && decimals % 100000000 == 0) {  // most fractions are short
        decimals /= 100000000;
        digits -= 8;
    }
    while (digits > 1 && decimals % 10 == 0) {
        decimals /= 10;
        --digits;
    }
    for (int i = digits; i > 0; --i, decimals /= 10) {
        at[i - 1] = static_cast<char>('0' + decimals % 10);
    }
    out_.end(at + digits);
    return true;
}

void Writer::write_symbol(const Symbol *symbol) {
    const std::string_view text = symbol ? symbol->name : "";
    if (text == ";" || text == "," || text == "$") {
        char buffer[16];  // so that it stays a plain string
        std::snprintf(buffer, sizeof buffer, "\"\\u%.4x\"", static_cast<unsigned>(text[0]));
        out_.put(buffer);
    } else {
        out_.put_quoted(text);
    }
}

bool Writer::write_object(const void *x) {
    const Symbol *const name = object_valid(x) ? class_of(x)->name : nullptr;
    if (!name) {
        out_.put("null");
    } else if (name == "dictionary"_sym) {
        const auto *dictionary = static_cast<const Dictionary *>(x);
        const size_t first = pending_.size();
        dictionary_list(dictionary, pending_);
        for (size_t i = first; i < pending_.size(); ++i) {
            prefetch(pending_[i].value);
        }
        indent(open_.size());
        out_.put("{\r\n");
        return begin({dictionary, nullptr, first, first, pending_.size()});
    } else if (name == "atomarray"_sym) {
        const auto *array = static_cast<const Atomarray *>(x);
        out_.put("[ ");
        return begin({nullptr, array, 0, 0, static_cast<size_t>(array->count)});
    } else {
        out_.put_quoted(name == "string"_sym ? text_of(static_cast<const String *>(x))
                                             : name->name);
    }
    return true;
}

bool Writer::begin(const Open &open) {
    if (open_.size() >= static_cast<size_t>(max_nesting)) {
        error("jsonwriter: nested deeper than %d containers", max_nesting);
        return false;
    }
    open_.push_back(open);
    return true;
}

// The next value of the innermost open container, or its end.
bool Writer::step() {
    Open &top = open_.back();
    if (top.next == top.end) {
        const Open ended = top;
        open_.pop_back();
        end(ended);
        return true;
    }
    const bool first = top.next == top.begin;
    const size_t i = top.next++;
    if (top.array) {
        constexpr size_t ahead = 4;
        if (i + ahead < top.end) {
            prefetch(top.array->atoms[i + ahead]);
        }
        out_.put(first ? "" : ", ");
        return write_atom(top.array->atoms[i]);
    }
    const EntryView entry = pending_[i];
    out_.put(first ? "" : ",\r\n");
    indent(open_.size());
    out_.put_quoted(entry.key->name);
    out_.put(" : ");
    return write_atom(entry.value);
}

void Writer::end(const Open &open) {
    if (open.array) {
        out_.put(" ]");
        return;
    }
    pending_.resize(open.begin);
    out_.put("\r\n");
    indent(open_.size());
    out_.put("}\r\n");
}

}  // namespace

void JsonText::grow(size_t size) {
    constexpr size_t first = 4096;
    const size_t capacity = std::max({first, 2 * capacity_, size_ + size + 1});
    void *block = sysmem_resizeptr(data_, static_cast<int64_t>(capacity));
    if (!block) {
        throw std::bad_alloc();
    }
    data_ = static_cast<char *>(block);
    capacity_ = capacity;
}

// Out of line: where the compiler knows that the count is small it sets bytes by a string
// instruction, which is slower than the library.
[[gnu::noinline]] void JsonText::put(char c, size_t count) {
    char *to = room(count);
    std::memset(to, c, count);
    end(to + count);
}

void JsonText::put_quoted(std::string_view text) {
    char *to = room(2 * text.size() + 2);
    *to++ = '"';
    const char *const last = text.data() + text.size();
    for (const char *from = text.data(); from < last;) {
        if (last - from >= 8 && !json_specials(from)) {
            std::memcpy(to, from, 8);
            to += 8;
            from += 8;
            continue;
        }
        const char c = *from++;
        const char escape = escapes[static_cast<unsigned char>(c)];
        *to = '\\';
        to += escape ? 1 : 0;
        *to++ = escape ? escape : c;
    }
    *to++ = '"';
    end(to);
}

bool json_append_atom(const Atom &atom, JsonText &out) {
    try {
        return Writer(out).write(atom);
    } catch (const std::bad_alloc &) {
        return false;
    }
}

bool json_from_dictionary(const Dictionary *dictionary, JsonText &out) {
    return dictionary &&
           json_append_atom(atom_of_object(const_cast<Dictionary *>(dictionary)), out);
}

// --- The class "jsonwriter" ----------------------------------------------------------------------

namespace {

// Collects text over several messages.
struct WriterObject {
    Object ob;
    JsonText *text;
};

struct {
    Class *writer_class = nullptr;
} state;

WriterObject *writer_new() noexcept {
    auto *writer = static_cast<WriterObject *>(object_alloc(state.writer_class));
    void *block = writer ? sysmem_newptr(static_cast<int64_t>(sizeof(JsonText))) : nullptr;
    if (!block) {
        object_free(writer);
        return nullptr;
    }
    writer->text = new (block) JsonText();
    return writer;
}

void destroy(WriterObject *writer) noexcept {
    if (writer->text) {
        writer->text->~JsonText();
        sysmem_freeptr(writer->text);
        writer->text = nullptr;
    }
}

ErrorCode write_atom(WriterObject *writer, const Atom *atom) noexcept {
    if (!atom) {
        return ErrorGeneric;
    }
    return json_append_atom(*atom, *writer->text) ? ErrorNone : ErrorGeneric;
}

ErrorCode write_atomarray(WriterObject *writer, int32_t argc, const Atom *argv) noexcept {
    Atomarray *array = atomarray_new(argc, argv);
    ErrorCode result = ErrorOutOfMemory;
    if (array && array->count == std::max(argc, 0)) {
        const Atom atom = atom_of_object(array);
        result = write_atom(writer, &atom);
    }
    object_free(array);
    return result;
}

ErrorCode write_dictionary(WriterObject *writer, Dictionary *dictionary) noexcept {
    const Atom atom = atom_of_object(dictionary);
    return write_atom(writer, &atom);
}

const char *text_so_far(WriterObject *writer) noexcept {
    return writer->text->c_str();
}

void clear(WriterObject *writer) noexcept {
    writer->text->clear();
}

}  // namespace

void json_writer_start() noexcept {
    static const DirectMethod methods[] = {
        {"writeatom", method(write_atom)},
        {"writeatomarray", method(write_atomarray)},
        {"writedictionary", method(write_dictionary)},
        {"gettext", method(text_so_far)},
        {"clear", method(clear)},
    };
    Class *c = class_new("jsonwriter", method(writer_new), method(destroy),
                         static_cast<int32_t>(sizeof(WriterObject)), nullptr, 0);
    add_direct_methods(c, methods);
    class_register(nullptr, c);
    state.writer_class = c;
}

}  // namespace kiv
