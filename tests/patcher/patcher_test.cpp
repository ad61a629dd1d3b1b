// The patcher: its boxes and cords, names and paths, messages, ports, and surviving its own end.
#include <kiv/attr.h>
#include <kiv/inlets.h>
#include <kiv/jpatchline.h>
#include <kiv/subpatcher.h>

#include <algorithm>
#include <functional>

#include "documents.h"
#include "kernel/internal.h"
#include "patcher/internal.h"
#include "patcher/patcher.h"
#include "sched/internal.h"

namespace kiv {
namespace {

using namespace test;

// An object that does what a test says when a message arrives.
struct Trigger {
    Object ob;
    void *obex;
};
std::function<void(Object *)> on_bang;
std::function<void(Object *)> on_free;
Class *trigger_class;

void *trigger_new(Symbol *, int32_t, Atom *) {
    void *x = object_alloc(trigger_class);
    outlet_new(x, nullptr);
    return x;
}
void trigger_bang(Object *x) {
    if (on_bang) {
        on_bang(x);
    }
}
void trigger_free(Object *x) {
    if (on_free) {
        on_free(x);
    }
}

class PatcherTest : public DocumentTest {
  protected:
    void SetUp() override {
        DocumentTest::SetUp();
        trigger_class = class_new("trigger_probe", reinterpret_cast<Method>(trigger_new),
                                  reinterpret_cast<Method>(trigger_free), sizeof(Trigger), nullptr,
                                  TypeGimme, 0);
        class_obexoffset_set(trigger_class, offsetof(Trigger, obex));
        class_addmethod(trigger_class, reinterpret_cast<Method>(trigger_bang), "bang", 0);
        class_register("box"_sym, trigger_class);
    }
    void TearDown() override {
        on_bang = nullptr;
        on_free = nullptr;
        DocumentTest::TearDown();
    }

