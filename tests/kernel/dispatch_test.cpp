// Typed and direct messages: look-up, conversion, outcomes, what a method may do to its receiver.
#include <kiv/atom.h>
#include <kiv/attr.h>
#include <kiv/class.h>
#include <kiv/object.h>
#include <kiv/symbol.h>
#include <kiv/sysmem.h>

#include <bit>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "kernel/internal.h"
#include "support/console.h"

using namespace kiv;
using namespace kiv::literals;
using kiv::test::take_posts;
using kiv::test::take_texts;

namespace {

using Texts = std::vector<std::string>;

// What the methods below were called with, as text.
std::string called;

std::string text_of(int64_t value) {
    return std::to_string(value);
}
std::string text_of(double value) {
    return std::to_string(value);
}
std::string text_of(Symbol *symbol) {
    return symbol->name;
}

template <class... Arguments>
void *note(void *, Arguments... arguments) {
    called = "called";
    ((called += " " + text_of(arguments)), ...);
    return reinterpret_cast<void *>(intptr_t{77});
}

void *note_atoms(void *, Symbol *selector, int32_t argc, Atom *argv) {
    called = selector->name;
    for (int32_t i = 0; i < argc; ++i) {
        called += std::string(" ") + atom_string(argv + i);
    }
    return reinterpret_cast<void *>(intptr_t{88});
}

void *give_back(void *, Symbol *, int32_t argc, Atom *, Atom *result) {
    atom_setlong(result, argc);
    return nullptr;
}

template <class Function>
Method method(Function *function) {
    return reinterpret_cast<Method>(function);
}

Atom atom(int64_t value) {
    Atom a{};
    atom_setlong(&a, value);
    return a;
}
Atom atom(int value) {
    return atom(int64_t{value});
}
Atom atom(double value) {
    Atom a{};
    atom_setfloat(&a, value);
    return a;
}
Atom atom(const char *value) {
    Atom a{};
    atom_setsym(&a, gensym(value));
    return a;
}
Atom atom(Object *value) {
    Atom a{};
    atom_setobj(&a, value);
    return a;
}

template <class... Values>
std::vector<Atom> atoms(Values... values) {
    return {atom(values)...};
}

void *send(void *x, const char *selector, std::vector<Atom> arguments = {}) {
    called.clear();
    return typedmess(x, gensym(selector), static_cast<int32_t>(arguments.size()), arguments.data());
}

class Dispatch : public testing::Test {
  protected:
    void SetUp() override {
        c_ = class_new("receiver", nullptr, nullptr, sizeof(Object), nullptr, 0);
        class_addmethod(c_, method(note<int64_t>), "int", TypeLong, 0);
        class_addmethod(c_, method(note<double>), "float", TypeFloat, 0);
        class_addmethod(c_, method(note<Symbol *>), "symbol", TypeSymbol, 0);
        class_addmethod(c_, method(note<int64_t, double>), "intfloat", TypeLong, TypeDefFloat, 0);
        class_addmethod(c_, method(note<int64_t, double, Symbol *>), "optional", TypeDefLong,
                        TypeDefFloat, TypeDefSymbol, 0);
        class_addmethod(c_, method(note_atoms), "all", TypeGimme, 0);
        class_addmethod(c_, method(give_back), "back", TypeGimmeBack, 0);
        class_addmethod(c_, method(note<>), "hidden", TypeCant, 0);
        class_addmethod(c_, method(take_object), "object", TypeObject, 0);
        x_ = static_cast<Object *>(object_alloc(c_));
        take_texts();
    }
    void TearDown() override {
        object_free(x_);
        EXPECT_EQ(class_free(c_), ErrorNone);
    }
    static void *take_object(Object *, Object *other) {
        called = object_valid(other) ? object_classname(other)->name : "null";
        return nullptr;
    }

