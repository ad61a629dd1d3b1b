// What each built-in object sends for what it gets. A case is one line: the object's text, messages
// as "INLET MESSAGE" (inlets counted from 0), and everything that leaves it as "OUTLET MESSAGE", in
// order. "after MS" lets logical time pass.
#include <gtest/gtest.h>
#include <kiv/kiv.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "sched/internal.h"
#include "support/console.h"
#include "support/time.h"

namespace kiv {
namespace {

std::vector<std::string> sent;

struct Recorder {
    Object ob;
    int32_t outlet;
};

std::string text_of(int32_t argc, const Atom *argv) {
    char *text = nullptr;
    int64_t size = 0;
    atom_gettext(argc, argv, &size, &text, 0);
    std::string copy = text;
    sysmem_freeptr(text);
    return copy;
}

void record(Recorder *x, Symbol *selector, int32_t argc, Atom *argv) {
    const bool bare = selector == "list"_sym;
    sent.push_back(std::to_string(x->outlet) + " " + (bare ? "" : selector->name) +
                   (bare || argc == 0 ? "" : " ") + text_of(argc, argv));
}
void record_bang(Recorder *x) {
    record(x, "bang"_sym, 0, nullptr);
}
void record_int(Recorder *x, int64_t value) {
    Atom atom;
    atom_setlong(&atom, value);
    record(x, "list"_sym, 1, &atom);
}
void record_float(Recorder *x, double value) {
    Atom atom;
    atom_setfloat(&atom, value);
    record(x, "list"_sym, 1, &atom);
}

Class *recorder_class() {
    static Class *const c = [] {
        Class *made = class_new("recorder", nullptr, nullptr, sizeof(Recorder), nullptr, 0);
        class_addmethod(made, method(record_bang), "bang", 0);
        class_addmethod(made, method(record_int), "int", TypeLong, 0);
        class_addmethod(made, method(record_float), "float", TypeFloat, 0);
        class_addmethod(made, method(record), "list", TypeGimme, 0);
        class_addmethod(made, method(record), "anything", TypeGimme, 0);
        return made;
    }();
    return c;
}

std::vector<std::string> split(const std::string &text) {
    std::vector<std::string> parts;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find(" | ", start), text.size());
        parts.push_back(text.substr(start, end - start));
        start = end + 3;
    }
    return parts;
}

void settle() {
    scheduler_poll();
    while (!main_queues_empty()) {
        main_queues_pass();
    }
}

// An object in a box of an empty patcher, with a recorder at each outlet.
struct Bench {
    explicit Bench(const char *text) {
        patcher = static_cast<Object *>(object_new("nobox"_sym, "jpatcher"_sym));
        object = jbox_get_object(newobject_fromboxtext(patcher, text));
        for (int32_t i = 0; i < outlet_count(object); ++i) {
            auto *recorder = static_cast<Recorder *>(object_alloc(recorder_class()));
            recorder->outlet = i;
            outlet_add(outlet_nth(object, i), recorder);
            recorders.push_back(recorder);
        }
        sent.clear();
        test::take_posts();
    }
    ~Bench() {
        object_free(patcher);
        for (void *recorder : recorders) {
            object_free(recorder);
        }
        settle();  // drops the calls that wait for what is gone
    }
    Bench(const Bench &) = delete;
    Bench &operator=(const Bench &) = delete;

    void message(const std::string &line) {
        const size_t space = line.find(' ');
        if (line.substr(0, space) == "after") {
            wait(std::atof(line.c_str() + space));
            return;
        }
        const int inlet = std::atoi(line.c_str());
        void *const receiver =
            inlet == 0 ? static_cast<void *>(object) : inlet_nth(object, inlet - 1);
        ASSERT_NE(receiver, nullptr) << line;
        Binbuf *const buf = binbuf_new();
        std::string copy = line.substr(space + 1);
        char *start = copy.data();
        binbuf_text(buf, &start, static_cast<int64_t>(copy.size()));
        binbuf_eval(buf, 0, nullptr, receiver);
        object_free(buf);
    }
    static void wait(double ms) {
        const double end = time_now() + ms;
        double next = 0.0;
        while (settle(), next_clock_time(&next) && next <= end) {
            time_advance_to(next);
        }
        time_advance_to(end);
        settle();
    }

