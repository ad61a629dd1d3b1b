// The box part of box classes: declared by jbox_initclass, made by jbox_new from the box
// dictionary, finished by jbox_ready, released by jbox_free.
//
// Invariants: a box with a box part has `state` set; a box in a patcher stands in the patcher's
// order and tables; the object a box shows names the box (object_box) as long as it shows it.
#include "patcher/box.h"

#include <kiv/console.h>
#include <kiv/inlets.h>

#include <cstddef>
#include <memory>
#include <utility>

#include "kernel/internal.h"
#include "patcher/patcher_attributes.h"

namespace kiv {

namespace {

struct {
    Dictionary *prototype;  // of the next box, retained; or null
} state;

// --- Reading the box dictionary ------------------------------------------------------------------

// Applies the entries that the box part knows. Called before anything can be attached to the box,
// so that the table's setters need not notify anybody; an attribute that the class replaced by its
// own is set through the interface.
void apply_fields(Jbox *box, const BoxClass &known, Dictionary *dictionary) noexcept {
    const auto fields = box_document_fields();
    for (size_t i = 0; i < fields.size(); ++i) {
        int32_t argc = 0;
        Atom *argv = nullptr;
        if (!fields[i].set || dictionary_getatoms(dictionary, known.field_names[i], &argc, &argv) ||
            argc < 1) {
            continue;
        }
        if (known.replaced[i]) {
            object_attr_setvalueof(box, known.field_names[i], argc, argv);
        } else {
            fields[i].set(box, nullptr, argc, argv);
        }
    }
}

void apply_saved(Object *x, Dictionary *dictionary) noexcept {
    const BoxClass *known = box_class(class_of(x));
    if (!known) {
        return;
    }
    for (const SavedAttribute &attribute : known->saved) {
        int32_t argc = 0;
        Atom *argv = nullptr;
        if (!dictionary_getatoms(dictionary, attribute.name, &argc, &argv)) {
            object_attr_setvalueof(x, attribute.name, argc, argv);
        }
    }
}

// "orderbefore" names the box to stand before by its id; "orderfront" puts the box last, in front
// of all others, which is where a new box stands.
void apply_order(Jbox *box, Dictionary *dictionary) noexcept {
    Symbol *id = nullptr;
    Patcher *patcher = box->state->patcher;
    if (!dictionary_getsym(dictionary, "orderbefore"_sym, &id)) {
        if (Jbox *before = patcher_box_by_id(patcher, id)) {
            patcher_move_box(patcher, box, before);
        }
    }
}

void read_document_ports(BoxState *part, Dictionary *dictionary) noexcept {
    int64_t count = 0;
    dictionary_getdeflong(dictionary, "numinlets"_sym, &count, 0);
    part->document_inlets = static_cast<int32_t>(std::clamp<int64_t>(count, 0, INT32_MAX));
    int32_t argc = 0;
    Atom *argv = nullptr;
    if (!dictionary_getatoms(dictionary, "outlettype"_sym, &argc, &argv)) {
        try {
            for (int32_t i = 0; i < argc; ++i) {
                part->document_outlet_types.push_back(atom_getsym(argv + i));
            }
        } catch (const std::bad_alloc &) {
            part->document_outlet_types.clear();
        }
    }
    dictionary_getdeflong(dictionary, "numoutlets"_sym, &count, argc);
    part->document_outlets = static_cast<int32_t>(std::clamp<int64_t>(count, 0, INT32_MAX));
}

bool holds_subpatcher(Jbox *box) noexcept {
    Symbol *name = object_classname(box);
    return name == "newobj"_sym || name == "bpatcher"_sym;
}

struct UnknownEntries {
    const BoxClass *known;
    bool has_subpatcher;
    Dictionary **kept;
};

void keep_if_unknown(DictionaryEntry *entry, void *arg) noexcept {
    const auto *search = static_cast<UnknownEntries *>(arg);
    Symbol *key = dictionary_entry_getkey(entry);
    if (search->known->keys.count(key) == 0 && !(search->has_subpatcher && key == "patcher"_sym)) {
        Atom value;
        dictionary_entry_getvalue(entry, &value);
        keep_entry(search->kept, key, value);
    }
}

void keep_unknown(Jbox *box, const BoxClass &known, Dictionary *dictionary) noexcept {
    UnknownEntries search{&known, holds_subpatcher(box), &box->state->unknown};
    dictionary_funall(dictionary, keep_if_unknown, &search);
}

// A subpatcher's document stays with the box when no subpatcher was made from it.
void keep_subpatcher(BoxState *part) noexcept {
    Atom value;
    if (!as_patcher(part->object) && !dictionary_getatom(part->source, "patcher"_sym, &value)) {
        keep_entry(&part->unknown, "patcher"_sym, value);
    }
}

// A text too long for a symbol stays with the box as it is in the document.
void keep_long_text(BoxState *part, Dictionary *dictionary) noexcept {
    Atom value;
    if (dictionary_entryisstring(dictionary, "text"_sym) &&
        !dictionary_getatom(dictionary, "text"_sym, &value) && value.type == TypeObject) {
        part->text = ""_sym;
        keep_entry(&part->unknown, "text"_sym, value);
    }
}

Patcher *dictionary_patcher(Dictionary *dictionary) noexcept {
    void *x = nullptr;
    return dictionary && !dictionary_getobject(dictionary, "#P"_sym, &x) ? as_patcher(x) : nullptr;
}

Dictionary *first_dictionary(int32_t argc, Atom *argv) noexcept {
    return argc > 0 && argv && argv->type == TypeObject &&
                   object_classname_compare(argv->value.obj, "dictionary"_sym)
               ? static_cast<Dictionary *>(argv->value.obj)
               : nullptr;
}

// Reads one dictionary into a box; the prototype of the next box comes first, so that the box
// dictionary has the last word.
ErrorCode read_fields(Jbox *box, Dictionary *prototype, Dictionary *dictionary) noexcept {
    const BoxClass *known = box_class(class_of(box));
    if (!known) {
        return ErrorOutOfMemory;
    }
    if (prototype) {
        apply_fields(box, *known, prototype);
    }
    if (dictionary) {
        apply_fields(box, *known, dictionary);
        read_document_ports(box->state, dictionary);
        keep_unknown(box, *known, dictionary);
        keep_long_text(box->state, dictionary);
    }
    return ErrorNone;
}

// The attributes come first, then the box's place in its patcher, then what the class added: its
// setters find the box in the patcher.
ErrorCode build(Jbox *box, Dictionary *prototype, Dictionary *dictionary) noexcept {
    if (ErrorCode failure = read_fields(box, prototype, dictionary)) {
        return failure;
    }
    if (Patcher *patcher = dictionary_patcher(dictionary)) {
        if (!patcher_add_box(patcher, box)) {
            return ErrorOutOfMemory;
        }
        apply_order(box, dictionary);
    } else {
        object_error(box, "no patcher in box dictionary constructor");
    }
    if (prototype) {
        apply_saved(as_object(box), prototype);
    }
    if (dictionary) {
        apply_saved(as_object(box), dictionary);
        if (object_retain(dictionary)) {
            return ErrorOutOfMemory;
        }
        box->state->source = dictionary;
    }
    return ErrorNone;
}

void notify_views(Jbox *box, Symbol *message) noexcept {
    if (box && box->state) {
        object_notify(box, message, nullptr);
    }
}

void set_caption(Jbox *box, uint8_t shown, Symbol *message) noexcept {
    if (box && box->state) {
        box->state->caption = shown;
    }
    notify_views(box, message);
}

}  // namespace

void keep_entry(Dictionary **target, Symbol *key, const Atom &value) noexcept {
    if (!*target) {
        *target = dictionary_new();
    }
    if (*target) {
        dictionary_appendatom_flags(*target, key, &value, DictionaryClones);
    }
}

// --- What the other files ask of boxes -----------------------------------------------------------

Jbox *as_box(void *x) noexcept {
    return object_valid(x) && (class_of(x)->flags & ClassBoxDictionary) &&
                   class_of(x)->obex_offset == static_cast<int32_t>(offsetof(Jbox, obex)) &&
                   static_cast<Jbox *>(x)->state
               ? static_cast<Jbox *>(x)
               : nullptr;
}

void box_set_object(Jbox *box, Object *object) noexcept {
    BoxState *part = box->state;
    if (part->object && part->patcher) {
        patcher_detach_lines(part->patcher, box);
    }
    part->object = object;
    if (!object) {
        return;
    }
    // An object in a box may be freed by a message it has a part in.
    class_of(object)->flags |= ClassRetired;
    object_box_set(object, as_object(box));
    object_obex_storeflags(object, "#B"_sym, box, ContainerReference);
    if (Patcher *patcher = as_patcher(object)) {
        patcher->box = box;
    }
}

void box_set_placeholder(Jbox *box, Symbol *real_class) noexcept {
    box->state->placeholder = true;
    if (real_class) {
        box->state->class_name = real_class;
    }
}

Symbol *box_shown_class(Jbox *box) noexcept {
    if (box->state->placeholder) {
        return "newobj"_sym;
    }
    Object *object = box_object(box);
    const Patcher *patcher = as_patcher(object);
    return patcher ? patcher->class_name : object_classname(object);
}

// A patcher has no inlet but those of its `inlet` objects; every other object is an inlet itself,
// unless its class says that this one is not shown.
int32_t box_inlet_count(Jbox *box) noexcept {
    if (box->state->placeholder) {
        return box->state->document_inlets;
    }
    Object *object = box_object(box);
    return inlet_count(object) + (class_of(object)->flags & ClassNoInlet ? 0 : 1);
}

int32_t box_outlet_count(Jbox *box) noexcept {
    return box->state->placeholder ? box->state->document_outlets : outlet_count(box_object(box));
}

}  // namespace kiv

