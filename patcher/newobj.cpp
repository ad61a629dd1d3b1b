// The object box: a box that shows the object its text names.
//
// The text is one message to the object maker of the patcher's namespace, which leaves the object
// in the newest-object slot; the slot is emptied first, and an object that already sits in a box is
// not taken from it. Constructors may free the box or its patcher: after the evaluation both are
// asked for again, and an object without a box is freed. Main thread.
#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/binbuf.h>
#include <kiv/class.h>
#include <kiv/console.h>
#include <kiv/object.h>

#include <algorithm>
#include <cstdio>

#include "containers/internal.h"
#include "kernel/internal.h"
#include "patcher/creation.h"
#include "patcher/records.h"

namespace kiv {

namespace {

Class *newobj_class = nullptr;

Object *take_newest() noexcept {
    auto **slot = static_cast<void **>("g_kiv_newest"_sym->thing);
    auto *newest = static_cast<Object *>(*slot);
    *slot = nullptr;
    return object_valid(newest) && !object_box(newest) ? newest : nullptr;
}

void empty_newest() noexcept {
    *static_cast<void **>("g_kiv_newest"_sym->thing) = nullptr;
}

// --- Text ----------------------------------------------------------------------------------------

Text text_of(Dictionary *dictionary) {
    Text out;
    int32_t count = 0;
    Atom *atoms = nullptr;
    if (dictionary_getatoms(dictionary, "text"_sym, &count, &atoms) != ErrorNone || count < 1) {
        return out;
    }
    if (count == 1 && atoms->type == TypeSymbol) {
        return Text(atoms->value.sym->name);
    }
    const char *string = nullptr;
    if (dictionary_getstring(dictionary, "text"_sym, &string) == ErrorNone && string) {
        return Text(string);
    }
    char *text = nullptr;
    int64_t size = 0;
    if (atom_gettext(count, atoms, &size, &text, 0) == ErrorNone && text) {
        out = text;
    }
    sysmem_freeptr(text);
    return out;
}

bool has_separator(const Vector<Atom> &atoms) noexcept {
    return std::any_of(atoms.begin(), atoms.end(), [](const Atom &atom) {
        return atom.type == TypeComma || atom.type == TypeSemicolon;
    });
}

// --- A box of another class ----------------------------------------------------------------------

void carry_over(Dictionary *from, Dictionary *to) noexcept {
    static Symbol *const keys[] = {"patching_rect"_sym, "patching_position"_sym,
                                   "patching_size"_sym, "id"_sym,
                                   "varname"_sym,       "hidden"_sym,
                                   "orderfront"_sym,    "orderbefore"_sym,
                                   "presentation"_sym,  "text"_sym};
    for (Symbol *key : keys) {
        Atom value;
        if (!dictionary_hasentry(to, key) && dictionary_getatom(from, key, &value) == ErrorNone) {
            dictionary_appendatom_flags(to, key, &value, DictionaryClones);
        }
    }
}

// The box that a user-interface class makes of the text and the place of an object box.
Object *box_of_class(Class *c, Dictionary *dictionary, Object *patcher, Vector<Atom> &atoms) {
    Dictionary *own = dictionary_new();
    if (!own) {
        return nullptr;
    }
    if (atoms.size() > 1) {
        attr_args_dictionary(own, static_cast<int32_t>(atoms.size()) - 1, atoms.data() + 1);
    }
    dictionary_appendsym(own, "kivclass"_sym, c->name);
    dictionary_appendobject_flags(own, "#P"_sym, patcher, ContainerReference);
    carry_over(dictionary, own);
    creation_complete_rect(own);
    Atom argument;
    atom_setobj(&argument, own);
    auto *box = static_cast<Object *>(object_new_typed(c->name_space, c->name, 1, &argument));
    object_free(own);
    return box;
}

// --- The object ----------------------------------------------------------------------------------

void evaluate_saved(Dictionary *dictionary, const Vector<Atom> *arguments) {
    int32_t count = 0;
    Atom *saved = nullptr;
    dictionary_getatoms(dictionary, "save"_sym, &count, &saved);
    Vector<Atom> atoms(saved, saved + count);
    if (arguments) {
        atoms_substitute(count, atoms.data(), '$', static_cast<int32_t>(arguments->size()),
                         arguments->data());
    }
    Binbuf *message = binbuf_new();
    for (Atom &atom : atoms) {  // documents hold the marks between messages as symbols
        binbuf_append(message, nullptr, 1, &atom);
    }
    empty_newest();
    binbuf_eval(message, 0, nullptr, nullptr);
    object_free(message);
}

void evaluate_text(const Vector<Atom> &atoms, Symbol *name_space) {
    empty_newest();
    if (!atoms.empty()) {
        atoms_eval(static_cast<int32_t>(atoms.size()), const_cast<Atom *>(atoms.data()), 0, nullptr,
                   creation_maker(name_space));
    }
}

// Everything about one object box under construction.
struct Making {
    Dictionary *dictionary;
    Patcher *patcher;  // null in a dictionary that names none
    Vector<Atom> atoms;
    bool saved;
};

Symbol *name_space_of(const Making &making) noexcept {
    return making.patcher ? making.patcher->class_namespace : "box"_sym;
}

// Null when the text asks for a user-interface class, then *ui_class, or for nothing there is.
Object *make_object(Jbox *box, const Making &making, Class **ui_class) {
    const Binding building("#B"_sym, box);
    if (making.saved) {
        evaluate_saved(making.dictionary,
                       making.patcher ? creation_arguments(making.patcher) : nullptr);
    } else if (has_separator(making.atoms)) {
        object_error(box, "%s", translated("object box has comma or semicolon"));
        return nullptr;
    } else {
        evaluate_text(making.atoms, name_space_of(making));
    }
    Object *object = take_newest();
    CreationFrame *frame = creation_frame();
    *ui_class = frame ? frame->ui_class : nullptr;
    if (object && (class_of(object)->flags & ClassUi) != 0) {
        *ui_class = class_of(object);
        object_free(object);
        object = nullptr;
    }
    return object;
}

Object *make_bogus(const Making &making) noexcept {
    Object *maker = creation_maker(name_space_of(making));
    empty_newest();
    typedmess(maker, "jbogus"_sym, 0, nullptr);
    Object *object = take_newest();
    return object ? object : bogus_object_new();
}

// --- The class -----------------------------------------------------------------------------------

// The user-interface class that the text names, when that is known before an object is made.
Class *ui_class_named(const Making &making) noexcept {
    if (making.saved || making.atoms.empty() || making.atoms[0].type != TypeSymbol ||
        has_separator(making.atoms)) {
        return nullptr;
    }
    Class *c = class_getifloaded_casefree(name_space_of(making), making.atoms[0].value.sym);
    return c && (c->flags & ClassUi) != 0 ? c : nullptr;
}

Object *make_box(Making &making, int32_t argc, Atom *argv) {
    if (Class *c = ui_class_named(making)) {
        Object *patcher = making.patcher ? as_object(making.patcher) : nullptr;
        return box_of_class(c, making.dictionary, patcher, making.atoms);
    }
    auto *box = static_cast<Jbox *>(object_alloc(newobj_class));
    if (!box || jbox_new(box, 0, argc, argv) != ErrorNone) {
        object_free(box);
        return nullptr;
    }
    if (!making.patcher) {
        return as_object(box);
    }
    const BoxWalk patcher(making.patcher);
    Class *ui_class = nullptr;
    Object *object = make_object(box, making, &ui_class);
    if (!patcher.alive() || !as_box(box) || box->state->patcher != making.patcher) {
        object_free(object);
        return nullptr;
    }
    if (ui_class) {
        object_free(box);
        return box_of_class(ui_class, making.dictionary, as_object(making.patcher), making.atoms);
    }
    if (!object) {
        object = make_bogus(making);
        box_set_placeholder(box, "newobj"_sym);
    }
    if (object) {
        box_set_object(box, object);
    }
    jbox_ready(box);
    return as_object(box);
}

void *newobj_new(Symbol *, int32_t argc, Atom *argv) {
    auto *dictionary = static_cast<Dictionary *>(argc > 0 ? atom_getobj(argv) : nullptr);
    if (!object_classname_compare(dictionary, "dictionary"_sym)) {
        return nullptr;
    }
    void *patcher = nullptr;
    dictionary_getobject(dictionary, "#P"_sym, &patcher);
    try {
        Making making{dictionary, as_patcher(patcher), {}, false};
        making.saved = dictionary_hasentry(dictionary, "save"_sym) != 0;
        making.atoms =
            box_text_atoms(text_of(dictionary).c_str(),
                           making.patcher ? creation_arguments(making.patcher) : nullptr);
        return make_box(making, argc, argv);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

}  // namespace

Vector<Atom> box_text_atoms(const char *text, const Vector<Atom> *arguments) {
    int32_t count = 0;
    Atom *parsed = nullptr;
    atom_setparse(&count, &parsed, text);
    Vector<Atom> atoms;
    try {
        atoms.assign(parsed, parsed + count);
    } catch (const std::bad_alloc &) {
        sysmem_freeptr(parsed);
        throw;
    }
    sysmem_freeptr(parsed);
    if (arguments) {
        atoms_substitute(count, atoms.data(), '#', static_cast<int32_t>(arguments->size()),
                         arguments->data());
    }
    return atoms;
}

void newobj_start() noexcept {
    newobj_class =
        class_new("newobj", reinterpret_cast<Method>(newobj_new),
                  reinterpret_cast<Method>(jbox_free), sizeof(Jbox), nullptr, TypeGimme, 0);
    class_obexoffset_set(newobj_class, offsetof(Jbox, obex));
    jbox_initclass(newobj_class, 0);
    class_register("box"_sym, newobj_class);
}

}  // namespace kiv
