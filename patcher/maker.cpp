// The object makers: what turns the first word of an object box into an object.
//
// The maker of namespace "box" is bound to "#N". Dispatch passes its methods no object and keeps
// what they return as the newest object; a class factory of another namespace is an ordinary
// object, so its methods keep it themselves. Words without a method go through "anything": a loaded
// class, a module, the name table, a file. Main thread.
#include <kiv/atom.h>
#include <kiv/class.h>
#include <kiv/console.h>
#include <kiv/newobject.h>
#include <kiv/object.h>

#include "kernel/internal.h"
#include "patcher/creation.h"
#include "patcher/internal.h"
#include "patcher/records.h"

namespace kiv {

namespace {

struct Factory {
    Object ob;
    void *obex;
    Symbol *name_space;
};

struct State {
    Object *maker = nullptr;
    bool suspended = false;
};
State state;

// An instance of a loaded class. A class whose instances are boxes is left to the object box.
void *make_instance(Class *c, int32_t argc, Atom *argv) noexcept {
    if ((c->flags & ClassBoxDictionary) != 0) {
        if (CreationFrame *frame = creation_frame(); frame && (c->flags & ClassUi) != 0) {
            frame->ui_class = c;
        }
        return nullptr;
    }
    return object_new_typed(c->name_space, c->name, argc, argv);
}

// True for a class whose boxes stand for themselves, so that no object of it can be asked for.
bool is_inner_class(const Class *c) noexcept {
    return (c->flags & ClassBoxDictionary) != 0 && (c->flags & ClassUi) == 0;
}

bool names_subpatcher(const Symbol *name) noexcept {
    return same_casefree(name->name, "patcher") || same_casefree(name->name, "p");
}

// A maker has a constructor for each loaded class of its namespace besides its own methods.
bool understands_in(Symbol *name_space, Symbol *name) noexcept {
    if (names_subpatcher(name) || name == "jbogus"_sym) {
        return true;
    }
    const Class *c = class_getifloaded(name_space, name);
    return c && !is_inner_class(c);
}

void *make(Symbol *name_space, Symbol *name, int32_t argc, Atom *argv) noexcept {
    if (state.suspended) {
        return nullptr;
    }
    if (names_subpatcher(name)) {
        return subpatcher_make(argc, argv);
    }
    Class *c = class_getifloaded_casefree(name_space, name);
    if (!c && module_search(name_space, name)) {
        c = class_getifloaded_casefree(name_space, name);
    }
    if (c && !is_inner_class(c)) {
        return make_instance(c, argc, argv);
    }
    Symbol *file_name = nametab_lookup(name);
    if (file_name != name) {
        Object *maker = creation_maker(name_space);
        if (!object_valid(maker)) {
            object_bug(nullptr, "zgetfn (%s): corrupt object", file_name->name);
            return nullptr;
        }
        if (understands_in(name_space, file_name) ||
            class_getifloaded_casefree(name_space, file_name)) {
            return typedmess(maker, file_name, argc, argv);
        }
    }
    return abstraction_make(name_space, name, file_name, argc, argv);
}

// --- Methods of "#N" -----------------------------------------------------------------------------

void *maker_anything(Symbol *selector, int32_t argc, Atom *argv) {
    return make("box"_sym, selector, argc, argv);
}

void *maker_patcher(Symbol *, int32_t argc, Atom *argv) {
    return state.suspended ? nullptr : subpatcher_make(argc, argv);
}

void *maker_jbogus(Symbol *, int32_t, Atom *) {
    return bogus_object_new();
}

void *maker_understands_message(Object *, Symbol *name) {
    return KIV_WORD(maker_understands(name));
}

// --- Class factories -----------------------------------------------------------------------------

void *keep_newest(void *made) noexcept {
    *static_cast<void **>("g_kiv_newest"_sym->thing) = made;
    return made;
}

void *factory_anything(Factory *factory, Symbol *selector, int32_t argc, Atom *argv) {
    return keep_newest(make(factory->name_space, selector, argc, argv));
}

void *factory_patcher(Factory *, Symbol *selector, int32_t argc, Atom *argv) {
    return keep_newest(maker_patcher(selector, argc, argv));
}

void *factory_jbogus(Factory *, Symbol *, int32_t, Atom *) {
    return keep_newest(bogus_object_new());
}

void *factory_understands(Factory *factory, Symbol *name) {
    return KIV_WORD(understands_in(factory->name_space, name));
}

void *factory_new(Symbol *, int32_t argc, Atom *argv) {
    auto *factory = static_cast<Factory *>(
        object_alloc(class_getifloaded("nobox"_sym, "jpatcher_classfactory"_sym)));
    if (factory) {
        factory->name_space = argc > 0 ? atom_getsym(argv) : ""_sym;
    }
    return factory;
}

void add_methods(Class *c, Method anything, Method patcher, Method jbogus,
                 Method understands) noexcept {
    class_addmethod(c, anything, "anything", TypeGimme, 0);
    class_addmethod(c, patcher, "patcher", TypeGimme, 0);
    class_addmethod(c, patcher, "p", TypeGimme, 0);
    class_addmethod(c, jbogus, "jbogus", TypeGimme, 0);
    class_addmethod(c, understands, "understands", TypeCant, 0);
    // Every word that a box can hold is a class name here, never an attribute.
    c->flags |= ClassNoAttrMessages;
}

}  // namespace

bool maker_understands(Symbol *name) noexcept {
    return understands_in("box"_sym, name);
}

void creation_suspend(bool on) noexcept {
    state.suspended = on;
}

Object *creation_maker(Symbol *name_space) noexcept {
    if (!name_space || name_space == "box"_sym || name_space == ""_sym) {
        return state.maker;
    }
    Symbol *const factories = "jpatcher_classfactory"_sym;
    auto *factory = static_cast<Object *>(object_findregistered(factories, name_space));
    if (!factory) {
        Atom argument;
        atom_setsym(&argument, name_space);
        void *made = object_new_typed("nobox"_sym, factories, 1, &argument);
        factory = static_cast<Object *>(object_register(factories, name_space, made));
    }
    return factory;
}

void maker_start() noexcept {
    Class *c = class_new("objectmaker", nullptr, nullptr, sizeof(Factory), nullptr, TypeNothing);
    class_obexoffset_set(c, offsetof(Factory, obex));
    add_methods(c, reinterpret_cast<Method>(maker_anything),
                reinterpret_cast<Method>(maker_patcher), reinterpret_cast<Method>(maker_jbogus),
                reinterpret_cast<Method>(maker_understands_message));
    class_register("nobox"_sym, c);
    state.maker = static_cast<Object *>(object_alloc(c));
    "#N"_sym->thing = state.maker;

    Class *factory = class_new("jpatcher_classfactory", reinterpret_cast<Method>(factory_new),
                               nullptr, sizeof(Factory), nullptr, TypeGimme, 0);
    class_obexoffset_set(factory, offsetof(Factory, obex));
    add_methods(factory, reinterpret_cast<Method>(factory_anything),
                reinterpret_cast<Method>(factory_patcher), reinterpret_cast<Method>(factory_jbogus),
                reinterpret_cast<Method>(factory_understands));
    class_register("nobox"_sym, factory);
}

}  // namespace kiv