    test::OfflineTime offline;
    Object *patcher;
    Object *object;
    std::vector<void *> recorders;
};

struct Case {
    const char *object;
    const char *messages;
    const char *expected;
};

void PrintTo(const Case &c, std::ostream *out) {
    *out << c.object;
}

class ObjectTest : public testing::TestWithParam<Case> {};

TEST_P(ObjectTest, Sends) {
    Bench bench(GetParam().object);
    for (const std::string &line : split(GetParam().messages)) {
        bench.message(line);
    }
    EXPECT_EQ(sent, split(GetParam().expected));
    EXPECT_EQ(test::take_texts(), std::vector<std::string>());
}

constexpr Case cases[] = {
    // Stores and operators: the kind of the first number decides.
    {"int 4", "0 bang | 1 9 | 0 bang | 0 2.9 | 0 -2.9", "0 4 | 0 9 | 0 2 | 0 -2"},
    {"f 1.5", "0 bang | 0 3 | 1 0.25 | 0 bang", "0 1.5 | 0 3. | 0 0.25"},
    {"+ 1", "0 2 | 0 2.9 | 1 10 | 0 bang | 0 3 4", "0 3 | 0 3 | 0 12 | 0 7"},
    {"+ 0.5", "0 2 | 0 2.25", "0 2.5 | 0 2.75"},
    {"+ 1", "0 9223372036854775807", "0 -9223372036854775808"},
    {"/ 2", "0 7 | 0 -7 | 1 0 | 0 7", "0 3 | 0 -3 | 0 0"},
    {"/ -1", "0 -9223372036854775808", "0 -9223372036854775808"},
    {"% 3", "0 7 | 0 -7 | 1 0 | 0 7", "0 1 | 0 -1 | 0 0"},
    {"% 0.", "0 5", "0 nan"},
    {"<< 1", "0 3 | 1 64 | 0 1 | 1 -1 | 0 8", "0 6 | 0 0 | 0 4"},
    {">= 2.5", "0 2 | 0 2.5", "0 0 | 0 1"},
    {"&& 1", "0 0 | 0 5", "0 0 | 0 1"},
    // Order: outlets from the right.
    {"t b i f s l 7 hey", "0 2.5", "6 hey | 5 7 | 4 2.5 | 3 2.5 | 2 2.5 | 1 2 | 0 bang"},
    {"trigger l i", "0 1 2 3 | 0 foo 4", "1 1 | 0 1 2 3 | 1 0 | 0 foo 4"},
    {"bangbang 3", "0 foo", "2 bang | 1 bang | 0 bang"},
    {"swap 5", "0 1 | 1 8 | 0 bang", "1 1 | 0 5 | 1 1 | 0 8"},
    // Lists.
    {"pack 1 2.5 x", "0 bang | 1 7 | 2 y | 0 9.9 | 0 3 4 z", "0 1 2.5 x | 0 9 7. y | 0 3 4. z"},
    {"unpack 0 0. x", "0 1.9 2 hey | 0 5 | 0 foo 3", "2 hey | 1 2. | 0 1 | 0 5 | 1 3. | 0 0"},
    {"unpack 4 x", "0 bang | 0 5 | 0 bang", "1 x | 0 4 | 0 5 | 1 x | 0 5"},
    {"append 3 x", "0 1 2 | 0 foo", "0 1 2 3 x | 0 foo 3 x"},
    {"prepend a", "0 1 2 | 0 bang | 0 foo 3 | 0 set b | 0 7",
     "0 a 1 2 | 0 a bang | 0 a foo 3 | 0 b 7"},
    // Routing: numbers match by type and value.
    {"route 1 foo 2.", "0 1 2 3 | 0 foo | 0 foo 1 x | 0 2 9 | 0 2. 9 | 0 1 | 0 bang",
     "0 2 3 | 1 bang | 1 1 x | 3 2 9 | 2 9 | 0 bang | 3 bang"},
    {"route list 5 int", "0 5 6 | 0 1 2 | 0 7 | 0 2.5", "1 6 | 0 1 2 | 2 7 | 3 2.5"},
    {"sel 1 foo", "0 1 | 0 foo 3 | 0 2 | 0 bar 1", "0 bang | 1 bang | 2 2 | 2 bar 1"},
    {"select 3", "0 3 | 1 4 | 0 3 | 0 4", "0 bang | 1 3 | 0 bang"},
    {"gate 2 1", "1 5 | 0 2 | 1 foo 6 | 0 0 | 1 7 | 0 99 | 1 8", "0 5 | 1 foo 6 | 1 8"},
    {"switch 2", "1 5 | 0 2 | 1 5 | 2 a b | 0 1 | 1 bang", "0 a b | 0 bang"},
    // What came before.
    {"change", "0 0 | 0 3 | 0 3 | 0 0", "1 1 | 0 3 | 2 1 | 0 0"},
    {"change 1.5", "0 1.5 | 0 2", "0 2."},
    {"counter", "0 bang | 0 bang | 1 9 | 0 bang | 0 reset | 0 bang", "0 0 | 0 1 | 0 9 | 0 0"},
    {"counter 1", "0 bang | 0 bang | 0 bang | 0 bang", "0 0 | 0 1 | 1 1 | 0 0 | 0 1"},
    {"counter 1 5 6", "0 bang | 0 bang | 0 bang", "0 6 | 0 5 | 1 1 | 0 6"},
    {"counter 2 0 2", "0 bang | 0 bang | 0 bang | 0 bang | 0 bang | 0 bang",
     "0 0 | 0 1 | 0 2 | 1 1 | 0 1 | 0 0 | 1 2 | 0 1"},
    {"counter 1 3", "0 bang | 0 bang | 2 2 | 0 bang", "0 1 | 0 2 | 1 1 | 0 1"},
    {"counter 9223372036854775806 9223372036854775807", "0 bang | 0 bang | 0 bang",
     "0 9223372036854775806 | 0 9223372036854775807 | 1 1 | 0 9223372036854775806"},
    {"random 1000 7", "0 bang | 0 bang | 0 seed 7 | 0 bang", "0 487 | 0 804 | 0 487"},
    // Collections.
    {"bag", "0 5 | 0 2.5 | 0 5 | 0 bang | 0 5 0 | 0 length | 1 1 | 0 7 | 0 cut | 0 clear | 0 bang",
     "0 5 | 0 2.5 | 0 1 | 0 2.5"},
    {"bag twice", "0 5 | 0 5 | 0 5 0 | 0 bang | 0 cut | 0 cut", "0 5 | 0 5"},
    {"accum 2",
     "0 bang | 1 3 | 2 2.5 | 0 bang | 2 9223372036854775807 | 0 bang | 0 6.5 | 0 set 1 | 0 bang",
     "0 2 | 0 12 | 0 -12 | 0 6 | 0 1"},
    {"accum 0.5", "1 1 | 2 3 | 0 bang | 0 2", "0 4.5 | 0 2."},
    {"iaccum 1.5", "1 1.75 | 0 bang", "0 2"},
    // Time.
    {"metro 10", "0 1 | after 25 | 1 5 | after 10 | 0 0 | after 50",
     "0 bang | 0 bang | 0 bang | 0 bang | 0 bang"},
    {"delay 10",
     "0 bang | after 5 | 0 bang | after 9 | after 1 | 0 20 | after 19 | 0 stop | after 9",
     "0 bang"},
    {"pipe 10",
     "0 1 | after 5 | 0 a b | after 5 | after 4 | 0 3 | 0 flush | 0 4 | 0 clear | after 99",
     "0 1 | 0 a b | 0 3"},
    {"pipe 0 x 10", "1 y | 0 5 | after 10", "1 y | 0 5"},
    {"timer", "0 bang | after 12 | 1 bang", "0 12."},
    {"defer", "0 1 2 | after 0 | 0 foo", "0 1 2"},
    {"schedule", "0 1 2 | 0 foo | after 0 | 0 5", "0 1 2 | 0 foo"},
    // Names.
    {"receive here", "0 set there", ""},
    {"v shared 5 6", "0 bang | 0 foo 1 | 0 bang", "0 5 6 | 0 foo 1"},
    // Boxes.
    {"button", "0 foo 1 | 0 5", "0 bang | 0 bang"},
    {"toggle", "0 bang | 0 bang | 0 7 | 0 bang | 0 set 3 | 0 bang", "0 1 | 0 0 | 0 7 | 0 0 | 0 0"},
    {"number @minimum 2 @maximum 5", "0 1 | 0 9.5 | 0 set 3 | 0 bang", "0 2 | 0 5 | 0 3"},
    {"flonum", "0 1 | 0 set 0.5 | 0 bang", "0 1. | 0 0.5"},
};

