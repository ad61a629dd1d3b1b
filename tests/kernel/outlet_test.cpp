#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "kernel/internal.h"
#include "kernel/recorder.h"
#include "sched/internal.h"
#include "support/console.h"
#include "support/memory.h"

using namespace kiv;
using namespace kiv::test;

namespace {

void *const sent = reinterpret_cast<void *>(1);

// Sends by a short text: "bang", "int", "float", "list", "foo".
void *send(Outlet *out, const std::string &what) {
    Atom two[] = {atom(int64_t{1}), atom(2.5)};
    if (what == "bang") {
        return outlet_bang(out);
    }
    if (what == "int") {
        return outlet_int(out, 5);
    }
    if (what == "float") {
        return outlet_float(out, 2.5);
    }
    return what == "list" ? outlet_list(out, nullptr, 2, two)
                          : outlet_anything(out, gensym(what.c_str()), 2, two);
}

char name_of(const Object *x) {
    return reinterpret_cast<const Recorder *>(x)->name;
}

}  // namespace

TEST(Outlet, ServesNewestConnectionFirst) {
    Recorder *x = recorder('x', "");
    Outlet *out = outlet_new(x, nullptr);
    EXPECT_EQ(outlet_int(out, 1), sent);
    for (const char name : {'A', 'B', 'C'}) {
        EXPECT_EQ(outlet_add(out, recorder(name, "i")), 0);
    }
    EXPECT_EQ(outlet_int(out, 5), sent);
    EXPECT_EQ(take_messages(), (Texts{"C int 5", "B int 5", "A int 5"}));
    outlet_silence(out, true);
    EXPECT_EQ(outlet_int(out, 5), nullptr);
    EXPECT_EQ(outlet_int(nullptr, 5), nullptr);
    EXPECT_TRUE(take_messages().empty());
}

TEST(Outlet, DeliversByTypeAndByWhatTheReceiverAnswers) {
    const struct {
        const char *type;  // of the outlet
        const char *answers;
        const char *message;
        Texts arrived;
        Texts posted;
    } cases[] = {
        {"int", "i", "int", {"R int 5"}, {}},
        {nullptr, "i", "int", {"R int 5"}, {}},
        {"float", "f", "float", {"R float 2.500000"}, {}},
        {"bang", "b", "bang", {"R bang"}, {}},
        {"list", "l", "list", {"R list 1 2.5"}, {}},
        {"int", "f", "int", {"R float 5.000000"}, {}},
        {"float", "i", "float", {"R int 2"}, {}},
        {"int", "a", "int", {"R int 5"}, {}},
        {nullptr, "a", "bang", {"R bang"}, {}},
        {nullptr, "a", "list", {"R list 1 2.5"}, {}},
        {nullptr, "a", "foo", {"R foo 1 2.5"}, {}},
        {"int", "if", "float", {"R float 2.500000"}, {}},
        {nullptr, "b", "int", {}, {"doesn't understand \"int\""}},
        {nullptr, "i", "bang", {}, {"doesn't understand \"bang\""}},
        {nullptr, "i", "foo", {}, {"doesn't understand \"foo\""}},
        {nullptr, "b", "list", {}, {"doesn't understand \"int\""}},
        {nullptr, "i", "list", {"R int 1"}, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.type ? c.type : "untyped") + " " + c.answers + " " + c.message);
        Outlet *out = outlet_new(recorder('x', ""), c.type);
        ASSERT_EQ(outlet_add(out, recorder('R', c.answers)), 0);
        take_posts();
        EXPECT_EQ(send(out, c.message), sent);
        EXPECT_EQ(take_messages(), c.arrived);
        EXPECT_EQ(take_texts(), c.posted);
    }
}

