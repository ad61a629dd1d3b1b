#include <gtest/gtest.h>

#include <thread>

#include "kernel/internal.h"
#include "kernel/recorder.h"
#include "sched/internal.h"
#include "support/console.h"

using namespace kiv;
using namespace kiv::test;

namespace {

// An owner with proxies on inlets 1 and 2, and an outlet connected to each of its three inlets.
struct Scene {
    Recorder *owner = recorder('R', "iflab");
    Proxy *second = proxy_new(owner, 2, &owner->stash);
    Proxy *first = proxy_new(owner, 1, &owner->stash);
    Outlet *to[3];
    Scene() {
        void *const ends[] = {owner, proxy_getinletptr(first), proxy_getinletptr(second)};
        for (int i = 0; i < 3; ++i) {
            to[i] = outlet_new(recorder('x', ""), nullptr);
            outlet_add(to[i], ends[i]);
        }
    }
};

}  // namespace

TEST(Proxy, TellsTheInlet) {
    Scene s;
    EXPECT_TRUE(object_class(s.owner)->flags & ClassUsesProxies);
    std::vector<int32_t> inlets;
    std::vector<int32_t> stashes;
    on_message() = [&](Recorder *x) {
        inlets.push_back(proxy_getinlet(x));
        stashes.push_back(x->stash);
    };
    Atom two[] = {atom(int64_t{1}), atom("x")};
    for (int i : {0, 1, 2, 0}) {
        outlet_bang(s.to[i]);
        outlet_int(s.to[i], 5);
        outlet_float(s.to[i], 0.5);
        outlet_list(s.to[i], nullptr, 2, two);
        outlet_anything(s.to[i], "foo"_sym, 2, two);
        EXPECT_EQ(take_messages(),
                  (Texts{"R bang", "R int 5", "R float 0.500000", "R list 1 x", "R foo 1 x"}));
        EXPECT_EQ(inlets, std::vector<int32_t>(5, i));
        EXPECT_EQ(stashes, inlets);
        inlets.clear();
        stashes.clear();
    }
    on_message() = nullptr;
    EXPECT_EQ(proxy_getinlet(s.owner), 0);
    EXPECT_EQ(s.owner->stash, 0);
}

// A message that comes back through a cord while another inlet's is still being handled.
TEST(Proxy, NestedMessagesSeeTheirOwnInlet) {
    Scene s;
    std::vector<int32_t> inlets;
    on_message() = [&](Recorder *x) {
        inlets.push_back(proxy_getinlet(x));
        if (inlets.size() == 1) {
            outlet_int(s.to[0], 1);
            outlet_int(s.to[1], 1);
            inlets.push_back(proxy_getinlet(x));
        }
    };
    outlet_int(s.to[2], 1);
    on_message() = nullptr;
    EXPECT_EQ(inlets, (std::vector<int32_t>{2, 0, 1, 2}));
    EXPECT_EQ(take_messages(), Texts(3, "R int 1"));
}

TEST(Proxy, AnswersOnEachThreadForItself) {
    Scene s;
    std::vector<int32_t> inlets;
    on_message() = [&](Recorder *x) {
        inlets.push_back(proxy_getinlet(x));
        if (inlets.size() == 1) {
            std::thread([&] {
                EXPECT_EQ(proxy_getinlet(s.owner), 0);
                outlet_int(s.to[2], 1);
            }).join();
            inlets.push_back(proxy_getinlet(x));
        }
    };
    outlet_int(s.to[1], 1);
    on_message() = nullptr;
    EXPECT_EQ(inlets, (std::vector<int32_t>{1, 2, 1}));
    EXPECT_EQ(take_messages(), Texts(2, "R int 1"));
}

TEST(Proxy, ReportsForTheOwner) {
    Recorder *owner = recorder('R', "i");
    Proxy *proxy = proxy_new(owner, 1, nullptr);
    Atom foo = atom("foo");
    typedmess(proxy, "bang"_sym, 0, nullptr);
    typedmess(proxy, "list"_sym, 1, &foo);
    typedmess(proxy, "anythingmap"_sym, 1, &foo);
    EXPECT_EQ(take_texts(), (Texts{"i doesn't understand \"bang\"", "i doesn't understand \"list\"",
                                   "i doesn't understand \"foo\""}));
    Outlet *bang = outlet_new(recorder('x', ""), "bang");
    EXPECT_EQ(outlet_canadd(bang, proxy), 0);
    Outlet *number = outlet_new(recorder('x', ""), "float");
    EXPECT_EQ(outlet_add(number, proxy), 0);
    outlet_float(number, 2.5);
    EXPECT_EQ(take_messages(), Texts{"R int 2"});
}

TEST(Proxy, OwnerAndProxyMayBeFreedInTheirMessage) {
    int64_t before = 0;  // of the last round: the first one makes classes and the send state
    for (const bool owner_too : {false, true}) {
        before = memory_live_blocks();
        for (const bool by_cord : {false, true}) {
            Recorder *owner = recorder('R', "i");
            Proxy *proxy = proxy_new(owner, 1, &owner->stash);
            Recorder *sender = recorder('x', "");
            Outlet *out = outlet_new(sender, "int");
            outlet_add(out, proxy_getinletptr(proxy));
            on_message() = [&](Recorder *x) {
                proxy_delete(proxy);
                if (owner_too) {
                    object_free(x);
                }
            };
            Atom five = atom(int64_t{5});
            if (by_cord) {
                outlet_int(out, 5);
            } else {
                typedmess(proxy, "int"_sym, 1, &five);
            }
            on_message() = nullptr;
            EXPECT_EQ(take_messages(), Texts{"R int 5"});
            EXPECT_EQ(outlet_int(out, 5), reinterpret_cast<void *>(1));
            EXPECT_TRUE(take_messages().empty());
            if (!owner_too) {
                object_free(owner);
            }
            object_free(sender);
        }
    }
    EXPECT_EQ(memory_live_blocks(), before);
}

TEST(Proxy, InletsComeAndGo) {
    Recorder *owner = recorder('R', "i");
    Proxy *a = proxy_append(owner, 1, nullptr);
    Proxy *c = proxy_append(owner, 3, nullptr);
    Proxy *b = proxy_insert(owner, 2, nullptr, a);
    EXPECT_EQ(inlet_nth(owner, 0), proxy_getinletptr(a));
    EXPECT_EQ(inlet_nth(owner, 1), proxy_getinletptr(b));
    EXPECT_EQ(inlet_nth(owner, 2), proxy_getinletptr(c));
    proxy_delete(b);
    EXPECT_EQ(inlet_count(owner), 2);

    Inlet *plain = inlet_append(owner, owner, nullptr, nullptr);
    Proxy *late = proxy_new_forinlet(owner, 7, nullptr, plain);
    int32_t seen = -1;
    on_message() = [&](Recorder *x) { seen = proxy_getinlet(x); };
    Atom five = atom(int64_t{5});
    typedmess(plain, "int"_sym, 1, &five);
    EXPECT_EQ(seen, 7);
    proxy_setinletptr(late, proxy_getinletptr(c));
    typedmess(plain, "int"_sym, 1, &five);
    EXPECT_EQ(seen, 0);
    typedmess(proxy_getinletptr(late), "int"_sym, 1, &five);
    EXPECT_EQ(seen, 7);
    object_free(late);
    typedmess(inlet_nth(owner, 1), "int"_sym, 1, &five);
    EXPECT_EQ(seen, 0);
    on_message() = nullptr;
    EXPECT_EQ(take_messages(), Texts(4, "R int 5"));
    object_free(c);  // its inlet went to the other proxy
    object_free(owner);
}
