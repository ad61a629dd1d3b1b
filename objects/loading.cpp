// loadbang, loadmess, patcherargs: what sends when a patcher has been loaded.
#include "objects/common.h"

namespace kiv::objects {

namespace {

// All three hold a message (a bang when it has no atoms) and send it in the last stage of loading.
struct OnLoad {
    Object ob;
    Outlet *out;
    Atomarray *message;
};

Class *loadbang_class;
Class *loadmess_class;
Class *patcherargs_class;

// A copy is sent: a receiver may free the object while others still wait for the message.
void send(OnLoad *x) {
    int32_t argc = 0;
    Atom *argv = nullptr;
    atomarray_copyatoms(x->message, &argc, &argv);
    if (argc > 0) {
        outlet_atoms(x->out, argc, argv);
    } else {
        outlet_bang(x->out);
    }
    sysmem_freeptr(argv);
}

OnLoad *on_load_new(Class *c, int32_t argc, const Atom *argv) {
    auto *x = make_object<OnLoad>(c);
    if (x) {
        x->out = outlet_new(x, nullptr);
        x->message = atomarray_new(argc, argv);
    }
    return x;
}

void on_load_free(OnLoad *x) {
    object_free(x->message);
}

void *loadbang_new(Symbol *, int32_t, Atom *) {
    return on_load_new(loadbang_class, 0, nullptr);
}

void *loadmess_new(Symbol *, int32_t argc, Atom *argv) {
    return on_load_new(loadmess_class, argc, argv);
}

// What was typed after the name of the enclosing abstraction takes the place of the defaults.
void *patcherargs_new(Symbol *, int32_t argc, Atom *argv) {
    OnLoad *const x = on_load_new(patcherargs_class, argc, argv);
    int32_t count = 0;
    Atom *arguments = nullptr;
    if (!x ||
        object_attr_getvalueof("#P"_sym->thing, "arguments"_sym, &count, &arguments) != ErrorNone) {
        return x;
    }
    int32_t defaults = 0;
    Atom *message = nullptr;
    atomarray_getatoms(x->message, &defaults, &message);
    for (int32_t i = 0; i < count && i < defaults; ++i) {
        message[i] = arguments[i];
    }
    if (count > defaults) {
        atomarray_appendatoms(x->message, count - defaults, arguments + defaults);
    }
    sysmem_freeptr(arguments);
    return x;
}

Class *add_on_load(const char *name, void *(*constructor)(Symbol *, int32_t, Atom *)) {
    Class *const c = make_class<OnLoad>(name, constructor, on_load_free);
    class_addmethod(c, method(send), "bang", 0);
    class_addmethod(c, method(send), "loadbang", TypeCant, 0);
    add_class(c);
    return c;
}

}  // namespace

void loading_start() {
    loadbang_class = add_on_load("loadbang", loadbang_new);
    loadmess_class = add_on_load("loadmess", loadmess_new);
    patcherargs_class = add_on_load("patcherargs", patcherargs_new);
}

}  // namespace kiv::objects