TEST(Outlet, ReportsOnceWhicheverWayAMessageCame) {
    Recorder *r = recorder('R', "i");
    Inlet *inlet = inlet_new(r, nullptr);
    Proxy *proxy = proxy_new(r, 1, nullptr);
    for (void *end : {static_cast<void *>(r), static_cast<void *>(inlet),
                      static_cast<void *>(proxy_getinletptr(proxy))}) {
        Outlet *out = outlet_new(recorder('x', ""), nullptr);
        outlet_add(out, end);
        for (const char *message : {"foo", "bang"}) {
            send(out, message);
            const auto posts = take_posts();
            ASSERT_EQ(posts.size(), 1u);
            EXPECT_NE(posts[0].text.find(std::string("doesn't understand \"") + message + "\""),
                      std::string::npos);
            EXPECT_EQ(posts[0].source, r);
        }
    }
    Outlet *out = outlet_new(recorder('x', ""), nullptr);
    outlet_add(out, r);
    outlet_anything(out, nullptr, 0, nullptr);
    EXPECT_EQ(take_texts(), Texts{"bad message"});
}

TEST(Outlet, RefusesWhatDoesNotMatch) {
    const struct {
        const char *type;
        const char *answers;
        bool fits;
    } cases[] = {
        {nullptr, "", true}, {"bang", "i", false},  {"bang", "a", true},  {"int", "f", true},
        {"list", "i", true}, {"float", "b", false}, {"foo", "if", false}, {"foo", "a", true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.type ? c.type : "untyped") + " " + c.answers);
        Outlet *out = outlet_new(recorder('x', ""), c.type);
        Recorder *r = recorder('R', c.answers);
        EXPECT_EQ(outlet_canadd(out, r), c.fits);
        EXPECT_TRUE(take_posts().empty());
        EXPECT_EQ(outlet_add(out, r), c.fits ? 0 : 1);
        if (c.fits) {
            EXPECT_TRUE(take_posts().empty());
            EXPECT_EQ(outlet_canadd(out, r), 0);
            EXPECT_TRUE(take_posts().empty());
            EXPECT_EQ(outlet_add(out, r), 1);
            EXPECT_EQ(take_texts(), Texts{"outlet_add: already in table"});
        } else {
            EXPECT_EQ(take_texts(), (Texts{std::string("can't connect () to (") + c.answers + ")",
                                           std::string("(doesn't match \"") + c.type + "\")"}));
        }
    }
}

TEST(Outlet, SpreadsAListOverInletsAndServesTheLeftOneLast) {
    Recorder *r = recorder('R', "i12");
    for (int32_t i = 0; i < 3; ++i) {
        inlet4(r, r, "float", "ft1");
    }
    Outlet *out = outlet_new(recorder('x', ""), nullptr);
    outlet_add(out, r);
    Atom four[] = {atom(int64_t{1}), atom(2.5), atom("foo"), atom(int64_t{4})};
    EXPECT_EQ(outlet_list(out, nullptr, 4, four), sent);
    EXPECT_EQ(take_messages(), (Texts{"R ft1 2.500000", "R ft1 4.000000", "R int 1"}));
    four[0] = atom("word");
    outlet_list(out, nullptr, 2, four);
    EXPECT_EQ(take_messages(), Texts{"R ft1 2.500000"});
    outlet_list(out, nullptr, 0, four);
    EXPECT_TRUE(take_messages().empty());
    // The first inlet's message frees the object with all its inlets, in a send and without one.
    for (const bool by_cord : {true, false}) {
        Recorder *brief = recorder('R', "i12");
        floatin(brief, 1);
        floatin(brief, 1);
        Inlet *any = inlet4(recorder('O', ""), brief, nullptr, nullptr);
        outlet_add(out, brief);
        on_message() = [=](Recorder *x) {
            if (x == brief) {
                object_free(x);
            }
        };
        if (by_cord) {
            outlet_list(out, nullptr, 4, four);
        } else {
            outlet_rm(out, brief);
            typedmess(any, "list"_sym, 4, four);
        }
        on_message() = nullptr;
        EXPECT_EQ(take_messages().front(), "R ft1 2.500000");
    }
}

