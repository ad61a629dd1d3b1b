// thispatcher: takes messages to the patcher it is in.
//
// Whatever it does may free the object, its box or the whole patcher: nothing of them is touched
// after a message has been sent or a box has gone. Patchers belong to the main thread, so messages
// from other threads wait for it.
#include "objects/common.h"
#include "objects/script.h"

namespace kiv::objects {

namespace {

struct ThisPatcher {
    Object ob;
    Outlet *out;
};
Class *thispatcher_class;

// "window size LEFT TOP RIGHT BOTTOM" and "window getsize". The other words (flags, exec, ...) are
// for a window, which a runtime without one accepts.
void window(ThisPatcher *x, Object *patcher, int32_t argc, Atom *argv) {
    Symbol *const what = argc > 0 ? atom_getsym(argv) : ""_sym;
    double rect[4] = {};
    if (what == "getsize"_sym) {
        jpatcher_get_rect(patcher, rect);
        Atom reply[] = {symbol_atom("size"_sym), long_atom(to_long(rect[0])),
                        long_atom(to_long(rect[1])), long_atom(to_long(rect[0] + rect[2])),
                        long_atom(to_long(rect[1] + rect[3]))};
        outlet_anything(x->out, "window"_sym, 5, reply);
    } else if (what == "size"_sym || what == "setsize"_sym) {
        if (atom_getdouble_array(argc - 1, argv + 1, 4, rect) != ErrorNone || argc < 5) {
            object_error(x, "window %s: left, top, right and bottom are wanted", what->name);
            return;
        }
        rect[2] -= rect[0];
        rect[3] -= rect[1];
        jpatcher_set_rect(patcher, rect);
    }
}

// The folder of the file that the patcher is stored in; the empty symbol when it is in none.
void send_path(ThisPatcher *x, Object *patcher) {
    const char *const file = jpatcher_get_filepath(patcher)->name;
    const char *const slash = std::strrchr(file, '/');
    char folder[KIV_PATH_SIZE] = "";
    if (slash && slash - file + 2 <= KIV_PATH_SIZE) {
        std::memcpy(folder, file, size_t(slash - file) + 1);
    }
    Atom atom = symbol_atom(gensym(folder));
    outlet_atoms(x->out, 1, &atom);
}

void handle(ThisPatcher *x, Symbol *selector, int32_t argc, Atom *argv) {
    Object *const patcher = patcher_of(x);
    if (!patcher) {
        object_error(x, "there is no patcher around this object");
    } else if (selector == "script"_sym) {
        script(&x->ob, patcher, argc, argv);
    } else if (selector == "window"_sym) {
        window(x, patcher, argc, argv);
    } else if (selector == "path"_sym) {
        send_path(x, patcher);
    } else {
        if (selector == "loadbang"_sym) {
            loadbang_new_generation();
        }
        typedmess(patcher, selector, argc, argv);
    }
}

void message(ThisPatcher *x, Symbol *selector, int32_t argc, Atom *argv) {
    defer(x, method(handle), selector, argc, argv);
}

void *thispatcher_new(Symbol *, int32_t, Atom *) {
    auto *x = make_object<ThisPatcher>(thispatcher_class);
    if (x) {
        x->out = outlet_new(x, nullptr);
    }
    return x;
}

}  // namespace

void thispatcher_start() {
    thispatcher_class = make_class<ThisPatcher>("thispatcher", thispatcher_new);
    // No method of its own is called "loadbang": that would be called when loading ends.
    Messages<ThisPatcher, message>::add(thispatcher_class);
    add_class(thispatcher_class);
}

}  // namespace kiv::objects
