// Class `jpatcher`: life, the order of its boxes, and the tables of their ids and names.
//
// Invariants: every box in the order has `state->patcher` set to the patcher, stands in
// `boxes_by_id` under its id and, when it has a scripting name, in `boxes_by_name` under that. Ids
// and names are unique in a patcher.
//
// A patcher may be freed by anything it calls: a message, a listener, the constructor of an object
// in one of its boxes. Construction holds a reference; every other walk that calls out is a
// BoxWalk.
#include "patcher/patcher.h"

#include <kiv/atomarray.h>
#include <kiv/console.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "files/internal.h"
#include "kernel/internal.h"
#include "patcher/creation.h"
#include "patcher/patcher_attributes.h"

namespace kiv {

namespace {

// Patchers inside patchers, beyond which a document is refused: construction and freeing recurse.
constexpr int32_t max_patcher_nesting = 200;

struct {
    Class *patcher_class;
    int32_t nesting;       // patchers under construction
    int32_t send_context;  // the number given out last
} state;

// The dictionary a patcher is made from: the one argument, given as an atom or directly.
Dictionary *argument_dictionary(void *first, int32_t argc, Atom *argv) noexcept {
    void *x = object_valid(first)                                       ? first
              : argc > 0 && argv != nullptr && argv->type == TypeObject ? argv->value.obj
                                                                        : nullptr;
    return x && object_classname_compare(x, "dictionary"_sym) ? static_cast<Dictionary *>(x)
                                                              : nullptr;
}

// Ties a new patcher to the box whose object is being made, if one is.
void take_place(Patcher *patcher) noexcept {
    if (Patcher *parent = as_patcher("#P"_sym->thing)) {
        patcher->parent_at_birth = as_object(parent);
        Jbox *box = as_box("#B"_sym->thing);
        if (box && box->state->patcher == parent) {
            patcher->box = box;
        }
    }
    patcher->name = creation_patcher_name();
}

void *patcher_new(void *first, int32_t argc, Atom *argv) noexcept {
    Dictionary *dictionary = argument_dictionary(first, argc, argv);
    if (state.nesting >= max_patcher_nesting) {
        error("patchers are nested too deeply");
        return nullptr;
    }
    auto *patcher = object_construct<Patcher>(state.patcher_class);
    if (!patcher) {
        return nullptr;
    }
    take_place(patcher);
    if (!dictionary) {
        return patcher;
    }
    ++state.nesting;
    BoxWalk watch(patcher);
    {
        const Retained retained(patcher);
        patcher_read_dictionary(patcher, dictionary);
    }
    --state.nesting;
    return watch.alive() ? patcher : nullptr;
}

void free_cords(Patcher *patcher) noexcept {
    while (Patchline *line = patcher->first_line) {
        patcher_delete_line(patcher, line);
    }
}

void free_boxes(Patcher *patcher) noexcept {
    while (Jbox *box = patcher->first_box) {
        patcher_unlink_box(patcher, box);
        object_free(box);
    }
}

void patcher_free(Patcher *patcher) noexcept {
    patcher->freeing = true;
    patcher_walks_end(patcher);
    creation_forget(as_object(patcher));
    if (Jbox *box = as_box(patcher->box); box && box->state->object == as_object(patcher)) {
        box_set_object(box, nullptr);
    }
    free_cords(patcher);
    free_boxes(patcher);
    if (patcher->global_name->thing == patcher) {
        patcher->global_name->thing = nullptr;
    }
    for (void *owned :
         {static_cast<void *>(patcher->controller), static_cast<void *>(patcher->box_font),
          static_cast<void *>(patcher->unknown), static_cast<void *>(patcher->stray_boxes),
          static_cast<void *>(patcher->stray_lines)}) {
        if (owned) {
            object_free(owned);
        }
    }
    std::destroy_at(&patcher->boxes_by_id);
    std::destroy_at(&patcher->boxes_by_name);
    std::destroy_at(&patcher->box_listeners);
    std::destroy_at(&patcher->inlets);
    std::destroy_at(&patcher->outlets);
    std::destroy_at(&patcher->arguments);
}

// Tells the listeners that a box came or went: "notify" with the patcher's name, the message, the
// patcher and the box. A listener may remove itself or others, and may free the patcher.
void tell_listeners(Patcher *patcher, Symbol *message, Jbox *box) noexcept {
    if (patcher->box_listeners.empty()) {
        return;
    }
    try {
        const Vector<Object *> listeners = patcher->box_listeners;
        BoxWalk watch(patcher);
        for (Object *listener : listeners) {
            if (!watch.alive()) {
                return;
            }
            const auto &current = patcher->box_listeners;
            if (std::find(current.begin(), current.end(), listener) == current.end()) {
                continue;
            }
            if (Method notify = object_valid(listener) ? zgetfn(listener, "notify"_sym) : nullptr) {
                reinterpret_cast<ErrorCode (*)(Object *, Symbol *, Symbol *, void *, void *)>(
                    notify)(listener, patcher_name(patcher), message, patcher, box);
            }
        }
    } catch (const std::bad_alloc &) {
        object_error(as_object(patcher), "out of memory: box listeners were not told");
    }
}

Symbol *free_id(Patcher *patcher) noexcept {
    char text[32];
    Symbol *id;
    do {
        snprintf(text, sizeof text, "obj-%ld", static_cast<long>(patcher->next_box_number++));
        id = gensym(text);
    } while (patcher->boxes_by_id.count(id) != 0);
    return id;
}

void link_before(Patcher *patcher, Jbox *box, Jbox *next) noexcept {
    Jbox *previous = next ? next->state->previous : patcher->last_box;
    box->state->next = next;
    box->state->previous = previous;
    (previous ? previous->state->next : patcher->first_box) = box;
    (next ? next->state->previous : patcher->last_box) = box;
}

void unlink_order(Patcher *patcher, Jbox *box) noexcept {
    Jbox *next = box->state->next;
    Jbox *previous = box->state->previous;
    (previous ? previous->state->next : patcher->first_box) = next;
    (next ? next->state->previous : patcher->last_box) = previous;
    box->state->next = box->state->previous = nullptr;
}

}  // namespace

void patcher_class_start() noexcept {
    Class *c =
        class_new("jpatcher", reinterpret_cast<Method>(patcher_new),
                  reinterpret_cast<Method>(patcher_free), sizeof(Patcher), nullptr, TypeGimme, 0);
    class_obexoffset_set(c, offsetof(RecordHead, obex));
    patcher_add_attributes(c);
    patcher_add_messages(c);
    c->flags |= ClassRetired | ClassNoInlet;
    state.patcher_class = c;
    class_register("nobox"_sym, c);
}

Class *patcher_class() noexcept {
    return state.patcher_class;
}

Patcher *as_patcher(void *x) noexcept {
    return object_valid(x) && class_of(x) == state.patcher_class ? static_cast<Patcher *>(x)
                                                                 : nullptr;
}

// --- Boxes ---------------------------------------------------------------------------------------

bool patcher_add_box(Patcher *patcher, Jbox *box) noexcept {
    BoxState *part = box->state;
    Symbol *id = part->id;
    Symbol *name = part->var_name;
    part->id = part->var_name = ""_sym;
    part->patcher = patcher;
    part->serial = patcher->next_box_serial++;
    if (*id->name && patcher_box_by_id(patcher, id)) {
        if (patcher->loading) {
            object_error(as_object(patcher), "%s: box id is used twice", id->name);
        }
        id = ""_sym;
    }
    if (!patcher_set_box_id(patcher, box, *id->name ? id : free_id(patcher))) {
        part->patcher = nullptr;
        return false;
    }
    patcher_set_box_name(patcher, box, name);
    link_before(patcher, box, nullptr);
    ++patcher->box_count;
    patcher_touch(patcher);
    tell_listeners(patcher, "boxadded"_sym, box);
    return true;
}

void patcher_unlink_box(Patcher *patcher, Jbox *box) noexcept {
    BoxState *part = box->state;
    if (part->patcher != patcher) {
        return;
    }
    patcher_walks_skip(patcher, box);
    patcher_delete_lines_of(patcher, box);
    unlink_order(patcher, box);
    --patcher->box_count;
    patcher->boxes_by_id.erase(part->id);
    patcher->boxes_by_name.erase(part->var_name);
    part->patcher = nullptr;
    if (patcher->last_created == as_object(box)) {
        patcher->last_created = nullptr;
    }
    if (patcher->focus_box == box) {
        patcher->focus_box = nullptr;
    }
    if (!patcher->freeing) {
        patcher_touch(patcher);
        tell_listeners(patcher, "boxremoved"_sym, box);
    }
}

void patcher_move_box(Patcher *patcher, Jbox *box, Jbox *before) noexcept {
    if (before == box || box->state->patcher != patcher ||
        (before && before->state->patcher != patcher)) {
        return;
    }
    patcher_walks_skip(patcher, box);
    unlink_order(patcher, box);
    link_before(patcher, box, before);
    patcher_touch(patcher);
}

Jbox *patcher_box_by_id(Patcher *patcher, Symbol *id) noexcept {
    const auto found = patcher->boxes_by_id.find(id);
    return found == patcher->boxes_by_id.end() ? nullptr : found->second;
}

Jbox *patcher_box_by_name(Patcher *patcher, Symbol *name) noexcept {
    const auto found = patcher->boxes_by_name.find(name);
    return found == patcher->boxes_by_name.end() ? nullptr : found->second;
}

bool patcher_set_box_id(Patcher *patcher, Jbox *box, Symbol *id) noexcept {
    if (!*id->name || id == box->state->id) {
        return *id->name != '\0';
    }
    try {
        if (!patcher->boxes_by_id.emplace(id, box).second) {
            return false;
        }
    } catch (const std::bad_alloc &) {
        return false;
    }
    patcher->boxes_by_id.erase(box->state->id);
    box->state->id = id;
    return true;
}

bool patcher_set_box_name(Patcher *patcher, Jbox *box, Symbol *name) noexcept {
    if (name == box->state->var_name) {
        return true;
    }
    try {
        if (*name->name) {
            name = jpatcher_uniqueboxname(patcher, name);
            patcher->boxes_by_name.emplace(name, box);
        }
    } catch (const std::bad_alloc &) {
        return false;
    }
    patcher->boxes_by_name.erase(box->state->var_name);
    box->state->var_name = name;
    return true;
}

// --- Place and name ------------------------------------------------------------------------------

Patcher *patcher_parent(Patcher *patcher) noexcept {
    // Tested, since an object that holds patchers of its own may outlive its box.
    if (Jbox *box = as_box(patcher->box)) {
        return box->state->patcher;
    }
    if (patcher->owner && object_valid(patcher->owner)) {
        Method method = zgetfn(patcher->owner, "parentpatcher"_sym);
        if (method && method != reinterpret_cast<Method>(nullfn)) {
            Object *parent = nullptr;
            reinterpret_cast<void *(*)(Object *, Object **)>(method)(patcher->owner, &parent);
            return as_patcher(parent);
        }
    }
    return as_patcher(patcher->parent_at_birth);
}

Patcher *patcher_top(Patcher *patcher) noexcept {
    // Bounded, since an owner may answer anything.
    for (int32_t i = 0; i < max_nesting; ++i) {
        Patcher *parent = patcher_parent(patcher);
        if (!parent || parent == patcher) {
            break;
        }
        patcher = parent;
    }
    return patcher;
}

Symbol *patcher_name(const Patcher *patcher) noexcept {
    if (*patcher->name->name || !patcher_is_file(patcher)) {
        return patcher->name;
    }
    const char *file = patcher->file_name->name;
    char stem[KIV_FILENAME_SIZE];
    snprintf(stem, sizeof stem, "%.*s", static_cast<int>(file_stem_length(file)), file);
    return gensym(stem);
}

void patcher_touch(Patcher *patcher) noexcept {
    if (!patcher->loading && !patcher->freeing) {
        patcher->dirty = 1;
    }
}

}  // namespace kiv