TEST(Outlet, ChoosesByTheFirstAtom) {
    const struct {
        int32_t count;
        Atom atoms[3];
        Texts arrived;
    } cases[] = {
        {1, {atom(int64_t{7})}, {"R int 7"}},
        {1, {atom(0.5)}, {"R float 0.500000"}},
        {1, {atom("foo")}, {"R foo"}},
        {2, {atom(int64_t{7}), atom("x")}, {"R list 7 x"}},
        {3, {atom("foo"), atom(int64_t{1}), atom(2.0)}, {"R foo 1 2."}},
        {0, {atom("foo")}, {"R foo"}},
        {0, {atom(int64_t{7})}, {}},
        {1, {Atom{TypeComma, {0}}}, {}},
    };
    Outlet *out = outlet_new(recorder('x', ""), nullptr);
    outlet_add(out, recorder('R', "iflab"));
    for (auto c : cases) {
        outlet_atoms(out, c.count, c.atoms);
        EXPECT_EQ(take_messages(), c.arrived);
    }
    EXPECT_EQ(outlet_atoms(out, 1, nullptr), nullptr);
}

TEST(Outlet, KeepsItsListInOrder) {
    Recorder *x = recorder('x', "");
    Outlet *b = outlet_new(x, "int");
    Outlet *a = outlet_new(x, nullptr);
    Outlet *d = outlet_append(x, nullptr, nullptr);
    Outlet *c = outlet_insert_after(x, nullptr, nullptr, b);
    Outlet *const order[] = {a, b, c, d};
    EXPECT_EQ(outlet_count(x), 4);
    for (int32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(outlet_nth(x, i), order[i]);
    }
    EXPECT_EQ(outlet_nth(x, 4), nullptr);
    EXPECT_EQ(outlet_nth(x, -1), nullptr);
    outlet_delete(b);
    EXPECT_EQ(outlet_nth(x, 1), c);
    EXPECT_EQ(outlet_count(nullptr), 0);
    EXPECT_EQ(outlet_new(nullptr, nullptr), nullptr);
}

TEST(Outlet, FreeingEitherEndBreaksTheConnection) {
    int64_t before = 0;
    for (int round = 0; round < 2; ++round) {  // the first one makes classes and the send state
        before = memory_live_blocks();
        Recorder *x = recorder('x', "");
        Outlet *out = outlet_new(x, "int");
        Recorder *r = recorder('R', "i1");
        outlet_add(out, r);
        outlet_add(out, intin(r, 1));
        object_free(r);
        EXPECT_EQ(outlet_int(out, 1), sent);
        EXPECT_TRUE(take_messages().empty());
        outlet_rm(out, r);
        EXPECT_EQ(take_texts(), Texts{"outlet_rm: wasn't in table"});
        Recorder *other = recorder('O', "i");
        outlet_add(out, other);
        object_free(x);
        object_free(other);
    }
    EXPECT_EQ(memory_live_blocks(), before);
}

TEST(Outlet, SendsThroughAFreedOutletDoNothing) {
    Recorder *x = recorder('x', "");
    Recorder *r = recorder('R', "bifla");
    for (const char *what : {"bang", "int", "float", "list", "foo"}) {
        Outlet *out = outlet_new(x, nullptr);
        outlet_add(out, r);
        outlet_delete(out);
        EXPECT_EQ(send(out, what), nullptr) << what;
    }
    EXPECT_TRUE(take_messages().empty());
}

