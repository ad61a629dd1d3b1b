// Placeholders: the box `juibogus` for a box that could not be made, and the object "jbogus" that
// an object box holds when its object could not be made. Both swallow every message: the failure
// has been reported when they were made.
#include <kiv/atom.h>
#include <kiv/class.h>

#include "patcher/creation.h"
#include "patcher/records.h"

namespace kiv {

namespace {

struct State {
    Class *box_class = nullptr;
    Class *object_class = nullptr;
};
State state;

struct BogusObject {
    Object ob;
    void *obex;
};

void swallow(void *, Symbol *, int32_t, Atom *) {}

void *box_new(Symbol *, int32_t argc, Atom *argv) {
    if (argc < 1 || atom_gettype(argv) != TypeObject) {
        return nullptr;
    }
    auto *box = static_cast<Jbox *>(object_alloc(state.box_class));
    if (box && jbox_new(box, 0, argc, argv) != ErrorNone) {
        object_free(box);
        return nullptr;
    }
    return box;
}

}  // namespace

void bogus_start() noexcept {
    state.box_class =
        class_new("juibogus", reinterpret_cast<Method>(box_new),
                  reinterpret_cast<Method>(jbox_free), sizeof(Jbox), nullptr, TypeGimme, 0);
    class_obexoffset_set(state.box_class, offsetof(Jbox, obex));
    jbox_initclass(state.box_class, 0);
    class_addmethod(state.box_class, reinterpret_cast<Method>(swallow), "anything", TypeGimme, 0);
    class_register("box"_sym, state.box_class);

    state.object_class =
        class_new("jbogus", nullptr, nullptr, sizeof(BogusObject), nullptr, TypeNothing);
    class_obexoffset_set(state.object_class, offsetof(BogusObject, obex));
    class_addmethod(state.object_class, reinterpret_cast<Method>(swallow), "anything", TypeGimme,
                    0);
    class_register("nobox"_sym, state.object_class);
}

Object *bogus_object_new() noexcept {
    return static_cast<Object *>(object_alloc(state.object_class));
}

Object *bogus_box_new(Object *patcher, Dictionary *dictionary, Symbol *real_class) noexcept {
    Dictionary *clone = dictionary_clone(dictionary);
    if (!clone) {
        return nullptr;
    }
    dictionary_appendobject_flags(clone, "#P"_sym, patcher, ContainerReference);
    dictionary_appendsym(clone, "realclass"_sym, real_class);
    Atom argument;
    atom_setobj(&argument, clone);
    Jbox *box = as_box(object_new_typed("box"_sym, "juibogus"_sym, 1, &argument));
    object_free(clone);
    if (!box) {
        return nullptr;
    }
    if (!box->state->patcher) {
        object_free(box);  // without memory for "#P"
        return nullptr;
    }
    box_set_placeholder(box, real_class);
    jbox_ready(box);
    return as_object(box);
}

}  // namespace kiv