// --- The interface -------------------------------------------------------------------------------

using namespace kiv;

void jbox_initclass(Class *c, int32_t flags) noexcept {
    if (!c) {
        return;
    }
    c->flags |= ClassBoxDictionary | ClassRetired | (flags & JBOX_UI ? ClassUi : 0u);
    class_obexoffset_set(c, offsetof(Jbox, obex));
    box_add_attributes(c);
    class_addmethod(c, reinterpret_cast<Method>(box_write_dictionary), "appendtodictionary",
                    TypeCant, 0);
    if (!class_find_method(c, "notify"_sym)) {
        class_addmethod(c, reinterpret_cast<Method>(jbox_notify), "notify", TypeCant, 0);
    }
}

ErrorCode jbox_new(Jbox *box, int32_t, int32_t argc, Atom *argv) noexcept {
    if (!box) {
        return ErrorInvalidPointer;
    }
    void *memory = sysmem_newptr(sizeof(BoxState));
    if (!memory) {
        return ErrorOutOfMemory;
    }
    BoxState *part = new (memory) BoxState();
    box->state = part;
    part->class_name = object_classname(box);
    object_register("box"_sym, symbol_unique(), box);
    object_obex_storeflags(box, "#B"_sym, box, ContainerReference);

    Dictionary *dictionary = first_dictionary(argc, argv);
    Dictionary *prototype = std::exchange(kiv::state.prototype, nullptr);
    const ErrorCode failure = build(box, prototype, dictionary);
    if (prototype) {
        object_free(prototype);
    }
    if (failure) {
        jbox_free(box);
    }
    return failure;
}