// What a receiver may do in its method while the send that called it goes on.
TEST(Outlet, SendSurvivesWhatReceiversDo) {
    struct Scene {
        Recorder *x, *a, *b, *c;
        Outlet *out;
    };
    const struct {
        const char *what;
        std::function<void(Scene &)> act;  // by B, the second of C, B, A
        Texts arrived;
    } cases[] = {
        {"frees itself",
         [](Scene &s) { object_free(std::exchange(s.b, nullptr)); },
         {"C int 5", "B int 5", "A int 5"}},
        {"frees the next",
         [](Scene &s) { object_free(std::exchange(s.a, nullptr)); },
         {"C int 5", "B int 5"}},
        {"frees the one before",
         [](Scene &s) { object_free(std::exchange(s.c, nullptr)); },
         {"C int 5", "B int 5", "A int 5"}},
        {"disconnects itself and the next",
         [](Scene &s) {
             outlet_rm(s.out, s.b);
             outlet_rm(s.out, s.a);
         },
         {"C int 5", "B int 5"}},
        {"connects the next again",
         [](Scene &s) {
             outlet_rm(s.out, s.a);
             outlet_add(s.out, s.a);
         },
         {"C int 5", "B int 5"}},
        {"frees the sender",
         [](Scene &s) { object_free(std::exchange(s.x, nullptr)); },
         {"C int 5", "B int 5"}},
        {"deletes the outlet", [](Scene &s) { outlet_delete(s.out); }, {"C int 5", "B int 5"}},
        {"throws",
         [](Scene &) { throw std::runtime_error("no"); },
         {"C int 5", "B int 5", "A int 5"}},
    };
    int64_t before = 0;  // of the second round: the first one makes classes and the send state
    for (const char *type : {"int", static_cast<const char *>(nullptr)}) {
        before = memory_live_blocks();
        for (const auto &c : cases) {
            SCOPED_TRACE(c.what);
            Scene s{recorder('x', ""), recorder('A', "i"), recorder('B', "i"), recorder('C', "i"),
                    nullptr};
            s.out = outlet_new(s.x, type);
            for (Recorder *r : {s.a, s.b, s.c}) {
                outlet_add(s.out, r);
            }
            on_message() = [&](Recorder *r) {
                if (r == s.b) {
                    c.act(s);
                }
            };
            EXPECT_EQ(outlet_int(s.out, 5), sent);
            on_message() = nullptr;
            EXPECT_EQ(take_messages(), c.arrived);
            if (s.x && outlet_nth(s.x, 0)) {
                EXPECT_STREQ(outlet_check(s.out), nullptr);
            }
            for (Recorder *r : {s.x, s.a, s.b, s.c}) {
                if (r) {
                    object_free(r);
                }
            }
            take_posts();
        }
    }
    EXPECT_EQ(memory_live_blocks(), before);
}

TEST(Outlet, ConnectionsChangeWhileOtherThreadsSend) {
    static std::atomic<int64_t> served;
    served = 0;
    Class *c = class_new("counted", nullptr, nullptr, sizeof(Object), nullptr, 0);
    const auto count = +[](Object *, int64_t) { served.fetch_add(1, std::memory_order_relaxed); };
    class_addmethod(c, reinterpret_cast<Method>(count), "int", TypeLong, 0);
    class_register(nullptr, c);
    warm_extension_records();
    int64_t before = 0;
    for (int round = 0; round < 2; ++round) {  // the first one makes classes and the send state
        before = memory_live_blocks();
        void *steady = object_alloc(c);
        void *owner = object_alloc(c);
        Outlet *out = outlet_new(owner, "int");
        outlet_add(out, steady);
        outlet_int(out, 1);
        std::atomic<bool> stop{false};
        const auto sender = [&] {
            while (!stop) {
                outlet_int(out, 1);
            }
        };
        std::thread threads[] = {std::thread(sender), std::thread(sender)};
        for (int i = 0; i < 1500; ++i) {
            void *r = object_alloc(c);
            Inlet *inlet = inlet4(r, steady, "int", "int");
            outlet_add(out, inlet);
            outlet_rm(out, inlet);
            object_free(r);
        }
        const int64_t reached = served;
        while (served == reached) {
            std::this_thread::yield();
        }
        stop = true;
        for (std::thread &thread : threads) {
            thread.join();
        }
        EXPECT_STREQ(outlet_check(out), nullptr);
        object_free(owner);
        object_free(steady);
    }
    EXPECT_EQ(memory_live_blocks(), before);
    class_free(c);
}

TEST(Outlet, MessageToInletOwnersOfAClass) {
    static int64_t got;
    got = 0;
    Class *c = class_new("told", nullptr, nullptr, sizeof(Object), nullptr, 0);
    const auto tell = +[](Object *, int64_t n) { got += n; };
    class_addmethod(c, reinterpret_cast<Method>(tell), "tell", TypeCant, 0);
    class_register(nullptr, c);
    void *x = object_alloc(c);
    Outlet *out = outlet_new(recorder('x', ""), nullptr);
    outlet_add(out, x);
    outlet_msg(out, "told"_sym, "tell"_sym, 3);
    EXPECT_EQ(got, 0);
    outlet_add(out, inlet_new(x, nullptr));
    outlet_add(out, inlet_new(recorder('R', ""), nullptr));
    outlet_msg(out, "told"_sym, "tell"_sym, 3);
    EXPECT_EQ(got, 3);
    EXPECT_TRUE(take_posts().empty());
    object_free(x);
    class_free(c);
}

