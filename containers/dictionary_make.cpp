// Dictionaries made from "@key value" text and from a class's attributes, and posted for reading.
#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/console.h>
#include <kiv/dictionary.h>
#include <kiv/object.h>

#include <cstdarg>
#include <cstdio>
#include <memory>

#include "containers/values.h"

namespace kiv {

namespace {

struct FreeBlock {
    void operator()(void *block) const noexcept { sysmem_freeptr(block); }
};

// A line of a dump that is still to be posted.
struct Line {
    Text label;
    Atom value;
    int32_t depth;
};

class Dump {
  public:
    Dump(bool recurse, bool console) noexcept : recurse_(recurse), console_(console) {}

    bool run(const Dictionary *dictionary) {
        push_entries(dictionary, 0);
        while (!lines_.empty()) {
            const Line line = std::move(lines_.back());
            lines_.pop_back();
            if (line.depth >= max_nesting) {
                error("dictionary_dump: nested deeper than %d containers", max_nesting);
                return false;
            }
            post_line(line);
            if (recurse_ && line.value.type == TypeObject) {
                push_parts(line);
            }
        }
        return true;
    }

  private:
    void push_entries(const Dictionary *dictionary, int32_t depth) {
        Vector<EntryView> entries;
        dictionary_list(dictionary, entries);
        for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
            lines_.push_back({entry->key->name, entry->value, depth});
        }
    }

    // What a dictionary holds, or the dictionaries among what an array holds.
    void push_parts(const Line &line) {
        const void *x = line.value.value.obj;
        if (is_dictionary(x)) {
            push_entries(static_cast<const Dictionary *>(x), line.depth + 1);
        } else if (is_atomarray(x)) {
            const auto *array = static_cast<const Atomarray *>(x);
            for (int32_t i = array->count; i-- > 0;) {
                if (array->atoms[i].type == TypeObject &&
                    is_dictionary(array->atoms[i].value.obj)) {
                    char index[16];
                    std::snprintf(index, sizeof index, "[%d]", i);
                    lines_.push_back({line.label + index, array->atoms[i], line.depth + 1});
                }
            }
        }
    }

    void post_line(const Line &line) const {
        Text text(static_cast<size_t>(line.depth) * 2, ' ');
        text += line.label;
        text += " : ";
        const void *x = line.value.type == TypeObject ? line.value.value.obj : nullptr;
        if (is_atomarray(x)) {
            const auto *array = static_cast<const Atomarray *>(x);
            text += "[ ";
            append_atoms(text, array->count, array->atoms);
            text += " ]";
        } else if (is_string(x)) {
            text += text_of(static_cast<const String *>(x));
        } else {
            append_atoms(text, 1, &line.value);
        }
        if (console_) {
            post("%s", text.c_str());
        } else {
            cpost("%s\n", text.c_str());
        }
    }

    static void append_atoms(Text &text, int32_t count, const Atom *atoms) {
        int64_t size = 0;
        char *written = nullptr;
        if (count > 0 && atom_gettext(count, atoms, &size, &written, 0) == ErrorNone) {
            const std::unique_ptr<char, FreeBlock> owner(written);
            text += written;
        }
    }

    bool recurse_;
    bool console_;
    Vector<Line> lines_;  // the next one last
};

}  // namespace

}  // namespace kiv

using namespace kiv;

ErrorCode dictionary_dump(const Dictionary *dictionary, int32_t recurse, int32_t console) noexcept {
    if (!dictionary) {
        return ErrorGeneric;
    }
    try {
        return Dump(recurse != 0, console != 0).run(dictionary) ? ErrorNone : ErrorGeneric;
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
}

Dictionary *dictionary_sprintf(const char *format, ...) noexcept {
    if (!format) {
        return nullptr;
    }
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    const std::unique_ptr<char, FreeBlock> text(
        length < 0 ? nullptr : static_cast<char *>(sysmem_newptr(int64_t{length} + 1)));
    if (text) {
        std::vsnprintf(text.get(), static_cast<size_t>(length) + 1, format, again);
    }
    va_end(again);
    if (!text) {
        return nullptr;
    }
    int32_t count = 0;
    Atom *atoms = nullptr;
    if (atom_setparse(&count, &atoms, text.get()) != ErrorNone) {
        return nullptr;
    }
    const std::unique_ptr<Atom, FreeBlock> owner(atoms);
    Dictionary *dictionary = dictionary_new();
    if (dictionary) {
        attr_args_dictionary(dictionary, count, atoms);
    }
    return dictionary;
}

Dictionary *dictionary_prototypefromclass(Class *c) noexcept {
    Dictionary *prototype = c ? dictionary_new() : nullptr;
    int32_t count = 0;
    Symbol **names = nullptr;
    if (!prototype || !c->attributes) {
        return prototype;
    }
    hashtab_getkeys(c->attributes, &count, &names);
    symbolarray_sort(count, names);
    for (int32_t i = 0; i < count; ++i) {
        void *attribute = nullptr;
        hashtab_lookup(c->attributes, names[i], &attribute);
        // What is declared as an attribute's default is an attribute of the attribute.
        if (object_attr_get(attribute, "default"_sym)) {
            dictionary_appendattribute(prototype, names[i], "default"_sym, attribute);
        }
    }
    sysmem_freeptr(names);
    return prototype;
}
