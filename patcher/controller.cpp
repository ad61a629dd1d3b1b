// The patcher controller: editing operations on behalf of the user interface, made of the patcher's
// messages. Main thread.
#include "patcher/controller.h"

#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/class.h>
#include <kiv/console.h>
#include <kiv/newobject.h>
#include <kiv/path.h>

#include <cstddef>

#include "files/internal.h"
#include "kernel/internal.h"
#include "patcher/creation.h"

namespace kiv {

namespace {

struct Controller {
    Object ob;
    void *obex;
    Patcher *patcher;  // its owner
};

struct {
    Class *controller_class;
} state;

Controller *as_controller(void *x) noexcept {
    return object_valid(x) && class_of(x) == state.controller_class ? static_cast<Controller *>(x)
                                                                    : nullptr;
}

Object *create_from_atoms(Patcher *patcher, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    char *rest = nullptr;
    int64_t size = 0;
    if (argc > 0 && atom_gettext(argc, argv, &size, &rest, 0)) {
        return nullptr;
    }
    Object *box = nullptr;
    try {
        Text text = selector ? selector->name : "";
        if (rest) {
            text.append(text.empty() ? "" : " ").append(rest);
        }
        box = newobject_fromboxtext(patcher, text.c_str());
    } catch (const std::bad_alloc &) {
        box = nullptr;
    }
    sysmem_freeptr(rest);
    return box;
}

// The box text that leads to a file: its name where the search finds it by that, else its path.
Text text_for_file(Patcher *patcher, const char *file_name, int16_t path) {
    const Text stem(file_name, file_stem_length(file_name));
    ClassFile found;
    const DefaultPath beside(static_cast<int16_t>(patcher->path));
    Text text;
    char whole[KIV_PATH_SIZE];
    if ((class_file_locate(stem.c_str(), &found) && found.path == path &&
         stem.compare(0, stem.npos, found.name, file_stem_length(found.name)) == 0) ||
        path_topathname(path, stem.c_str(), whole)) {
        append_word(text, stem.c_str());
    } else {
        append_word(text, whole);
    }
    return text;
}

}  // namespace

void controller_start() noexcept {
    Class *c = class_new("jpatchercontroller", nullptr, nullptr, sizeof(Controller), nullptr, 0);
    class_obexoffset_set(c, offsetof(Controller, obex));
    state.controller_class = c;
    class_register("nobox"_sym, c);
}

Object *patcher_controller(Patcher *patcher) noexcept {
    if (!patcher->controller && !patcher->freeing) {
        if (auto *made = static_cast<Controller *>(object_alloc(state.controller_class))) {
            made->patcher = patcher;
            patcher->controller = &made->ob;
        }
    }
    return patcher->controller;
}

}  // namespace kiv

using namespace kiv;

Object *jpatchercontroller_createobject(void *controller, Symbol *selector, int32_t argc,
                                        Atom *argv) noexcept {
    Controller *self = as_controller(controller);
    if (!self || argc < 0 || (argc > 0 && !argv)) {
        return nullptr;
    }
    if (argc == 1 && object_classname_compare(atom_getobj(argv), "dictionary"_sym)) {
        return newobject_fromdictionary(self->patcher,
                                        static_cast<Dictionary *>(atom_getobj(argv)));
    }
    return create_from_atoms(self->patcher, selector, argc, argv);
}

Object *jpatchercontroller_connectobjects(void *controller, void *box1, int32_t outlet, void *box2,
                                          int32_t inlet) noexcept {
    Controller *self = as_controller(controller);
    if (!self) {
        return nullptr;
    }
    Atom ends[4];
    atom_setobj(ends, box1);
    atom_setlong(ends + 1, outlet);
    atom_setobj(ends + 2, box2);
    atom_setlong(ends + 3, inlet);
    Atom line{};
    object_method_typed(self->patcher, "newpatchline"_sym, 4, ends, &line);
    return static_cast<Object *>(atom_getobj(&line));
}

Object *jpatchercontroller_pastefileat(void *controller, const char *file_name, int16_t path,
                                       double x, double y) noexcept {
    Controller *self = as_controller(controller);
    Dictionary *dictionary = self && file_name ? dictionary_new() : nullptr;
    if (!dictionary) {
        return nullptr;
    }
    Object *box = nullptr;
    try {
        const Text text = text_for_file(self->patcher, file_name, path);
        Atom position[2];
        atom_setfloat(position, x);
        atom_setfloat(position + 1, y);
        dictionary_appendsym(dictionary, "kivclass"_sym, "newobj"_sym);
        dictionary_appendsym(dictionary, "text"_sym, gensym(text.c_str()));
        dictionary_appendatoms(dictionary, "patching_position"_sym, 2, position);
        box = newobject_fromdictionary(self->patcher, dictionary);
    } catch (const std::bad_alloc &) {
        box = nullptr;
    }
    object_free(dictionary);
    return box;
}

Object *jpatchercontroller_pastefileintoobject(void *controller, void *x, const char *file_name,
                                               int16_t path) noexcept {
    Jbox *box = as_box(x);
    char whole[KIV_PATH_SIZE];
    if (!as_controller(controller) || !box || !file_name ||
        path_topathname(path, file_name, whole)) {
        return nullptr;
    }
    Object *object = box_object(box);
    if (!zgetfn(object, "read"_sym)) {
        object_error(object, "can't read files");
        return nullptr;
    }
    Atom name;
    atom_setsym(&name, gensym(whole));
    typedmess(object, "read"_sym, 1, &name);
    return object_valid(x) ? static_cast<Object *>(x) : nullptr;
}

ErrorCode jpatchercontroller_setpatcherview(void *controller, void *view) noexcept {
    Controller *self = as_controller(controller);
    return self ? object_attr_setobj(self->patcher, "firstview"_sym, view) : ErrorGeneric;
}