TEST(Outlet, MonitorsAreToldFirst) {
    Class *c = class_new("monitor", nullptr, nullptr, sizeof(Object), nullptr, 0);
    const auto tell = +[](void *, Object *, Object *, Symbol *s, int32_t argc, Atom *argv) {
        messages().push_back(std::string("told ") + s->name + " " + text_of(argc, argv));
    };
    class_addmethod(c, reinterpret_cast<Method>(tell), "monitormessage", TypeCant, 0);
    class_register(nullptr, c);
    void *key = object_alloc(c);
    Outlet *out = outlet_new(recorder('x', ""), "int");
    Recorder *r = recorder('R', "i");
    outlet_add(out, r);
    outlet_addmonitor(out, r, key, 1);
    outlet_int(out, 5);
    EXPECT_EQ(take_messages(), (Texts{"told int 5", "R int 5"}));
    outlet_removemonitor(out, r, key, 1);
    outlet_int(out, 5);
    EXPECT_EQ(take_messages(), Texts{"R int 5"});
    object_free(key);
    class_free(c);
}

// The stack as the debugger sees it before each delivery: "SENDER selector > receiver", innermost
// first. It stops the send of "float".
TEST(Outlet, TheDebuggerSeesEachDeliveryAndStopsSends) {
    Recorder *a = recorder('A', "");
    Recorder *b = recorder('B', "if");
    Recorder *c = recorder('C', "if");
    a->out = outlet_new(a, nullptr);
    b->out = outlet_new(b, nullptr);
    outlet_add(a->out, c);
    outlet_add(a->out, b);
    outlet_add(b->out, c);
    on_message() = [](Recorder *x) {
        if (x->name == 'B') {
            outlet_int(x->out, 7);
        }
    };
    static Texts seen;
    seen.clear();
    message_debugging_set(
        [](const MessageEntry *entry, Object *receiver, void *) {
            std::string text;
            EXPECT_EQ(entry, message_stack());
            for (const MessageEntry *e = entry; e; e = e->outer) {
                text += name_of(e->sender);
                text +=
                    std::string(" ") + e->selector->name + " " + text_of(e->argc, e->argv) + " ";
            }
            seen.push_back(text + "> " + name_of(receiver));
            void *const made = message_entry_dictionary(entry, receiver);
            EXPECT_TRUE(object_valid(made));
            object_free(made);
            return entry->selector == gensym("float");
        },
        nullptr);
    EXPECT_EQ(outlet_int(a->out, 5), sent);
    EXPECT_EQ(seen, (Texts{"A int 5 > B", "B int 7 A int 5 > C", "A int 5 > C"}));
    EXPECT_EQ(message_stack(), nullptr);
    take_messages();
    EXPECT_EQ(outlet_float(a->out, 1.0), nullptr);
    message_debugging_set(nullptr, nullptr);
    on_message() = nullptr;
    EXPECT_TRUE(take_messages().empty());
    EXPECT_EQ(outlet_float(a->out, 1.0), sent);
    EXPECT_EQ(seen.size(), 4u);
    take_messages();
}

// A recording inlet and the pass-through outlet behind it stand for direct connections.
TEST(Outlet, PassThroughConnectsWhatLiesBehind) {
    Recorder *box = recorder('P', "");
    Recorder *inner = recorder('I', "i");
    Inlet *end = inlet_new(inner, nullptr);
    inlet_set_recording(end);
    Outlet *through = outlet_new(box, nullptr);
    outlet_set_link(through, end);
    Outlet *early = outlet_new(recorder('x', ""), nullptr);
    Outlet *late = outlet_new(recorder('y', ""), nullptr);
    inlet_to(end, through);
    Recorder *r = recorder('R', "i");

    EXPECT_EQ(outlet_add(early, end), 0);
    EXPECT_EQ(outlet_add(through, r), 0);
    EXPECT_EQ(outlet_add(late, end), 0);
    EXPECT_EQ(outlet_add(through, end), 1);
    EXPECT_EQ(take_texts(), Texts{"outlet loop"});
    outlet_int(early, 1);
    outlet_int(late, 2);
    EXPECT_EQ(take_messages(), (Texts{"R int 1", "R int 2"}));
    outlet_rm(through, r);
    outlet_int(early, 1);
    EXPECT_TRUE(take_messages().empty());
    outlet_rm(late, end);
    outlet_add(through, r);
    outlet_int(late, 1);
    outlet_int(early, 2);
    EXPECT_EQ(take_messages(), Texts{"R int 2"});
    EXPECT_TRUE(take_posts().empty());
}

