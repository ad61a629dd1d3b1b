// preset: stores and recalls the values of the boxes around it.
//
// A box takes part when its object answers "getvalueof" (x, int32_t *count, Atom **atoms) and
// "setvalueof" (x, int32_t count, Atom *atoms); recalling a value sends it, as if it came in. With
// cords from out1, only the boxes they lead to are stored; else with cords from out3, all but
// those. What is called may free boxes, the preset and the patcher: walks go through the patcher's
// "iterate", and a recall works on a copy and asks for each box by its id. Main thread.
#include "objects/common.h"

#include <cstdio>
#include <cstdlib>

namespace kiv::objects {

namespace {

enum : int32_t { only_outlet = 0, except_outlet = 2 };

// Presets by number, each a dictionary of values by box id; the document keeps them as
// "preset_data".
struct Preset {
    Jbox box;
    Outlet *recalled;
    Outlet *stored;
    Dictionary *presets;
};
Class *preset_class;

Symbol *key_of(int64_t number) {
    char text[24];
    std::snprintf(text, sizeof text, "%lld", static_cast<long long>(number));
    return gensym(text);
}

// --- Storing -------------------------------------------------------------------------------------

// Where the cords of one outlet lead: to no box, to boxes, to this one.
enum class Cords { none, elsewhere, here };

Cords cords_to(Preset *x, int32_t outlet, const Object *box) {
    Cords found = Cords::none;
    for (Object *line = jpatcher_get_firstline(patcher_of(x)); line && found != Cords::here;
         line = jpatchline_get_nextline(line)) {
        if (jpatchline_get_box1(line) == &x->box.ob && jpatchline_get_outletnum(line) == outlet) {
            found = jpatchline_get_box2(line) == box ? Cords::here : Cords::elsewhere;
        }
    }
    return found;
}

bool takes_part(Preset *x, Object *box) {
    const Cords only = cords_to(x, only_outlet, box);
    return only == Cords::none ? cords_to(x, except_outlet, box) != Cords::here
                               : only == Cords::here;
}

struct Storing {
    Preset *x;
    Dictionary *values;
};

int32_t store_box(void *arg, Object *box) {
    const auto *storing = static_cast<Storing *>(arg);
    Object *const object = jbox_get_object(box);
    if (!zgetfn(object, "getvalueof"_sym) || !zgetfn(object, "setvalueof"_sym) ||
        !takes_part(storing->x, box)) {
        return 0;
    }
    int32_t count = 0;
    Atom *value = nullptr;
    object_method(object, "getvalueof"_sym, &count, &value);
    if (count > 0 && value) {
        dictionary_appendatoms(storing->values, jbox_get_id(box), count, value);
    }
    sysmem_freeptr(value);
    return object_isvalid(storing->x) ? 0 : 1;
}

void store(Preset *x, int64_t number) {
    Storing storing{x, dictionary_new()};
    object_method(patcher_of(x), "iterate"_sym, store_box, &storing, JPATCHER_ITERATE_BOXES);
    if (!object_isvalid(x)) {
        object_free(storing.values);
        return;
    }
    if (dictionary_appenddictionary(x->presets, key_of(number), storing.values) != ErrorNone) {
        object_free(storing.values);
        object_error(x, "no memory for a preset");
        return;
    }
    jpatcher_set_dirty(patcher_of(x), 1);
    outlet_int(x->stored, number);
}

// --- Recalling -----------------------------------------------------------------------------------

// By its id alone: scripting names, which jpatcher_resolvebox prefers, change.
Object *box_with_id(Object *patcher, const Symbol *id) {
    Object *box = jpatcher_get_firstobject(patcher);
    while (box && jbox_get_id(box) != id) {
        box = jbox_get_nextobject(box);
    }
    return box;
}

void recall_value(Object *patcher, Dictionary *values, Symbol *id) {
    Object *const object = jbox_get_object(box_with_id(patcher, id));
    int32_t count = 0;
    Atom *value = nullptr;
    if (object && zgetfn(object, "setvalueof"_sym) &&
        dictionary_getatoms(values, id, &count, &value) == ErrorNone && count > 0) {
        object_method(object, "setvalueof"_sym, count, value);
    }
}

void recall(Preset *x, int64_t number) {
    Dictionary *stored = nullptr;
    if (dictionary_getdictionary(x->presets, key_of(number), &stored) != ErrorNone) {
        object_error(x, "there is no preset %lld", static_cast<long long>(number));
        return;
    }
    Object *const patcher = patcher_of(x);
    Dictionary *const values = dictionary_clone(stored);
    int32_t count = 0;
    Symbol **ids = nullptr;
    dictionary_getkeys_ordered(values, &count, &ids);
    for (int32_t i = 0; i < count && object_isvalid(patcher); ++i) {
        recall_value(patcher, values, ids[i]);
    }
    dictionary_freekeys(values, count, ids);
    object_free(values);
    if (object_isvalid(x)) {
        outlet_int(x->recalled, number);
    }
}

void recall_lowest(Preset *x) {
    int64_t lowest = 0;
    int32_t count = 0;
    Symbol **keys = nullptr;
    dictionary_getkeys(x->presets, &count, &keys);
    for (int32_t i = 0; i < count; ++i) {
        const int64_t number = std::strtoll(keys[i]->name, nullptr, 10);
        lowest = number > 0 && (lowest == 0 || number < lowest) ? number : lowest;
    }
    dictionary_freekeys(x->presets, count, keys);
    if (lowest > 0) {
        recall(x, lowest);
    }
}

// --- Messages ------------------------------------------------------------------------------------

void clear(Preset *x, int64_t number) {
    if (dictionary_deleteentry(x->presets, key_of(number)) == ErrorNone) {
        jpatcher_set_dirty(patcher_of(x), 1);
    }
}

void handle(Preset *x, Symbol *selector, int32_t argc, Atom *argv) {
    if (selector == "clearall"_sym) {
        dictionary_clear(x->presets);
        jpatcher_set_dirty(patcher_of(x), 1);
        return;
    }
    const int64_t number = argc > 0 && is_number(argv[0]) ? long_of(argv[0]) : 0;
    if (number < 1) {
        object_error(x, "%s: the number of a preset, from 1 on, is wanted", selector->name);
    } else if (selector == "store"_sym) {
        store(x, number);
    } else if (selector == "clear"_sym) {
        clear(x, number);
    } else {
        recall(x, number);
    }
}

void message(Preset *x, Symbol *selector, int32_t argc, Atom *argv) {
    defer(x, method(handle), selector, argc, argv);
}

void recall_number(Preset *x, Atom number) {
    message(x, "recall"_sym, 1, &number);
}

// --- The class -----------------------------------------------------------------------------------

ErrorCode get_data(Preset *x, void *, int32_t *argc, Atom **argv) {
    if (dictionary_getentrycount(x->presets) == 0 || atom_alloc(argc, argv, nullptr) != ErrorNone) {
        return ErrorGeneric;
    }
    return atom_setobj(*argv, x->presets);
}

ErrorCode set_data(Preset *x, void *, int32_t argc, Atom *argv) {
    void *const data = argc > 0 ? atom_getobj(argv) : nullptr;
    return object_classname_compare(data, "dictionary"_sym)
               ? dictionary_clone_to_existing(static_cast<Dictionary *>(data), x->presets)
               : ErrorGeneric;
}

void preset_free(Preset *x) {
    object_free(x->presets);
    jbox_free(&x->box);
}

void *preset_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Preset>(preset_class);
    if (!x) {
        return nullptr;
    }
    x->presets = dictionary_new();
    if (!x->presets || jbox_new(&x->box, 0, argc, argv) != ErrorNone) {
        object_free(x);
        return nullptr;
    }
    x->stored = intout(x);
    outlet_new(x, nullptr);
    x->recalled = intout(x);
    outlet_new(x, nullptr);
    jbox_ready(&x->box);
    return x;
}

}  // namespace

void preset_start() {
    preset_class = make_class<Preset>("preset", preset_new, preset_free);
    jbox_initclass(preset_class, JBOX_UI);
    Numbers<Preset, recall_number>::add(preset_class);
    for (const char *name : {"recall", "store", "clear", "clearall"}) {
        class_addmethod(preset_class, method(message), name, TypeGimme, 0);
    }
    class_addmethod(preset_class, method(recall_lowest), "loadbang", TypeCant, 0);
    class_addattr(preset_class, attribute_new("preset_data", "atom"_sym, AttrSetOpaqueUser,
                                              method(get_data), method(set_data)));
    class_addattr_format(preset_class, "preset_data", "save"_sym, "long", "l", 1);
    add_class(preset_class);
}

}  // namespace kiv::objects