    Class *c_ = nullptr;
    Object *x_ = nullptr;
};

TEST_F(Dispatch, ConvertsAtomsToDeclaredTypesOrSaysWhatDoesNotFit) {
    const Texts bad_int{"bad arguments for message \"int\""};
    const struct {
        const char *selector;
        std::vector<Atom> arguments;
        const char *called;
        Texts posted;
    } cases[] = {
        {"int", atoms(5), "called 5", {}},
        {"int", atoms(2.9), "called 2", {}},
        {"int", atoms(-2.9), "called -2", {}},
        {"int", atoms("#1"), "called 0", {}},
        {"int", atoms("abc"), "", bad_int},
        {"int", {}, "", {"missing arguments for message \"int\""}},
        {"float", atoms(3), "called 3.000000", {}},
        {"float", atoms("#x"), "called 0.000000", {}},
        {"float",
         atoms(1.5, 2.5, 3.5),
         "called 1.500000",
         {"receiver: extra arguments for message \"float\""}},
        {"symbol", atoms("abc"), "called abc", {}},
        {"symbol", atoms(1), "", {"bad arguments for message \"symbol\""}},
        {"intfloat", atoms(7), "called 7 0.000000", {}},
        {"intfloat", {}, "", {"missing arguments for message \"intfloat\""}},
        {"optional", {}, "called 0 0.000000 ", {}},
        {"optional", atoms(1, 2, "z"), "called 1 2.000000 z", {}},
        {"all", atoms(1, 2.5, "z"), "all 1 2.50 z", {}},
        {"hidden",
         atoms(1),
         "",
         {"unknown message argument type", "bad arguments for message \"hidden\""}},
        {"hidden", {}, "", {"bad arguments for message \"hidden\""}},
        {"object",
         atoms("nothing-bound"),
         "",
         {"nothing-bound: no such object", "bad arguments for message \"object\""}},
        {"nothing", atoms(1), "", {"doesn't understand \"nothing\""}},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.selector);
        void *const result = send(x_, each.selector, each.arguments);
        EXPECT_EQ(called, each.called);
        EXPECT_EQ(result != nullptr, each.called[0] != '\0');
        EXPECT_EQ(take_texts(), each.posted);
    }
}

TEST_F(Dispatch, NumbersOutsideTheIntegerRangeDoNotTrap) {
    for (const double value : {std::nan(""), 1e300, -std::numeric_limits<double>::infinity()}) {
        send(x_, "int", atoms(value));
        EXPECT_FALSE(called.empty());
    }
}

TEST_F(Dispatch, ObjectArgumentsComeFromAtomsAndFromBoundNames) {
    Symbol *const name = gensym("bound-object");
    send(x_, "object", atoms(x_));
    EXPECT_EQ(called, "receiver");
    name->thing = x_;
    send(x_, "object", atoms("bound-object"));
    EXPECT_EQ(called, "receiver");
    int64_t garbage[8] = {};
    name->thing = garbage;
    send(x_, "object", atoms("bound-object"));
    name->thing = nullptr;
    EXPECT_EQ(called, "");
    EXPECT_EQ(take_texts(),
              (Texts{"bound-object: garbage object", "bad arguments for message \"object\""}));
}

// --- Every mix of arguments: how many, and in the bits of a mask which of them are doubles
// ---------

std::vector<int64_t> arrived;  // integers as they came, doubles in negative halves

int64_t seen(int64_t value) {
    return value;
}
int64_t seen(double value) {
    return -std::llround(2 * value);
}

template <class... Arguments>
void *take_mix(void *, Arguments... arguments) {
    arrived = {seen(arguments)...};
    return nullptr;
}
template <class... Arguments>
void *make_mix(Arguments... arguments) {
    arrived = {seen(arguments)...};
    return nullptr;
}

std::string mix_name(size_t count, size_t doubles, bool make) {
    return (make ? "make " : "take ") + std::to_string(count) + " " + std::to_string(doubles);
}

template <bool is_double>
using MixArgument = std::conditional_t<is_double, double, int64_t>;

template <size_t doubles, size_t... n>
void add_mix(Class *c, std::index_sequence<n...>) {
    for (const bool make : {false, true}) {
        const Method function = make ? method(make_mix<MixArgument<(doubles >> n & 1) != 0>...>)
                                     : method(take_mix<MixArgument<(doubles >> n & 1) != 0>...>);
        class_addmethod(c, function, mix_name(sizeof...(n), doubles, make).c_str(),
                        (doubles >> n & 1 ? TypeFloat : TypeLong)..., 0);
    }
}

