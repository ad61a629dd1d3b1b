// The messages of class `jpatcher`, but for those of creation and loadbang.
//
// Walks that call out (iterate, traverse, closebang) are BoxWalks: what is called may free or add
// boxes, or free the patcher, which ends the walk.
#include <kiv/console.h>
#include <kiv/defer.h>
#include <kiv/path.h>

#include <cstdio>

#include "files/internal.h"
#include "kernel/internal.h"
#include "patcher/creation.h"
#include "patcher/fields.h"
#include "patcher/internal.h"
#include "patcher/patcher.h"
#include "patcher/patchline.h"

namespace kiv {

namespace {

// --- Cords ---------------------------------------------------------------------------------------

// The ends of a cord as messages give them: box, outlet, box, inlet. A box is an object, or a
// symbol with its scripting name or id.
struct Ends {
    Jbox *box1;
    int32_t outlet;
    Jbox *box2;
    int32_t inlet;
};

Jbox *box_argument(Patcher *patcher, const Atom &atom) noexcept {
    Jbox *box = atom.type == TypeSymbol   ? patcher_named_box(patcher, atom.value.sym)
                : atom.type == TypeObject ? as_box(atom.value.obj)
                                          : nullptr;
    return box && box->state->patcher == patcher ? box : nullptr;
}

bool read_ends(Patcher *patcher, Symbol *message, int32_t argc, Atom *argv, Ends *ends) noexcept {
    if (argc < 4) {
        object_error(as_object(patcher), "missing arguments for message \"%s\"", message->name);
        return false;
    }
    for (int32_t i : {0, 2}) {
        if (!box_argument(patcher, argv[i])) {
            const char *name = argv[i].type == TypeSymbol ? argv[i].value.sym->name : "";
            object_error(as_object(patcher), "%s: no such box: %s", message->name, name);
            return false;
        }
        if (!atom_is_number(argv[i + 1])) {
            object_error(as_object(patcher), "bad arguments for message \"%s\"", message->name);
            return false;
        }
    }
    const auto index = [](const Atom &atom) {
        return static_cast<int32_t>(clipped_integer(atom, INT32_MIN, INT32_MAX));
    };
    *ends = {box_argument(patcher, argv[0]), index(argv[1]), box_argument(patcher, argv[2]),
             index(argv[3])};
    return true;
}

bool ends_exist(Patcher *patcher, Symbol *message, const Ends &ends) noexcept {
    if (!jbox_getoutlet(ends.box1, ends.outlet)) {
        object_error(as_object(patcher), "%s: %s has no outlet %d", message->name,
                     ends.box1->state->id->name, ends.outlet);
        return false;
    }
    if (!jbox_getinlet(ends.box2, ends.inlet)) {
        object_error(as_object(patcher), "%s: %s has no inlet %d", message->name,
                     ends.box2->state->id->name, ends.inlet);
        return false;
    }
    return true;
}

// "newpatchline" and "connect": the reply is the cord, also when it was there before. Further atoms
// are bend points.
ErrorCode connect(Patcher *patcher, Symbol *selector, int32_t argc, Atom *argv,
                  Atom *reply) noexcept {
    Ends ends;
    if (!read_ends(patcher, selector, argc, argv, &ends) || !ends_exist(patcher, selector, ends)) {
        return ErrorGeneric;
    }
    Patchline *line = patcher_find_line(patcher, ends.box1, ends.outlet, ends.box2, ends.inlet);
    if (!line) {
        bool connected = false;
        line = patcher_connect(patcher, ends.box1, ends.outlet, ends.box2, ends.inlet, &connected);
        if (!line) {
            return ErrorOutOfMemory;
        }
        if (!connected) {
            patcher_delete_line(patcher, line);
            return ErrorGeneric;
        }
    }
    if (argc > 4) {
        object_attr_setvalueof(line, "midpoints"_sym, argc - 4, argv + 4);
    }
    if (reply) {
        atom_setobj(reply, line);
    }
    return ErrorNone;
}

void disconnect(Patcher *patcher, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    Ends ends;
    if (!read_ends(patcher, selector, argc, argv, &ends)) {
        return;
    }
    if (Patchline *line =
            patcher_find_line(patcher, ends.box1, ends.outlet, ends.box2, ends.inlet)) {
        patcher_delete_line(patcher, line);
    } else {
        object_error(as_object(patcher), "%s: no such cord", selector->name);
    }
}

// --- Boxes ---------------------------------------------------------------------------------------

// Takes a box out of the patcher. The second argument tells why: "free" when it is about to be
// freed.
void remove_box(Patcher *patcher, void *x, Symbol *) noexcept {
    Jbox *box = as_box(x);
    if (box && box->state->patcher == patcher) {
        patcher_unlink_box(patcher, box);
    }
}

void delete_box(Patcher *patcher, void *x) noexcept {
    jpatcher_deleteobj(patcher, x);
}

// The last box in the order is drawn in front of all others.
void bring_to_front(Patcher *patcher, void *x) noexcept {
    if (Jbox *box = as_box(x)) {
        patcher_move_box(patcher, box, nullptr);
    }
}
void send_to_back(Patcher *patcher, void *x) noexcept {
    if (Jbox *box = as_box(x)) {
        patcher_move_box(patcher, box, patcher->first_box);
    }
}

// Hands the boxes of a patcher, or the objects in them, to `function`. Recursion follows the
// nesting of patchers, which construction limits.
int32_t walk_boxes(Patcher *patcher, JpatcherFunction function, void *arg, int64_t flags) noexcept {
    BoxWalk walk(patcher);
    while (Jbox *box = walk.next()) {
        Object *inner = box_object(box);
        Patcher *subpatcher = flags & JPATCHER_ITERATE_DEEP ? as_patcher(inner) : nullptr;
        if (function(arg, flags & JPATCHER_ITERATE_BOXES ? as_object(box) : inner)) {
            return 1;
        }
        if (subpatcher && as_patcher(subpatcher) && walk_boxes(subpatcher, function, arg, flags)) {
            return 1;
        }
    }
    return 0;
}

void *iterate(Patcher *patcher, JpatcherFunction function, void *arg, int64_t flags) noexcept {
    return function && walk_boxes(patcher, function, arg, flags) ? patcher : nullptr;
}

// Hands the patcher itself and then every patcher inside it to `function`.
int32_t walk_patchers(Patcher *patcher, JpatcherFunction function, void *arg) noexcept {
    BoxWalk walk(patcher);
    if (function(arg, as_object(patcher))) {
        return 1;
    }
    while (Jbox *box = walk.next()) {
        Patcher *subpatcher = as_patcher(box_object(box));
        if (subpatcher && walk_patchers(subpatcher, function, arg)) {
            return 1;
        }
    }
    return 0;
}

void *traverse(Patcher *patcher, JpatcherFunction function, void *arg) noexcept {
    return function && walk_patchers(patcher, function, arg) ? patcher : nullptr;
}

Object *named_box(Patcher *patcher, Symbol *name) noexcept {
    return jpatcher_resolvebox(patcher, name);
}

// The scripting names in box order; the caller frees the array.
ErrorCode box_names(Patcher *patcher, int32_t *count, Symbol ***names) noexcept {
    if (!count || !names) {
        return ErrorInvalidPointer;
    }
    *count = 0;
    const size_t size = patcher->boxes_by_name.size();
    *names = static_cast<Symbol **>(
        sysmem_newptr(static_cast<int64_t>(sizeof(Symbol *) * std::max<size_t>(size, 1))));
    if (!*names) {
        return ErrorOutOfMemory;
    }
    for (Jbox *box = patcher->first_box; box; box = box->state->next) {
        if (*box->state->var_name->name) {
            (*names)[(*count)++] = box->state->var_name;
        }
    }
    return ErrorNone;
}

// The smallest rectangle around all boxes; empty for a patcher without any.
void box_span(Patcher *patcher, double *rect) noexcept {
    if (!rect) {
        return;
    }
    std::fill_n(rect, 4, 0.);
    double right = 0.;
    double bottom = 0.;
    for (Jbox *box = patcher->first_box; box; box = box->state->next) {
        const double *at = box->state->patching_rect;
        const bool first = box == patcher->first_box;
        rect[0] = first ? at[0] : std::min(rect[0], at[0]);
        rect[1] = first ? at[1] : std::min(rect[1], at[1]);
        right = first ? at[0] + at[2] : std::max(right, at[0] + at[2]);
        bottom = first ? at[1] + at[3] : std::max(bottom, at[1] + at[3]);
    }
    rect[2] = right - rect[0];
    rect[3] = bottom - rect[1];
}

void dump_boxes(Patcher *patcher) noexcept {
    for (Jbox *box = patcher->first_box; box; box = box->state->next) {
        const BoxState *part = box->state;
        object_post(as_object(patcher), "%s: %s%s%s%s%s%s", part->id->name, part->class_name->name,
                    *part->text->name ? " " : "", part->text->name,
                    *part->var_name->name ? " (" : "", part->var_name->name,
                    *part->var_name->name ? ")" : "");
    }
}

// --- The window and the file ---------------------------------------------------------------------

void show(Patcher *patcher, Symbol *message) noexcept {
    patcher->visible = 1;
    object_notify(patcher, message, nullptr);
}
void message_vis(Patcher *patcher) noexcept {
    show(patcher, "vis"_sym);
}
void message_front(Patcher *patcher) noexcept {
    show(patcher, "front"_sym);
}

void free_later(Patcher *patcher, Symbol *, int32_t, Atom *) noexcept {
    object_free(patcher);
}

void closebang(Patcher *patcher) noexcept {
    BoxWalk walk(patcher);
    while (Jbox *box = walk.next()) {
        for (Object *x : {as_object(box), box_object(box)}) {
            if (Method method = zgetfn(x, "closebang"_sym)) {
                reinterpret_cast<void *(*)(Object *)>(method)(x);
                break;
            }
        }
    }
}

// Frees a top-level patcher once the message that asks for it, which may come from one of its own
// objects, has run to its end. A subpatcher lives as long as its box.
void dispose(Patcher *patcher) noexcept {
    BoxWalk walk(patcher);
    closebang(patcher);
    if (walk.alive() && !patcher->box) {
        defer_low(patcher, reinterpret_cast<Method>(free_later), nullptr, 0, nullptr);
    }
}

void message_wclose(Patcher *patcher) noexcept {
    patcher->visible = 0;
    dispose(patcher);
}

void set_dirty(Patcher *patcher) noexcept {
    object_attr_setlong(patcher, "dirty"_sym, 1);
}
void set_clean(Patcher *patcher) noexcept {
    object_attr_setlong(patcher, "dirty"_sym, 0);
}
void set_title(Patcher *patcher, Symbol *title) noexcept {
    object_attr_setsym(patcher, "title"_sym, title);
}
void set_name(Patcher *patcher, Symbol *name) noexcept {
    object_attr_setsym(patcher, "name"_sym, name);
}
void set_class(Patcher *patcher, Symbol *name) noexcept {
    patcher->class_name = name;
}
void get_parent(Patcher *patcher, Object **parent) noexcept {
    if (parent) {
        *parent = reinterpret_cast<Object *>(patcher_parent(patcher));
    }
}

void save_as(Patcher *patcher, Symbol *file_name, int16_t path) noexcept {
    if (const int32_t failure = patcher_save(as_object(patcher), file_name->name, path)) {
        object_error(as_object(patcher), "%s: can't write file: error %d", file_name->name,
                     failure);
        return;
    }
    char whole[KIV_PATH_SIZE];
    const char *name = nullptr;
    if (!path_topathname(path, file_name->name, whole) && path_split(whole, &path, &name)) {
        patcher->file_name = gensym(name);
        patcher->path = path;
    }
    set_clean(patcher);
}

// A name without a known extension gets that of documents.
Symbol *document_name(Symbol *name) noexcept {
    if (file_type_of(name->name)) {
        return name;
    }
    char text[KIV_PATH_SIZE];
    snprintf(text, sizeof text, "%s.kivpat", name->name);
    return gensym(text);
}

// "write" without a name writes the file the patcher came from. A name without a folder goes
// beside that file, or into the default folder.
void write(Patcher *patcher, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    const bool named = argc > 0 && argv->type == TypeSymbol;
    if (!named && (selector == "writeas"_sym || !patcher_is_file(patcher))) {
        object_error(as_object(patcher), "%s: no file name", selector->name);
        return;
    }
    int16_t path = patcher->path ? static_cast<int16_t>(patcher->path) : path_getdefault();
    save_as(patcher, named ? document_name(argv->value.sym) : patcher->file_name, path);
}

// --- Loadbang queue ------------------------------------------------------------------------------

void *next_loadbang(Patcher *patcher) noexcept {
    return patcher->next_loadbang;
}
void set_next_loadbang(Patcher *patcher, void *next) noexcept {
    patcher->next_loadbang = as_patcher(next);
}

struct Message {
    const char *name;
    Method function;
    AtomType types[2];
};

template <class Function>
Method method_of(Function *function) noexcept {
    return reinterpret_cast<Method>(function);
}

}  // namespace

void patcher_add_messages(Class *c) noexcept {
    const Message messages[] = {
        {"newobject", method_of(patcher_newobject_message), {TypeGimmeBack}},
        {"newpatchline", method_of(connect), {TypeGimmeBack}},
        {"connect", method_of(connect), {TypeGimmeBack}},
        {"disconnect", method_of(disconnect), {TypeGimme}},
        {"remove", method_of(remove_box), {TypeObject, TypeDefSymbol}},
        {"deleteobj", method_of(delete_box), {TypeObject}},
        {"bringtofront", method_of(bring_to_front), {TypeObject}},
        {"sendtoback", method_of(send_to_back), {TypeObject}},
        {"freelinesconnectedto", method_of(patcher_free_lines_at), {TypeCant}},
        {"appendtodictionary", method_of(patcher_write_dictionary), {TypeCant}},
        {"loadbang", method_of(patcher_loadbang), {}},
        {"closebang", method_of(closebang), {}},
        {"getnextloadbang", method_of(next_loadbang), {TypeCant}},
        {"setnextloadbang", method_of(set_next_loadbang), {TypeCant}},
        {"iterate", method_of(iterate), {TypeCant}},
        {"traverse", method_of(traverse), {TypeCant}},
        {"getnamedbox", method_of(named_box), {TypeSymbol}},
        {"getboxnames", method_of(box_names), {TypeCant}},
        {"boxspan", method_of(box_span), {TypeCant}},
        {"dumpboxes", method_of(dump_boxes), {}},
        {"vis", method_of(message_vis), {}},
        {"front", method_of(message_front), {}},
        {"wclose", method_of(message_wclose), {}},
        {"dispose", method_of(dispose), {}},
        {"dirty", method_of(set_dirty), {}},
        {"clean", method_of(set_clean), {}},
        {"title", method_of(set_title), {TypeSymbol}},
        {"setname", method_of(set_name), {TypeSymbol}},
        {"setclass", method_of(set_class), {TypeSymbol}},
        {"parentpatcher", method_of(get_parent), {TypeCant}},
        {"snapshot", method_of(patcher_snapshot_message), {TypeSymbol, TypeDefSymbol}},
        {"write", method_of(write), {TypeGimme}},
        {"writeas", method_of(write), {TypeGimme}},
    };
    for (const Message &message : messages) {
        class_addmethod(c, message.function, message.name, message.types[0], message.types[1], 0);
    }
}

}  // namespace kiv

using namespace kiv;

ErrorCode jpatcher_deleteobj(void *x, void *box) noexcept {
    Patcher *patcher = as_patcher(x);
    Jbox *self = as_box(box);
    if (!patcher || !self || self->state->patcher != patcher) {
        return ErrorGeneric;
    }
    object_method(patcher, "remove"_sym, self, "free"_sym);
    return object_free(self);
}