    static Object *add(Object *into, const char *text) { return newobject_fromboxtext(into, text); }
    static Object *add_named(Object *into, const char *text, const char *name, double x = 0.) {
        Object *made = add(into, text);
        const double at[2] = {x, 0.};
        jbox_set_patching_position(made, at);
        jbox_set_varname(made, gensym(name));
        return made;
    }
    static Object *connect(Object *in, Object *from, int32_t outlet, Object *to, int32_t inlet) {
        return jpatchercontroller_connectobjects(jpatcher_get_controller(in), from, outlet, to,
                                                 inlet);
    }
    static std::vector<std::string> ids(Object *of) {
        std::vector<std::string> out;
        for (Object *b = jpatcher_get_firstobject(of); b; b = jbox_get_nextobject(b)) {
            out.push_back(jbox_get_id(b)->name);
        }
        return out;
    }
    static void bang(Object *b) { typedmess(jbox_get_object(b), "bang"_sym, 0, nullptr); }
};

TEST_F(PatcherTest, BoxesKeepTheirOrderAndIdsWhileBoxesComeAndGo) {
    Object *p = load_text(document({box("obj-1", "print"), box("obj-2", "print")}));
    Object *third = add(p, "print");
    EXPECT_EQ(ids(p), (std::vector<std::string>{"obj-1", "obj-2", "obj-3"}));
    EXPECT_EQ(jbox_get_prevobject(third), jbox_get_nextobject(jpatcher_get_firstobject(p)));
    EXPECT_EQ(jpatcher_get_lastobject(p), third);

    EXPECT_EQ(jpatcher_deleteobj(p, jbox_get_prevobject(third)), 0);
    EXPECT_EQ(jpatcher_get_count(p), 2);
    EXPECT_EQ(ids(p), (std::vector<std::string>{"obj-1", "obj-3"}));
    add(p, "print");
    EXPECT_EQ(ids(p), (std::vector<std::string>{"obj-1", "obj-3", "obj-4"}));
    EXPECT_EQ(jpatcher_deleteobj(p, p), -1);
    EXPECT_EQ(jpatcher_deleteobj(p, nullptr), -1);
    object_free(p);
}

TEST_F(PatcherTest, ScriptingNamesAreUniqueAndFollowChanges) {
    Object *p = empty_patcher();
    Object *foo = add_named(p, "print", "foo");
    Object *second = add_named(p, "print", "foo");
    EXPECT_STREQ(jbox_get_varname(second)->name, "foo[1]");
    EXPECT_STREQ(jpatcher_uniqueboxname(p, "foo"_sym)->name, "foo[2]");
    jbox_set_varname(foo, "bar"_sym);
    EXPECT_EQ(jpatcher_uniqueboxname(p, "foo"_sym), "foo"_sym);
    EXPECT_EQ(jpatcher_resolvebox(p, "bar"_sym), foo);
    EXPECT_EQ(jpatcher_resolvebox(p, "foo"_sym), nullptr);
    jpatcher_deleteobj(p, foo);
    EXPECT_EQ(jpatcher_resolvebox(p, "bar"_sym), nullptr);
    EXPECT_EQ(jpatcher_uniqueboxname(p, "bar"_sym), "bar"_sym);
    object_free(p);
}

TEST_F(PatcherTest, PathsLeadIntoSubpatchersAndBack) {
    Object *p = empty_patcher();
    Object *sub_box = add_named(p, "p inner", "sub");
    Object *sub = jbox_get_object(sub_box);
    ASSERT_TRUE(jpatcher_is_patcher(sub));
    Object *deep = add_named(sub, "print", "deep");
    Object *unnamed = add(sub, "print");

    EXPECT_STREQ(jbox_get_boxpath(deep)->name, "sub::deep");
    EXPECT_EQ(jpatcher_resolvebox(p, "sub::deep"_sym), deep);
    EXPECT_EQ(jpatcher_resolvebox_boxpath(sub, "sub::deep"_sym), deep);
    EXPECT_EQ(jpatcher_resolveobj(p, "sub::deep"_sym), jbox_get_object(deep));
    EXPECT_EQ(jpatcher_resolvebox_boxpath(p, jbox_get_boxpath(unnamed)), unnamed);
    EXPECT_EQ(jpatcher_resolvepatcher(p, "sub"_sym), sub);
    EXPECT_EQ(jpatcher_resolvebox(sub, "sub"_sym), nullptr);
    EXPECT_EQ(jpatcher_resolvebox_ex(sub, "sub"_sym, JPATCHER_RESOLVE_OUTWARD), sub_box);
    for (const char *bad : {"", "::", "sub::", "sub::deep::x", "nobody::deep", "sub:::deep"}) {
        EXPECT_EQ(jpatcher_resolvebox(p, gensym(bad)), nullptr) << bad;
    }
    EXPECT_EQ(jpatcher_get_box(sub), sub_box);
    EXPECT_EQ(jpatcher_get_parentpatcher(sub), p);
    EXPECT_EQ(jpatcher_get_toppatcher(sub), p);
    EXPECT_STREQ(jpatcher_get_name(sub)->name, "inner");
    object_free(p);
}

TEST_F(PatcherTest, ConnectAndDisconnectByMessage) {
    Object *p = empty_patcher();
    Object *from = add_named(p, "trigger_probe", "from");
    Object *to = add_named(p, "print", "to");
    Object *line = connect(p, from, 0, to, 0);
    ASSERT_TRUE(line);
    EXPECT_EQ(jpatcher_get_firstline(p), line);
    EXPECT_EQ(connect(p, from, 0, to, 0), line);
    EXPECT_FALSE(jpatchline_get_pending(line));
    outlet_bang(jbox_getoutlet(from, 0));
    EXPECT_EQ(take_texts(), Texts{"print: bang"});

    object_attr_setlong(line, "disabled"_sym, 1);
    outlet_bang(jbox_getoutlet(from, 0));
    EXPECT_EQ(take_texts(), Texts{});
    object_attr_setlong(line, "disabled"_sym, 0);

    const struct {
        const char *message;
        Symbol *from;
        double outlet;
        Symbol *to;
        const char *text;
    } bad[] = {
        {"connect", "from"_sym, 1, "to"_sym, "connect: obj-1 has no outlet 1"},
        {"connect", "from"_sym, -1, "to"_sym, "connect: obj-1 has no outlet -1"},
        {"connect", "from"_sym, 1e300, "to"_sym, "connect: obj-1 has no outlet 2147483647"},
        {"connect", "from"_sym, 0, "who"_sym, "connect: no such box: who"},
        {"disconnect", "to"_sym, 0, "from"_sym, "disconnect: no such cord"},
    };
    for (const auto &c : bad) {
        Atom atoms[4];
        atom_setsym(atoms, c.from);
        atom_setfloat(atoms + 1, c.outlet);
        atom_setsym(atoms + 2, c.to);
        atom_setlong(atoms + 3, 0);
        typedmess(p, gensym(c.message), 4, atoms);
        EXPECT_EQ(take_texts(), Texts{c.text});
        typedmess(p, gensym(c.message), 2, atoms);
        EXPECT_EQ(take_texts(),
                  Texts{"missing arguments for message \"" + std::string(c.message) + "\""});
    }
    Atom atoms[4];
    atom_setsym(atoms, "from"_sym);
    atom_setlong(atoms + 1, 0);
    atom_setsym(atoms + 2, "obj-2"_sym);
    atom_setlong(atoms + 3, 0);
    typedmess(p, "disconnect"_sym, 4, atoms);
    EXPECT_EQ(jpatcher_get_firstline(p), nullptr);
    outlet_bang(jbox_getoutlet(from, 0));
    EXPECT_EQ(take_texts(), Texts{});
    object_free(p);
}

TEST_F(PatcherTest, DeletingABoxTakesItsCordsOnly) {
    Object *p = empty_patcher();
    Object *a = add(p, "trigger_probe");
    Object *b = add(p, "print b");
    Object *c = add(p, "print c");
    connect(p, a, 0, b, 0);
    Object *kept = connect(p, a, 0, c, 0);
    connect(p, a, 0, a, 0);
    jpatcher_deleteobj(p, b);
    EXPECT_EQ(jpatcher_get_firstline(p), kept);
    Object *self = jpatchline_get_nextline(kept);
    EXPECT_EQ(jpatchline_get_box1(self), a);
    EXPECT_EQ(jpatchline_get_nextline(self), nullptr);
    outlet_bang(jbox_getoutlet(a, 0));
    EXPECT_EQ(take_texts(), Texts{"c: bang"});
    object_free(kept);  // a cord may also be freed by itself
    EXPECT_EQ(jpatcher_get_firstline(p), self);
    jpatcher_deleteobj(p, a);
    EXPECT_EQ(jpatcher_get_firstline(p), nullptr);
    object_free(p);
}

// --- Walks ---------------------------------------------------------------------------------------

struct Visits {
    std::vector<Object *> seen;
    std::function<void(Object *)> act;
};
int32_t visit(void *arg, Object *x) {
    auto *visits = static_cast<Visits *>(arg);
    visits->seen.push_back(x);
    if (visits->act) {
        visits->act(x);
    }
    return 0;
}

TEST_F(PatcherTest, IterationSurvivesWhatItCalls) {
    Object *p = empty_patcher();
    std::vector<Object *> boxes;
    for (int i = 0; i < 5; ++i) {
        boxes.push_back(add(p, "print"));
    }
    Visits visits;
    visits.act = [&](Object *x) {
        if (x == boxes[1]) {
            jpatcher_deleteobj(p, boxes[1]);
            jpatcher_deleteobj(p, boxes[2]);
        } else if (x == boxes[3]) {
            boxes.push_back(add(p, "print"));
        }
    };
    object_method(p, "iterate"_sym, visit, &visits, JPATCHER_ITERATE_BOXES);
    EXPECT_EQ(visits.seen,
              (std::vector<Object *>{boxes[0], boxes[1], boxes[3], boxes[4], boxes[5]}));

    Visits end;
    end.act = [&](Object *) { object_free(p); };
    object_method(p, "iterate"_sym, visit, &end, JPATCHER_ITERATE_BOXES);
    EXPECT_EQ(end.seen.size(), 1u);
    EXPECT_FALSE(object_isvalid(p));
}

TEST_F(PatcherTest, DeepIterationAndTraversalSeeSubpatchersInOrder) {
    Object *p = empty_patcher();
    Object *sub_box = add(p, "p one");
    Object *sub = jbox_get_object(sub_box);
    Object *inside = add(sub, "print");
    Object *after = add(p, "print");
    Visits deep;
    object_method(p, "iterate"_sym, visit, &deep, JPATCHER_ITERATE_BOXES | JPATCHER_ITERATE_DEEP);
    EXPECT_EQ(deep.seen, (std::vector<Object *>{sub_box, inside, after}));
    Visits patchers;
    object_method(p, "traverse"_sym, visit, &patchers);
    EXPECT_EQ(patchers.seen, (std::vector<Object *>{p, sub}));
    object_free(p);
}

// --- The end of a patcher ------------------------------------------------------------------------

TEST_F(PatcherTest, AMessageInFlightMayFreeThePatcher) {
    Object *p = empty_patcher();
    Object *from = add(p, "trigger_probe");
    Object *freer = add(p, "trigger_probe");
    Object *last = add(p, "print");
    connect(p, from, 0, last, 0);
    connect(p, from, 0, freer, 0);  // served first
    connect(p, freer, 0, last, 0);
    Object *inner = jbox_get_object(freer);
    on_bang = [&](Object *x) {
        if (x == inner) {
            on_bang = nullptr;
            object_free(p);
        }
    };
    outlet_bang(jbox_getoutlet(from, 0));
    EXPECT_FALSE(object_isvalid(p));
    EXPECT_EQ(take_texts(), Texts{});
}

TEST_F(PatcherTest, FreeingLeavesNothingBehind) {
    // Boxes take unique names, which are used again only once there are many of them.
    std::vector<Symbol *> names;
    for (int i = 0; i < 10100; ++i) {
        names.push_back(symbol_unique());
    }
    for (Symbol *name : names) {
        symbol_unique_release(name);
    }
    const auto round = [&] {
        Object *p = empty_patcher();
        Object *sub = jbox_get_object(add_named(p, "p sub", "sub"));
        Object *in = add(sub, "inlet");
        connect(sub, in, 0, add(sub, "outlet"), 0);
        Object *from = add(p, "trigger_probe");
        connect(p, from, 0, jpatcher_resolvebox(p, "sub"_sym), 0);
        object_attr_setsym(p, "globalpatchername"_sym, "everywhere"_sym);
        object_free(p);
        EXPECT_EQ("everywhere"_sym->thing, nullptr);
    };
    constexpr int rounds = 60;
    int64_t before = 0;
    for (int i = 0; i < 2 * rounds; ++i) {
        before = i == rounds ? memory_live_blocks() : before;
        round();
    }
    // Less than one block a round: the queue of unique names moves from block to block.
    EXPECT_LT(memory_live_blocks(), before + rounds / 2);
}

TEST_F(PatcherTest, DisposeWaitsForTheMessageToEnd) {
    Object *p = empty_patcher();
    add(p, "print");
    typedmess(p, "dispose"_sym, 0, nullptr);
    EXPECT_TRUE(object_isvalid(p));
    for (int i = 0; i < 10 && object_isvalid(p); ++i) {
        main_queues_pass();
    }
    EXPECT_FALSE(object_isvalid(p));
}

// --- Ports ---------------------------------------------------------------------------------------

class PortTest : public PatcherTest {
  protected:
    void SetUp() override {
        PatcherTest::SetUp();
        p = load_text(document(
            {R"({"box":{"kivclass":"newobj","id":"sub","text":"p s","patcher":)" +
                 patcher({port("b", "inlet", 200), port("a", "inlet", 100), port("x", "outlet", 50),
                          port("y", "outlet", 10), box("pa", "print A"), box("pb", "print B")},
                         {line("a", "pa"), line("b", "pb"), line("a", "x"), line("b", "y")}) +
                 "}}",
             box("from", "trigger_probe"), box("left", "print left"), box("right", "print right")},
            {to_port("from", 0, "sub", 0), to_port("sub", 1, "right", 0),
             to_port("sub", 0, "left", 0)}));
        sub_box = jpatcher_resolvebox(p, "sub"_sym);
        sub = jbox_get_object(sub_box);
    }
    void TearDown() override {
        object_free(p);
        PatcherTest::TearDown();
    }
    static std::string port(const char *id, const char *text, int x) {
        return box(id, text, R"(,"patching_rect":[)" + std::to_string(x) + ",0,20,20]");
    }
    static std::string to_port(const char *from, int outlet, const char *to, int inlet) {
        return R"({"patchline":{"source":[")" + std::string(from) + "\"," + std::to_string(outlet) +
               R"(],"destination":[")" + to + "\"," + std::to_string(inlet) + "]}}";
    }
    Texts bang_inlet(int32_t index) {
        auto *inlet = static_cast<Inlet *>(jbox_getinlet(sub_box, index));
        Object *from = add(p, "trigger_probe");
        connect(p, from, 0, sub_box, index);
        EXPECT_NE(inlet, nullptr);
        outlet_bang(jbox_getoutlet(from, 0));
        jpatcher_deleteobj(p, from);
        return take_texts();
    }
    Object *p;
    Object *sub_box;
    Object *sub;
};

