#include <gtest/gtest.h>

#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/class.h>
#include <kiv/dictionary.h>
#include <kiv/inlets.h>
#include <kiv/object.h>
#include <kiv/sysmem.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

#include "kernel/internal.h"
#include "kernel/recorder.h"
#include "sched/internal.h"
#include "support/console.h"

using namespace kiv;
using namespace kiv::test;

namespace {

struct Item {
    Object ob;
    uint8_t small;
    int16_t path;
    int32_t number;
    int64_t wide;
    float single;
    double real;
    Symbol *word;
    void *object;
    Atom any;
    int32_t count;
    double list[4];
    int32_t sealed;
};

Class *item_class() {
    static Class *const made = [] {
        Class *c = class_new("item", nullptr, nullptr, sizeof(Item), nullptr, 0);
        const struct {
            const char *name;
            const char *type;
            size_t offset;
            int32_t flags;
        } fields[] = {
            {"small", "char", offsetof(Item, small), 0},
            {"path", "filepath", offsetof(Item, path), 0},
            {"number", "long", offsetof(Item, number), 0},
            {"number32", "int32", offsetof(Item, number), 0},
            {"wide", "atom_long", offsetof(Item, wide), 0},
            {"single", "float32", offsetof(Item, single), 0},
            {"real", "float64", offsetof(Item, real), 0},
            {"word", "symbol", offsetof(Item, word), 0},
            {"object", "object", offsetof(Item, object), 0},
            {"any", "atom", offsetof(Item, any), 0},
            {"odd", "matrix", offsetof(Item, number), 0},
            {"sealed", "long", offsetof(Item, sealed), AttrSetOpaqueUser},
            {"closed", "long", offsetof(Item, sealed), AttrSetOpaque | AttrGetOpaque},
        };
        for (const auto &field : fields) {
            class_addattr(c, attr_offset_new(field.name, gensym(field.type), field.flags, nullptr,
                                             nullptr, static_cast<int32_t>(field.offset)));
        }
        class_addattr(c, attr_offset_array_new("list", "float64"_sym, 4, 0, nullptr, nullptr,
                                               offsetof(Item, count), offsetof(Item, list)));
        class_addattr(c, attr_offset_array_new("rect", "float64"_sym, 4, 0, nullptr, nullptr, 0,
                                               offsetof(Item, list)));
        class_register(nullptr, c);
        return c;
    }();
    return made;
}

// Items that a test does not free live, in reach, to the end of the process.
Item *item() {
    static auto &made = *new std::vector<Item *>;
    made.push_back(static_cast<Item *>(object_alloc(item_class())));
    return made.back();
}

std::string value_text(void *x, const char *name) {
    int32_t count = 0;
    Atom *atoms = nullptr;
    if (object_attr_getvalueof(x, gensym(name), &count, &atoms) != ErrorNone) {
        return "none";
    }
    const std::string text = text_of(count, atoms);
    sysmem_freeptr(atoms);
    return text;
}

ErrorCode set(void *x, const char *name, std::vector<Atom> atoms) {
    return object_attr_setvalueof(x, gensym(name), static_cast<int32_t>(atoms.size()),
                                  atoms.data());
}

struct Client {
    Object ob;
    void *sender;
    void *data;
    int32_t notices;
};

Client *client() {
    static Class *const made = [] {
        Class *c = class_new("client", nullptr, nullptr, sizeof(Client), nullptr, 0);
        const auto notify = +[](Client *x, Symbol *, Symbol *message, void *sender, void *data) {
            if (message == "attr_modified"_sym) {
                x->sender = sender;
                x->data = data;
                ++x->notices;
            }
        };
        class_addmethod(c, reinterpret_cast<Method>(notify), "notify", TypeCant, 0);
        class_register(nullptr, c);
        return c;
    }();
    return static_cast<Client *>(object_alloc(made));
}

Client *watch(void *x) {
    Client *c = client();
    object_attach_byptr_register(c, x, "watched"_sym);
    return c;
}

}  // namespace