INSTANTIATE_TEST_SUITE_P(All, ObjectTest, testing::ValuesIn(cases), [](const auto &test) {
    std::string name = std::to_string(test.index) + "_";
    for (const char *c = test.param.object; *c && *c != ' '; ++c) {
        name += std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
    }
    return name;
});

// Wrong arguments and messages: an error from the object, and nothing is sent.
TEST(ObjectErrors, ArePostedOnceFromTheObject) {
    const Case wrong[] = {
        {"int foo", "", "argument 1: a number is wanted"},
        {"metro", "0 foo", "doesn't understand \"foo\""},
        {"gate", "0 foo", "doesn't understand \"foo\""},
        {"+ 1", "0 x y", "doesn't understand \"x\""},
        {"pack 0 0", "1 foo", "inlet 2 holds a number"},
        {"pack 0 0", "0 1 foo", "inlet 2 holds a number"},
        {"b 300", "", "300 inlets or outlets are too many: 256 are made"},
        {"accum", "1 bang", "doesn't understand \"bang\""},
        {"bag", "0 foo", "doesn't understand \"foo\""},
        {"bag", "0 1 x", "bad arguments for message \"list\""},
        {"counter 7 0 1", "", "7 is no direction: 0 up, 1 down, 2 up and down"},
    };
    for (const Case &c : wrong) {
        test::take_posts();
        const auto patcher = static_cast<Object *>(object_new("nobox"_sym, "jpatcher"_sym));
        newobject_fromboxtext(patcher, c.object);
        std::vector<std::string> texts = test::take_texts();
        object_free(patcher);
        if (*c.messages) {
            Bench bench(c.object);
            bench.message(c.messages);
            EXPECT_TRUE(sent.empty()) << c.object;
            texts = test::take_texts();
        }
        EXPECT_EQ(texts, std::vector<std::string>{c.expected}) << c.object;
    }
}