template <size_t count, size_t... doubles>
void add_mixes(Class *c, std::index_sequence<doubles...>) {
    (add_mix<doubles>(c, std::make_index_sequence<count>()), ...);
}

template <size_t... count>
void add_all_mixes(Class *c, std::index_sequence<count...>) {
    (add_mixes<count>(c, std::make_index_sequence<(size_t{1} << count)>()), ...);
}

TEST_F(Dispatch, EveryMixOfIntegersAndDoublesArrives) {
    constexpr size_t most = 7;
    add_all_mixes(c_, std::make_index_sequence<most + 1>());
    EXPECT_EQ(take_texts(), Texts(size_t{2} << most, "class_addmethod: too many args!"));
    void *const maker = "#N"_sym->thing;
    for (size_t shape = 1; shape < size_t{2} << most; ++shape) {
        const size_t count = static_cast<size_t>(std::bit_width(shape)) - 1;
        const size_t doubles = shape - (size_t{1} << count);
        std::vector<Atom> values;
        std::vector<int64_t> expected;
        for (size_t n = 0; n < count; ++n) {
            const auto value = static_cast<int64_t>(n + 1);
            const int64_t wide = (int64_t{1} << 60) + value;
            values.push_back(doubles >> n & 1 ? atom(static_cast<double>(value) + 0.5)
                                              : atom(wide));
            expected.push_back(doubles >> n & 1 ? -2 * value - 1 : wide);
        }
        for (const bool make : {false, true}) {
            const std::string name = mix_name(count, doubles, make);
            "#N"_sym->thing = make ? x_ : maker;  // whose methods get no object
            arrived = {-1};
            send(x_, name.c_str(), values);
            EXPECT_EQ(arrived, expected) << name;
        }
    }
    "#N"_sym->thing = maker;
}

TEST_F(Dispatch, AnythingTakesWhatNothingElseAnswers) {
    class_addmethod(c_, method(note_atoms), "anything", TypeGimme, 0);
    send(x_, "whatever", atoms(1, "a"));
    EXPECT_EQ(called, "whatever 1 a");
    send(x_, "obj:nobody", atoms(1));
    EXPECT_EQ(called, "obj:nobody 1");
    EXPECT_EQ(take_texts(), Texts{});
}

TEST_F(Dispatch, ObjSelectorsGoToTheMethodNamedAfterTheObjectsClass) {
    Class *const other = class_new("dispatch_store", nullptr, nullptr, sizeof(Object), nullptr, 0);
    void *const store = object_register(nullptr, "mystore"_sym, object_alloc(other));
    send(x_, "obj:mystore");
    EXPECT_EQ(take_texts(), Texts{"doesn't understand \"obj:mystore\""});
    class_addmethod(c_, method(note<Symbol *>), "dispatch_store", TypeSymbol, 0);
    send(x_, "obj:mystore");
    EXPECT_EQ(called, "called mystore");
    send(x_, "obj:mystore", atoms("given"));
    EXPECT_EQ(called, "called given");
    object_free(store);
    EXPECT_EQ(class_free(other), ErrorNone);
}

TEST_F(Dispatch, AttributesAreSetAndGotLikeMethods) {
    class_addattr(c_, attribute_new("level", "long"_sym, 0, nullptr, nullptr));
    class_addmethod(c_, method(note_atoms), "anything", TypeGimme, 0);
    send(x_, "level", atoms(5));
    EXPECT_EQ(called, "");
    EXPECT_EQ(object_attr_getlong(x_, "level"_sym), 5);
    c_->flags |= ClassNoAttrMessages;
    send(x_, "level", atoms(6));
    EXPECT_EQ(called, "level 6");
    EXPECT_EQ(object_attr_getlong(x_, "level"_sym), 5);
}

TEST_F(Dispatch, TypedWrappersStandInForMethodsOfCode) {
    class_addtypedwrapper(c_, method(note_atoms), "hidden", TypeGimme, 0);
    send(x_, "hidden", atoms(4));
    EXPECT_EQ(called, "hidden 4");
    EXPECT_EQ(object_method(x_, "hidden"_sym), reinterpret_cast<void *>(intptr_t{77}));
}

