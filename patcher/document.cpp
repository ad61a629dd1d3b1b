// Patchers from dictionaries and back: the document schema of patchers. Boxes and cords read and
// write their own part (box_document.cpp, patchline_document.cpp).
//
// What a document holds and nothing here knows is kept as it is and written back. The order of the
// entries is always the same, so that a document saved, loaded and saved again does not change.
#include "patcher/document.h"

#include <kiv/atom.h>
#include <kiv/atomarray.h>
#include <kiv/attr.h>
#include <kiv/console.h>

#include "containers/internal.h"
#include "files/internal.h"
#include "patcher/box.h"
#include "patcher/creation.h"
#include "patcher/internal.h"
#include "patcher/patcher.h"
#include "patcher/patcher_attributes.h"
#include "patcher/patchline.h"
#include "patcher/version.h"

namespace kiv {

namespace {

// --- Reading -------------------------------------------------------------------------------------

// Entries that are read one by one, besides the attributes of patcher_document_fields. "arguments",
// "filename" and "vol" are put in by the loader and never written.
const SymbolMap<bool> &known_entries() {
    static const SymbolMap<bool> known = [] {
        SymbolMap<bool> entries;
        for (const char *name :
             {"fileversion", "appversion", "classnamespace", "rect", "openrect", "boxes", "lines",
              "arguments", "filename", "vol", "globalpatchername", "defaultfocusbox", "title",
              "dependency_cache"}) {
            entries.emplace(gensym(name), true);
        }
        for (const Field &field : patcher_document_fields()) {
            entries.emplace(gensym(field.name), true);
        }
        return entries;
    }();
    return known;
}

// Two switches are written as 1 (off) and 2 (on).
bool is_one_or_two(const Field &field) noexcept {
    return field.get == &Member<&Patcher::grid_on_open>::get ||
           field.get == &Member<&Patcher::grid_snap_on_open>::get;
}

void read_field(Patcher *patcher, Dictionary *dictionary, const Field &field) noexcept {
    int32_t argc = 0;
    Atom *argv = nullptr;
    if (dictionary_getatoms(dictionary, gensym(field.name), &argc, &argv) || argc < 1) {
        return;
    }
    if (is_one_or_two(field)) {
        Atom on;
        atom_setlong(&on, atom_getlong(argv) >= 2);
        field.set(patcher, nullptr, 1, &on);
    } else {
        field.set(patcher, nullptr, argc, argv);
    }
}

void read_arguments(Patcher *patcher, Dictionary *dictionary) {
    int32_t argc = 0;
    Atom *argv = nullptr;
    if (!dictionary_getatoms(dictionary, "arguments"_sym, &argc, &argv)) {
        patcher->arguments.assign(argv, argv + argc);
        for (Atom &argument : patcher->arguments) {
            if (argument.type == TypeObject) {
                atom_setlong(&argument, 0);  // goes with the document
            }
        }
    }
}

void read_attributes(Patcher *patcher, Dictionary *dictionary) noexcept {
    int64_t number = 0;
    dictionary_getdeflong(dictionary, "fileversion"_sym, &number, 0);
    patcher->file_version = static_cast<int32_t>(std::clamp<int64_t>(number, INT8_MIN, INT8_MAX));
    dictionary_getdeflong(dictionary, "vol"_sym, &number, 0);
    patcher->path = static_cast<int16_t>(number);
    dictionary_getdefsym(dictionary, "filename"_sym, &patcher->file_name, ""_sym);
    for (const char *name :
         {"classnamespace", "rect", "openrect", "globalpatchername", "defaultfocusbox", "title"}) {
        int32_t argc = 0;
        Atom *argv = nullptr;
        if (!dictionary_getatoms(dictionary, gensym(name), &argc, &argv) && argc > 0) {
            object_attr_setvalueof(patcher, gensym(name), argc, argv);
        }
    }
    for (const Field &field : patcher_document_fields()) {
        read_field(patcher, dictionary, field);
    }
    patcher->presentation = patcher->open_in_presentation;
}

void keep_unknown(DictionaryEntry *entry, void *arg) noexcept {
    auto *patcher = static_cast<Patcher *>(arg);
    Symbol *key = dictionary_entry_getkey(entry);
    if (known_entries().count(key) == 0) {
        Atom value;
        dictionary_entry_getvalue(entry, &value);
        keep_entry(&patcher->unknown, key, value);
    }
}

// A constructor that runs here may free the patcher; its holder keeps it until loading ends.
void read_boxes(Patcher *patcher, int32_t count, const Atom *elements) noexcept {
    for (int32_t i = 0; i < count; ++i) {
        Dictionary *element = dictionary_of(elements[i]);
        if (element && patcher_newobject(as_object(patcher), element)) {
            continue;
        }
        if (!element) {
            object_error(as_object(patcher), "element %d of \"boxes\" is no box", i);
        }
        if (!keep_element(&patcher->stray_boxes, elements[i])) {
            object_error(as_object(patcher), "out of memory: a box was lost");
        }
    }
}

// --- Writing -------------------------------------------------------------------------------------

Owned<Dictionary> app_version() noexcept {
    Owned<Dictionary> version(dictionary_new());
    if (version) {
        dictionary_appendlong(version.get(), "major"_sym, program_major);
        dictionary_appendlong(version.get(), "minor"_sym, program_minor);
        dictionary_appendlong(version.get(), "revision"_sym, program_revision);
        dictionary_appendsym(version.get(), "architecture"_sym, "x64"_sym);
        dictionary_appendlong(version.get(), "modernui"_sym, 1);
    }
    return version;
}

bool write_version(Dictionary *dictionary) noexcept {
    dictionary_appendlong(dictionary, "fileversion"_sym, document_file_version);
    Owned<Dictionary> version = app_version();
    if (!version || dictionary_appenddictionary(dictionary, "appversion"_sym, version.get())) {
        return false;
    }
    version.release();
    return true;
}

bool write_rect(Dictionary *dictionary, Symbol *key, const double *rect) noexcept {
    if (rect[2] <= 0. || rect[3] <= 0.) {
        return true;
    }
    Atom atoms[4];
    atom_setdouble_array(4, atoms, 4, rect);
    return !dictionary_appendatoms(dictionary, key, 4, atoms);
}

bool write_attributes(Patcher *patcher, Dictionary *dictionary) noexcept {
    static const Patcher defaults;
    bool done = write_rect(dictionary, "rect"_sym, patcher->rect) &&
                write_rect(dictionary, "openrect"_sym, patcher->open_rect);
    for (const Field &field : patcher_document_fields()) {
        if (field.same(patcher, &defaults)) {
            continue;
        }
        done &= field_write(field, patcher, dictionary);
        int64_t on = 0;
        if (is_one_or_two(field) && !dictionary_getlong(dictionary, gensym(field.name), &on)) {
            dictionary_appendlong(dictionary, gensym(field.name), on ? 2 : 1);
        }
    }
    const struct {
        Symbol *key;
        Symbol *value;
    } names[] = {{"globalpatchername"_sym, patcher->global_name},
                 {"defaultfocusbox"_sym, patcher->default_focus_box},
                 {"title"_sym, patcher->title}};
    for (const auto &name : names) {
        if (*name.value->name) {
            done &= !dictionary_appendsym(dictionary, name.key, name.value);
        }
    }
    return done;
}

// A subpatcher's document is part of the one around it, which tells the files that both need.
bool is_document(const Patcher *patcher) noexcept {
    return !patcher->box || patcher_is_file(patcher);
}

bool write_boxes(Patcher *patcher, Dictionary *dictionary) noexcept {
    Elements elements;
    for (Jbox *box = patcher->first_box; box; box = box->state->next) {
        Owned<Dictionary> content(dictionary_new());
        if (!content || !box_write_dictionary(box, content.get()) ||
            !elements.add(wrapped("box"_sym, std::move(content)))) {
            return false;
        }
    }
    return elements.add_copies(patcher->stray_boxes) && elements.store(dictionary, "boxes"_sym);
}

}  // namespace

void patcher_read_dictionary(Patcher *patcher, Dictionary *dictionary) noexcept {
    patcher->loading = true;
    const Retained retained(dictionary);
    try {
        read_arguments(patcher, dictionary);
        read_attributes(patcher, dictionary);
        known_entries();
        dictionary_funall(dictionary, keep_unknown, patcher);
    } catch (const std::bad_alloc &) {
        object_error(as_object(patcher), "out of memory: the document was not read whole");
    }
    int32_t count = 0;
    Atom *elements = nullptr;
    if (!dictionary_getatoms(dictionary, "boxes"_sym, &count, &elements)) {
        read_boxes(patcher, count, elements);
    }
    patcher_settle_ports(patcher);
    if (!dictionary_getatoms(dictionary, "lines"_sym, &count, &elements)) {
        patcher_read_lines(patcher, count, elements);
    }
    patcher->loading = false;
    patcher->dirty = 0;
}

bool patcher_write_dictionary(Patcher *patcher, Dictionary *dictionary) noexcept {
    return write_version(dictionary) &&
           !dictionary_appendsym(dictionary, "classnamespace"_sym, patcher->class_namespace) &&
           write_attributes(patcher, dictionary) && write_boxes(patcher, dictionary) &&
           patcher_write_lines(patcher, dictionary) &&
           (!is_document(patcher) || patcher_write_dependencies(patcher, dictionary)) &&
           add_missing(patcher->unknown, dictionary);
}

int32_t patcher_save(Object *x, const char *file_name, int16_t path) noexcept {
    Patcher *patcher = as_patcher(x);
    if (!patcher || !file_name) {
        return ErrorInvalidPointer;
    }
    Owned<Dictionary> content(dictionary_new());
    if (!content || !patcher_write_dictionary(patcher, content.get())) {
        return ErrorOutOfMemory;
    }
    const Owned<Dictionary> document = wrapped("patcher"_sym, std::move(content));
    try {
        JsonText text;
        if (!document || !json_from_dictionary(document.get(), text)) {
            return ErrorOutOfMemory;
        }
        return file_write_all(file_name, path, text.data(), static_cast<int64_t>(text.size()));
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
}

}  // namespace kiv

using namespace kiv;

namespace {

Dictionary *document_being_read() noexcept {
    void *x = "#PD"_sym->thing;
    return object_classname_compare(x, "dictionary"_sym) ? static_cast<Dictionary *>(x) : nullptr;
}

Dictionary *version_of(Dictionary *patcher) noexcept {
    Dictionary *version = nullptr;
    return patcher && !dictionary_getdictionary(patcher, "appversion"_sym, &version) ? version
                                                                                     : nullptr;
}

}  // namespace

int32_t jpatcher_get_currentfileversion() noexcept {
    return document_file_version;
}

int32_t jpatcher_dictionary_version() noexcept {
    int64_t major = 0;
    Dictionary *version = version_of(document_being_read());
    return version && !dictionary_getlong(version, "major"_sym, &major)
               ? static_cast<int32_t>(major)
               : program_major;
}

int32_t jpatcher_dictionary_modernui(Dictionary *dictionary) noexcept {
    Dictionary *document = dictionary ? dictionary : document_being_read();
    if (!document) {
        return 1;
    }
    int64_t modern = 0;
    if (Dictionary *version = version_of(document)) {
        dictionary_getdeflong(version, "modernui"_sym, &modern, 0);
    }
    return static_cast<int32_t>(modern);
}