void jbox_ready(Jbox *box) noexcept {
    if (!box || !box->state || box->state->ready) {
        return;
    }
    BoxState *part = box->state;
    part->ready = true;
    if (Dictionary *source = part->source) {
        if (part->object && !as_patcher(part->object)) {
            apply_saved(part->object, source);
        }
        box_read_settings(box, source);
        if (holds_subpatcher(box)) {
            keep_subpatcher(part);
        }
        part->source = nullptr;
        object_free(source);
    }
}

void jbox_free(Jbox *box) noexcept {
    if (!box || !box->state) {
        return;
    }
    BoxState *part = box->state;
    if (part->patcher) {
        patcher_unlink_box(part->patcher, box);
    }
    box->state = nullptr;
    if (part->object) {
        object_box_set(part->object, nullptr);
        object_free(part->object);
    }
    if (part->source) {
        object_free(part->source);
    }
    if (part->unknown) {
        object_free(part->unknown);
    }
    std::destroy_at(part);
    memory_retire(part);
}

ErrorCode jbox_notify(Jbox *box, Symbol *, Symbol *message, void *, void *) noexcept {
    if (message == "attr_modified"_sym) {
        jbox_redraw(box);
    }
    return ErrorNone;
}

void jbox_processlegacydefaults(Jbox *box, Dictionary *dictionary, int32_t) noexcept {
    if (!box || !box->state || !box->state->patcher || !dictionary) {
        return;
    }
    const Patcher *patcher = box->state->patcher;
    if (!dictionary_hasentry(dictionary, "fontname"_sym)) {
        jbox_set_fontname(box, patcher->default_font_name);
    }
    if (!dictionary_hasentry(dictionary, "fontsize"_sym)) {
        jbox_set_fontsize(box, patcher->default_font_size);
    }
    if (!dictionary_hasentry(dictionary, "fontface"_sym)) {
        object_attr_setlong(box, "fontface"_sym, patcher->default_font_face);
    }
}

