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
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string_view>

#include "containers/families.h"
#include "containers/json.h"
#include "containers/values.h"

namespace kiv {

namespace {

class Writer {
  public:
    explicit Writer(Text &out) noexcept : out_(out) {}

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
    void write_symbol(const Symbol *symbol);
    bool write_object(const void *x);
    bool begin(const Open &open);
    bool step();
    void end(const Open &open);
    void indent(size_t level) { out_.append(std::min<size_t>(level, 511), '\t'); }

    Text &out_;
    Vector<Open> open_;
    Vector<DictionaryEntry *> pending_;  // the entries of the open dictionaries
};

bool Writer::write_atom(const Atom &atom) {
    switch (atom.type) {
        case TypeNothing:
            out_ += "null";
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
            out_ += "\";\"";
            break;
        case TypeComma:
            out_ += "\",\"";
            break;
        case TypeDollar:
            out_ += "\"$";
            write_long(atom.value.i);
            out_ += '"';
            break;
        case TypeDollarSymbol: {
            Text text = "$";
            text += atom.value.sym ? atom.value.sym->name : "";
            json_append_string(text, out_);
            break;
        }
        default:
            error("jsonwriter_writeatom: unsupported atom type: %d", atom.type);
            out_ += "null";
    }
    return true;
}

void Writer::write_long(int64_t value) {
    char buffer[24];
    const char *end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
    out_.append(buffer, static_cast<size_t>(end - buffer));
}

void Writer::write_float(double value) {
    if (!std::isfinite(value)) {
        object_warn(nullptr,
                    "detected out-of-range float value (inf or nan) when writing JSON file, "
                    "replacing with 0");
        out_ += "0.";
        return;
    }
    char buffer[std::numeric_limits<double>::max_exponent10 + 24];
    const char *end =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 15).ptr;
    while (end[-1] == '0' && end[-2] != '.') {
        --end;
    }
    out_.append(buffer, static_cast<size_t>(end - buffer));
}

void Writer::write_symbol(const Symbol *symbol) {
    const std::string_view text = symbol ? symbol->name : "";
    if (text == ";" || text == "," || text == "$") {
        char buffer[16];  // so that it stays a plain string
        std::snprintf(buffer, sizeof buffer, "\"\\u%.4x\"", static_cast<unsigned>(text[0]));
        out_ += buffer;
    } else {
        json_append_string(text, out_);
    }
}

bool Writer::write_object(const void *x) {
    if (is_dictionary(x)) {
        const auto *dictionary = static_cast<const Dictionary *>(x);
        const Vector<DictionaryEntry *> entries = dictionary_entries(dictionary);
        const size_t first = pending_.size();
        pending_.insert(pending_.end(), entries.begin(), entries.end());
        indent(open_.size());
        out_ += "{\r\n";
        return begin({dictionary, nullptr, first, first, pending_.size()});
    }
    if (is_atomarray(x)) {
        const auto *array = static_cast<const Atomarray *>(x);
        out_ += "[ ";
        return begin({nullptr, array, 0, 0, static_cast<size_t>(array->count)});
    }
    if (is_string(x)) {
        json_append_string(text_of(static_cast<const String *>(x)), out_);
    } else if (object_valid(x)) {
        const Symbol *name = object_classname(x);
        json_append_string(name ? name->name : "", out_);
    } else {
        out_ += "null";
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
        out_ += first ? "" : ", ";
        return write_atom(top.array->atoms[i]);
    }
    const DictionaryEntry *entry = pending_[i];
    out_ += first ? "" : ",\r\n";
    indent(open_.size());
    json_append_string(entry->key->name, out_);
    out_ += " : ";
    return write_atom(entry->value);
}

void Writer::end(const Open &open) {
    if (open.array) {
        out_ += " ]";
        return;
    }
    pending_.resize(open.begin);
    out_ += "\r\n";
    indent(open_.size());
    out_ += "}\r\n";
}

}  // namespace

void json_append_string(std::string_view text, Text &out) {
    out += '"';
    size_t plain = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        char escape = '\0';
        switch (text[i]) {
            case '"':
            case '\\':
                escape = text[i];
                break;
            case '\n':
                escape = 'n';
                break;
            case '\r':
                escape = 'r';
                break;
            case '\t':
                escape = 't';
                break;
            case '\b':
                escape = 'b';
                break;
            default:
                continue;
        }
        out.append(text.data() + plain, i - plain);
        out += '\\';
        out += escape;
        plain = i + 1;
    }
    out.append(text.data() + plain, text.size() - plain);
    out += '"';
}

bool json_append_atom(const Atom &atom, Text &out) {
    try {
        return Writer(out).write(atom);
    } catch (const std::bad_alloc &) {
        return false;
    }
}

bool json_from_dictionary(const Dictionary *dictionary, Text &out) {
    return dictionary &&
           json_append_atom(atom_of_object(const_cast<Dictionary *>(dictionary)), out);
}

// --- The class "jsonwriter" ----------------------------------------------------------------------

namespace {

// Collects text over several messages.
struct WriterObject {
    Object ob;
    Text *text;
};

struct {
    Class *writer_class = nullptr;
} state;

WriterObject *writer_new() noexcept {
    auto *writer = static_cast<WriterObject *>(object_alloc(state.writer_class));
    void *block = writer ? sysmem_newptr(static_cast<int64_t>(sizeof(Text))) : nullptr;
    if (!block) {
        object_free(writer);
        return nullptr;
    }
    writer->text = new (block) Text();
    return writer;
}

void destroy(WriterObject *writer) noexcept {
    if (writer->text) {
        writer->text->~Text();
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
