#include <gtest/gtest.h>

#include <cmath>

#include "kernel/internal.h"
#include "kernel/recorder.h"
#include "support/console.h"

using namespace kiv;
using namespace kiv::test;

TEST(Inlet, ConvertsNumbersAndReportsTheRest) {
    const struct {
        const char *incoming;
        const char *outgoing;
        const char *message;
        Atom value;
        Texts arrived;
        Texts posted;
    } cases[] = {
        {"int", "in1", "int", atom(int64_t{5}), {"R in1 5"}, {}},
        {"int", "in1", "float", atom(3.7), {"R in1 3"}, {}},
        {"int", "in1", "float", atom(-3.7), {"R in1 -3"}, {}},
        {"int", "in1", "float", atom(1e300), {"R in1 9223372036854775807"}, {}},
        {"int", "in1", "float", atom(std::nan("")), {"R in1 0"}, {}},
        {"float", "ft1", "int", atom(int64_t{5}), {"R ft1 5.000000"}, {}},
        {"float", "ft1", "float", atom(2.5), {"R ft1 2.500000"}, {}},
        {"int", "in2", "int", atom(int64_t{5}), {"R in2 5.000000"}, {}},  // declared with a float
        {nullptr, nullptr, "int", atom(int64_t{5}), {"R int 5"}, {}},
        {nullptr, nullptr, "foo", atom(int64_t{5}), {"R foo 5"}, {}},
        {"foo", "in1", "foo", atom(int64_t{5}), {"R in1 5"}, {}},
        {"list", "list", "list", atom(int64_t{5}), {"R list 5"}, {}},
        {"foo", nullptr, "foo", atom(int64_t{5}), {}, {}},
        {"bang", "bang", "int", atom(int64_t{5}), {}, {"inlet: int: wrong message or type bang"}},
        {"bang", "bang", "float", atom(5.0), {}, {"inlet: float: wrong message or type bang"}},
        {"int", "in1", "bang", atom(int64_t{0}), {}, {"inlet: bang: wrong message int"}},
        {"int", "in1", "list", atom(int64_t{0}), {}, {"inlet: list: wrong message or type"}},
        {"int", "in1", "foo", atom(int64_t{0}), {}, {"inlet: wrong message or type"}},
        {"int", "in9", "int", atom(int64_t{0}), {}, {"doesn't understand \"in9\""}},
    };
    Recorder *r = recorder('R', "iflab123");
    Recorder *bare = recorder('R', "123");
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.incoming ? c.incoming : "any") + " <- " + c.message);
        const bool missing = c.outgoing == std::string("in9").c_str() ||
                             (c.outgoing && std::string(c.outgoing) == "in9");
        Recorder *owner = missing ? bare : r;
        Inlet *inlet = inlet4(owner, owner, c.incoming, c.outgoing);
        Outlet *out = outlet_new(recorder('x', ""), nullptr);
        ASSERT_EQ(outlet_add(out, inlet), 0);
        Atom value = c.value;
        const std::string message = c.message;
        if (message == "bang") {
            outlet_bang(out);
        } else if (message == "list") {
            outlet_list(out, nullptr, 1, &value);
        } else if (message == "foo") {
            outlet_anything(out, "foo"_sym, 1, &value);
        } else {
            outlet_atoms(out, 1, &value);
        }
        EXPECT_EQ(take_messages(), c.arrived);
        const auto posts = take_posts();
        ASSERT_EQ(posts.size(), c.posted.size());
        if (!posts.empty()) {
            EXPECT_EQ(posts[0].text, c.posted[0]);
            EXPECT_EQ(posts[0].source, owner);
        }
    }
}

TEST(Inlet, NumbersRunFromOneToNine) {
    Recorder *r = recorder('R', "12");
    for (const int32_t n : {0, 10, -1}) {
        EXPECT_EQ(intin(r, n), nullptr);
        EXPECT_EQ(floatin(r, n), nullptr);
        EXPECT_EQ(
            take_texts(),
            (Texts{"- external object error:", "inlet " + std::to_string(n) + " out of range",
                   "- external object error:", "inlet " + std::to_string(n) + " out of range"}));
    }
    EXPECT_NE(intin(r, 9), nullptr);
    EXPECT_EQ(inlet_count(r), 1);
}

TEST(Inlet, KeepsItsListInOrder) {
    Recorder *r = recorder('R', "i");
    Inlet *b = inlet_new(r, "int");
    Inlet *a = inlet_new(r, nullptr);
    Inlet *d = inlet_append(r, r, nullptr, nullptr);
    Inlet *c = inlet_insert_after(r, r, "int"_sym, "int"_sym, b);
    Inlet *const order[] = {a, b, c, d};
    for (int32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(inlet_nth(r, i), order[i]);
    }
    EXPECT_EQ(inlet_nth(r, 4), nullptr);
    inlet_delete(b);
    EXPECT_EQ(inlet_count(r), 3);
    EXPECT_EQ(inlet_nth(r, 1), c);
    EXPECT_EQ(inlet_new(nullptr, nullptr), nullptr);
    EXPECT_EQ(inlet4(r, nullptr, nullptr, nullptr), nullptr);
    Recorder *other = recorder('O', "i");
    inlet_to(c, other);
    typedmess(c, "int"_sym, 0, nullptr);
    EXPECT_EQ(take_texts(), Texts{"missing arguments for message \"int\""});
    Atom five = atom(int64_t{5});
    typedmess(c, "int"_sym, 1, &five);
    EXPECT_EQ(take_messages(), Texts{"O int 5"});
    EXPECT_EQ(inlet_owner(c), &r->ob);
}
