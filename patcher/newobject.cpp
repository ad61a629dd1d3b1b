// Boxes from text, format and dictionary: the calls that code outside a patcher makes. Main thread.
#include <kiv/newobject.h>

#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/class.h>
#include <kiv/jpatcher.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "patcher/creation.h"

using namespace kiv;

namespace {

constexpr size_t format_limit = 4095;
constexpr size_t quoted_limit = 4094;

// Owns atoms that atom_setparse made.
struct ParsedAtoms {
    explicit ParsedAtoms(const char *text) noexcept { atom_setparse(&count, &atoms, text); }
    ~ParsedAtoms() { sysmem_freeptr(atoms); }
    ParsedAtoms(const ParsedAtoms &) = delete;
    ParsedAtoms &operator=(const ParsedAtoms &) = delete;
    int32_t count = 0;
    Atom *atoms = nullptr;
};

Object *from_dictionary_text(void *patcher, const char *text) noexcept {
    Dictionary *outer = dictionary_new();
    Dictionary *box = dictionary_new();
    if (!outer || !box) {
        object_free(outer);
        object_free(box);
        return nullptr;
    }
    const ParsedAtoms parsed(text);
    attr_args_dictionary(box, parsed.count, parsed.atoms);
    if (dictionary_appenddictionary(outer, "box"_sym, box) != ErrorNone) {
        object_free(box);
    }
    Object *made = newobject_fromdictionary(patcher, outer);
    object_free(outer);
    return made;
}

// The dictionary text of an object box with this text.
Text quoted_box_text(const char *text) {
    Text out("@kivclass newobj @text \"");
    for (const char *c = text; *c; ++c) {
        if (*c == '"') {
            out.push_back('\\');
        }
        out.push_back(*c);
    }
    out.push_back('"');
    return out;
}

void cut(Text &text, size_t limit) {
    if (text.size() > limit) {
        text.resize(limit);
    }
}

bool has_class(const void *x, Symbol *name) noexcept {
    return object_isvalid(x) && object_classname(x) == name;
}

}  // namespace

Object *newobject_fromboxtext(void *patcher, const char *text) noexcept {
    if (!text) {
        return nullptr;
    }
    try {
        Text dictionary_text;
        if (std::strncmp(text, "newobj", 6) == 0) {
            dictionary_text.append("@kivclass ").append(text);
            cut(dictionary_text, format_limit);
        } else {
            dictionary_text = quoted_box_text(text);
            cut(dictionary_text, quoted_limit);
        }
        return from_dictionary_text(patcher, dictionary_text.c_str());
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

Object *newobject_fromdictionary(void *patcher, Dictionary *dictionary) noexcept {
    if (!dictionary) {
        return nullptr;
    }
    Atom argument;
    Atom reply{};
    atom_setobj(&argument, dictionary);
    if (object_method_typed(patcher, "newobject"_sym, 1, &argument, &reply) != ErrorNone) {
        return nullptr;
    }
    return static_cast<Object *>(atom_getobj(&reply));
}

Object *newobject_sprintf(void *patcher, const char *format, ...) noexcept {
    if (!format) {
        return nullptr;
    }
    char text[format_limit + 1];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return length < 0 ? nullptr : from_dictionary_text(patcher, text);
}

void *newobject(Class *c) noexcept {
    return object_alloc(c);
}

int32_t isnewex(const void *x) noexcept {
    return has_class(x, "newobj"_sym);
}

int32_t ispatcher(const void *x) noexcept {
    return jpatcher_is_patcher(x);
}

int32_t isbpatcher(const void *x) noexcept {
    return has_class(x, "bpatcher"_sym);
}

int32_t newex_knows(void *maker, Symbol *name) noexcept {
    return maker && name ? object_method(maker, "understands"_sym, name) != nullptr : 0;
}