// What a box wants of the views that show it is a notification: views attach to their boxes. What a
// view that comes later must know is kept: "captionshown" of the box, "focusbox" of the patcher.
void jbox_redraw(Jbox *box) noexcept {
    notify_views(box, "redraw"_sym);
}
void jbox_grabfocus(Jbox *box) noexcept {
    if (box && box->state && box->state->patcher) {
        box->state->patcher->focus_box = box;
    }
    notify_views(box, "grabfocus"_sym);
}
void jbox_updatetextfield(Jbox *box) noexcept {
    notify_views(box, "updatetextfield"_sym);
}
void jbox_show_caption(Jbox *box) noexcept {
    set_caption(box, 1, "showcaption"_sym);
}
void jbox_hide_caption(Jbox *box) noexcept {
    set_caption(box, 0, "hidecaption"_sym);
}

Object *jbox_get_object(void *box) noexcept {
    Jbox *self = as_box(box);
    return self ? box_object(self) : nullptr;
}

// A patcher's inlets are all in its list; of any other object, the first one is the object itself,
// unless its class shows none there.
void *jbox_getinlet(void *box, int32_t index) noexcept {
    Jbox *self = as_box(box);
    if (!self || index < 0 || self->state->placeholder) {
        return nullptr;
    }
    Object *object = box_object(self);
    if (class_of(object)->flags & ClassNoInlet) {
        return inlet_nth(object, index);
    }
    return index == 0 ? static_cast<void *>(object) : inlet_nth(object, index - 1);
}

Outlet *jbox_getoutlet(void *box, int32_t index) noexcept {
    Jbox *self = as_box(box);
    return self && index >= 0 && !self->state->placeholder ? outlet_nth(box_object(self), index)
                                                           : nullptr;
}

void jpatcher_setnextobexprototype(Dictionary *prototype) noexcept {
    if (prototype && object_retain(prototype)) {
        return;
    }
    if (Dictionary *old = std::exchange(kiv::state.prototype, prototype)) {
        object_free(old);
    }
}

Dictionary *jpatcher_getnextobexprototype() noexcept {
    return kiv::state.prototype;
}