TEST(MessageBox, EvaluatesItsTextAndChangesIt) {
    const test::OfflineTime offline;
    auto *const patcher = static_cast<Object *>(object_new("nobox"_sym, "jpatcher"_sym));
    Object *const box =
        newobject_sprintf(patcher, "@kivclass message @text \"a $1, b $2 $1\\; elsewhere $1\"");
    auto *recorder = static_cast<Recorder *>(object_alloc(recorder_class()));
    auto *elsewhere = static_cast<Recorder *>(object_alloc(recorder_class()));
    elsewhere->outlet = 9;
    receiver_bind("elsewhere"_sym, elsewhere);
    outlet_add(outlet_nth(box, 0), recorder);
    const auto say = [box](const char *text) {
        Atom *argv = nullptr;
        int32_t argc = 0;
        atom_setparse(&argc, &argv, text);
        typedmess(box, atom_getsym(argv), argc - 1, argv + 1);
        sysmem_freeptr(argv);
        return std::exchange(sent, {});
    };
    sent.clear();
    EXPECT_EQ(say("list 5 6"), (std::vector<std::string>{"0 a 5", "0 b 6 5", "9 5"}));
    EXPECT_EQ(say("x"), (std::vector<std::string>{"0 a x", "0 b 0 x", "9 x"}));
    EXPECT_EQ(say("set now $1"), std::vector<std::string>());
    say("append after");
    say("prepend before");
    EXPECT_EQ(say("int 3"), (std::vector<std::string>{"0 before now 3 after"}));
    receiver_unbind("elsewhere"_sym, elsewhere);
    object_free(patcher);
    object_free(recorder);
    object_free(elsewhere);
}

