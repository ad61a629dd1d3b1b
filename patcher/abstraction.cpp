// Objects made from files and box dictionaries: abstractions and subpatchers.
//
// An abstraction gets exactly ten arguments: the number of its load, which no other load has, then
// nine, 0 where none was typed. Main thread.
#include <kiv/atom.h>
#include <kiv/class.h>
#include <kiv/console.h>
#include <kiv/object.h>

#include <algorithm>
#include <cstdio>

#include "files/internal.h"
#include "kernel/internal.h"
#include "patcher/creation.h"
#include "patcher/fields.h"

namespace kiv {

namespace {

int64_t load_counter = 0;

void report_missing(Symbol *class_name) noexcept {
    void *box = "#B"_sym->thing;
    object_error(box, "%s: %s", class_name->name, translated("No such object"));
    if (const Symbol *package = package_of_external(class_name)) {
        object_bug(box, "%s: object is available in the %s package", class_name->name,
                   package->name);
    }
}

void *make_from_module(Symbol *name_space, Symbol *class_name, const ClassFile &file, int32_t argc,
                       Atom *argv) noexcept {
    module_load(class_name, file);
    Class *c = class_getifloaded_casefree(name_space, class_name);
    if (!c) {
        report_missing(class_name);
        return nullptr;
    }
    return object_new_typed(c->name_space, c->name, argc, argv);
}

// From a file, or from a document of a collective.
Object *load_abstraction(Symbol *name_space, Symbol *class_name, const ClassFile &file,
                         Dictionary *document, int32_t argc, const Atom *argv) noexcept {
    AbstractionArguments arguments(argc, argv);
    Object *patcher =
        document ? load_document(document, file, arguments.count, arguments.atoms, name_space)
                 : load_file(file.name, file.path, file.type, arguments.count, arguments.atoms,
                             name_space, false);
    if (patcher && zgetfn(patcher, "setclass"_sym)) {
        object_method(patcher, "setclass"_sym, class_name);
    }
    return patcher;
}

}  // namespace

AbstractionArguments::AbstractionArguments(int32_t argc, const Atom *argv) noexcept {
    atom_setlong(&atoms[0], ++load_counter);
    for (int32_t i = 1; i < count; ++i) {
        if (i <= argc) {
            atoms[i] = argv[i - 1];
        } else {
            atom_setlong(&atoms[i], 0);
        }
    }
}

void *abstraction_make(Symbol *name_space, Symbol *class_name, Symbol *file_name, int32_t argc,
                       Atom *argv) noexcept {
    ClassFile file{};
    std::snprintf(file.name, sizeof file.name, "%s", file_name->name);
    if (Dictionary *document = collective_document(&file)) {
        return load_abstraction(name_space, class_name, file, document, argc, argv);
    }
    if (!class_file_locate(file_name->name, &file)) {
        report_missing(class_name);
        return nullptr;
    }
    if (file.type == file_type("kv64")) {
        return make_from_module(name_space, class_name, file, argc, argv);
    }
    // A file of that name that holds no patcher (notes, settings) is no object either.
    int32_t system_error = 0;
    if (!file_holds_patcher(file.name, file.path, &system_error) && system_error == 0) {
        report_missing(class_name);
        return nullptr;
    }
    return load_abstraction(name_space, class_name, file, nullptr, argc, argv);
}

void *subpatcher_make(int32_t argc, Atom *argv) noexcept {
    CreationFrame *frame = creation_frame();
    Dictionary *dictionary = nullptr;
    if (frame) {
        dictionary_getdictionary(frame->box_dictionary, "patcher"_sym, &dictionary);
        Symbol *name = argc > 0 ? symbol_of_atoms(1, argv) : nullptr;
        frame->patcher_name = name ? name : frame->patcher_name;
    }
    Atom argument;
    atom_setobj(&argument, dictionary);
    return object_new_typed("nobox"_sym, "jpatcher"_sym, dictionary ? 1 : 0, &argument);
}

}  // namespace kiv