TEST(Attribute, StoresAnyAtomInItsType) {
    constexpr double inf = std::numeric_limits<double>::infinity();
    const struct {
        const char *name;
        Atom value;
        const char *text;
    } cases[] = {
        {"small", atom(int64_t{200}), "200"},
        {"small", atom(int64_t{-1}), "0"},
        {"small", atom(1e9), "255"},
        {"path", atom(int64_t{40000}), "32767"},
        {"path", atom(int64_t{-40000}), "-32768"},
        {"number", atom(-3.9), "-3"},
        {"number", atom(int64_t{1} << 40), "2147483647"},
        {"number", atom(-inf), "-2147483648"},
        {"number", atom("12"), "12"},
        {"number32", atom(int64_t{-7}), "-7"},
        {"wide", atom(int64_t{1} << 40), "1099511627776"},
        {"wide", atom(1e300), "9223372036854775807"},
        {"wide", atom(-1e300), "-9223372036854775808"},
        {"wide", atom(std::nan("")), "0"},
        {"single", atom(0.25), "0.25"},
        {"single", atom(int64_t{3}), "3."},
        {"single", atom(1e300), "inf"},
        {"real", atom(int64_t{3}), "3."},
        {"real", atom("2.5"), "2.5"},
        {"word", atom("foo"), "foo"},
        {"word", atom(int64_t{5}), "5"},
        {"word", atom(2.5), "2.5"},
        {"any", atom("foo"), "foo"},
        {"any", atom(2.5), "2.5"},
        {"odd", atom(int64_t{5}), "0"},
    };
    Item *x = item();
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.name) + " " + text_of(1, &c.value));
        EXPECT_EQ(set(x, c.name, {c.value}), ErrorNone);
        EXPECT_EQ(value_text(x, c.name), c.text);
        EXPECT_EQ(set(x, c.name, {}), ErrorNone);
        EXPECT_EQ(value_text(x, c.name), c.text);
    }
    EXPECT_EQ(x->number, -7);
    take_posts();
    set(x, "number", {atom("abc")});
    EXPECT_EQ(take_texts(), Texts{"abc: bad number"});

    Atom atoms[] = {atom(int64_t{64}), atom("unbound"), atom("bound"), atom(int64_t{0})};
    "bound"_sym->thing = x;
    atom_setobj(&atoms[3], x);
    for (int i = 0; i < 4; ++i) {
        set(x, "object", {atoms[i]});
        EXPECT_EQ(object_attr_getobj(x, "object"_sym), i < 2 ? nullptr : x);
    }
    "bound"_sym->thing = nullptr;
}

TEST(Attribute, ArraysKeepTheirBounds) {
    Item *x = item();
    EXPECT_EQ(value_text(x, "list"), "");
    EXPECT_EQ(value_text(x, "rect"), "0. 0. 0. 0.");
    set(x, "list", {atom(int64_t{1}), atom(2.5)});
    EXPECT_EQ(x->count, 2);
    EXPECT_EQ(value_text(x, "list"), "1. 2.5");
    const double six[] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(object_attr_setdouble_array(x, "list"_sym, 6, six), ErrorNone);
    EXPECT_EQ(value_text(x, "list"), "1. 2. 3. 4.");
    for (const int32_t wrong : {99, -1}) {
        x->count = wrong;
        EXPECT_EQ(value_text(x, "list"), wrong > 0 ? "1. 2. 3. 4." : "");
    }
    set(x, "rect", {atom(9.0)});
    EXPECT_EQ(value_text(x, "rect"), "9. 2. 3. 4.");
    double two[2] = {};
    EXPECT_EQ(object_attr_getdouble_array(x, "rect"_sym, 2, two), 2);
    EXPECT_EQ(two[1], 2);
    // A caller's array is filled as far as it goes.
    Atom local[2];
    Atom *atoms = local;
    int32_t count = 2;
    EXPECT_EQ(object_attr_getvalueof(x, "rect"_sym, &count, &atoms), ErrorNone);
    EXPECT_EQ(atoms, local);
    EXPECT_EQ(count, 2);
}

TEST(Attribute, HoldsItsOwnValue) {
    Item *x = item();
    void *held = attribute_new("held", "long"_sym, 0, nullptr, nullptr);
    EXPECT_EQ(object_addattr(x, held), ErrorNone);
    EXPECT_EQ(value_text(x, "held"), "0");
    set(x, "held", {atom(1.9), atom(int64_t{2}), atom(int64_t{3})});
    EXPECT_EQ(value_text(x, "held"), "1 2 3");
    set(x, "held", {atom(int64_t{4})});
    EXPECT_EQ(value_text(x, "held"), "4");
    EXPECT_EQ(object_addattr(x, attribute_new("loose", nullptr, 0, nullptr, nullptr)), ErrorNone);
    set(x, "loose", {atom("a"), atom(1.5)});
    EXPECT_EQ(value_text(x, "loose"), "a 1.5");
    // An object's own attribute goes before its class's, and a later one replaces it.
    object_addattr(x, attribute_new("number", "symbol"_sym, 0, nullptr, nullptr));
    set(x, "number", {atom("own")});
    EXPECT_EQ(value_text(x, "number"), "own");
    object_addattr(x, attribute_new("number", "long"_sym, 0, nullptr, nullptr));
    EXPECT_EQ(value_text(x, "number"), "0");
    EXPECT_EQ(attribute_new(nullptr, nullptr, 0, nullptr, nullptr), nullptr);
}

