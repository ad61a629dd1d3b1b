// The patcher's "newobject" message: a box from its dictionary.
//
// Invariants: the dictionary the caller gave is as it was when the call returns, but for
// "replaced_args" (documents that several patchers are made from share their dictionaries). A box
// class is called through typed dispatch, so that a class named in a document by mistake gets its
// arguments checked; what it makes counts only if it is a box. What cannot be made becomes a
// placeholder. Constructors may free the patcher: it is not touched again before it is asked for.
#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/class.h>
#include <kiv/console.h>
#include <kiv/jbox.h>
#include <kiv/newobject.h>
#include <kiv/object.h>

#include <cstring>

#include "files/internal.h"
#include "kernel/internal.h"
#include "patcher/creation.h"
#include "patcher/records.h"

namespace kiv {

namespace {

// The folder beside which a patcher's files are looked up.
int16_t folder_of(Patcher *patcher) noexcept {
    for (Patcher *p = patcher; p; p = patcher_parent(p)) {
        if (p->path != 0) {
            return static_cast<int16_t>(p->path);
        }
    }
    auto *document = static_cast<Dictionary *>("#PD"_sym->thing);
    int64_t path = 0;
    dictionary_getlong(document, "vol"_sym, &path);
    return path != 0 ? static_cast<int16_t>(path) : path_getdefault();
}

// Has a box dictionary show its "text" with the arguments of the abstraction for a scope. Object
// boxes keep their text as it is and substitute in its atoms.
class SubstitutedText {
  public:
    SubstitutedText(Patcher *patcher, Dictionary *dictionary) : dictionary_(dictionary) {
        const Vector<Atom> *arguments = creation_arguments(patcher);
        Symbol *text = nullptr;
        if (arguments && dictionary_getsym(dictionary, "text"_sym, &text) == ErrorNone && text &&
            std::strchr(text->name, '#')) {
            const Text filled = creation_substitute(text->name, *arguments);
            original_ = text;
            dictionary_appendsym(dictionary, "text"_sym, gensym(filled.c_str()));
        }
    }
    ~SubstitutedText() {
        if (original_) {
            dictionary_appendsym(dictionary_, "text"_sym, original_);
        }
    }
    // Has the box written with the text as it was, as long as nobody changes it.
    void note_in(Jbox *box) const noexcept {
        if (original_ && box) {
            box->state->template_text = original_;
            box->state->filled_text = box->state->text;
        }
    }
    SubstitutedText(const SubstitutedText &) = delete;
    SubstitutedText &operator=(const SubstitutedText &) = delete;

