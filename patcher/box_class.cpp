// What is known of the classes of boxes and of the objects in them. Worked out when the first
// instance is loaded or saved; classes do not change after that, and are never forgotten.
#include <kiv/console.h>
#include <kiv/hashtab.h>

#include <cstring>
#include <memory>

#include "kernel/internal.h"
#include "patcher/box.h"
#include "patcher/patcher_attributes.h"

namespace kiv {

namespace {

Method getter_of(void *attribute) noexcept {
    return reinterpret_cast<Method>(object_method(attribute, "getmethod"_sym, "get"_sym));
}

bool is_box_field(Symbol *name, void *attribute) noexcept {
    const Method getter = getter_of(attribute);
    for (const Field &field : box_document_fields()) {
        if (reinterpret_cast<Method>(field.get) == getter && name == gensym(field.name)) {
            return true;
        }
    }
    return false;
}

void read_fields(Class *c, BoxClass &known) {
    for (const Field &field : box_document_fields()) {
        Symbol *name = gensym(field.name);
        void *attribute = nullptr;
        if (c->attributes) {
            hashtab_lookup(c->attributes, name, &attribute);
        }
        known.field_names.push_back(name);
        known.replaced.push_back(attribute && field.get &&
                                 getter_of(attribute) != reinterpret_cast<Method>(field.get));
        known.keys.emplace(name, true);
    }
    for (Symbol *name : {"#P"_sym, "#B"_sym, "realclass"_sym, "replaced_args"_sym, "kivclass"_sym,
                         "numinlets"_sym, "numoutlets"_sym, "outlettype"_sym}) {
        known.keys.emplace(name, true);
    }
}

void read_saved(Class *c, BoxClass &known) {
    int32_t count = 0;
    Symbol **names = nullptr;
    if (!c->attributes || hashtab_getkeys(c->attributes, &count, &names)) {
        return;
    }
    for (int32_t i = 0; i < count; ++i) {
        void *attribute = nullptr;
        hashtab_lookup(c->attributes, names[i], &attribute);
        if (!attribute || !object_attr_getlong(attribute, "save"_sym) ||
            is_box_field(names[i], attribute)) {
            continue;
        }
        SavedAttribute saved{names[i], {}};
        int32_t argc = 0;
        Atom *argv = nullptr;
        if (!object_attr_getvalueof(attribute, "default"_sym, &argc, &argv)) {
            saved.fallback.assign(argv, argv + argc);
            sysmem_freeptr(argv);
        }
        known.saved.push_back(std::move(saved));
        known.keys.emplace(names[i], true);
    }
    sysmem_freeptr(names);
    std::sort(known.saved.begin(), known.saved.end(),
              [](const SavedAttribute &a, const SavedAttribute &b) {
                  return std::strcmp(a.name->name, b.name->name) < 0;
              });
}

}  // namespace

const BoxClass *box_class(Class *c) noexcept {
    static std::unordered_map<Class *, std::unique_ptr<const BoxClass>> classes;
    try {
        auto &known = classes[c];
        if (!known) {
            auto made = std::make_unique<BoxClass>();
            read_fields(c, *made);
            read_saved(c, *made);
            known = std::move(made);
        }
        return known.get();
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

}  // namespace kiv
