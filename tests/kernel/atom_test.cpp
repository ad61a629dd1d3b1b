#include <kiv/atom.h>
#include <kiv/binbuf.h>
#include <kiv/class.h>
#include <kiv/object.h>
#include <kiv/string.h>
#include <kiv/symbol.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sched/internal.h"
#include "support/console.h"

namespace kiv::test {
namespace {

Atom integer(int64_t value) {
    Atom atom;
    atom_setlong(&atom, value);
    return atom;
}
Atom number(double value) {
    Atom atom;
    atom_setfloat(&atom, value);
    return atom;
}
Atom name(const char *text) {
    Atom atom;
    atom_setsym(&atom, gensym(text));
    return atom;
}
Atom object(void *x) {
    Atom atom;
    atom_setobj(&atom, x);
    return atom;
}
Atom mark(AtomType type, int64_t value = 0) {
    Atom atom{type, {value}};
    return atom;
}
Atom placeholder(const char *text) {
    Atom atom = name(text);
    atom.type = TypeDollarSymbol;
    return atom;
}

std::string text_of(const std::vector<Atom> &atoms, int32_t flags) {
    int64_t size = 0;
    char *text = nullptr;
    EXPECT_EQ(atom_gettext(static_cast<int32_t>(atoms.size()), atoms.data(), &size, &text, flags),
              0);
    const std::string copy = text;
    EXPECT_EQ(size, atoms.empty() ? 0 : static_cast<int64_t>(copy.size()) + 1);
    sysmem_freeptr(text);
    return copy;
}

// Objects that describe themselves, or do not.
void *say_value(Object *, char **text) {
    constexpr char value[] = "a value";
    *text = static_cast<char *>(sysmem_newptr(sizeof value));
    std::memcpy(*text, value, sizeof value);
    return nullptr;
}
void *give_value(Object *, int32_t *count, Atom **atoms) {
    atom_setformat(count, atoms, "ls", 5, gensym("five"));
    return nullptr;
}
Object *make(const char *class_name, bool with_methods) {
    Class *c = class_new(class_name, nullptr, nullptr, sizeof(Object), nullptr, 0);
    if (with_methods) {
        class_addmethod(c, reinterpret_cast<Method>(say_value), "getvaluetext", TypeCant, 0);
        class_addmethod(c, reinterpret_cast<Method>(give_value), "getvalueof", TypeCant, 0);
    }
    class_register(gensym("nobox"), c);
    return static_cast<Object *>(object_alloc(c));
}
void unmake(Object *x) {
    Class *const c = object_class(x);
    object_free(x);
    class_free(c);
}

TEST(Atom, TextQuotesAndEscapesSoThatItReadsBack) {
    const Atom comma = mark(TypeComma);
    const struct {
        std::vector<Atom> atoms;
        int32_t flags;
        const char *text;
    } cases[] = {
        {{}, 0, ""},
        {{number(2.5)}, 0, "2.5"},
        {{number(3.0)}, 0, "3."},
        {{number(3.0)}, 16, "3.000000"},
        {{number(3.0)}, 64, "3."},
        {{number(3.0)}, 64 | 16, "3.00"},
        {{number(0.5), number(0.0), number(100)}, 0, "0.5 0. 100."},
        {{number(1.0 / 3)}, 32 | 64, "0.333333333333"},
        {{integer(-5000000000)}, 0, "-5000000000"},
        {{name("a b")}, 0, "\"a b\""},
        {{name("a b")}, 2, "a b"},
        {{name("x;y")}, 0, "x\\;y"},
        {{name("x;y")}, 2, "x;y"},
        {{name("x;y")}, 4, "\"x;y\""},
        {{name("x;y")}, 4 | 2, "\"x;y\""},
        {{name("q\"\\,$")}, 0, "q\\\"\\\\\\,\\$"},
        {{name("q\"\\ ,$")}, 0, "\"q\\\"\\\\ ,$\""},
        {{integer(1), comma, integer(2)}, 0, "1, 2"},
        {{integer(1), comma, integer(2)}, 8, "1, 2"},
        {{integer(1), integer(2), comma}, 8, "1, 2,"},
        {{mark(TypeSemicolon), mark(TypeDollar, 3)}, 0, "; $3"},
        {{placeholder("1-gain")}, 0, "\"$1-gain"},
        {{placeholder("1 b")}, 0, "\"$1 b\""},
        {{mark(TypeNothing), mark(99)}, 0, "<unknown> <unknown>"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(text_of(c.atoms, c.flags), c.text) << "flags " << c.flags;
    }
    Atom no_symbol;
    atom_setsym(&no_symbol, nullptr);
    EXPECT_EQ(text_of({no_symbol}, 0), "<unknown>");
    EXPECT_EQ(text_of({number(1e300)}, 0).size(), 302u);
}

TEST(Atom, TextOfObjects) {
    Object *speaking = make("atomtest_speaking", true);
    Object *mute = make("atomtest_mute", false);
    EXPECT_EQ(text_of({object(speaking), object(mute), object(nullptr)}, 0),
              "a value atomtest_mute <nogood_object>");
    alignas(8) const char no_object[64] = "no object at all";
    EXPECT_EQ(text_of({object(const_cast<char *>(no_object))}, 0), "<nogood_object>");
    unmake(speaking);
    unmake(mute);
}

TEST(Atom, TextNeverPassesTheCallersBuffer) {
    const std::vector<Atom> atoms = {name("longer than the buffer")};
    char buffer[12] = "###########";
    char *text = buffer;
    int64_t size = 6;
    EXPECT_EQ(atom_gettext(1, atoms.data(), &size, &text, 2), 0);
    EXPECT_STREQ(buffer, "longe");
    EXPECT_EQ(buffer[6], '#');
    EXPECT_EQ(atom_gettext(0, atoms.data(), &size, &text, 0), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(atom_gettext(-1, atoms.data(), &size, &text, 0), -1);
    EXPECT_EQ(atom_gettext(1, nullptr, &size, &text, 0), -1);
    for (int n = 1; n <= 3; ++n) {
        text = nullptr;
        size = 0;
        const int64_t before = memory_live_blocks();
        memory_fail_at(n);
        const ErrorCode result = atom_gettext(1, atoms.data(), &size, &text, 0);
        memory_fail_at(0);
        EXPECT_EQ(result == 0, text != nullptr);
        sysmem_freeptr(text);
        EXPECT_EQ(memory_live_blocks(), before);
    }
}

TEST(Atom, GettersConvert) {
    constexpr int64_t largest = std::numeric_limits<int64_t>::max();
    constexpr int64_t smallest = std::numeric_limits<int64_t>::min();
    const struct {
        Atom atom;
        int64_t as_long;
        double as_float;
        int64_t as_fix;
    } cases[] = {
        {integer(300), 300, 300.0, 255},
        {integer(-2), -2, -2.0, 0},
        {number(-2.7), -2, -2.7, 0},
        {number(0.5), 0, 0.5, 127},
        {number(1e30), largest, 1e30, 255},
        {number(-1e30), smallest, -1e30, 0},
        {name("12abc"), 12, 12.0, 0},
        {name(" +7"), 7, 7.0, 0},
        {name("-0.1"), 0, static_cast<double>(-0.1f), 0},
        {name("99999999999999999999"), largest, 1e20f, 0},
        {name("-1e99"), -1, -std::numeric_limits<double>::infinity(), 0},
        {mark(TypeComma, 5), 0, 0.0, 0},
    };
    take_posts();
    for (const auto &c : cases) {
        EXPECT_EQ(atom_getlong(&c.atom), c.as_long);
        EXPECT_EQ(atom_getfloat(&c.atom), c.as_float);
        EXPECT_EQ(atom_getcharfix(&c.atom), c.as_fix);
    }
    EXPECT_TRUE(take_texts().empty());
    const Atom not_a_number = number(std::nan(""));
    EXPECT_EQ(atom_getlong(&not_a_number), 0);
    for (const char *bad : {"abc", "", "-"}) {
        const Atom atom = name(bad);
        EXPECT_EQ(atom_getlong(&atom), 0);
        EXPECT_EQ(atom_getfloat(&atom), 0.0);
        const std::string message = std::string(bad) + ": bad number";
        EXPECT_EQ(take_texts(), (std::vector<std::string>{message, message}));
    }
    const Atom plain = integer(1);
    EXPECT_EQ(atom_getsym(&plain), gensym(""));
    EXPECT_EQ(atom_getobj(&plain), nullptr);
    String *string = string_new("in a string");
    const Atom boxed = object(string);
    EXPECT_EQ(atom_getsym(&boxed), gensym("in a string"));
    EXPECT_EQ(atom_getobj(&boxed), string);
    object_free(string);
}

TEST(Atom, NullAtomsAreTolerated) {
    EXPECT_EQ(atom_setlong(nullptr, 1), -2);
    EXPECT_EQ(atom_setfloat(nullptr, 1), -2);
    EXPECT_EQ(atom_setsym(nullptr, nullptr), -2);
    EXPECT_EQ(atom_setobj(nullptr, nullptr), -2);
    EXPECT_EQ(atom_gettype(nullptr), 0);
    EXPECT_EQ(atom_getlong(nullptr), 0);
    EXPECT_EQ(atom_getfloat(nullptr), 0.0);
    EXPECT_EQ(atom_getsym(nullptr), gensym(""));
    EXPECT_EQ(atom_getobj(nullptr), nullptr);
    EXPECT_EQ(atom_getcharfix(nullptr), 0);
}

TEST(Atom, ArgumentsAndArraysStopAtTheirCounts) {
    Atom atoms[3] = {integer(1), integer(2), integer(258)};
    int64_t longs[2] = {0, 0};
    EXPECT_EQ(atom_getlong_array(3, atoms, 2, longs), -1);
    EXPECT_EQ(longs[1], 2);
    const int64_t sevens[2] = {7, 8};
    EXPECT_EQ(atom_setlong_array(3, atoms, 2, sevens), 0);
    EXPECT_EQ(atom_getlong(&atoms[1]), 8);
    EXPECT_EQ(atom_getlong(&atoms[2]), 258);
    EXPECT_EQ(atom_setlong_array(1, atoms, 2, sevens), -1);
    uint8_t bytes[3] = {};
    EXPECT_EQ(atom_getchar_array(3, atoms, 3, bytes), 0);
    EXPECT_EQ(bytes[2], 2);
    // The result comes before the checks of the pointers.
    EXPECT_EQ(atom_getlong_array(3, nullptr, 2, longs), -1);
    EXPECT_EQ(atom_getlong_array(2, nullptr, 2, longs), 0);

    float single = 0;
    EXPECT_EQ(atom_arg_getfloat(&single, 2, 3, atoms), 0);
    EXPECT_EQ(single, 258.0f);
    EXPECT_EQ(atom_arg_getfloat(&single, 3, 3, atoms), -1);
    EXPECT_EQ(atom_arg_getlong(nullptr, 0, 3, atoms), -1);
    Symbol *symbol = nullptr;
    EXPECT_EQ(atom_arg_getsym(&symbol, 0, 0, atoms), -1);
    EXPECT_EQ(symbol, nullptr);
}

TEST(Atom, StorageKeepsTheCallersArray) {
    Atom local[2];
    Atom *atoms = local;
    int32_t count = 2;
    uint8_t allocated = 9;
    EXPECT_EQ(atom_alloc(&count, &atoms, &allocated), 0);
    EXPECT_EQ(atoms, local);
    EXPECT_EQ(allocated, 0);
    EXPECT_EQ(atom_alloc_array(3, &count, &atoms, &allocated), -1);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(atom_alloc_array(1, &count, &atoms, &allocated), 0);
    EXPECT_EQ(count, 1);

    count = 0;
    atoms = nullptr;
    memory_fail_at(1);
    EXPECT_EQ(atom_alloc_array(3, &count, &atoms, &allocated), -4);
    memory_fail_at(0);
    EXPECT_EQ(atom_alloc_array(3, &count, &atoms, &allocated), 0);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(allocated, 1);
    EXPECT_EQ(atom_gettype(&atoms[2]), TypeNothing);
    sysmem_freeptr(atoms);

    EXPECT_EQ(atom_dynamic_start(local, 2, 2), local);
    Atom *heap = atom_dynamic_start(local, 2, 3);
    EXPECT_NE(heap, local);
    atom_dynamic_end(local, heap);
    atom_dynamic_end(local, local);
}

TEST(Atom, FormatPacksAndUnpacks) {
    Object *giver = make("atomtest_giver", true);
    const double doubles[] = {0.5, 1.5};
    const char *texts[] = {"one", nullptr};
    const Atom copied = name("copied");
    Binbuf *buf = binbuf_new();
    char message[] = "foo 1, 2";
    char *message_text = message;
    binbuf_text(buf, &message_text, static_cast<int64_t>(std::strlen(message)));
    int32_t count = 0;
    Atom *atoms = nullptr;
    EXPECT_EQ(atom_setformat(&count, &atoms, "c l x f d s z z o a a D Z b p v", 1, -2,
                             int64_t{1} << 40, 2.5, 3.5, gensym("sym"), "text", nullptr, giver,
                             &copied, nullptr, 2, doubles, 2, texts, buf, "x y 3", giver),
              0);
    std::vector<Atom> all(atoms, atoms + count);
    EXPECT_EQ(text_of(all, 0),
              "1 -2 1099511627776 2.5 3.5 sym text <NULL> a value copied 0 0.5 1.5 one <NULL> "
              "foo 1, 2 x y 3 5 five");
    char c = 0;
    int32_t l = 0;
    int64_t x = 0;
    float f = 0;
    Symbol *symbol = nullptr;
    const char *text = nullptr;
    void *obj = nullptr;
    double read[3] = {};
    EXPECT_EQ(atom_getformat(count, atoms, "clxfdszooaaD", &c, &l, &x, &f, nullptr, &symbol, &text,
                             &obj, &obj, nullptr, nullptr, 2, read),
              0);
    EXPECT_EQ(c, 1);
    EXPECT_EQ(l, -2);
    EXPECT_EQ(x, int64_t{1} << 40);
    EXPECT_EQ(f, 2.5f);
    EXPECT_EQ(symbol, gensym("sym"));
    EXPECT_STREQ(text, "text");
    EXPECT_EQ(obj, giver);  // the second "o" met the object, the first a symbol
    EXPECT_EQ(read[0], 0.5);
    EXPECT_EQ(read[1], 1.5);
    sysmem_freeptr(atoms);

    Atom room[3] = {integer(0), integer(0), integer(77)};
    atoms = room;
    count = 2;
    EXPECT_EQ(atom_setformat(&count, &atoms, "lD", 1, 2, doubles), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(atom_getlong(&room[2]), 77);
    read[1] = -1;
    EXPECT_EQ(atom_getformat(2, room, "lD", &l, 3, read), 0);
    EXPECT_EQ(read[0], 0.5);
    EXPECT_EQ(read[1], -1.0);
    take_posts();
    const int32_t ints[] = {4};
    atom_setformat(&count, &atoms, "L", 1, ints);
    atom_getformat(count, atoms, "L", 1, &l);
    EXPECT_EQ(l, 4);
    EXPECT_EQ(take_texts(),
              (std::vector<std::string>{"atom_setformat: warning! 'L' is ambiguous!",
                                        "atom_getformat: warning! 'L' is ambiguous!"}));
    object_free(buf);
    unmake(giver);
}

TEST(Atom, ParsingFillsTheCallersArrayOrMakesOne) {
    int32_t count = 0;
    Atom *atoms = nullptr;
    EXPECT_EQ(atom_setparse(&count, &atoms, "foo 1 2. \"a b\"; $1, $2-x 0x10"), 0);
    ASSERT_EQ(count, 9);
    const std::vector<int> types = {3, 1, 2, 3, 10, 12, 11, 13, 1};
    for (int32_t i = 0; i < count; ++i) {
        EXPECT_EQ(atoms[i].type, types[static_cast<size_t>(i)]) << i;
    }
    EXPECT_EQ(atom_setparse(&count, &atoms, ""), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(atoms[1].type, TypeLong);
    count = 2;
    EXPECT_EQ(atom_setparse(&count, &atoms, "a b c d"), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(atoms[2].type, TypeFloat);
    sysmem_freeptr(atoms);
    atoms = nullptr;
    count = 0;
    EXPECT_EQ(atom_setparse(&count, &atoms, "  "), 0);
    EXPECT_EQ(atoms, nullptr);
}

TEST(Atom, PlainTexts) {
    Object *mute = make("atomtest_plain", false);
    const std::vector<Atom> atoms = {name("a b"),        integer(5000000000), mark(TypeDollar, 2),
                                     placeholder("1-x"), number(0.5),         mark(TypeComma),
                                     object(mute),       object(nullptr)};
    char text[200];
    const int32_t length = atoms_totext(text, static_cast<int32_t>(atoms.size()), atoms.data());
    EXPECT_STREQ(text, "a b 705032704 $2 $1-x0.500000 atomtest_plain ");
    EXPECT_EQ(length, static_cast<int32_t>(std::strlen(text)));
    const struct {
        Atom atom;
        const char *text;
    } cases[] = {{name("a b"), "a b"},
                 {integer(5000000000), "705032704"},
                 {number(2.0 / 3), "0.67"},
                 {object(nullptr), "NULL"},
                 {object(mute), "atomtest_plain"},
                 {mark(TypeDollar, 3), "$3"},
                 {placeholder("1-x"), "$1-x"},
                 {mark(TypeSemicolon), ";"},
                 {mark(TypeComma), ","},
                 {mark(TypeNothing), "(end)"},
                 {mark(TypeGimme), "?"}};
    for (const auto &c : cases) {
        EXPECT_STREQ(atom_string(&c.atom), c.text);
    }
    take_posts();
    const std::string longest(32767, 'n');
    const Atom posted[] = {name("%s"), mark(TypeComma), object(nullptr),
                           placeholder(longest.c_str())};
    for (const Atom &atom : posted) {
        postatom(&atom);
    }
    EXPECT_EQ(std::strlen(atom_string(&posted[3])), 32767u);
    const auto texts = take_texts();
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[0], "%s");
    EXPECT_EQ(texts[1].size(), 2047u);
    unmake(mute);
}

}  // namespace
}  // namespace kiv::test