// Makes an object and sends it a few messages while the n-th allocation fails; 0: none does. The
// class that was made.
Symbol *run_short_of_memory(const char *text, int64_t n) {
    void *const patcher = object_new("nobox"_sym, "jpatcher"_sym);
    memory_fail_at(n);
    void *const object = jbox_get_object(newobject_fromboxtext(patcher, text));
    Atom list[3];
    atom_setlong(&list[0], 1);
    atom_setlong(&list[1], 2);
    atom_setsym(&list[2], "foo"_sym);
    for (Symbol *selector : {"bang"_sym, "list"_sym, "set"_sym, "append"_sym, "flush"_sym}) {
        typedmess(object, selector, selector == "bang"_sym ? 0 : 3, list);
    }
    memory_fail_at(0);
    Symbol *const name = object_classname(object);
    object_free(patcher);
    settle();
    test::take_posts();
    return name;
}

// Memory that cannot be had costs an object or a message, and nothing else: no crash, and no leak,
// which the address sanitizer would find.
TEST(ObjectMemory, AnyAllocationMayFail) {
    constexpr int64_t most_allocations = 60;
    const test::OfflineTime offline;
    for (const Case &c : cases) {
        Symbol *const name = run_short_of_memory(c.object, 0);
        for (int64_t n = 1; n <= most_allocations; ++n) {
            run_short_of_memory(c.object, n);
        }
        EXPECT_EQ(run_short_of_memory(c.object, 0), name) << c.object;
    }
}

// What keeps memory of changing size is guarded: two threads send to the same object at once.
TEST(ObjectThreads, ShareAnObject) {
    constexpr int count = 2000;
    const auto both = [](Bench &bench, const char *one, const char *other) {
        std::thread thread([&] {
            for (int i = 0; i < count; ++i) {
                bench.message(one);
            }
        });
        for (int i = 0; i < count; ++i) {
            bench.message(other);
        }
        thread.join();
        return std::exchange(sent, {});
    };
    {
        Bench bag("bag many");
        both(bag, "0 1", "0 2.5");
        bag.message("0 bang");
        EXPECT_EQ(sent.size(), size_t{2 * count});
    }
    {
        Bench pipe("pipe 10");
        both(pipe, "0 1", "0 a b");
        pipe.message("0 flush");
        EXPECT_EQ(sent.size(), size_t{2 * count});
    }
    {
        Bench pipe("pipe 10");
        both(pipe, "0 1", "0 clear");
        pipe.message("0 clear");
        pipe.message("0 flush");
        EXPECT_EQ(sent.size(), size_t{0});
    }
    for (const char *object : {"value threads 1", "prepend x", "message @text x"}) {
        Bench bench(object);
        EXPECT_EQ(both(bench, "0 set a long message that takes memory", "0 bang").size(),
                  size_t{count})
            << object;
    }
}

}  // namespace
}  // namespace kiv