TEST_F(PortTest, PortsAreNumberedFromLeftToRight) {
    EXPECT_EQ(take_texts(), Texts{});
    EXPECT_EQ(object_attr_getlong(sub_box, "numinlets"_sym), 2);
    EXPECT_EQ(object_attr_getlong(sub_box, "numoutlets"_sym), 2);
    Texts first = bang_inlet(0);
    std::sort(first.begin(), first.end());
    EXPECT_EQ(first, (Texts{"A: bang", "right: bang"}));
    Texts second = bang_inlet(1);
    std::sort(second.begin(), second.end());
    EXPECT_EQ(second, (Texts{"B: bang", "left: bang"}));
    EXPECT_EQ(jbox_getinlet(sub_box, 2), nullptr);
    EXPECT_EQ(jbox_getoutlet(sub_box, 2), nullptr);
}

TEST_F(PortTest, CordsFollowAPortThatMoves) {
    const double beyond[2] = {300., 0.};
    jbox_set_patching_position(jpatcher_resolvebox(sub, "a"_sym), beyond);
    Object *in_cord = jpatcher_get_firstline(p);
    EXPECT_EQ(jpatchline_get_inletnum(in_cord), 1);
    outlet_bang(jbox_getoutlet(jpatcher_resolvebox(p, "from"_sym), 0));
    Texts texts = take_texts();
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(texts, (Texts{"A: bang", "right: bang"}));

    jbox_set_patching_position(jpatcher_resolvebox(sub, "y"_sym), beyond);
    EXPECT_EQ(jpatchline_get_outletnum(jpatchline_get_nextline(in_cord)), 0);
    outlet_bang(jbox_getoutlet(jpatcher_resolvebox(p, "from"_sym), 0));
    texts = take_texts();
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(texts, (Texts{"A: bang", "right: bang"}));
}

