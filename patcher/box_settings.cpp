// "saved_attribute_attributes": settings of single attributes of one box, {attribute: {setting:
// value}}. A setting is an attribute of the attribute ("label", "default" ...). Attributes belong
// to classes, so an object with a setting of its own gets its own copy of the attribute.
#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/hashtab.h>
#include <kiv/object.h>

#include <algorithm>

#include "kernel/internal.h"
#include "patcher/box.h"
#include "patcher/document.h"

namespace kiv {

namespace {

constexpr int32_t clone_objects = 8192;

// The box or the object in it, whichever has the attribute; null when neither does.
Object *holder_of(Jbox *box, Symbol *attribute) noexcept {
    Object *inner = box->state->object;
    return object_attr_get(box, attribute)              ? as_object(box)
           : inner && object_attr_get(inner, attribute) ? inner
                                                        : nullptr;
}

// The object's own attribute, copied from its class's when it has none yet; null without memory.
void *own_attribute(Object *holder, Symbol *name) noexcept {
    void *attribute = object_attr_get(holder, name);
    void *shared = nullptr;
    Hashtab *of_class = class_of(holder)->attributes;
    if (!of_class || hashtab_lookup(of_class, name, &shared) || shared != attribute) {
        return attribute;
    }
    void *copy = object_clone(attribute);
    if (copy && object_addattr(holder, copy) != ErrorNone) {
        object_free(copy);
        return nullptr;
    }
    return copy;
}

// Objects (dictionaries, long texts) belong to the document and stay there.
bool has_objects(int32_t argc, const Atom *argv) noexcept {
    return std::any_of(argv, argv + argc, [](const Atom &a) { return a.type == TypeObject; });
}

void apply_setting(DictionaryEntry *entry, void *attribute) noexcept {
    Symbol *name = dictionary_entry_getkey(entry);
    int32_t argc = 0;
    Atom *argv = nullptr;
    dictionary_entry_getvalues(entry, &argc, &argv);
    if (has_objects(argc, argv)) {
        return;
    }
    if (!object_attr_get(attribute, name)) {
        void *setting = attribute_new(name->name, "atom"_sym, 0, nullptr, nullptr);
        if (!setting || object_addattr(attribute, setting) != ErrorNone) {
            object_free(setting);
            return;
        }
    }
    object_attr_setvalueof(attribute, name, argc, argv);
}

void apply_settings(DictionaryEntry *entry, void *box) noexcept {
    Symbol *name = dictionary_entry_getkey(entry);
    Atom value;
    dictionary_entry_getvalue(entry, &value);
    Object *holder = holder_of(static_cast<Jbox *>(box), name);
    void *attribute = holder ? own_attribute(holder, name) : nullptr;
    if (Dictionary *settings = attribute ? dictionary_of(value) : nullptr) {
        dictionary_funall(settings, apply_setting, attribute);
    }
}

// One attribute of the document under construction, and its settings there.
struct Writing {
    void *attribute;
    Dictionary *settings;
};

void write_setting(DictionaryEntry *entry, void *arg) noexcept {
    const auto *writing = static_cast<Writing *>(arg);
    Symbol *name = dictionary_entry_getkey(entry);
    int32_t argc = 0;
    Atom *argv = nullptr;
    if (object_attr_getvalueof(writing->attribute, name, &argc, &argv) == ErrorNone) {
        if (argc == 1) {
            dictionary_appendatom_flags(writing->settings, name, argv, clone_objects);
        } else {
            dictionary_appendatoms_flags(writing->settings, name, argc, argv, clone_objects);
        }
    }
    sysmem_freeptr(argv);
}

struct WritingBox {
    Jbox *box;
    Dictionary *all;
};

void write_settings(DictionaryEntry *entry, void *arg) noexcept {
    const auto *writing = static_cast<WritingBox *>(arg);
    Symbol *name = dictionary_entry_getkey(entry);
    Atom value;
    dictionary_entry_getvalue(entry, &value);
    Object *holder = holder_of(writing->box, name);
    Dictionary *settings = nullptr;
    if (holder && dictionary_of(value) &&
        dictionary_getdictionary(writing->all, name, &settings) == ErrorNone) {
        Writing one{object_attr_get(holder, name), settings};
        dictionary_funall(dictionary_of(value), write_setting, &one);
    }
}

Dictionary *settings_of(Dictionary *dictionary) noexcept {
    Dictionary *settings = nullptr;
    dictionary_getdictionary(dictionary, "saved_attribute_attributes"_sym, &settings);
    return settings;
}

}  // namespace

void box_read_settings(Jbox *box, Dictionary *dictionary) noexcept {
    if (Dictionary *settings = settings_of(dictionary)) {
        dictionary_funall(settings, apply_settings, box);
    }
}

bool box_write_settings(Jbox *box, Dictionary *dictionary) noexcept {
    Dictionary *kept = settings_of(box->state->unknown);
    if (!kept) {
        return true;
    }
    Owned<Dictionary> all(dictionary_clone(kept));
    WritingBox writing{box, all.get()};
    if (all) {
        dictionary_funall(kept, write_settings, &writing);
    }
    if (!all || dictionary_appenddictionary(dictionary, "saved_attribute_attributes"_sym,
                                            all.get()) != ErrorNone) {
        return false;
    }
    all.release();
    return true;
}

}  // namespace kiv
