// The life of objects: construction, references, the order of freeing, extension records.
#include <kiv/atom.h>
#include <kiv/class.h>
#include <kiv/object.h>
#include <kiv/symbol.h>
#include <kiv/sysmem.h>

#include <array>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kernel/internal.h"
#include "sched/internal.h"
#include "support/console.h"

using namespace kiv;
using namespace kiv::literals;
using kiv::test::take_texts;

namespace {

using Texts = std::vector<std::string>;

template <class Function>
Method method(Function *function) {
    return reinterpret_cast<Method>(function);
}

struct Thing {
    Object ob;
    intptr_t word;
    double number;
    void *record;  // the extension record, in classes that say so
};

Class *thing_class = nullptr;
std::string history;

void *thing_new(int64_t word, double number) {
    auto *const x = static_cast<Thing *>(object_alloc(thing_class));
    x->word = static_cast<intptr_t>(word);
    x->number = number;
    return x;
}
void thing_free(Thing *x) {
    history += "free ";
    object_free(x);  // again: ignored
}
void *thing_notify(Thing *x, Symbol *, Symbol *message, void *sender, void *) {
    history += std::string(message->name) + (sender == x ? "(self) " : " ");
    return nullptr;
}

class ObjectLife : public testing::TestWithParam<int32_t> {
  protected:
    void SetUp() override {
        thing_class = class_new("thing", method(thing_new), method(thing_free), sizeof(Thing),
                                nullptr, TypeLong, TypeDefFloat, 0);
        class_addmethod(thing_class, method(thing_notify), "notify", TypeCant, 0);
        class_obexoffset_set(thing_class, GetParam());
        class_register("nobox"_sym, thing_class);
        history.clear();
        take_texts();
    }
    void TearDown() override { EXPECT_EQ(class_free(thing_class), ErrorNone); }
    static Thing *make() { return static_cast<Thing *>(object_alloc(thing_class)); }
};

INSTANTIATE_TEST_SUITE_P(RecordInFieldOrTable, ObjectLife,
                         testing::Values(0, int32_t{offsetof(Thing, record)}));

TEST_P(ObjectLife, ReferencesKeepAnObject) {
    Thing *const x = make();
    EXPECT_EQ(object_retain(x), ErrorNone);
    EXPECT_EQ(object_free(x), ErrorNone);
    EXPECT_TRUE(object_valid(x));
    EXPECT_EQ(object_release(x), ErrorNone);
    EXPECT_FALSE(object_valid(x));
    EXPECT_EQ(history, "free ");
}

TEST_P(ObjectLife, FreeingNotifiesBeforeTheFreeFunctionRuns) {
    void *const x = object_register("lives"_sym, "x"_sym, make());
    object_attach_byptr(x, x);
    object_free(x);
    EXPECT_EQ(history, "willfree(self) free(self) free ");
    EXPECT_EQ(object_findregistered("lives"_sym, "x"_sym), nullptr);
}

TEST_P(ObjectLife, ValuesAreKeptReplacedAndFreedAsTheirFlagsSay) {
    Thing *const x = make();
    Thing *const borrowed = make();
    Thing *const owned = make();
    void *value = x;
    EXPECT_EQ(object_obex_lookup(x, "key"_sym, &value), ErrorGeneric);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(object_obex_store(x, "key"_sym, borrowed), ErrorNone);
    EXPECT_EQ(object_obex_storeflags(x, "owned"_sym, make(), ContainerOwns), ErrorNone);
    EXPECT_EQ(object_obex_storeflags(x, "owned"_sym, owned, ContainerOwns), ErrorNone);
    EXPECT_EQ(history, "free ");
    object_obex_storeflags(x, "block"_sym, sysmem_newptr(10), ContainerMemory);
    EXPECT_EQ(object_obex_lookup(x, "owned"_sym, &value), ErrorNone);
    EXPECT_EQ(value, owned);
    object_free(x);
    EXPECT_TRUE(object_valid(borrowed));
    EXPECT_FALSE(object_valid(owned));
    object_free(borrowed);
}

TEST_P(ObjectLife, RecordsOfManyObjectsAreFoundAndGoWithThem) {
    const int64_t before = memory_live_blocks();
    std::vector<Thing *> things;
    for (int i = 0; i < 20000; ++i) {
        things.push_back(make());
        object_obex_store(things.back(), "number"_sym, KIV_WORD(i));
    }
    for (int i = 0; i < 20000; i += 3) {
        object_free(things[static_cast<size_t>(i)]);
    }
    for (int i = 0; i < 20000; ++i) {
        if (i % 3 != 0) {
            void *value = nullptr;
            object_obex_lookup(things[static_cast<size_t>(i)], "number"_sym, &value);
            ASSERT_EQ(value, KIV_WORD(i));
            object_free(things[static_cast<size_t>(i)]);
        }
    }
    EXPECT_LE(memory_live_blocks(), before + 64);  // the table's arrays stay
}

TEST_P(ObjectLife, ReferencesAndRecordsMayBeMadeOnAnyThread) {
    thing_class->free_function = nullptr;  // it writes to the history
    Thing *const x = make();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([x] {
            for (int i = 0; i < 2000; ++i) {
                object_retain(x);
                void *const other = object_alloc(thing_class);
                object_obex_store(other, "key"_sym, x);
                object_obex_store(x, "key"_sym, other);
                object_obex_store(x, "key"_sym, nullptr);
                object_release(x);
                object_retain(other);
                object_release(other);
                object_release(other);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(object_valid(x));
    object_free(x);
    EXPECT_FALSE(object_valid(x));
}

TEST(Object, ConstructorsGetTheirArgumentsAsWordsAndAsAtoms) {
    thing_class = class_new("made", method(thing_new), nullptr, sizeof(Thing), nullptr, TypeLong,
                            TypeDefFloat, 0);
    class_register("nobox"_sym, thing_class);
    std::array<Atom, 2> arguments{};
    atom_setfloat(&arguments[0], 4.9);
    atom_setlong(&arguments[1], 3);
    auto *const x =
        static_cast<Thing *>(object_new_typed("nobox"_sym, "made"_sym, 2, arguments.data()));
    ASSERT_NE(x, nullptr);
    EXPECT_EQ(x->word, 4);
    EXPECT_EQ(x->number, 3.0);
    auto *const y = static_cast<Thing *>(object_new("nobox"_sym, "made"_sym, 9));
    EXPECT_EQ(y->word, 9);
    EXPECT_EQ(object_new_typed("nobox"_sym, "made"_sym, 0, nullptr), nullptr);
    EXPECT_EQ(take_texts(), Texts{"missing arguments for message \"made\""});
    EXPECT_EQ(object_new("nobox"_sym, "no_such_class"_sym), nullptr);
    EXPECT_EQ(object_new(nullptr, nullptr), nullptr);
    object_free(x);
    object_free(y);
    class_free(thing_class);
}

TEST(Object, BadPointersAreReportedAndLeftAlone) {
    int64_t garbage[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    int64_t zeros[8] = {};
    EXPECT_EQ(object_free(nullptr), ErrorInvalidPointer);
    EXPECT_EQ(object_free(zeros), ErrorInvalidPointer);
    EXPECT_EQ(take_texts(), Texts{});
    object_free(garbage);
    const Texts posted = take_texts();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_TRUE(posted[0].starts_with("freeobject: ") && posted[0].ends_with(": bad object"));
    EXPECT_EQ(object_retain(garbage), ErrorGeneric);
    EXPECT_EQ(object_classname(garbage), nullptr);
    EXPECT_EQ(object_class(nullptr), nullptr);
    EXPECT_EQ(object_obex_enforce(garbage), nullptr);
    EXPECT_EQ(object_clone(garbage), nullptr);
    EXPECT_EQ(object_isvalid(reinterpret_cast<void *>(uintptr_t{0x1000})), 0);
    EXPECT_EQ(object_isvalid(reinterpret_cast<char *>(garbage) + 1), 0);
}

TEST(Object, LightweightInstancesHaveTwoHeaderFields) {
    struct Light {
        MethodRecord *methods;
        uintptr_t magic;
        intptr_t word;
    };
    Class *const c = class_new("light", nullptr, nullptr, sizeof(Light), nullptr, 0);
    c->lightweight = 1;
    class_obexoffset_set(c, -1);
    auto *const x = static_cast<Light *>(object_alloc(c));
    EXPECT_EQ(x->word, 0);
    x->word = -1;  // where others have their outlets
    EXPECT_EQ(object_retain(x), ErrorGeneric);
    EXPECT_EQ(object_obex_store(x, "key"_sym, x), ErrorGeneric);
    EXPECT_EQ(object_free(x), ErrorNone);
    EXPECT_FALSE(object_valid(x));
    class_free(c);
}

std::string order;

TEST(Object, FreeingCancelsClocksBeforeTheFreeFunctionAndAfterIt) {
    KernelHooks &hooks = kernel_hooks();
    const KernelHooks kept = hooks;
    order.clear();
    hooks.cancel_clocks = [](Object *) { order += "clocks "; };
    Class *const c = class_new("clocked", nullptr, method(+[](void *) { order += "free "; }),
                               sizeof(Object), nullptr, 0);
    auto *const x = static_cast<Object *>(object_alloc(c));
    obex_flags_set(x, ObexHasClocks);
    object_free(x);
    EXPECT_EQ(order, "clocks free clocks ");
    order.clear();
    object_free(object_alloc(c));  // without clocks nobody is asked
    EXPECT_EQ(order, "free ");
    hooks = kept;
    class_free(c);
}

TEST(Object, AThrowingFreeFunctionDoesNotKeepTheObject) {
    Class *const c =
        class_new("thrower", nullptr, method(+[](void *) { throw std::runtime_error("no"); }),
                  sizeof(Object), nullptr, 0);
    void *const x = object_alloc(c);
    object_free(x);
    EXPECT_FALSE(object_valid(x));
    EXPECT_EQ(take_texts(), Texts{"\"free\": exception: no"});
    class_free(c);
}

TEST(EventContext, NestsForEachThread) {
    EventContext outer{&outer, nullptr, nullptr};
    EventContext inner{&inner, "loadbang"_sym, nullptr};
    EventContext *const before = event_context();
    event_context_push(&outer);
    event_context_push(&inner);
    EXPECT_EQ(event_context(), &inner);
    std::thread([] { EXPECT_EQ(event_context(), nullptr); }).join();
    event_context_pop();
    EXPECT_EQ(event_context()->owner, &outer);
    event_context_pop();
    EXPECT_EQ(event_context(), before);
}

}  // namespace
