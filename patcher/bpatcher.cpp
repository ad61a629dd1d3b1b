// The box class `bpatcher`: a box that shows a patcher, from a file or from its own dictionary.
//
// The dictionary names the file under "name" and its arguments under "args"; with an embedded
// "patcher" it needs neither. Typed into an object box, the words after the class name are the file
// and the arguments. These entries stay with the box as they are, so that saving keeps them. With
// the attribute "embed" a file's content is saved with the box, and read from there the next time.
// Main thread.
#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/class.h>
#include <kiv/object.h>

#include <cstddef>

#include "kernel/internal.h"
#include "patcher/creation.h"
#include "patcher/records.h"

namespace kiv {

namespace {

struct Bpatcher {
    Jbox box;
    uint8_t embed;  // the file's content is part of the document
};

Class *bpatcher_class = nullptr;

// The file's name and, behind it, its arguments; empty when the dictionary names none.
Vector<Atom> file_and_arguments(Dictionary *dictionary, const Vector<Atom> *outer) {
    Symbol *name = nullptr;
    if (dictionary_getsym(dictionary, "name"_sym, &name) == ErrorNone && *name->name) {
        Vector<Atom> atoms(1);
        atom_setsym(&atoms[0], name);
        int32_t count = 0;
        Atom *arguments = nullptr;
        if (dictionary_getatoms(dictionary, "args"_sym, &count, &arguments) == ErrorNone) {
            atoms.insert(atoms.end(), arguments, arguments + count);
        }
        return atoms;
    }
    if (dictionary_getsym(dictionary, "text"_sym, &name) != ErrorNone) {
        return {};
    }
    Vector<Atom> atoms = box_text_atoms(name->name, outer);
    atoms.resize(
        static_cast<size_t>(attr_args_offset(static_cast<int32_t>(atoms.size()), atoms.data())));
    if (!atoms.empty()) {
        atoms.erase(atoms.begin());  // the class name
    }
    return atoms;
}

Object *make_content(Jbox *box, Dictionary *dictionary, Patcher *patcher) {
    const Binding building("#B"_sym, box);
    if (dictionary_hasentry(dictionary, "patcher"_sym)) {
        return static_cast<Object *>(subpatcher_make(0, nullptr));
    }
    Vector<Atom> atoms = file_and_arguments(dictionary, creation_arguments(patcher));
    if (atoms.empty() || atoms[0].type != TypeSymbol) {
        return nullptr;  // an empty frame until it is given a file
    }
    Symbol *const file = atoms[0].value.sym;
    return static_cast<Object *>(abstraction_make(patcher->class_namespace, file, file,
                                                  static_cast<int32_t>(atoms.size()) - 1,
                                                  atoms.data() + 1));
}

void *bpatcher_new(Symbol *, int32_t argc, Atom *argv) {
    auto *dictionary = static_cast<Dictionary *>(argc > 0 ? atom_getobj(argv) : nullptr);
    auto *box = static_cast<Jbox *>(object_alloc(bpatcher_class));
    if (!box || jbox_new(box, 0, argc, argv) != ErrorNone) {
        object_free(box);
        return nullptr;
    }
    Patcher *const patcher = box->state->patcher;
    if (!patcher || !object_classname_compare(dictionary, "dictionary"_sym)) {
        jbox_ready(box);
        return box;
    }
    try {
        const BoxWalk walk(patcher);
        Object *const content = make_content(box, dictionary, patcher);
        if (!walk.alive() || !as_box(box) || box->state->patcher != patcher) {
            object_free(content);  // making it freed the box or its patcher
            return nullptr;
        }
        if (content && jpatcher_is_patcher(content)) {
            box_set_object(box, content);
        } else {
            object_free(content);  // the name of an object that is no patcher
        }
        jbox_ready(box);
        return box;
    } catch (const std::bad_alloc &) {
        object_free(box);
        return nullptr;
    }
}

}  // namespace

void bpatcher_start() noexcept {
    bpatcher_class = class_new("bpatcher", method(bpatcher_new), method(jbox_free),
                               static_cast<int32_t>(sizeof(Bpatcher)), nullptr, TypeGimme, 0);
    jbox_initclass(bpatcher_class, JBOX_UI);
    class_addattr(bpatcher_class, attr_offset_new("embed", "char"_sym, 0, nullptr, nullptr,
                                                  static_cast<int32_t>(offsetof(Bpatcher, embed))));
    class_addattr_parse(bpatcher_class, "embed", "save"_sym, "long", "1");
    class_addattr_parse(bpatcher_class, "embed", "default"_sym, "long", "0");
    class_register("box"_sym, bpatcher_class);
}

}  // namespace kiv