namespace {

Object *test_patcher = nullptr;

// Two objects that send every int on to each other.
struct Loop {
    Recorder *a = recorder('a', "i");
    Recorder *b = recorder('b', "i");
    Loop() {
        for (auto [from, to] : {std::pair(a, b), std::pair(b, a)}) {
            from->out = outlet_new(from, "int");
            outlet_add(from->out, to);
        }
        on_message() = [](Recorder *x) {
            messages().clear();
            outlet_int(x->out, 1);
        };
    }
    ~Loop() { on_message() = nullptr; }
};

}  // namespace

TEST(Overflow, DisablesThePatcherUntilCleared) {
    test_patcher = &recorder('p', "")->ob;
    kernel_hooks().patcher_of = [](Object *x) {
        return reinterpret_cast<Recorder *>(x)->name == 'z' ? nullptr : test_patcher;
    };
    const std::string text = "stack overflow -- outlets are disabled until this message is cleared";
    Loop loop;
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(outlet_int(loop.a->out, 1), nullptr);
        EXPECT_TRUE(overflow_in_force(test_patcher));
        EXPECT_EQ(outlet_int(loop.b->out, 1), nullptr);
        main_queues_pass();
        main_queues_pass();
        const auto posts = take_posts();
        ASSERT_EQ(posts.size(), 1u);
        EXPECT_EQ(posts[0].text, text);
        EXPECT_TRUE(posts[0].source == loop.a || posts[0].source == loop.b);
        // Objects elsewhere go on.
        Outlet *elsewhere = outlet_new(recorder('z', ""), nullptr);
        EXPECT_EQ(outlet_int(elsewhere, 1), sent);
        overflow_clear();
        EXPECT_FALSE(overflow_in_force(test_patcher));
        EXPECT_EQ(outlet_int(outlet_new(loop.a, nullptr), 1), sent);
    }
    EXPECT_EQ(outlet_int(loop.a->out, 1), nullptr);
    object_free(test_patcher);
    EXPECT_EQ(outlet_int(outlet_new(loop.b, nullptr), 1), sent);
}

TEST(Overflow, EndsWithTheUnwindingWithoutAPatcher) {
    kernel_hooks().patcher_of = [](Object *) -> Object * { return nullptr; };
    Loop loop;
    EXPECT_EQ(outlet_int(loop.a->out, 1), nullptr);
    EXPECT_EQ(take_texts(), Texts{"this object was involved in a stack overflow"});
    EXPECT_EQ(outlet_int(outlet_new(loop.a, nullptr), 1), sent);
}

// The alert forgets every overflow, but a thread that is in one still has to end it: or it would be
// taken for unwinding when something else overflows.
TEST(Overflow, TheAlertDuringTheUnwindingLeavesNothingBehind) {
    kernel_hooks().patcher_of = [](Object *) -> Object * { return nullptr; };
    Loop loop;
    const auto unwinding = [alerted = false](Recorder *x) mutable {
        messages().clear();
        if (!outlet_int(x->out, 1) && !std::exchange(alerted, true)) {
            overflow_alert();
        }
    };
    on_message() = unwinding;
    outlet_int(loop.a->out, 1);

    test_patcher = &recorder('p', "")->ob;
    kernel_hooks().patcher_of = [](Object *x) {
        return reinterpret_cast<Recorder *>(x)->name == 'z' ? nullptr : test_patcher;
    };
    std::thread([] {
        Loop other;
        EXPECT_EQ(outlet_int(other.a->out, 1), nullptr);
    }).join();
    EXPECT_EQ(outlet_int(outlet_new(recorder('z', ""), nullptr), 1), sent);
    overflow_clear();
    take_posts();
}
