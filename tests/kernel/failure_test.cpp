// Memory that runs out at any point: whichever allocation of a piece of work fails, the kernel's
// structures stay whole, the next attempt succeeds, and no block is left behind.
#include <kiv/attr.h>
#include <kiv/linklist.h>

#include "kernel/internal.h"
#include "recorder.h"
#include "sched/internal.h"
#include "support/console.h"
#include "support/memory.h"

#include <gtest/gtest.h>

namespace kiv::test {
namespace {

// Does the work once with all its allocations, then with the first failing, the second, and so on
// until there is none left to fail.
template <class Work>
void with_each_failure(Work work) {
    work();  // what is made once and kept is made here
    take_texts();
    for (int64_t n = 1;; ++n) {
        SCOPED_TRACE(n);
        const int64_t before = memory_live_blocks();
        memory_fail_at(n);
        work();
        void *const after = sysmem_newptr(1);  // fails when the work made less than n of them
        memory_fail_at(0);
        sysmem_freeptr(after);
        take_texts();
        ASSERT_EQ(memory_live_blocks(), before);
        if (!after) {
            ASSERT_GT(n, 1);
            return;
        }
        ASSERT_LT(n, 2000);
    }
}

struct Part {
    Object ob;
    int32_t stash;
    Outlet *left;
    Outlet *right;
    Inlet *second;
    Proxy *proxy;
    int32_t gain;
    int32_t count;
    double list[32];
};
Class *part_class;

void part_free(Part *x) {
    object_free(x->proxy);
}

void *part_new(Symbol *, int32_t argc, Atom *argv) {
    auto *const x = static_cast<Part *>(object_alloc(part_class));
    if (x) {
        x->proxy = proxy_new(x, 2, &x->stash);
        x->second = intin(x, 1);
        x->right = outlet_new(x, nullptr);
        x->left = intout(x);
        attr_args_process(x, argc, argv);
    }
    return x;
}

ErrorCode keep_below_100(void *, void *, int32_t argc, Atom *argv) {
    return argc > 0 && atom_getlong(argv) < 100 ? ErrorNone : ErrorGeneric;
}

// A class with every kind of thing a module's set-up adds. Null when it could not be registered.
Class *part_class_make() {
    Class *const c = class_new("failing_part", method(part_new), method(part_free), sizeof(Part),
                               nullptr, TypeGimme, 0);
    if (!c) {
        return nullptr;
    }
    void *const category = attribute_new("category", "symbol"_sym, 0, nullptr, nullptr);
    if (class_sticky(c, "sticky_attr"_sym, "category"_sym, category) != ErrorNone) {
        object_free(category);
    }
    const auto ignore = method(+[](void *) {});
    for (const char *name : {"bang", "int", "in1", "one", "two", "three", "four", "five", "six"}) {
        class_addmethod(c, ignore, name, TypeDefLong, 0);
    }
    void *const attributes[] = {
        attr_offset_new("gain", "long"_sym, 0, nullptr, nullptr, offsetof(Part, gain)),
        attr_offset_array_new("list", "float64"_sym, 32, 0, nullptr, nullptr, offsetof(Part, count),
                              offsetof(Part, list)),
        attribute_new("shared", "atom"_sym, 0, nullptr, nullptr)};
    attr_addfilter_clip(attributes[0], 0, 1000, 1, 1);
    attr_addfilterset_proc(attributes[0], method(keep_below_100));
    for (void *const attribute : attributes) {
        if (class_addattr(c, attribute) != ErrorNone) {
            object_free(attribute);
        }
    }
    class_addattr_format(c, "gain", "default"_sym, "long", "l", 7);
    class_addattr_parse(c, "gain", "label"_sym, "symbol", "\"The Gain\"");
    class_time_addattr(c, "delay", "Delay", 0);
    if (class_register("failing"_sym, c) != ErrorNone) {
        class_free(c);
        return nullptr;
    }
    return c;
}

class Failure : public testing::Test {
  protected:
    static Part *part() {
        return static_cast<Part *>(object_new_typed("failing"_sym, "failing_part"_sym, 0, nullptr));
    }
    static void SetUpTestSuite() { warm_extension_records(); }
    void SetUp() override { part_class = part_class_make(); }
    void TearDown() override { EXPECT_EQ(class_free(part_class), ErrorNone); }
};

TEST_F(Failure, SettingUpAClassLeavesNothing) {
    class_free(part_class);
    with_each_failure([] {
        if (Class *const c = part_class_make()) {
            EXPECT_EQ(class_free(c), ErrorNone);
        }
    });
    part_class = part_class_make();
    ASSERT_NE(part_class, nullptr);
}

TEST_F(Failure, MakingAnObjectLeavesNothing) {
    object_free(part());
    with_each_failure([] {
        Atom arguments[] = {atom("@gain"), atom(int64_t{5}), atom("@delay"), atom("4n"),
                            atom("@list"), atom(1.0),        atom(2.0)};
        auto *const x = static_cast<Part *>(
            object_new_typed("failing"_sym, "failing_part"_sym, std::size(arguments), arguments));
        if (x) {
            EXPECT_TRUE(object_isvalid(x));
            EXPECT_EQ(inlet_count(x), (x->second != nullptr) + (x->proxy != nullptr));
            EXPECT_EQ(outlet_count(x), (x->left != nullptr) + (x->right != nullptr));
        }
        object_free(x);
    });
}

TEST_F(Failure, SettingAttributesLeavesTheOldValueOrTheNew) {
    object_free(part());
    Atom many[32];
    for (Atom &value : many) {
        atom_setfloat(&value, 1.0);
    }
    with_each_failure([&many] {
        Part *const x = part();
        if (!x) {
            return;
        }
        x->gain = 1;
        const ErrorCode set = object_attr_setlong(x, "gain"_sym, 50);
        EXPECT_EQ(x->gain, set == ErrorNone ? 50 : 1);
        x->count = 0;
        const ErrorCode whole = object_attr_setvalueof(x, "list"_sym, 32, many);
        EXPECT_EQ(x->count, whole == ErrorNone ? 32 : 0);
        object_attr_setvalueof(x, "shared"_sym, 32, many);
        object_attr_setlong(x, "shared"_sym, 1);
        object_attr_setvalueof(x, "delay"_sym, 2, many);
        void *const own = attribute_new("own", "symbol"_sym, 0, nullptr, nullptr);
        if (object_addattr(x, own) != ErrorNone) {
            object_free(own);
        }
        object_attr_setsym(x, "own"_sym, "value"_sym);
        void *const before = object_attr_get(x, "own"_sym);
        void *const again = attribute_new("own", "symbol"_sym, 0, nullptr, nullptr);
        const ErrorCode replaced = object_addattr(x, again);
        EXPECT_EQ(object_attr_get(x, "own"_sym), replaced == ErrorNone ? again : before);
        if (replaced != ErrorNone) {
            object_free(again);
        }
        object_attr_lock(x, "gain"_sym, 1);
        object_attr_lock(x, "gain"_sym, 0);
        int32_t count = 0;
        Atom *atoms = nullptr;
        object_attr_getvalueof(x, "list"_sym, &count, &atoms);
        sysmem_freeptr(atoms);
        object_free(x);
    });
}

TEST_F(Failure, ConnectingAndSendingLeaveNothing) {
    Part *const sender = part();
    Part *const receiver = part();
    inlet_set_recording(receiver->second);
    Recorder *const key = recorder('k', "a");
    with_each_failure([=] {
        void *const ends[] = {receiver, receiver->second, proxy_getinletptr(receiver->proxy)};
        for (void *const end : ends) {
            for (Outlet *const out : {sender->left, sender->right}) {
                if (outlet_add(out, end) != 0) {
                    EXPECT_EQ(outlet_canadd(out, end), 1);
                }
                EXPECT_STREQ(outlet_check(out), nullptr);
                outlet_addmonitor(out, end, key, 1);
                outlet_int(out, 1);
                outlet_removemonitor(out, end, key, 1);
                if (!outlet_canadd(out, end)) {
                    outlet_rm(out, end);
                }
                EXPECT_STREQ(outlet_check(out), nullptr);
                EXPECT_EQ(outlet_canadd(out, end), 1);
            }
        }
    });
    object_free(sender);
    object_free(receiver);
}

TEST_F(Failure, RegisteringAndNotifyingLeaveNothing) {
    object_free(part());
    with_each_failure([] {
        Part *const observed = part();
        Part *clients[20] = {};
        if (object_register("failing"_sym, "observed"_sym, observed) == observed) {
            EXPECT_EQ(object_findregistered("failing"_sym, "observed"_sym), observed);
        }
        for (Part *&client : clients) {
            client = part();
            object_attach("failing"_sym, "observed"_sym, client);
            object_subscribe("failing"_sym, "later"_sym, nullptr, client);
        }
        object_notify(observed, "changed"_sym, nullptr);
        Part *const later = part();
        object_register("failing"_sym, "later"_sym, later);
        for (Part *const client : clients) {
            object_free(client);
        }
        object_free(observed);
        object_free(later);
        EXPECT_EQ(object_findregistered("failing"_sym, "observed"_sym), nullptr);
        EXPECT_EQ(object_findregistered("failing"_sym, "later"_sym), nullptr);
    });
}

}  // namespace
}  // namespace kiv::test