TEST_F(PortTest, ARemovedPortTakesItsCordsAndTheOthersMoveUp) {
    jpatcher_deleteobj(sub, jpatcher_resolvebox(sub, "y"_sym));  // outlet 0
    EXPECT_EQ(object_attr_getlong(sub_box, "numoutlets"_sym), 1);
    jpatcher_deleteobj(sub, jpatcher_resolvebox(sub, "b"_sym));  // inlet 1
    EXPECT_EQ(object_attr_getlong(sub_box, "numinlets"_sym), 1);
    Object *in_cord = jpatcher_get_firstline(p);
    Object *out_cord = jpatchline_get_nextline(in_cord);
    EXPECT_EQ(jpatchline_get_outletnum(out_cord), 0);
    EXPECT_EQ(jpatchline_get_nextline(out_cord), nullptr);
    outlet_bang(jbox_getoutlet(jpatcher_resolvebox(p, "from"_sym), 0));
    Texts texts = take_texts();
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(texts, (Texts{"A: bang", "right: bang"}));

    Object *left = add(sub, "inlet");
    const double first[2] = {-10., 0.};
    jbox_set_patching_position(left, first);
    EXPECT_EQ(jpatchline_get_inletnum(in_cord), 1);
}

TEST_F(PortTest, ASubpatcherFreedByItselfLeavesItsBoxAndCords) {
    object_free(sub);
    outlet_bang(jbox_getoutlet(jpatcher_resolvebox(p, "from"_sym), 0));
    EXPECT_EQ(jbox_get_object(sub_box), sub_box);
    EXPECT_TRUE(jpatchline_get_pending(jpatcher_get_firstline(p)));
}