TEST(Attribute, WritingTouchesAndNotifies) {
    Item *x = item();
    Client *c = watch(x);
    void *attribute = attribute_new("fresh", "long"_sym, 0, nullptr, nullptr);
    EXPECT_EQ(object_addattr(x, attribute), ErrorNone);
    const auto touched = [attribute] {
        return (reinterpret_cast<uintptr_t>(object_method(attribute, "getflags"_sym)) &
                AttrTouched) != 0;
    };
    EXPECT_FALSE(touched());
    EXPECT_EQ(object_attr_getdirty(x, "fresh"_sym), 0);
    EXPECT_EQ(object_attr_setlong(x, "fresh"_sym, 0), ErrorNone);  // the value it had
    EXPECT_TRUE(touched());
    EXPECT_EQ(c->notices, 1);
    EXPECT_EQ(c->sender, x);
    EXPECT_EQ(c->data, attribute);
    object_attr_getlong(x, "fresh"_sym);
    EXPECT_EQ(c->notices, 1);
    EXPECT_EQ(object_attr_touch(x, "fresh"_sym), ErrorNone);
    EXPECT_EQ(c->notices, 2);
    EXPECT_EQ(object_attr_touch(x, "none"_sym), ErrorGeneric);
}

TEST(Attribute, AnswersNeutrallyWhenThereIsNone) {
    Item *x = item();
    Item *freed = item();
    object_free(freed);
    double four[4] = {1, 1, 1, 1};
    Atom one = atom(int64_t{1});
    int32_t count = 0;
    Atom *atoms = nullptr;
    for (void *target :
         {static_cast<void *>(nullptr), static_cast<void *>(x), static_cast<void *>(freed)}) {
        EXPECT_EQ(object_attr_get(target, "none"_sym), nullptr);
        EXPECT_EQ(object_attr_setvalueof(target, "none"_sym, 1, &one), ErrorGeneric);
        EXPECT_EQ(object_attr_getvalueof(target, "none"_sym, &count, &atoms), ErrorGeneric);
        EXPECT_EQ(object_attr_getsym(target, "none"_sym), gensym(""));
        EXPECT_EQ(object_attr_getlong(target, nullptr), 0);
        EXPECT_EQ(object_attr_get_rect(target, "none"_sym, four), ErrorGeneric);
        EXPECT_EQ(four[3], 0);
        EXPECT_EQ(object_attr_usercanset(target, "none"_sym), 0);
    }
    for (const char *name : {"closed"}) {
        EXPECT_EQ(set(x, name, {one}), ErrorGeneric);
        EXPECT_EQ(value_text(x, name), "none");
    }
    EXPECT_EQ(class_addattr(nullptr, nullptr), ErrorInvalidPointer);
    EXPECT_EQ(class_addattr(item_class(), x), ErrorInvalidPointer);
    EXPECT_EQ(attr_addfilter_clip(x, 0, 1, 1, 1), ErrorGeneric);
    atoms = nullptr;
    count = 0;
    memory_fail_at(1);
    EXPECT_EQ(object_attr_getvalueof(x, "number"_sym, &count, &atoms), ErrorOutOfMemory);
    memory_fail_at(0);
    EXPECT_TRUE(take_posts().empty());
}

namespace {

ErrorCode twice_set(void *x, void *, int32_t argc, Atom *argv) {
    static_cast<Item *>(x)->number = static_cast<int32_t>(argc > 0 ? 2 * atom_getlong(argv) : 0);
    return ErrorNone;
}
ErrorCode refuse(void *, void *, int32_t, Atom *) {
    return ErrorDuplicate;
}

Item *shared_holder = nullptr;

}  // namespace