  private:
    Dictionary *dictionary_;
    Symbol *original_ = nullptr;
};

void take_replaced_entries(Dictionary *dictionary) noexcept {
    Dictionary *replaced = nullptr;
    if (dictionary_getdictionary(dictionary, "replaced_args"_sym, &replaced) != ErrorNone) {
        return;
    }
    int32_t count = 0;
    Symbol **keys = nullptr;
    Dictionary *copies = dictionary_clone(replaced);
    dictionary_getkeys_ordered(copies, &count, &keys);
    for (int32_t i = 0; i < count; ++i) {
        Atom value;
        if (dictionary_hasentry(dictionary, keys[i]) &&
            dictionary_getatom(copies, keys[i], &value) == ErrorNone) {
            dictionary_chuckentry(copies, keys[i]);
            dictionary_appendatom(dictionary, keys[i], &value);
        }
    }
    dictionary_freekeys(copies, count, keys);
    object_free(copies);
    dictionary_deleteentry(dictionary, "replaced_args"_sym);
}

Object *construct_from_dictionary(Class *c, Patcher *patcher, Dictionary *dictionary) {
    dictionary_appendobject_flags(dictionary, "#P"_sym, as_object(patcher), ContainerReference);
    Atom argument;
    atom_setobj(&argument, dictionary);
    auto *made = static_cast<Object *>(object_new_typed(c->name_space, c->name, 1, &argument));
    dictionary_deleteentry(dictionary, "#P"_sym);
    take_replaced_entries(dictionary);
    return made;
}

Object *construct_old_style(Class *c, Patcher *patcher, Dictionary *dictionary) {
    Atom arguments[2];
    atom_setobj(&arguments[0], patcher);
    atom_setobj(&arguments[1], dictionary);
    return static_cast<Object *>(object_new_typed(c->name_space, c->name, 2, arguments));
}

Jbox *construct(Class *c, Patcher *patcher, Dictionary *dictionary) {
    Object *made = nullptr;
    if ((c->flags & ClassBoxDictionary) == 0) {
        made = construct_old_style(c, patcher, dictionary);
    } else if (c->name == "newobj"_sym) {
        made = construct_from_dictionary(c, patcher, dictionary);
    } else {
        const SubstitutedText substituted(patcher, dictionary);
        made = construct_from_dictionary(c, patcher, dictionary);
        substituted.note_in(as_box(made));
    }
    // A box that did not join the patcher (its class or the memory failed it) is nobody's.
    Jbox *box = as_box(made);
    if (made && (!box || box->state->patcher != patcher)) {
        object_free(made);
        return nullptr;
    }
    return box;
}

Jbox *placeholder(Patcher *patcher, Dictionary *dictionary, Symbol *class_name,
                  const char *format) noexcept {
    creation_complete_rect(dictionary);
    Object *box = bogus_box_new(as_object(patcher), dictionary, class_name);
    if (box) {
        object_error(box, translated(format), class_name->name);
    }
    return as_box(box);
}

void move_by_paste_offset(Patcher *patcher, Jbox *box) noexcept {
    const double dx = patcher->paste_offset[0];
    const double dy = patcher->paste_offset[1];
    if (dx == 0. && dy == 0.) {
        return;
    }
    double position[2] = {0., 0.};
    jbox_get_patching_position(box, position);
    position[0] += dx;
    position[1] += dy;
    jbox_set_patching_position(box, position);
    double rect[4] = {0., 0., 0., 0.};
    jbox_get_presentation_rect(box, rect);
    rect[0] += dx;
    rect[1] += dy;
    jbox_set_presentation_rect(box, rect);
}

void post_load_subpatchers(Jbox *box) noexcept {
    Object *object = box_object(box);
    if (jpatcher_is_patcher(object)) {
        patcher_postload(object);
    } else if (zgetfn(object, "subpatcher"_sym)) {
        for (int64_t i = 0; i < INT32_MAX; ++i) {
            auto *subpatcher =
                static_cast<Object *>(object_method(object, "subpatcher"_sym, i, nullptr));
            if (!jpatcher_is_patcher(subpatcher)) {
                break;
            }
            patcher_postload(subpatcher);
        }
    }
}

Jbox *create(Patcher *patcher, Dictionary *dictionary, const CreationFrame &frame) {
    Symbol *class_name = ""_sym;
    dictionary_getdefsym(dictionary, "kivclass"_sym, &class_name, ""_sym);
    if (!frame.allowed()) {
        return placeholder(patcher, dictionary, class_name, "%s: patchers are nested too deeply");
    }
    const BoxWalk alive(patcher);
    Class *c = class_findbyname_casefree(patcher->class_namespace, class_name);
    Jbox *box = c ? construct(c, patcher, dictionary) : nullptr;
    if (!alive.alive()) {
        return nullptr;
    }
    return box ? box : placeholder(patcher, dictionary, class_name, "%s: no such object");
}

}  // namespace

void creation_complete_rect(Dictionary *dictionary) noexcept {
    int32_t count = 0;
    Atom *position = nullptr;
    if (dictionary_hasentry(dictionary, "patching_rect"_sym) ||
        dictionary_getatoms(dictionary, "patching_position"_sym, &count, &position) != ErrorNone ||
        count < 2) {
        return;
    }
    Atom rect[4];
    atom_setfloat(&rect[0], atom_getfloat(&position[0]));
    atom_setfloat(&rect[1], atom_getfloat(&position[1]));
    atom_setfloat(&rect[2], 100.);
    atom_setfloat(&rect[3], 20.);
    dictionary_appendatoms(dictionary, "patching_rect"_sym, 4, rect);
}

Object *patcher_newobject(Object *patcher_object, Dictionary *dictionary) noexcept {
    Patcher *patcher = as_patcher(patcher_object);
    if (!patcher || !dictionary) {
        return nullptr;
    }
    const Binding receiving("#P"_sym, patcher);
    const DefaultPath beside(folder_of(patcher));
    Dictionary *box_dictionary = nullptr;
    if (dictionary_getdictionary(dictionary, "box"_sym, &box_dictionary) != ErrorNone) {
        box_dictionary = dictionary;
    }
    const BoxWalk alive(patcher);
    try {
        const CreationFrame frame(box_dictionary);
        Jbox *box = create(patcher, box_dictionary, frame);
        if (!box || !alive.alive()) {
            return nullptr;
        }
        jbox_ready(box);
        move_by_paste_offset(patcher, box);
        patcher->last_created = as_object(box);
        if (patcher->hide_new_boxes) {
            jbox_set_hidden(box, 1);
        }
        if (load_depth() > 0) {
            post_load_subpatchers(box);
        }
        return as_object(box);
    } catch (const std::bad_alloc &) {
        error("newobject: out of memory");
        return nullptr;
    }
}

ErrorCode patcher_newobject_message(Object *patcher, Symbol *, int32_t argc, Atom *argv,
                                    Atom *reply) noexcept {
    if (argc < 1) {
        object_error(patcher, "missing arguments for message \"newobject\"");
        return ErrorGeneric;
    }
    if (atom_gettype(argv) == TypeSymbol) {
        return object_method_typed(patcher, atom_getsym(argv), argc - 1, argv + 1, reply);
    }
    auto *dictionary = static_cast<Dictionary *>(atom_getobj(argv));
    if (!object_classname_compare(dictionary, "dictionary"_sym)) {
        object_error(patcher, "bad arguments for message \"newobject\"");
        return ErrorGeneric;
    }
    Object *box = patcher_newobject(patcher, dictionary);
    if (box && reply) {
        atom_setobj(reply, box);
    }
    return box ? ErrorNone : ErrorGeneric;
}

}  // namespace kiv
