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

// What the box dictionary says of one attribute.
struct AttributeSettings {
    Symbol *name;
    Object *holder;        // of the attribute; null when neither the box nor the object has it
    Dictionary *settings;  // null when it says something else
};

AttributeSettings settings_in(DictionaryEntry *entry, Jbox *box) noexcept {
    Symbol *name = dictionary_entry_getkey(entry);
    Atom value;
    dictionary_entry_getvalue(entry, &value);
    return {name, holder_of(box, name), dictionary_of(value)};
}

void apply_settings(DictionaryEntry *entry, void *box) noexcept {
    const AttributeSettings of = settings_in(entry, static_cast<Jbox *>(box));
    void *attribute = of.holder && of.settings ? own_attribute(of.holder, of.name) : nullptr;
    if (attribute) {
        dictionary_funall(of.settings, apply_setting, attribute);
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
        append_copies(writing->settings, name, argc, argv);
    }
    sysmem_freeptr(argv);
}

struct WritingBox {
    Jbox *box;
    Dictionary *all;
};

void write_settings(DictionaryEntry *entry, void *arg) noexcept {
    const auto *writing = static_cast<WritingBox *>(arg);
    const AttributeSettings of = settings_in(entry, writing->box);
    Dictionary *written = nullptr;
    if (of.holder && of.settings &&
        dictionary_getdictionary(writing->all, of.name, &written) == ErrorNone) {
        Writing one{object_attr_get(of.holder, of.name), written};
        dictionary_funall(of.settings, write_setting, &one);
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