// A class that keeps its values in another object, and one attribute that its class does not list.
TEST(Attribute, ClassMethodsFindAttributesAndHolders) {
    static void *hidden =
        attr_offset_new("hidden", "long"_sym, 0, nullptr, reinterpret_cast<Method>(twice_set),
                        offsetof(Item, number));
    static int asked;
    asked = 0;
    Class *c = class_new("borrower", nullptr, nullptr, sizeof(Item), nullptr, 0);
    const auto get = +[](Item *, Symbol *name) -> void * {
        ++asked;
        return name == "hidden"_sym ? hidden : nullptr;
    };
    const auto target = +[](Item *, Symbol *) -> void * { return shared_holder; };
    class_addmethod(c, reinterpret_cast<Method>(get), "attr_get", TypeCant, 0);
    class_addmethod(c, reinterpret_cast<Method>(target), "attr_gettarget", TypeCant, 0);
    class_addattr(
        c, attr_offset_new("number", "long"_sym, 0, nullptr, nullptr, offsetof(Item, number)));
    class_register(nullptr, c);
    auto *x = static_cast<Item *>(object_alloc(c));
    shared_holder = item();
    Client *of_x = watch(x);
    Client *of_holder = watch(shared_holder);
    set(x, "number", {atom(int64_t{5})});
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(x->number, 0);
    EXPECT_EQ(shared_holder->number, 5);
    EXPECT_EQ(value_text(x, "number"), "5");
    EXPECT_EQ(of_x->notices, 1);
    EXPECT_EQ(of_holder->notices, 1);
    set(x, "hidden", {atom(int64_t{5})});
    EXPECT_EQ(value_text(x, "hidden"), "10");
    EXPECT_EQ(set(x, "none", {}), ErrorGeneric);
    object_free(x);
    class_free(c);
}

TEST(Attribute, BoxesAskTheirInnerObject) {
    static Item *inner = item();
    static Recorder *box = recorder('B', "i");
    kernel_hooks().inner_object = [](Object *x) { return x == &box->ob ? &inner->ob : nullptr; };
    Client *of_box = watch(box);
    Client *of_inner = watch(inner);
    EXPECT_EQ(set(box, "number", {atom(int64_t{5})}), ErrorNone);
    EXPECT_EQ(inner->number, 5);
    EXPECT_EQ(of_box->notices, 1);
    EXPECT_EQ(of_inner->notices, 0);
    EXPECT_EQ(object_attr_getlong(box, "number"_sym), 5);
    EXPECT_EQ(object_attr_get(box, "number"_sym), nullptr);
    kernel_hooks().inner_object = nullptr;
}

TEST(Attribute, MessagesSetAndDump) {
    Item *x = item();
    Recorder *r = recorder('R', "a");
    Outlet *dump = outlet_new(x, nullptr);
    outlet_add(dump, r);
    object_obex_store(x, "dumpout"_sym, dump);
    Atom three[] = {atom(int64_t{1}), atom(int64_t{2}), atom(int64_t{3})};
    typedmess(x, "number"_sym, 1, three);
    EXPECT_EQ(x->number, 1);
    typedmess(x, "getnumber"_sym, 0, nullptr);
    typedmess(x, "list"_sym, 3, three);
    typedmess(x, "getlist"_sym, 0, nullptr);
    EXPECT_EQ(take_messages(), (Texts{"R number 1", "R list 1. 2. 3."}));
    EXPECT_TRUE(take_posts().empty());
    for (const char *refused : {"sealed", "closed", "getclosed", "getnone", "get"}) {
        typedmess(x, gensym(refused), 1, three);
        EXPECT_EQ(take_texts(), Texts{std::string("doesn't understand \"") + refused + "\""});
    }
    EXPECT_EQ(x->sealed, 0);
    // Direct calls take the same way.
    EXPECT_EQ(object_method(x, "number"_sym, 1, &three[2]), nullptr);
    EXPECT_EQ(x->number, 3);
    int32_t count = 0;
    Atom *atoms = nullptr;
    object_method(x, "getnumber"_sym, &count, &atoms);
    EXPECT_EQ(text_of(count, atoms), "3");
    sysmem_freeptr(atoms);
    object_free(dump);
    typedmess(x, "getnumber"_sym, 0, nullptr);
}

