// Classes: method lists and their index, registration and look-up, inheritance, extra data.
#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/class.h>
#include <kiv/dictionary.h>
#include <kiv/hashtab.h>
#include <kiv/object.h>
#include <kiv/path.h>
#include <kiv/symbol.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kernel/internal.h"
#include "sched/internal.h"
#include "support/console.h"
#include "support/memory.h"

using namespace kiv;
using namespace kiv::literals;
using kiv::test::take_texts;

namespace {

using Texts = std::vector<std::string>;

template <class Function>
Method method(Function *function) {
    return reinterpret_cast<Method>(function);
}

template <int number>
void *answer(void *) {
    return reinterpret_cast<void *>(intptr_t{number});
}

intptr_t ask(void *x, const char *selector) {
    return reinterpret_cast<intptr_t>(object_method(x, gensym(selector)));
}

Class *plain(const char *name) {
    return class_new(name, nullptr, nullptr, sizeof(Object), nullptr, 0);
}

std::string numbered(int n) {
    return "m" + std::to_string(n);
}

// Below 19 methods a class is scanned, from there on it is indexed; methods are added before and
// after it is registered and after instances exist.
TEST(Class, EveryMethodIsFoundAtEverySize) {
    for (const int before : {0, 1, 17, 18, 19, 40}) {
        SCOPED_TRACE(before);
        Class *const c = plain("sized");
        for (int i = 0; i < before; ++i) {
            class_addmethod(c, method(answer<5>), numbered(i).c_str(), TypeCant, 0);
        }
        EXPECT_EQ(c->method_count, before + 3);
        EXPECT_EQ(class_register("sizes"_sym, c), ErrorNone);
        void *const old = object_alloc(c);
        for (int i = before; i < before + 25; ++i) {
            class_addmethod(c, method(answer<5>), numbered(i).c_str(), TypeCant, 0);
        }
        void *const young = object_alloc(c);
        for (int i = 0; i < before + 25; ++i) {
            EXPECT_EQ(ask(old, numbered(i).c_str()), 5);
            EXPECT_EQ(ask(young, numbered(i).c_str()), 5);
        }
        EXPECT_EQ(object_method(old, "classname"_sym), "sized"_sym);
        EXPECT_EQ(ask(old, "absent"), 0);
        object_free(old);
        EXPECT_EQ(class_free(c), ErrorGeneric);  // one instance is left
        object_free(young);
        EXPECT_EQ(class_free(c), ErrorNone);
    }
    EXPECT_EQ(take_texts(), Texts(6, "class_free: class sized is in use"));
}

TEST(Class, AddingAMethodTwiceReplacesIt) {
    Class *const c = plain("replacing");
    class_addmethod(c, method(answer<1>), "number", TypeCant, 0);
    class_addmethod(c, method(answer<2>), "other", TypeCant, 0);
    class_addmethod(c, method(answer<3>), "number", TypeGimme, 0);
    EXPECT_EQ(c->method_count, 5);
    EXPECT_EQ(class_method(c, "number"_sym), method(answer<3>));
    EXPECT_EQ(class_mess(c, "number"_sym)->types[0], TypeGimme);
    EXPECT_TRUE(object_valid(class_getmethod_object(c, "number"_sym)));
    EXPECT_EQ(class_getmethod_object(c, "absent"_sym), nullptr);
    class_free(c);
}

TEST(Class, MethodsOutsideTheListAreFoundBeforeAndAfterRegistration) {
    Class *const c = plain("listless");
    c->flags |= ClassNoMethodList;
    class_addmethod(c, method(answer<6>), "number", TypeCant, 0);
    EXPECT_EQ(c->method_count, 3);
    EXPECT_EQ(class_method(c, "number"_sym), method(answer<6>));
    class_register("listless_space"_sym, c);
    EXPECT_EQ(class_method(c, "number"_sym), method(answer<6>));
    EXPECT_NE(class_method(c, "classname"_sym), nullptr);
    class_free(c);
}

TEST(Class, ConstructorTypesEndAtSixOrAtATypeThatTakesAll) {
    Class *c = class_new("typed", nullptr, nullptr, 32, nullptr, TypeLong, TypeFloat, TypeSymbol,
                         TypeObject, TypeDefLong, TypeDefFloat, TypeDefSymbol, 0);
    EXPECT_EQ(c->constructor.types[5], TypeDefFloat);
    EXPECT_EQ(c->constructor.types[6], TypeNothing);
    class_free(c);
    c = class_new("gimme", nullptr, nullptr, 32, nullptr, TypeGimme);
    EXPECT_EQ(c->constructor.types[0], TypeGimme);
    EXPECT_EQ(c->constructor.types[1], TypeNothing);
    class_free(c);
}

TEST(Class, NamesAreFoundInTheirNamespaceAlone) {
    Class *const first = plain("Mixed Case");
    Class *const second = plain("Mixed Case");
    EXPECT_EQ(class_register(nullptr, first), ErrorNone);
    EXPECT_EQ(class_register("nobox"_sym, second), ErrorDuplicate);
    EXPECT_EQ(class_register("nobox"_sym, first), ErrorDuplicate);
    EXPECT_EQ(class_register("box"_sym, second), ErrorNone);
    EXPECT_EQ(class_register(nullptr, nullptr), ErrorInvalidPointer);
    Symbol *const name = gensym("Mixed Case");
    Symbol *const lower = gensym("mixed cAse");
    EXPECT_EQ(class_findbyname("nobox"_sym, name), first);
    EXPECT_EQ(class_findbyname("box"_sym, name), second);
    EXPECT_EQ(class_findbyname("nobox"_sym, lower), nullptr);
    EXPECT_EQ(class_findbyname_casefree("nobox"_sym, lower), first);
    EXPECT_EQ(class_getifloaded_casefree("box"_sym, lower), second);
    EXPECT_EQ(class_findbyname(nullptr, nullptr), nullptr);
    EXPECT_EQ(class_namespace(second), "box"_sym);
    EXPECT_TRUE(class_is_box(second));
    EXPECT_FALSE(class_is_box(first));
    EXPECT_NE(class_method(second, "sendbox"_sym), nullptr);
    class_free(first);
    class_free(second);
    EXPECT_EQ(class_findbyname("nobox"_sym, name), nullptr);
    EXPECT_EQ(class_findbyname_casefree("box"_sym, lower), nullptr);
}

TEST(Class, RegisteringInASecondNamespaceWarns) {
    Class *const c = plain("twice");
    class_register("space1"_sym, c);
    EXPECT_EQ(class_register("space2"_sym, c), ErrorNone);
    EXPECT_EQ(take_texts(), Texts{"warning duplicate class registration for twice (was space1, "
                                  "registering space2)"});
    EXPECT_EQ(class_findbyname("space1"_sym, "twice"_sym), c);
    EXPECT_EQ(class_findbyname("space2"_sym, "twice"_sym), c);
    class_free(c);
}

TEST(Class, AliasesAndSecondNamesFindTheClass) {
    Class *const c = plain("realname");
    EXPECT_EQ(class_alias(c, "early"_sym), ErrorNone);
    EXPECT_EQ(class_setname("second", "realname"), ErrorNone);
    class_register("nobox"_sym, c);
    EXPECT_EQ(class_alias(c, "late"_sym), ErrorNone);
    EXPECT_EQ(class_alias(c, "late"_sym), ErrorDuplicate);
    for (Symbol *const name : {"realname"_sym, "early"_sym, "late"_sym, "second"_sym}) {
        EXPECT_EQ(class_findbyname("nobox"_sym, name), c) << name->name;
    }
    EXPECT_EQ(class_nameget(c), "realname"_sym);
    char file[KIV_FILENAME_SIZE];
    int16_t path = 0;
    EXPECT_EQ(class_setpath(c, 7, "file.kve64"), ErrorNone);
    EXPECT_EQ(class_getpath(c, &path, file), ErrorNone);
    EXPECT_EQ(path, 7);
    EXPECT_STREQ(file, "file.kve64");
    EXPECT_EQ(class_setname("nobody's", "no such class"), ErrorGeneric);
    class_free(c);
}

int loads = 0;
Class *loaded = nullptr;

TEST(Class, UnknownNamesAreLoadedOnceAskedFor) {
    KernelHooks &hooks = kernel_hooks();
    const KernelHooks kept = hooks;
    loads = 0;
    hooks.maker_knows = [](Symbol *name) { return name == "makers_own"_sym; };
    hooks.load_class_module = [](Symbol *name_space, Symbol *name) {
        ++loads;
        if (name == "module_class"_sym) {
            loaded = plain("module_class");
            class_register(name_space, loaded);
            return true;
        }
        return false;
    };
    EXPECT_EQ(class_findbyname("box"_sym, "makers_own"_sym), nullptr);
    EXPECT_EQ(class_findbyname("box"_sym, "patcher"_sym), nullptr);
    EXPECT_EQ(class_getifloaded("box"_sym, "module_class"_sym), nullptr);
    EXPECT_EQ(loads, 0);
    EXPECT_NE(class_findbyname("box"_sym, "module_class"_sym), nullptr);
    EXPECT_EQ(class_findbyname_casefree("box"_sym, "MODULE_class"_sym), loaded);
    EXPECT_EQ(loads, 1);
    EXPECT_EQ(class_findbyname("nobox"_sym, "no_module"_sym), nullptr);
    EXPECT_EQ(loads, 2);
    hooks = kept;
    class_free(loaded);
}

// --- Inheritance ---------------------------------------------------------------------------------

struct Base {
    Object ob;
    intptr_t first;
};
struct Derived {
    Base base;
    intptr_t second;
};
Class *base_class = nullptr;
Class *derived_class = nullptr;
std::string freed;

void *base_new(intptr_t first) {
    void *const other = object_alloc(derived_class);  // an object of its own, made on the way
    auto *const x = static_cast<Base *>(object_alloc(base_class));
    x->first = first;
    object_free(other);
    return x;
}
void *derived_new(intptr_t first, intptr_t second) {
    auto *const x = static_cast<Derived *>(object_alloc(derived_class));
    EXPECT_EQ(class_super_construct(x, first), ErrorNone);
    x->second = second;
    return x;
}
void *get_first(Base *x) {
    return reinterpret_cast<void *>(x->first);
}
void note_base(void *) {
    freed += "base ";
}
void note_derived(void *) {
    freed += "derived ";
}

class Inheritance : public testing::Test {
  protected:
    void SetUp() override {
        base_class = class_new("base", method(base_new), method(note_base), sizeof(Base), nullptr,
                               TypeLong, 0);
        class_addmethod(base_class, method(get_first), "first", TypeCant, 0);
        class_addmethod(base_class, method(answer<1>), "kind", TypeCant, 0);
        class_register("nobox"_sym, base_class);
        derived_class =
            class_subclass(base_class, "derived", method(derived_new), method(note_derived),
                           sizeof(Derived), nullptr, TypeLong, TypeLong, 0);
        class_addmethod(derived_class, method(answer<2>), "kind", TypeCant, 0);
        class_register("nobox"_sym, derived_class);
    }
    void TearDown() override {
        EXPECT_EQ(class_free(base_class), ErrorGeneric);  // before what was derived from it
        take_texts();
        EXPECT_EQ(class_free(derived_class), ErrorNone);
        EXPECT_EQ(class_free(base_class), ErrorNone);
    }
};

TEST_F(Inheritance, SubclassesConstructAnswerAndFreeThroughTheirSuperClass) {
    void *const x = object_new("nobox"_sym, "derived"_sym, 11, 22);
    ASSERT_NE(x, nullptr);
    EXPECT_EQ(object_classname(x), "derived"_sym);
    EXPECT_EQ(ask(x, "first"), 11);
    EXPECT_EQ(static_cast<Derived *>(x)->second, 22);
    EXPECT_EQ(ask(x, "kind"), 2);
    freed.clear();
    object_free(x);
    EXPECT_EQ(freed, "derived base ");
    void *const plain_one = object_new("nobox"_sym, "base"_sym, 3);
    EXPECT_EQ(ask(plain_one, "kind"), 1);
    object_free(plain_one);
}

TEST_F(Inheritance, OverriddenMethodsAreMarked) {
    EXPECT_EQ(
        object_attr_getlong(class_getmethod_object(derived_class, "kind"_sym), "overridden"_sym),
        1);
    EXPECT_EQ(object_attr_get(class_getmethod_object(derived_class, "first"_sym), "overridden"_sym),
              nullptr);
}

TEST_F(Inheritance, CopiesMakeInstancesOfTheirOwn) {
    ASSERT_EQ(class_copy("nobox"_sym, "base"_sym, "copies"_sym, "copied"_sym), ErrorNone);
    EXPECT_EQ(class_copy("nobox"_sym, "base"_sym, "copies"_sym, "copied"_sym), ErrorDuplicate);
    EXPECT_EQ(class_copy("nobox"_sym, "absent"_sym, "copies"_sym, "other"_sym), ErrorGeneric);
    void *const x = object_new("copies"_sym, "copied"_sym, 5);
    EXPECT_EQ(object_classname(x), "copied"_sym);
    EXPECT_EQ(object_namespace(x), "copies"_sym);
    EXPECT_EQ(ask(x, "first"), 5);
    freed.clear();
    object_free(x);
    EXPECT_EQ(freed, "base ");
    EXPECT_EQ(class_free(class_findbyname("copies"_sym, "copied"_sym)), ErrorNone);
}

// --- Extra data ----------------------------------------------------------------------------------

TEST(Class, ExtraDataIsKeptUnderItsKeyAndFreedAsSaid) {
    Class *const thing = plain("extra_thing");
    Class *const c = plain("extra");
    void *const kept = object_alloc(thing);
    void *const owned = object_alloc(thing);
    void *value = kept;
    EXPECT_EQ(class_extra_lookup(c, "key"_sym, &value), ErrorGeneric);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(class_extra_store(c, "key"_sym, kept), ErrorNone);
    EXPECT_EQ(class_extra_storeflags(c, "owned"_sym, owned, ContainerOwns), ErrorNone);
    EXPECT_EQ(class_extra_lookup(c, "key"_sym, &value), ErrorNone);
    EXPECT_EQ(value, kept);
    EXPECT_EQ(class_extra_store(nullptr, "key"_sym, kept), ErrorInvalidPointer);
    class_free(c);
    EXPECT_FALSE(object_valid(owned));
    EXPECT_TRUE(object_valid(kept));
    object_free(kept);
    class_free(thing);
}

TEST(Class, TransformsCommandsAndAdornmentsCanBeReadBack) {
    Class *const c = plain("adorned");
    class_addtransform(c, method(answer<4>), "scale", TypeFloat, 0);
    class_addcommand(c, method(answer<5>), "open", TypeNothing);
    Hashtab *const adornment = hashtab_new(0);
    hashtab_storeflags(adornment, "icon"_sym, c, ContainerData);
    class_addadornment(c, "look"_sym, adornment);
    void *transforms = nullptr;
    class_extra_lookup(c, "transforms"_sym, &transforms);
    void *transform = nullptr;
    EXPECT_EQ(hashtab_lookup(static_cast<Hashtab *>(transforms), "scale"_sym, &transform),
              ErrorNone);
    EXPECT_EQ(class_method(c, "open"_sym), method(answer<5>));
    EXPECT_EQ(class_adornment_get(c, "look"_sym, nullptr), adornment);
    EXPECT_EQ(class_adornment_get(c, "look"_sym, "icon"_sym), c);
    EXPECT_EQ(class_adornment_get(c, "look"_sym, "absent"_sym), nullptr);
    EXPECT_EQ(class_adornment_get(c, "absent"_sym, nullptr), nullptr);
    EXPECT_FALSE(class_clonable(c));
    class_free(c);
}

TEST(Class, StickyAttributesGoToWhatIsAddedUntilTheyAreCleared) {
    Class *const c = plain("sticky");
    void *const category = attribute_new("category", "symbol"_sym, 0, nullptr, nullptr);
    Atom value{};
    atom_setsym(&value, "Basics"_sym);
    object_method(category, "set"_sym, category, 1, &value);
    class_sticky(c, "sticky_method"_sym, "category"_sym, category);
    class_sticky(c, "sticky_attr"_sym, "category"_sym, object_clone(category));
    class_addmethod(c, method(answer<1>), "one", TypeCant, 0);
    class_addattr(c, attribute_new("size", "long"_sym, 0, nullptr, nullptr));
    EXPECT_EQ(class_sticky_clear(c, "sticky_method"_sym, "category"_sym), ErrorNone);
    EXPECT_EQ(class_sticky_clear(c, "sticky_attr"_sym, nullptr), ErrorNone);
    class_addmethod(c, method(answer<2>), "two", TypeCant, 0);
    void *const one = class_getmethod_object(c, "one"_sym);
    EXPECT_EQ(object_attr_getsym(one, "category"_sym), "Basics"_sym);
    EXPECT_EQ(object_attr_get(class_getmethod_object(c, "two"_sym), "category"_sym), nullptr);
    void *size = nullptr;
    hashtab_lookup(c->attributes, "size"_sym, &size);
    EXPECT_EQ(object_attr_getsym(size, "category"_sym), "Basics"_sym);
    class_free(c);
}

TEST(Class, PrototypesHoldTheDefaultsOfAttributes) {
    Class *const c = plain("prototype");
    class_addattr(c, attribute_new("size", "long"_sym, 0, nullptr, nullptr));
    class_addattr(c, attribute_new("plain", "long"_sym, 0, nullptr, nullptr));
    class_addattr_parse(c, "size", "default"_sym, "long", "12");
    auto *const copy = static_cast<Dictionary *>(class_cloneprototype(c));
    ASSERT_NE(copy, nullptr);
    int64_t size = 0;
    EXPECT_EQ(dictionary_getlong(copy, "size"_sym, &size), ErrorNone);
    EXPECT_EQ(size, 12);
    EXPECT_EQ(dictionary_getentrycount(copy), 1);
    object_free(copy);
    class_free(c);
}

// A class and an object from beginning to end; only the end never allocates.
void build_and_free() {
    Class *const c = plain("starved");
    if (!c) {
        return;
    }
    for (int i = 0; i < 6; ++i) {
        class_addmethod(c, method(answer<1>), numbered(i).c_str(), TypeCant, 0);
    }
    class_addtypedwrapper(c, method(answer<2>), numbered(0).c_str(), TypeGimme, 0);
    class_alias(c, "starved_alias"_sym);
    class_register("starved_space"_sym, c);
    class_buildprototype(c);
    void *const x = object_alloc(c);
    object_obex_store(x, "key"_sym, c);
    if (object_retain(x) == ErrorNone) {
        object_free(x);
    }
    object_free(x);
    memory_fail_at(0);
    EXPECT_EQ(class_free(c), ErrorNone);
}

TEST(Class, WhicheverAllocationFailsNothingIsLeftBehind) {
    build_and_free();  // interns the names
    test::warm_extension_records();
    for (int n = 1; n < 150; ++n) {
        SCOPED_TRACE(n);
        const int64_t before = memory_live_blocks();
        memory_fail_at(n);
        build_and_free();
        memory_fail_at(0);
        take_texts();
        EXPECT_EQ(memory_live_blocks(), before);
    }
}

}  // namespace
