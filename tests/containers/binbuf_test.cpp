#include <kiv/atom.h>
#include <kiv/binbuf.h>
#include <kiv/class.h>
#include <kiv/object.h>
#include <kiv/receivers.h>
#include <kiv/symbol.h>

#include <bit>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "containers/families.h"
#include "containers/tokenizer.h"
#include "support/console.h"

namespace kiv::test {

namespace {

using Atoms = std::vector<Atom>;

Atom of(int64_t value) {
    return {TypeLong, {.i = value}};
}
Atom of(double value) {
    return {TypeFloat, {.f = value}};
}
Atom of(const char *name) {
    return {TypeSymbol, {.sym = gensym(name)}};
}
Atom dollar(int64_t number) {
    return {TypeDollar, {.i = number}};
}
Atom dollar_symbol(const char *text) {
    return {TypeDollarSymbol, {.sym = gensym(text)}};
}
const Atom semicolon{TypeSemicolon, {.i = 0}};
const Atom comma{TypeComma, {.i = 0}};

int32_t set_text(Binbuf *buf, std::string text) {
    char *start = text.data();
    return binbuf_text(buf, &start, static_cast<int64_t>(text.size()));
}

Atoms atoms_of(Binbuf *buf) {
    Atoms atoms;
    Atom atom;
    for (int64_t type = 0, value = 0; binbuf_getatom(buf, &type, &value, &atom) == 0;) {
        atoms.push_back(atom);
    }
    return atoms;
}

std::string text_of(Binbuf *buf) {
    char *text = nullptr;
    int64_t size = 0;
    EXPECT_EQ(binbuf_totext(buf, &text, &size), 0);
    std::string out(text, static_cast<size_t>(size));
    sysmem_freeptr(text);
    return out;
}

// Type and value, so that a failure shows both.
std::string shown(const Atom &atom) {
    std::string out = std::to_string(atom.type) + ":";
    if (atom.type == TypeSymbol || atom.type == TypeDollarSymbol) {
        return out + atom.value.sym->name;
    }
    return out + std::to_string(atom.value.i);
}

std::vector<std::string> shown(const Atoms &atoms) {
    std::vector<std::string> out;
    for (const Atom &atom : atoms) {
        out.push_back(shown(atom));
    }
    return out;
}

Atoms parse(const std::string &text) {
    Binbuf *buf = binbuf_new();
    EXPECT_EQ(set_text(buf, text), 0);
    Atoms atoms = atoms_of(buf);
    object_free(buf);
    return atoms;
}

// Remembers every message, and may do something at one.
struct Listener {
    Object ob;
    std::vector<std::string> *heard;
    void (*react)(Listener *listener);
    void *context;
};

void *listener_hear(Listener *listener, Symbol *selector, int32_t argc, Atom *argv) {
    Binbuf *words = binbuf_make(argc, argv);
    const std::string text = text_of(words);
    object_free(words);
    listener->heard->push_back(selector->name + (text.empty() ? "" : " " + text));
    if (listener->react) {
        listener->react(listener);
    }
    return selector;
}

Listener *listener_new(std::vector<std::string> *heard) {
    static Class *const c = [] {
        Class *made = class_new("binbuf listener", nullptr, nullptr, sizeof(Listener), nullptr, 0);
        class_addmethod(made, method(listener_hear), "anything", TypeGimme, 0);
        return made;
    }();
    auto *listener = static_cast<Listener *>(object_alloc(c));
    listener->heard = heard;
    return listener;
}

using Texts = std::vector<std::string>;

// What a text sends to a receiver and to the one named "ear", each message marked by its receiver.
struct Evaluated {
    Texts heard;
    Texts posted;
};

template <class Evaluate>
Evaluated evaluate(Evaluate run) {
    Evaluated out;
    Texts named;
    Listener *given = listener_new(&out.heard);
    Listener *ear = listener_new(&named);
    receiver_bind("ear"_sym, ear);
    take_texts();
    run(given);
    out.posted = take_texts();
    receiver_unbind("ear"_sym, ear);
    object_free(given);
    object_free(ear);
    for (const std::string &message : named) {
        out.heard.push_back("ear: " + message);
    }
    return out;
}

Evaluated evaluate_text(const std::string &text, Atoms arguments = {}) {
    return evaluate([&](void *receiver) {
        Binbuf *buf = binbuf_new();
        EXPECT_EQ(set_text(buf, text), 0);
        binbuf_eval(buf, static_cast<int16_t>(arguments.size()), arguments.data(), receiver);
        object_free(buf);
    });
}

std::string random_name(std::mt19937 &random) {
    static const char *const pieces[] = {"a",  "b7", " ",  "\t",  ";",     ",",  "\"", "\\", "$",
                                         "$1", "1",  "0",  "-",   ".",     "e",  "0x", "f",  "#",
                                         "\n", "é",  "語", "$0-", "1.5e3", "10", "~"};
    std::string name;
    for (size_t n = random() % 5; n > 0; --n) {
        name += pieces[random() % std::size(pieces)];
    }
    return name;
}

double random_float(std::mt19937 &random) {
    const double special[] = {
        0.0, -0.0, 1.0, 0.1, 1e300, 5e-324, 1e22, -2.5, std::numeric_limits<double>::infinity()};
    if (random() % 4 == 0) {
        return special[random() % std::size(special)];
    }
    const uint64_t bits = static_cast<uint64_t>(random()) << 32 | random();
    const auto value = std::bit_cast<double>(bits);
    return value == value ? value : 1.0;
}

Atom random_atom(std::mt19937 &random) {
    Atom placeholder;
    switch (random() % 8) {
        case 0:
            return of(static_cast<int64_t>(static_cast<uint64_t>(random()) << 32 | random()));
        case 1:
            return of(random_float(random));
        case 2:
            return semicolon;
        case 3:
            return comma;
        case 4:
            return dollar(static_cast<int64_t>(random() % 10));
        case 5:
            // Only what the text form can say is a placeholder symbol.
            if (read_placeholder(
                    ("$" + std::to_string(random() % 10) + random_name(random)).c_str(), '$',
                    &placeholder)) {
                return placeholder;
            }
            [[fallthrough]];
        default:
            return of(random_name(random).c_str());
    }
}

}  // namespace

TEST(Binbuf, ReadsWords) {
    const std::string long_word(32767, 'x');
    const struct {
        std::string text;
        Atoms atoms;
    } cases[] = {
        {"", {}},
        {" \t\n ", {}},
        {"foo 1, 2;bar", {of("foo"), of(int64_t{1}), comma, of(int64_t{2}), semicolon, of("bar")}},
        {"1e5 - . -. 0x -0x1 1.2.3 +1 1-",
         {of("1e5"), of("-"), of("."), of("-."), of("0x"), of("-0x1"), of("1.2.3"), of("+1"),
          of("1-")}},
        {"0x1F 0xffffffffffffffff -12 007",
         {of(int64_t{31}), of(int64_t{-1}), of(int64_t{-12}), of(int64_t{7})}},
        {".5 1. -2.25 -.5", {of(0.5), of(1.0), of(-2.25), of(-0.5)}},
        {"9223372036854775808 -99999999999999999999",
         {of(std::numeric_limits<int64_t>::max()), of(std::numeric_limits<int64_t>::min())}},
        {"$1 $0 $1-gain $10 $12 $ $x",
         {dollar(1), dollar(0), dollar_symbol("1-gain"), dollar_symbol("10"), of("$12"), of("$"),
          of("$x")}},
        {"\\$1 \"$1\" $\\1", {of("$1"), of("$1"), of("$1")}},
        {"a\\ b \\; x\\,y \\\" \\\\", {of("a b"), of(";"), of("x,y"), of("\""), of("\\")}},
        {"\"a;b\" \"12\" \"\" 1\"\" a\"b c\"d",
         {of("a;b"), of("12"), of(""), of("1"), of("ab cd")}},
        {"\"open end", {of("open end")}},
        {"a \\", {of("a")}},
        {std::string("a\0b \\\0 c", 8), {of("a"), of("b"), of("c")}},
        {"caf\xe9 \xc3\xa9 \xff\xc3", {of("caf\xc3\xa9"), of("\xc3\xa9"), of("\xc3\xbf\xc3\x83")}},
        {"\xed\xa0\x80 \xc0\xaf", {of("\xc3\xad\xc2\xa0\xc2\x80"), of("\xc3\x80\xc2\xaf")}},
        {long_word, {of(long_word.c_str())}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(shown(parse(c.text)), shown(c.atoms)) << c.text.substr(0, 40);
    }
}

TEST(Binbuf, RefusesAWordThatIsTooLong) {
    Binbuf *buf = binbuf_new();
    set_text(buf, "kept 1");
    std::string text = "a " + std::string(32768, 'x');
    char *start = text.data();
    EXPECT_EQ(binbuf_addtext(buf, &start, static_cast<int64_t>(text.size())), 1);
    EXPECT_EQ(text_of(buf), "kept 1");
    EXPECT_EQ(set_text(buf, text), 1);
    EXPECT_EQ(text_of(buf), "");
    object_free(buf);
    // A word that is cut is not cut inside a character.
    std::string accents(32766, 'x');
    accents += "\xc3\xa9 b";
    start = accents.data();
    std::vector<char> word(32768);
    int64_t position = 0;
    Atom atom;
    EXPECT_EQ(readatom(word.data(), &start, &position, static_cast<int64_t>(accents.size()), &atom),
              1);
    EXPECT_EQ(std::strlen(word.data()), 32766u);
    EXPECT_EQ(readatom(word.data(), &start, &position, static_cast<int64_t>(accents.size()), &atom),
              1);
    EXPECT_STREQ(word.data(), "b");
    EXPECT_EQ(readatom(word.data(), &start, &position, static_cast<int64_t>(accents.size()), &atom),
              0);
}

TEST(Binbuf, TheSecondTokenizerKnowsExponents) {
    tokenizer_select(1);
    EXPECT_EQ(shown(parse("1e5 2.5E-3 1e400 -1e-400 1e e5 0x1e5 1e+2")),
              shown({of(1e5), of(2.5e-3), of(std::numeric_limits<double>::infinity()), of(-0.0),
                     of("1e"), of("e5"), of(int64_t{0x1e5}), of(100.0)}));
    tokenizer_select(0);
}

TEST(Binbuf, AppendRewritesMarksInPlace) {
    Atom given[] = {of(";x"), of(","), of("$2"), of("$1-b"), of("$12"), of("plain")};
    const Atoms expected{semicolon, comma, dollar(2), dollar_symbol("1-b"), of("$12"), of("plain")};
    Binbuf *buf = binbuf_new();
    binbuf_append(buf, nullptr, 6, given);
    EXPECT_EQ(shown(atoms_of(buf)), shown(expected));
    EXPECT_EQ(shown(Atoms(given, given + 6)), shown(expected));
    binbuf_delete(buf, 1, 4);
    EXPECT_EQ(text_of(buf), "; $12 plain");
    binbuf_set(buf, nullptr, 0, nullptr);
    // Words of addtext stay plain symbols, and keep being that as text.
    std::string text = "a; b";
    char *start = text.data();
    EXPECT_EQ(binbuf_addtext(buf, &start, 4), 0);
    EXPECT_EQ(shown(atoms_of(buf)), shown({of("a"), of(";"), of("b")}));
    EXPECT_EQ(text_of(buf), "a \\; b");
    binbuf_vinsert(buf, "lfs", int64_t{1}, 2.0, "c d"_sym);
    EXPECT_EQ(text_of(buf), "a \\; b 1 2. \"c d\"");
    Atom odd{static_cast<AtomType>(0x301), {.i = 1}};
    take_texts();
    binbuf_insert(buf, nullptr, 1, &odd);
    EXPECT_EQ(take_texts(), Texts{"bf_putatom: atom contains value too big for binbuf!"});
    object_free(buf);
}

// Whatever atoms a buffer holds, its text reads back to the same, whichever tokenizer reads it.
TEST(Binbuf, TextAndFilesReadBackToTheSameAtoms) {
    const unsigned seed = 90125;
    std::mt19937 random(seed);
    for (int round = 0; round < 1500; ++round) {
        Atoms atoms;
        // Sizes around that of a batch now and then.
        const size_t size = round % 500 == 0 ? 4095 + random() % 3 : random() % 12;
        while (atoms.size() < size) {
            atoms.push_back(random_atom(random));
        }
        Binbuf *buf = binbuf_make(static_cast<int32_t>(atoms.size()), atoms.data());
        const std::string text = text_of(buf);
        tokenizer_select(round % 2);
        ASSERT_EQ(set_text(buf, text), 0);
        tokenizer_select(0);
        ASSERT_EQ(shown(atoms_of(buf)), shown(atoms)) << "seed " << seed << ": " << text;
        object_free(buf);
    }
}

TEST(Binbuf, FilesKeepAtomsInBothForms) {
    const std::string folder = testing::TempDir();
    const std::string file = folder + "binbuf_test.txt";
    const Atoms atoms{of("a;b"), of(int64_t{-3}),      comma, of(0.1), semicolon,
                      dollar(1), dollar_symbol("0-x"), of("")};
    Binbuf *buf = binbuf_make(static_cast<int32_t>(atoms.size()), atoms.data());
    Binbuf *other = binbuf_new();
    for (const int32_t binary : {0, 1}) {
        EXPECT_EQ(binbuf_write(buf, file.c_str(), 0, binary), 0);
        EXPECT_EQ(binbuf_read(other, file.c_str(), 0, binary), 0);
        EXPECT_EQ(shown(atoms_of(other)), shown(atoms)) << "binary " << binary;
    }
    char **handle = nullptr;
    int64_t size = 0;
    EXPECT_EQ(readtohandle(file.c_str(), 0, &handle, &size), 0);
    // Cut or changed anywhere, the file is refused and the content stays.
    take_texts();
    for (int64_t cut = 0; cut < size; ++cut) {
        std::FILE *out = std::fopen(file.c_str(), "wb");
        std::fwrite(*handle, 1, static_cast<size_t>(cut), out);
        std::fclose(out);
        EXPECT_NE(binbuf_read(other, file.c_str(), 0, 1), 0) << "cut at " << cut;
        EXPECT_EQ(take_texts(), Texts{file + ": bad magic number"});
    }
    EXPECT_EQ(shown(atoms_of(other)), shown(atoms));
    sysmem_freehandle(handle);
    EXPECT_NE(binbuf_read(other, (file + ".none").c_str(), 0, 1), 0);
    EXPECT_EQ(take_texts().size(), 1u);
    object_free(buf);
    object_free(other);
}

TEST(Binbuf, SendsMessagesToTheirReceivers) {
    const struct {
        const char *text;
        Atoms arguments;
        Texts heard;
        Texts posted;
    } cases[] = {
        {"foo 1, 2; ear 3", {}, {"foo 1", "int 2", "ear: int 3"}, {}},
        {"1 2, 2.5, 2.5 a, a 1 2,,;;", {}, {"list 1 2", "float 2.5", "list 2.5 a", "a 1 2"}, {}},
        {"$1", {}, {"int 0"}, {}},
        {"$1 $2 $3", {of("x"), of(2.5)}, {"x 2.5 0"}, {}},
        {"; ear a, b", {}, {"ear: a", "ear: b"}, {}},
        {"; $1 a", {of("ear")}, {"ear: a"}, {}},
        {"; $1r a", {of("ea")}, {"ear: a"}, {}},
        {"; nobody a b, ear c", {}, {"ear: c"}, {"nobody: no such object"}},
        {"; $2 a; ear b", {of("ear")}, {"ear: b"}, {"$2: argument out of range"}},
        {"; $1 a", {of(int64_t{5})}, {}, {"5: not a symbol"}},
        {"; $2r a", {of("ea")}, {}, {"$2r: argument out of range"}},
        {"; 7 a, ear b", {}, {"ear: b"}, {"7: not a symbol"}},
        {"a $0", {}, {"a \"$0\""}, {"\"$\" variable out of range"}},
        {"a $1-x $2-y", {of(2.5)}, {"a 2.5-x \"$2-y\""}, {"\"$\" variable out of range"}},
        {"a $10", {of("b")}, {"a b0"}, {}},
    };
    for (const auto &c : cases) {
        const Evaluated result = evaluate_text(c.text, c.arguments);
        EXPECT_EQ(result.heard, c.heard) << c.text;
        EXPECT_EQ(result.posted, c.posted) << c.text;
    }
    const Texts first = evaluate_text("$0-x").heard;
    EXPECT_NE(first, evaluate_text("$0-x").heard);
}

TEST(Binbuf, RefusesWhatIsNoMessage) {
    const Atom object{TypeObject, {.obj = nullptr}};
    Atoms atoms{of("a"), object, comma, of("b")};
    Evaluated result = evaluate([&](void *receiver) {
        Binbuf *buf = binbuf_make(static_cast<int32_t>(atoms.size()), atoms.data());
        binbuf_eval(buf, 0, nullptr, receiver);
        object_free(buf);
    });
    EXPECT_EQ(result.heard, Texts{"b"});
    EXPECT_EQ(result.posted, Texts{"<nogood_object>: bad argument"});
    // The limit ends the evaluation; one atom less is a message.
    for (const size_t size : {4096u, 4097u}) {
        atoms.assign(size, of(int64_t{1}));
        atoms.insert(atoms.end(), {comma, of("after")});
        result = evaluate([&](void *receiver) {
            Binbuf *buf = binbuf_make(static_cast<int32_t>(atoms.size()), atoms.data());
            binbuf_eval(buf, 0, nullptr, receiver);
            object_free(buf);
        });
        EXPECT_EQ(result.heard.size(), size == 4096 ? 2u : 0u);
        EXPECT_EQ(result.posted, size == 4096 ? Texts{} : Texts{"Message stack overflow"});
    }
}

TEST(Binbuf, TheSecondEvaluatorFollowsItsOwnRules) {
    Atoms atoms{of("#f1"), of("#i2"), of("#x"), dollar(10), dollar(11), dollar_symbol("9x"),
                comma,     of("a"),   {},       comma,      of("b")};
    Atoms arguments(10, of("arg"));
    arguments.resize(10);
    Evaluated result = evaluate([&](void *receiver) {
        atoms_eval(static_cast<int32_t>(atoms.size()), atoms.data(), 8, arguments.data(), receiver);
    });
    EXPECT_EQ(result.heard, (Texts{"list 0. 0 #x \"$10\" $11 \"$9x\"", "b"}));
    EXPECT_EQ(result.posted,
              (Texts{"\"$\" variable out of range (10)", "\"$\" variable out of range (11)",
                     "\"$\" symbol variable out of range", "bad argument (0)"}));
    atoms.assign(5000, dollar(10));
    result = evaluate(
        [&](void *receiver) { atoms_eval(5000, atoms.data(), 10, arguments.data(), receiver); });
    ASSERT_EQ(result.heard.size(), 1u);
    EXPECT_EQ(result.heard[0].size(), 5000 * 4 - 1) << "more than a buffer's message may hold";
}

TEST(Binbuf, SubstitutesArguments) {
    const Atoms arguments{of(int64_t{42}), of("one"), of(2.5)};
    Atoms atoms{of("#1"),  of("#2"),  of("#0-x"), of("#1x"), of("#3"),
                of("#3x"), of("C#4"), of("#12"),  dollar(1)};
    atoms_substitute(static_cast<int32_t>(atoms.size()), atoms.data(), '#', 3, arguments.data());
    EXPECT_EQ(shown(atoms), shown({of("one"), of(2.5), of("42-x"), of("onex"), of(int64_t{0}),
                                   of("#3x"), of("C#4"), of("#12"), dollar(1)}));
    atoms = {dollar(1), of("$2"), dollar_symbol("0-x"), of("#1")};
    atoms_substitute(4, atoms.data(), '$', 3, arguments.data());
    EXPECT_EQ(shown(atoms), shown({of("one"), of(2.5), of("42-x"), of("#1")}));
}

// The buffer being evaluated may be appended to, emptied, replaced or freed by what it sends.
TEST(Binbuf, SurvivesWhatItsReceiversDoToIt) {
    void (*const reactions[])(Listener *) = {
        [](Listener *l) {
            Atom more[] = {of(","), of("more")};
            for (int i = 0; i < 1000; ++i) {
                binbuf_append(static_cast<Binbuf *>(l->context), nullptr, 2, more);
            }
            l->react = nullptr;
        },
        [](Listener *l) { set_text(static_cast<Binbuf *>(l->context), ""); },
        [](Listener *l) { object_free(l->context); },
        [](Listener *l) { object_free(l); },
    };
    const size_t heard_sizes[] = {1003, 1, 1, 1};
    for (size_t i = 0; i < std::size(reactions); ++i) {
        Texts heard;
        Listener *listener = listener_new(&heard);
        Binbuf *buf = binbuf_new();
        set_text(buf, "a, b, c");
        listener->react = reactions[i];
        listener->context = buf;
        binbuf_eval(buf, 0, nullptr, listener);
        EXPECT_EQ(heard.size(), heard_sizes[i]) << "reaction " << i;
        if (i != 2) {
            object_free(buf);
        }
        if (i != 3) {
            object_free(listener);
        }
        take_texts();
    }
}

TEST(Binbuf, EndlessEvaluationIsAnErrorAndNoCrash) {
    Texts heard;
    Listener *listener = listener_new(&heard);
    Binbuf *buf = binbuf_new();
    set_text(buf, "again");
    listener->context = buf;
    listener->react = [](Listener *l) {
        binbuf_eval(static_cast<Binbuf *>(l->context), 0, nullptr, l);
    };
    take_texts();
    binbuf_eval(buf, 0, nullptr, listener);
    EXPECT_EQ(take_texts(), Texts{"message text: evaluations are nested too deeply"});
    EXPECT_GT(heard.size(), 20u);
    object_free(buf);
    object_free(listener);
}

TEST(Binbuf, StaysAsItWasWithoutMemory) {
    Atoms atoms(100, of("x"));
    for (int64_t n = 1; n < 8; ++n) {
        const int64_t blocks = memory_live_blocks();
        Binbuf *buf = binbuf_make(1, atoms.data());
        memory_fail_at(n);
        binbuf_append(buf, nullptr, 100, atoms.data());
        const size_t size = atoms_of(buf).size();
        EXPECT_TRUE(size == 1 || size == 101) << size;
        std::string text = "y z";
        char *start = text.data();
        const int32_t failed = binbuf_addtext(buf, &start, 3);
        EXPECT_EQ(atoms_of(buf).size(), size + (failed ? 0 : 2));
        memory_fail_at(0);
        object_free(buf);
        take_texts();
        EXPECT_LE(memory_live_blocks(), blocks + 3);
    }
}

TEST(Receivers, ShareANameInTheOrderOfBinding) {
    Texts heard[3];
    Listener *listeners[3];
    Symbol *name = "shared"_sym;
    for (int i = 0; i < 3; ++i) {
        listeners[i] = listener_new(&heard[i]);
    }
    static Texts order;
    order.clear();
    for (Listener *listener : listeners) {
        listener->react = [](Listener *l) { order.push_back(l->heard->back()); };
    }
    EXPECT_EQ(receiver_bind(nullptr, listeners[0]), ErrorInvalidPointer);
    EXPECT_EQ(receiver_unbind(name, listeners[0]), ErrorGeneric);
    receiver_bind(name, listeners[0]);
    receiver_bind(name, listeners[0]);
    EXPECT_EQ(name->thing, listeners[0]);
    receiver_bind(name, listeners[1]);
    receiver_bind(name, listeners[2]);
    receiver_bind(name, listeners[1]);
    evaluate_text("; shared a 1, 5");
    for (const Texts &texts : heard) {
        EXPECT_EQ(texts, (Texts{"a 1", "int 5"}));
    }
    EXPECT_EQ(order, (Texts{"a 1", "a 1", "a 1", "int 5", "int 5", "int 5"}));
    // The second leaves, and takes the third with it, while a message is under way.
    listeners[1]->context = listeners[2];
    listeners[1]->react = [](Listener *l) {
        receiver_unbind("shared"_sym, l->context);
        receiver_unbind("shared"_sym, l);
        object_free(l);
    };
    evaluate_text("; shared b");
    EXPECT_EQ(heard[0].back(), "b");
    EXPECT_EQ(heard[1].back(), "b");
    EXPECT_EQ(heard[2].back(), "int 5");
    EXPECT_EQ(name->thing, listeners[0]);
    // One that was freed without unbinding is dropped.
    receiver_bind(name, listeners[2]);
    object_free(listeners[0]);
    typedmess(name->thing, "c"_sym, 0, nullptr);
    EXPECT_EQ(heard[2].back(), "c");
    EXPECT_EQ(name->thing, listeners[2]);
    object_free(listeners[2]);
    receiver_unbind(name, listeners[2]);
    EXPECT_EQ(name->thing, nullptr);
}

}  // namespace kiv::test