TEST(Attribute, ArgumentsAfterAnAtSign) {
    Item *x = item();
    Atom args[] = {atom(int64_t{1}), atom(int64_t{2}), atom("@number"),  atom(int64_t{3}),
                   atom("@none"),    atom("v"),        atom("@sealed"),  atom(int64_t{1}),
                   atom("@"),        atom("@list"),    atom(int64_t{1}), atom(0.5)};
    constexpr int32_t count = 12;
    EXPECT_EQ(attr_args_offset(count, args), 2);
    EXPECT_EQ(attr_args_offset(2, args), 2);
    EXPECT_EQ(attr_args_offset(3, nullptr), 3);
    EXPECT_EQ(attr_args_offset(-1, args), -1);
    attr_args_process(x, count, args);
    EXPECT_EQ(x->number, 3);
    EXPECT_EQ(x->sealed, 0);
    EXPECT_EQ(value_text(x, "list"), "1. 0.5");
    EXPECT_EQ(take_texts(), (Texts{"item: \"none\" is not a valid attribute argument",
                                   "item: \"sealed\" is not a valid attribute argument",
                                   "item: \"\" is not a valid attribute argument"}));
    Dictionary *d = dictionary_new();
    attr_args_dictionary(d, count, args);
    int64_t number = 0;
    EXPECT_EQ(dictionary_getlong(d, "number"_sym, &number), ErrorNone);
    EXPECT_EQ(number, 3);
    int32_t listed = 0;
    Atom *atoms = nullptr;
    dictionary_getatoms(d, "list"_sym, &listed, &atoms);
    EXPECT_EQ(text_of(listed, atoms), "1 0.5");
    object_free(d);
}

TEST(Attribute, FiltersClipScaleAndProcess) {
    const auto halve = +[](void *, void *, int32_t argc, Atom *argv) -> ErrorCode {
        for (int32_t i = 0; i < argc; ++i) {
            atom_setfloat(&argv[i], atom_getfloat(&argv[i]) / 2);
        }
        return ErrorNone;
    };
    const struct {
        const char *name;
        std::function<void(void *)> add;
        Atom value;
        double stored;
        double read;
    } cases[] = {
        {"low", [](void *a) { attr_addfilter_clip(a, 0, 10, 1, 0); }, atom(-5.0), 0, 0},
        {"open", [](void *a) { attr_addfilter_clip(a, 0, 10, 1, 0); }, atom(50.0), 50, 50},
        {"high", [](void *a) { attr_addfilter_clip(a, 0, 10, 1, 1); }, atom(int64_t{50}), 10, 10},
        {"nan", [](void *a) { attr_addfilter_clip(a, 1, 10, 1, 1); }, atom(std::nan("")), 1, 1},
        {"scale", [](void *a) { attr_addfilter_clip_scale(a, 0.01, 0, 1, 1, 1); },
         atom(int64_t{50}), 0.5, 50},
        {"scaled", [](void *a) { attr_addfilter_clip_scale(a, 0.01, 0, 1, 1, 1); },
         atom(int64_t{500}), 1, 100},
        {"in", [](void *a) { attr_addfilterset_clip_scale(a, 2, 0, 10, 1, 1); }, atom(4.0), 8, 8},
        {"out", [](void *a) { attr_addfilterget_clip_scale(a, 2, 0, 10, 1, 1); }, atom(4.0), 4, 8},
        {"out2", [](void *a) { attr_addfilterget_clip(a, 0, 3, 1, 1); }, atom(4.0), 4, 3},
        {"proc", [&](void *a) { attr_addfilterset_proc(a, reinterpret_cast<Method>(halve)); },
         atom(4.0), 2, 2},
        {"procout", [&](void *a) { attr_addfilterget_proc(a, reinterpret_cast<Method>(halve)); },
         atom(4.0), 4, 2},
        {"refused", [](void *a) { attr_addfilterset_proc(a, reinterpret_cast<Method>(refuse)); },
         atom(4.0), 0, 0},
        {"two",
         [&](void *a) {
             attr_addfilterset_proc(a, reinterpret_cast<Method>(halve));
             attr_addfilterset_clip(a, 0, 1, 0, 1);
         },
         atom(6.0), 1, 1},
    };
    Item *x = item();
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        x->real = 0;
        void *a = attr_offset_new(c.name, "float64"_sym, 0, nullptr, nullptr, offsetof(Item, real));
        c.add(a);
        object_addattr(x, a);
        Atom value = c.value;
        object_attr_setvalueof(x, gensym(c.name), 1, &value);
        EXPECT_DOUBLE_EQ(x->real, c.stored);
        EXPECT_DOUBLE_EQ(object_attr_getfloat(x, gensym(c.name)), c.read);
        EXPECT_EQ(value.value.i, c.value.value.i);  // the caller's atoms stay as they are
    }
}