// --- Listeners -----------------------------------------------------------------------------------

struct Listener {
    Object ob;
    std::vector<std::string> *heard;
};
ErrorCode listen(Listener *x, Symbol *, Symbol *message, void *, void *data) {
    x->heard->push_back(std::string(message->name) + " " + jbox_get_id(data)->name);
    return ErrorNone;
}

TEST_F(PatcherTest, ListenersHearOfBoxes) {
    Class *c = class_new("listener_probe", nullptr, nullptr, sizeof(Listener), nullptr, 0);
    class_addmethod(c, reinterpret_cast<Method>(listen), "notify", TypeCant, 0);
    auto *x = static_cast<Listener *>(object_alloc(c));
    std::vector<std::string> heard;
    x->heard = &heard;
    Object *p = empty_patcher();
    EXPECT_EQ(jpatcher_addboxlistener(p, x), 0);
    EXPECT_EQ(jpatcher_addboxlistener(p, x), 0);
    jpatcher_deleteobj(p, add(p, "print"));
    EXPECT_EQ(heard, (std::vector<std::string>{"boxadded obj-1", "boxremoved obj-1"}));
    EXPECT_EQ(jpatcher_removeboxlistener(p, x), 0);
    EXPECT_EQ(jpatcher_removeboxlistener(p, x), -1);
    add(p, "print");
    EXPECT_EQ(heard.size(), 2u);
    object_free(p);
    object_free(x);
}

TEST_F(PatcherTest, ItsSchedulerServesItsBoxesAndTheirObjects) {
    Scheduler *const other = scheduler_new();
    Scheduler *const scheduler = scheduler_new();
    Object *p = empty_patcher();
    object_obex_store(p, "#S"_sym, scheduler);
    Object *const box = add(p, "print");
    Object *const object = jbox_get_object(box);
    for (void *const inside :
         {static_cast<void *>(p), static_cast<void *>(object), static_cast<void *>(box)}) {
        EXPECT_EQ(scheduler_fromobject(inside), scheduler);
    }
    object_free(scheduler);
    EXPECT_EQ(scheduler_fromobject(object), scheduler_global());
    object_obex_store(p, "#S"_sym, other);
    EXPECT_EQ(scheduler_fromobject(object), other);
    object_free(p);
    EXPECT_EQ(scheduler_fromobject(object), scheduler_global());
    EXPECT_EQ(take_texts(), Texts{});
    object_free(other);
}

}  // namespace
}  // namespace kiv