using namespace kiv;

int32_t jpatcher_is_patcher(const void *x) noexcept {
    return object_isvalid(x) && object_classname(x) == "jpatcher"_sym;
}

ErrorCode jpatcher_addboxlistener(void *x, void *listener) noexcept {
    Patcher *patcher = as_patcher(x);
    if (!patcher || !object_valid(listener)) {
        return ErrorGeneric;
    }
    auto &listeners = patcher->box_listeners;
    try {
        if (std::find(listeners.begin(), listeners.end(), listener) == listeners.end()) {
            listeners.push_back(static_cast<Object *>(listener));
        }
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
    return ErrorNone;
}

ErrorCode jpatcher_removeboxlistener(void *x, void *listener) noexcept {
    Patcher *patcher = as_patcher(x);
    return patcher && std::erase(patcher->box_listeners, listener) > 0 ? ErrorNone : ErrorGeneric;
}

void jpatcher_error_obtrusive(void *patcher, void *box, const char *text) noexcept {
    if (!text) {
        return;
    }
    object_error(box ? box : patcher, "%s", text);
    if (as_patcher(patcher)) {
        object_notify(patcher, "errorobtrusive"_sym, box);
    }
}

int32_t jpatcher_inc_kivsendcontext() noexcept {
    return ++kiv::state.send_context;
}