TEST(Attribute, ClassesDescribeTheirAttributes) {
    Class *c = class_new("described", nullptr, nullptr, sizeof(Item), nullptr, 0);
    class_addattr(c,
                  attr_offset_new("mode", "long"_sym, 0, nullptr, nullptr, offsetof(Item, number)));
    EXPECT_EQ(class_addattr_format(c, "mode", "label"_sym, "symbol", "s", gensym("Mode")),
              ErrorNone);
    EXPECT_EQ(class_addattr_parse(c, "mode", "enumvals"_sym, "atom", "low \"very high\" 3"),
              ErrorNone);
    EXPECT_EQ(class_addattr_parse(c, "mode", "default"_sym, "long", "7"), ErrorNone);
    EXPECT_EQ(class_addattr_parse(c, "none", "default"_sym, "long", "7"), ErrorGeneric);
    EXPECT_EQ(class_addattr_parse(c, "mode", nullptr, "long", "7"), ErrorInvalidPointer);
    EXPECT_EQ(class_attr_setstyle(c, "none"), ErrorGeneric);
    EXPECT_EQ(class_attr_setfill(c, "mode", 1), ErrorNone);
    EXPECT_EQ(class_time_addattr(c, "interval", "Interval", 0), ErrorNone);
    class_register(nullptr, c);
    void *x = object_alloc(c);
    void *mode = object_attr_get(x, "mode"_sym);
    EXPECT_EQ(value_text(mode, "label"), "Mode");
    EXPECT_EQ(value_text(mode, "enumvals"), "low \"very high\" 3");
    EXPECT_EQ(value_text(object_attr_get(x, "interval"_sym), "style"), "time");
    // A copy has descriptions of its own.
    void *copy = object_clone(mode);
    EXPECT_EQ(value_text(copy, "default"), "7");
    object_free(copy);
    EXPECT_EQ(value_text(mode, "default"), "7");

    EXPECT_EQ(object_attr_getdirty(x, "mode"_sym), 1);
    set(x, "mode", {atom(int64_t{7})});
    EXPECT_EQ(object_attr_getdirty(x, "mode"_sym), 0);
    // Values without a place in the instance belong to each object.
    void *y = object_alloc(c);
    EXPECT_EQ(value_text(x, "interval"), "0");
    set(x, "interval", {atom("4n")});
    EXPECT_EQ(value_text(x, "interval"), "4n");
    EXPECT_EQ(value_text(y, "interval"), "0");
    object_free(y);
    object_free(x);
    class_free(c);
}

TEST(Attribute, LockedAndInheritedValues) {
    Item *x = item();
    EXPECT_EQ(object_attr_lock(x, "number"_sym, 1), ErrorNone);
    EXPECT_EQ(set(x, "number", {atom(int64_t{5})}), ErrorGeneric);
    EXPECT_EQ(object_attr_usercanset(x, "number"_sym), 0);
    EXPECT_EQ(set(item(), "number", {atom(int64_t{5})}), ErrorNone);
    object_attr_lock(x, "number"_sym, 0);
    EXPECT_EQ(set(x, "number", {atom(int64_t{5})}), ErrorNone);
    EXPECT_EQ(object_attr_getdirty(x, "number"_sym), 1);
    EXPECT_EQ(object_attr_setinherited(x, "number"_sym, 1), ErrorNone);
    EXPECT_EQ(object_attr_getdirty(x, "number"_sym), 0);
    set(x, "number", {atom(int64_t{6})});
    EXPECT_EQ(object_attr_getdirty(x, "number"_sym), 1);
    EXPECT_EQ(object_attr_lock(x, "none"_sym, 1), ErrorGeneric);
}

// The setter frees the object it sets.
TEST(Attribute, SetterMayFreeItsObject) {
    Item *x = item();
    const auto free_it = +[](void *target, void *, int32_t, Atom *) -> ErrorCode {
        object_free(target);
        return ErrorNone;
    };
    void *attribute =
        attr_offset_new("last", "long"_sym, 0, nullptr, reinterpret_cast<Method>(free_it), 0);
    Class *c = class_new("brief", nullptr, nullptr, sizeof(Item), nullptr, 0);
    class_addattr(c, attribute);
    class_register(nullptr, c);
    void *brief = object_alloc(c);
    Atom args[] = {atom("@last"), atom(int64_t{1}), atom("@last"), atom(int64_t{2})};
    attr_args_process(brief, 4, args);
    EXPECT_FALSE(object_isvalid(brief));
    EXPECT_TRUE(take_posts().empty());
    object_free(x);
    class_free(c);
}