TEST_F(Dispatch, TypedMessagesGiveResultsBack) {
    Atom result{};
    std::vector<Atom> given = atoms("back", 1, 2);
    EXPECT_EQ(object_method_typed(x_, nullptr, 3, given.data(), &result), ErrorNone);
    EXPECT_EQ(atom_getlong(&result), 2);
    given = atoms(1, 2);
    EXPECT_EQ(object_method_typed(x_, nullptr, 2, given.data(), &result), ErrorGeneric);
    EXPECT_EQ(object_method_typed(nullptr, "back"_sym, 0, nullptr, &result), ErrorGeneric);
    EXPECT_EQ(take_texts(),
              (Texts{"doesn't understand \"list\"", "method back called on invalid object"}));
}

TEST_F(Dispatch, InvalidObjectsAreReportedAndNeverCalled) {
    int64_t garbage[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    int64_t zeros[8] = {};
    EXPECT_EQ(typedmess(garbage, "int"_sym, 0, nullptr), nullptr);
    EXPECT_EQ(typedmess(nullptr, "int"_sym, 0, nullptr), nullptr);
    EXPECT_EQ(getfn(garbage, "int"_sym), method(nullfn));
    EXPECT_EQ(egetfn(garbage, "int"_sym), method(nullfn));
    EXPECT_EQ(zgetfn(garbage, "int"_sym), method(nullfn));
    EXPECT_EQ(object_method(zeros, "int"_sym), nullptr);
    EXPECT_EQ(object_method(nullptr, "int"_sym), nullptr);
    EXPECT_EQ(object_method(x_, nullptr), nullptr);
    EXPECT_EQ(object_method(garbage, "int"_sym), nullptr);
    EXPECT_EQ(take_texts(),
              (Texts{"typedmess: int: corrupt object", "typedmess: int: corrupt object",
                     "getfn (int): corrupt object", "egetfn (int): corrupt object",
                     "zgetfn (int): corrupt object", "method int called on invalid object",
                     "method int called on invalid object", "trying to call NULL method",
                     "zgetfn (int): corrupt object"}));
}

TEST_F(Dispatch, FunctionLookUpsDifferInWhatTheySay) {
    EXPECT_EQ(getfn(x_, "all"_sym), method(note_atoms));
    EXPECT_EQ(zgetfn(x_, "absent"_sym), nullptr);
    EXPECT_EQ(egetfn(x_, "absent"_sym), method(nullfn));
    EXPECT_EQ(take_texts(), Texts{});
    EXPECT_EQ(getfn(x_, "absent"_sym), method(nullfn));
    EXPECT_EQ(take_texts(), Texts{"doesn't understand \"absent\""});
}

void *add_words(void *, void *a, void *b, void *c, void *d, void *e, void *f, void *g, void *h) {
    intptr_t sum = 0;
    for (void *const each : {a, b, c, d, e, f, g, h}) {
        sum = sum * 10 + reinterpret_cast<intptr_t>(each);
    }
    return reinterpret_cast<void *>(sum);
}

TEST_F(Dispatch, DirectCallsPassEightWordsUnchanged) {
    class_addmethod(c_, method(add_words), "words", TypeCant, 0);
    EXPECT_EQ(reinterpret_cast<intptr_t>(object_method(x_, "words"_sym, 1, 2, 3, 4, 5, 6, 7, 8)),
              12345678);
    EXPECT_EQ(reinterpret_cast<intptr_t>((object_method)(x_, "words"_sym, KIV_WORD(8), KIV_WORD(7),
                                                         KIV_WORD(6), KIV_WORD(5), KIV_WORD(4),
                                                         KIV_WORD(3), KIV_WORD(2), KIV_WORD(1))),
              87654321);
}

Object *decorated = nullptr;
Object *name_decorated(Object *) {
    return decorated;
}

TEST_F(Dispatch, DecoratorsAnswerForTheObjectsTheyName) {
    Class *const wrapper = class_new("decorator", nullptr, nullptr, sizeof(Object), nullptr, 0);
    class_addmethod(wrapper, method(name_decorated), "decorator", TypeCant, 0);
    void *const one = object_alloc(wrapper);
    auto *const two = static_cast<Object *>(object_alloc(wrapper));
    decorated = x_;
    EXPECT_EQ(object_method(one, "hidden"_sym), reinterpret_cast<void *>(intptr_t{77}));
    decorated = two;  // names itself in turn: the search ends all the same
    EXPECT_EQ(object_method(one, "hidden"_sym), nullptr);
    object_free(one);
    object_free(two);
    class_free(wrapper);
}

TEST_F(Dispatch, EveryObjectAnswersItsValue) {
    int32_t argc = 0;
    Atom *argv = nullptr;
    object_method(x_, "getvalueof"_sym, &argc, &argv);
    ASSERT_EQ(argc, 1);
    EXPECT_STREQ(atom_getsym(argv)->name, "object (receiver)");
    sysmem_freeptr(argv);
    EXPECT_EQ(object_method(x_, "getvalueof"_sym, &argc, nullptr), nullptr);
}

void *free_self(Object *x) {
    object_free(x);
    return nullptr;
}
void *throw_one(Object *, int64_t) {
    throw std::runtime_error("broken");
}

TEST_F(Dispatch, MethodsMayFreeTheirReceiverAndThrow) {
    class_addmethod(c_, method(free_self), "die", TypeNothing);
    class_addmethod(c_, method(throw_one), "throw", TypeDefLong, 0);
    send(object_alloc(c_), "die");
    object_method(object_alloc(c_), "die"_sym);
    object_method_typed(object_alloc(c_), "die"_sym, 0, nullptr, nullptr);
    EXPECT_EQ(take_texts(), Texts{});
    EXPECT_EQ(send(x_, "throw"), nullptr);
    EXPECT_EQ(object_method(x_, "throw"_sym), nullptr);
    EXPECT_EQ(take_texts(), Texts(2, "\"throw\": exception: broken"));
}

void *make_number(int64_t value, double other) {
    called = "made " + text_of(value) + " " + text_of(other);
    return reinterpret_cast<void *>(static_cast<intptr_t>(value));
}
void *make_any(Symbol *selector, int32_t argc, Atom *) {
    called = std::string("made ") + selector->name + " " + text_of(int64_t{argc});
    return reinterpret_cast<void *>(intptr_t{4321});
}

TEST_F(Dispatch, TheObjectMakerGetsNoObjectAndKeepsTheNewest) {
    void **const newest = static_cast<void **>("g_kiv_newest"_sym->thing);
    ASSERT_NE(newest, nullptr);
    class_addmethod(c_, method(make_number), "number", TypeLong, TypeDefFloat, 0);
    class_addmethod(c_, method(make_any), "anything", TypeGimme, 0);
    void *const maker = std::exchange("#N"_sym->thing, x_);
    send(x_, "number", atoms(1234, 0.5));
    EXPECT_EQ(called, "made 1234 0.500000");
    EXPECT_EQ(*newest, reinterpret_cast<void *>(intptr_t{1234}));
    send(x_, "unknown", atoms(1));
    EXPECT_EQ(called, "made unknown 1");
    EXPECT_EQ(*newest, reinterpret_cast<void *>(intptr_t{4321}));
    "#N"_sym->thing = maker;
    *newest = nullptr;
}

TEST_F(Dispatch, InstancesWithTheirOwnMethodsAreAskedInsteadOfTheClass) {
    MethodRecord own[3] = {*(x_->methods - 1), {"mine"_sym, method(note<>), {}}, {}};
    c_->flags |= ClassOwnMethods;
    MethodRecord *const shared = std::exchange(x_->methods, own + 1);
    send(x_, "mine");
    EXPECT_EQ(called, "called");
    send(x_, "all");
    EXPECT_EQ(take_texts(), Texts{"doesn't understand \"all\""});
    x_->methods = shared;
    c_->flags &= ~uint32_t{ClassOwnMethods};
}

TEST_F(Dispatch, ErrorsNameTheReceiverAsTheirSource) {
    send(x_, "nothing");
    const auto posts = take_posts();
    ASSERT_EQ(posts.size(), 1u);
    EXPECT_EQ(posts[0].source, x_);
}

}  // namespace
