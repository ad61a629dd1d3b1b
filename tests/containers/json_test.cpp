#include <bit>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <random>
#include <set>
#include <span>
#include <vector>

#include "containers/json.h"
#include "containers/values.h"
#include "containers/values_support.h"

namespace kiv::test {
namespace {

using namespace kiv::literals;

// --- Writing -------------------------------------------------------------------------------------

std::string written_value(const Atom &atom) {
    OwnedDictionary dictionary = make_dictionary();
    dictionary_appendatom_flags(dictionary.get(), "v"_sym, &atom, ContainerReference);
    const std::string text = write_json(dictionary.get());
    const std::string before = "{\r\n\t\"v\" : ";
    const std::string after = "\r\n}\r\n";
    EXPECT_TRUE(text.starts_with(before) && text.ends_with(after)) << text;
    return text.substr(before.size(), text.size() - before.size() - after.size());
}

TEST(JsonWriter, WritesEachKindOfAtom) {
    const Atom nothing{};
    Atom semicolon{TypeSemicolon, {.i = 0}};
    Atom comma{TypeComma, {.i = 0}};
    Atom dollar{TypeDollar, {.i = 3}};
    Atom dollar_symbol{TypeDollarSymbol, {.sym = gensym("1-\"x")}};
    Atom null_symbol{TypeSymbol, {.sym = nullptr}};
    const struct {
        Atom atom;
        const char *text;
    } cases[] = {
        {nothing, "null"},
        {long_atom(INT64_MIN), "-9223372036854775808"},
        {float_atom(3.0), "3.0"},
        {float_atom(0.25), "0.25"},
        {float_atom(0.1), "0.1"},
        {float_atom(-0.0), "-0.0"},
        {float_atom(100.0), "100.0"},
        {float_atom(1e-16), "0.0"},
        {float_atom(1e22), "10000000000000000000000.0"},
        {symbol_atom("a\"b\\c\n\r\t\b/\xc3\xa9\x01"), "\"a\\\"b\\\\c\\n\\r\\t\\b/\xc3\xa9\x01\""},
        {symbol_atom(";"), "\"\\u003b\""},
        {symbol_atom(","), "\"\\u002c\""},
        {symbol_atom("$"), "\"\\u0024\""},
        {symbol_atom("$1"), "\"$1\""},
        {null_symbol, "\"\""},
        {semicolon, "\";\""},
        {comma, "\",\""},
        {dollar, "\"$3\""},
        {dollar_symbol, "\"$1-\\\"x\""},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(written_value(c.atom), c.text);
    }
    EXPECT_EQ(written_value(float_atom(std::numeric_limits<double>::max())).size(), 311u);
    EXPECT_TRUE(take_posts().empty());
}

TEST(JsonWriter, ReplacesWhatJsonCannotHold) {
    for (const double value : {HUGE_VAL, -HUGE_VAL, std::nan("")}) {
        EXPECT_EQ(written_value(float_atom(value)), "0.");
        const std::vector<Posted> posts = take_posts();
        ASSERT_EQ(posts.size(), 1u);
        EXPECT_EQ(posts[0].kind, PostWarning);
        EXPECT_EQ(posts[0].text,
                  "detected out-of-range float value (inf or nan) when writing JSON file, "
                  "replacing with 0");
    }
    Atom unknown{TypeGimme, {.i = 0}};
    EXPECT_EQ(written_value(unknown), "null");
    EXPECT_EQ(take_texts(),
              (std::vector<std::string>{"jsonwriter_writeatom: unsupported atom type: 8"}));
}

TEST(JsonWriter, LaysOutNestedObjects) {
    const OwnedDictionary dictionary = read_json(R"({"z":{"b":[1,{"k":2.5},[]],"e":{}},"a":"x"})");
    ASSERT_TRUE(dictionary);
    EXPECT_EQ(write_json(dictionary.get()),
              "{\r\n"
              "\t\"z\" : \t{\r\n"
              "\t\t\"b\" : [ 1, \t\t\t{\r\n"
              "\t\t\t\t\"k\" : 2.5\r\n"
              "\t\t\t}\r\n"
              ", [  ] ],\r\n"
              "\t\t\"e\" : \t\t{\r\n"
              "\r\n"
              "\t\t}\r\n"
              "\r\n"
              "\t}\r\n"
              ",\r\n"
              "\t\"a\" : \"x\"\r\n"
              "}\r\n");
}

TEST(JsonWriter, RefusesWhatIsNestedTooDeeply) {
    OwnedDictionary root = make_dictionary();
    dictionary_appendobject_flags(root.get(), "self"_sym, root.get(), ContainerReference);
    JsonText text;
    EXPECT_FALSE(json_from_dictionary(root.get(), text));
    EXPECT_EQ(take_texts(),
              (std::vector<std::string>{"jsonwriter: nested deeper than 1000 containers"}));
}

// --- Reading -------------------------------------------------------------------------------------

// Fifteen decimals, exactly as the formatted output of the language has them.
TEST(JsonWriter, WritesFloatsToTheLastDigit) {
    std::mt19937_64 random(15);
    for (int i = 0; i < 20000; ++i) {
        const uint64_t bits = random();
        double value = std::bit_cast<double>(bits);
        if (i % 4) {
            value =
                std::ldexp(static_cast<double>(bits >> (i % 53)), static_cast<int>(i % 90) - 80);
        }
        if (!std::isfinite(value)) {
            continue;
        }
        char digits[400];
        std::snprintf(digits, sizeof digits, "%0.15f", i % 3 ? value : -value);
        std::string expected = digits;
        while (expected.ends_with('0') && expected[expected.size() - 2] != '.') {
            expected.pop_back();
        }
        JsonText text;
        json_append_atom(float_atom(i % 3 ? value : -value), text);
        ASSERT_EQ(text.view(), expected) << i;
    }
}

TEST(JsonReader, ReadsValues) {
    const struct {
        const char *json;
        const char *again;  // as the writer gives it back
    } cases[] = {
        {"{}", "{}"},
        {" { \"a\" : -0 , \"b\":0.5,\"c\":1e3, \"d\":-2.50E-1 }",
         R"({"a" : 0,"b" : 0.5,"c" : 1000.0,"d" : -0.25})"},
        {"{\"a\":0.,\"b\":12.}", R"({"a" : 0.0,"b" : 12.0})"},
        {R"({"a":9223372036854775807,"b":-9223372036854775808})",
         R"({"a" : 9223372036854775807,"b" : -9223372036854775808})"},
        {R"({"a":9223372036854775808,"b":-9e18,"c":-9223372036854775809})",
         R"({"a" : 9223372036854775807,"b" : -9000000000000000000.0,"c" : -9223372036854775808})"},
        {R"({"a":true,"b":false,"c":null})", R"({"a" : 1,"b" : 0,"c" : null})"},
        {R"({"a":[],"b":[[1,null],[]],"c":[{"k":"v"}]})",
         R"({"a" : [  ],"b" : [ [ 1, null ], [  ] ],"c" : [ {"k" : "v"} ]})"},
        {R"({"a":1,"b":2,"a":{"c":3}})", R"({"a" : {"c" : 3},"b" : 2})"},
        {R"({"":"","a":"\"\\\/\b\f\n\r\t"})", "{\"\" : \"\",\"a\" : \"\\\"\\\\/\\b\f\\n\\r\\t\"}"},
        {R"({"a":"\u0041\u00e9\u20ac\ud83d\ude00\u003B"})",
         "{\"a\" : \"A\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80;\"}"},
        {R"({"a":"\ud83dx","b":"\ud83d\ud83d\ude00","c":"\ude00","d":"x\ud83d"})",
         "{\"a\" : \"\xef\xbf\xbdx\",\"b\" : \"\xef\xbf\xbd\xf0\x9f\x98\x80\",\"c\" : "
         "\"\xef\xbf\xbd\",\"d\" : \"x\xef\xbf\xbd\"}"},
        {"\xef\xbb\xbf{\"a\":1}\r\n", R"({"a" : 1})"},
    };
    for (const auto &c : cases) {
        std::string message;
        const OwnedDictionary dictionary = read_json(c.json, &message);
        ASSERT_TRUE(dictionary) << c.json << message;
        EXPECT_EQ(in_short(dictionary.get()), c.again) << c.json;
    }
}

TEST(JsonReader, ReadsNumbersBeyondADouble) {
    const struct {
        const char *number;
        double value;
    } cases[] = {{"1e400", HUGE_VAL},
                 {"-1e400", -HUGE_VAL},
                 {"1e-400", 0.0},
                 {"0.1e-99999999999999999999", 0.0},
                 {"1e99999999999999999999", HUGE_VAL},
                 {"4.9e-324", 4.9e-324},
                 {"123456789012345678901234567890.", 123456789012345678901234567890.0}};
    for (const auto &c : cases) {
        const OwnedDictionary dictionary = read_json(std::string("{\"a\":") + c.number +
                                                     ",\"b\":0." + std::string(400, '0') + "1}");
        ASSERT_TRUE(dictionary) << c.number;
        double value = 7.0;
        EXPECT_EQ(dictionary_getfloat(dictionary.get(), "a"_sym, &value), ErrorNone);
        EXPECT_EQ(value, c.value) << c.number;
        dictionary_getfloat(dictionary.get(), "b"_sym, &value);
        EXPECT_EQ(value, 0.0);
    }
}

// Few digits are converted by a shorter way than many; each must give the nearest double.
TEST(JsonReader, ReadsDecimalsToTheLastBit) {
    std::mt19937_64 random(3);
    for (int i = 0; i < 20000; ++i) {
        std::string digits = std::to_string(random() >> (random() % 60));
        digits.insert(1 + random() % digits.size(), ".");
        digits.insert(0, i % 3 ? "" : "-");
        const OwnedDictionary dictionary = read_json("{\"a\":" + digits + "}");
        double value = 0.0;
        dictionary_getfloat(dictionary.get(), "a"_sym, &value);
        ASSERT_EQ(std::bit_cast<uint64_t>(value),
                  std::bit_cast<uint64_t>(std::strtod(digits.c_str(), nullptr)))
            << digits;
    }
}

// Names that begin like a context prefix are those that gensym makes of them.
TEST(JsonReader, ReadsNamesWithTheContextPrefix) {
    utils_setcontext(nullptr, 7);
    utils_usecontext(1);
    const OwnedDictionary dictionary = read_json(R"({"---key":"---value"})");
    utils_usecontext(0);
    Symbol *value = nullptr;
    EXPECT_EQ(dictionary_getsym(dictionary.get(), "007key"_sym, &value), ErrorNone);
    EXPECT_EQ(value, "007value"_sym);
}

TEST(JsonReader, RefusesAZeroByteInAString) {
    const char json[] = "[\"a\0b\"]";
    Object *result = nullptr;
    char message[json_error_size];
    EXPECT_NE(json_parse(json, sizeof json - 1, &result, message), ErrorNone);
    EXPECT_STREQ(message, "parsing string, possible missing quote: line=1, char=4, text='...[\"a'");
}

// An array that was read begins in one block with its atoms: every change leaves it behind.
TEST(JsonReader, MakesArraysThatChangeLikeAnyOther) {
    const Atom seven = long_atom(7);
    const struct {
        std::function<ErrorCode(Atomarray *)> change;
        const char *after;
    } cases[] = {
        {[&](Atomarray *array) { return atomarray_appendatom(array, &seven); }, "1 2 3 7"},
        {[&](Atomarray *array) { return atomarray_chuckindex(array, 0); }, "2 3"},
        {[&](Atomarray *array) { return atomarray_setatoms(array, 1, &seven); }, "7"},
        {[&](Atomarray *array) { return atomarray_clear(array); }, ""},
        {[&](Atomarray *array) { return atomarray_appendatoms(array, 2, array->atoms); },
         "1 2 3 1 2"},
    };
    for (const auto &c : cases) {
        const OwnedDictionary dictionary = read_json(R"({"a":[1,2,3]})");
        Atomarray *array = nullptr;
        dictionary_getatomarray(dictionary.get(), "a"_sym, &array);
        for (int i = 0; i < 2; ++i) {  // the second time it has a block of its own
            ASSERT_EQ(c.change(array), ErrorNone);
            if (i == 0) {
                EXPECT_EQ(text_of_atoms(array->count, array->atoms), c.after);
            }
        }
    }
}

TEST(JsonReader, SaysWhatIsWrongAndWhere) {
    const std::string deep(1001, '[');
    const struct {
        std::string json;
        const char *message;
    } cases[] = {
        {"{\"a\":1,}",
         "key expected, possible extra comma or missing '}': line=1, char=8, text='...{\"a\":1,'"},
        {"", "parsing object, possible missing initial '{' character: line=1, char=1, text='...'"},
        {"x", "parsing object, possible missing initial '{' character: line=1, char=1, text='...'"},
        {"{\n  \"a\" 1}", "':' character expected after key: line=2, char=7, text='...{   \"a\" '"},
        {"{\r\n\r\n\"\xc3\xa9\":}",
         "value expected for key '\xc3\xa9': line=3, char=5, text='...{    \"\xc3\xa9\":'"},
        {"{\"a\":[1,]}",
         "value expected in array, possible extra comma or missing ']': line=1, char=9, "
         "text='...{\"a\":[1,'"},
        {"{\"a\":[1 2]}",
         "',' or ']' character expected in array: line=1, char=9, "
         "text='...{\"a\":[1 '"},
        {"{\"a\":1 2}",
         "',' or '}' character expected after value for key 'a': line=1, char=8, "
         "text='...{\"a\":1 '"},
        {"{\"a\":1}]", "']' character unexpected: line=1, char=8, text='...{\"a\":1}'"},
        {"{\"a\":1} x",
         "',' or ']' or '}' character expected: line=1, char=9, "
         "text='...{\"a\":1} '"},
        {"{\"a\":[1}", "'}' character unexpected: line=1, char=8, text='...{\"a\":[1'"},
        {"{]", "parsing object: line=1, char=2, text='...{'"},
        {"{\"a\":[,", "parsing array: line=1, char=7, text='...{\"a\":['"},
        {"{\"a\":tru}", "parsing boolean: line=1, char=9, text='...{\"a\":tru'"},
        {"{\"a\":nul}", "parsing null: line=1, char=9, text='...{\"a\":nul'"},
        {"{\"a\":01}", "parsing number: line=1, char=7, text='...{\"a\":0'"},
        {"{\"a\":1e}", "parsing number: line=1, char=8, text='...{\"a\":1e'"},
        {"{\"a\":-}", "parsing number: line=1, char=7, text='...{\"a\":-'"},
        {"{\"a\":\"\\x\"}",
         "parsing string, possible missing quote: line=1, char=8, "
         "text='...{\"a\":\"\\'"},
        {"{\"a\":\"\\u12g4\"}",
         "parsing unicode escape: line=1, char=11, "
         "text='...{\"a\":\"\\u12'"},
        {"{\"a\":\"\\u0000\"}",
         "parsing unicode escape: line=1, char=12, "
         "text='...{\"a\":\"\\u000'"},
        {"{\"a\n\":1}", "parsing key, possible missing quote: line=1, char=4, text='...{\"a'"},
        {"{\"a\":\"b\n",
         "parsing string, possible missing quote: line=1, char=8, "
         "text='...{\"a\":\"b'"},
        {"{\"a\":\x01}", "syntax error in value for key 'a': line=1, char=6, text='...{\"a\":'"},
        {"{\"a\":[\xe2\x80\x9cx]}", "syntax error in array: line=1, char=7, text='...{\"a\":['"},
        {"{\"a\":[1",
         "',' or ']' character expected in array: line=1, char=8, "
         "text='...{\"a\":[1'"},
        {deep,
         "containers nested too deeply: line=1, char=1001, "
         "text='...[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[['"},
    };
    for (const auto &c : cases) {
        std::string message;
        EXPECT_FALSE(read_json(c.json, &message)) << c.json;
        EXPECT_EQ(message, c.message) << c.json;
    }
}

TEST(JsonReader, AnswersItsMessages) {
    const std::unique_ptr<void, FreeObject> reader(object_new("nobox"_sym, "jsonreader"_sym));
    ASSERT_TRUE(reader);
    EXPECT_STREQ(static_cast<const char *>(object_method(reader.get(), "errorstring"_sym)),
                 "error: none");
    Object *result = nullptr;
    EXPECT_EQ(object_method(reader.get(), "parse_len"_sym, "[1,2]garbage", 5, &result), nullptr);
    const OwnedArray array(reinterpret_cast<Atomarray *>(result));
    EXPECT_EQ(atomarray_getsize(array.get()), 2);
    EXPECT_NE(object_method(reader.get(), "parse"_sym, "[1,2]garbage", &result), nullptr);
    EXPECT_EQ(result, nullptr);
    char text[256];
    object_method(reader.get(), "errorstring"_sym, text);
    EXPECT_STREQ(text, "',' or ']' or '}' character expected: line=1, char=6, text='...[1,2]'");
}

TEST(JsonReader, KeepsLongStringsWhole) {
    for (const size_t length : {size_t{32766}, size_t{32767}, size_t{200000}}) {
        const std::string text(length, 'x');
        const OwnedDictionary dictionary = read_json("{\"a\":\"" + text + "\"}");
        ASSERT_TRUE(dictionary);
        const char *read = nullptr;
        EXPECT_EQ(dictionary_getstring(dictionary.get(), "a"_sym, &read), ErrorNone);
        EXPECT_EQ(std::string(read), text);
        EXPECT_EQ(dictionary_entryisstring(dictionary.get(), "a"_sym), length > 32766);
        EXPECT_NE(write_json(dictionary.get()).find("\"" + text + "\""), std::string::npos);
    }
    std::string message;
    EXPECT_FALSE(read_json("{\"" + std::string(40000, 'k') + "\":1}", &message));
    EXPECT_TRUE(message.starts_with("key too long")) << message;
}

TEST(JsonReader, FreesDeepDocuments) {
    std::string json = "{\"a\":";
    for (int i = 0; i < 499; ++i) {
        json += "[{\"a\":";
    }
    json += "1";
    for (int i = 0; i < 499; ++i) {
        json += "}]";
    }
    json += "}";
    const int64_t before = memory_live_blocks();
    OwnedDictionary dictionary = read_json(json);
    ASSERT_TRUE(dictionary);
    const OwnedDictionary clone(dictionary_clone(dictionary.get()));
    EXPECT_EQ(write_json(clone.get()), write_json(dictionary.get()));
    dictionary.reset();
    const_cast<OwnedDictionary &>(clone).reset();
    EXPECT_EQ(memory_live_blocks(), before);
}

TEST(JsonReader, SurvivesFailingAllocations) {
    const char *json = R"({"a":[1,[2,"x"],{"b":"\u00e9"}],"c":{"d":null}})";
    read_json(json);  // interns the names
    fail_each_allocation([json] { return read_json(json) != nullptr; });
    const OwnedDictionary dictionary = read_json(json);
    fail_each_allocation(
        [&dictionary] { return OwnedDictionary(dictionary_clone(dictionary.get())) != nullptr; });
    fail_each_allocation([&dictionary] {
        JsonText text;
        return json_from_dictionary(dictionary.get(), text);
    });
}

// --- Both ----------------------------------------------------------------------------------------

// Strings are read and written by eights: each byte at each place in and around one.
TEST(Json, KeepsEveryByteAtEveryPlaceOfAString) {
    for (int byte = 1; byte < 256; ++byte) {
        for (size_t length = 1; length <= 17; length += 4) {
            for (size_t place = 0; place < length; ++place) {
                std::string name(length, 'x');
                name[place] = static_cast<char>(byte);
                OwnedDictionary dictionary = make_dictionary();
                dictionary_appendsym(dictionary.get(), "a"_sym, gensym(name.c_str()));
                const OwnedDictionary again = read_json(write_json(dictionary.get()));
                Symbol *value = nullptr;
                dictionary_getsym(again.get(), "a"_sym, &value);
                ASSERT_EQ(value, gensym(name.c_str())) << byte << " at " << place;
            }
        }
    }
}

// Documents of random values; what the writer cannot keep apart (floats beyond 15 decimals) is left
// out.
class Generator {
  public:
    explicit Generator(unsigned seed) : random_(seed) {}

    std::string object(int depth) {
        std::string text = "{";
        const int count = pick(6);
        for (int i = 0; i < count; ++i) {
            text += (i ? ",\"" : "\"") + std::string(1, static_cast<char>('a' + i)) + string() +
                    "\":" + value(depth);
        }
        return text + "}";
    }

  private:
    int pick(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }

    std::string string() {
        static const char *const parts[] = {
            "a",   "\\\"", "\\\\", "\\n", "\\t",           "\\b",  ";",
            ",",   "$",    "$1",   "{",   "\\u00e9",       "\x7f", "/",
            "[ ]", "12",   " ",    ":",   "\\uD83D\\uDE00"};
        std::string text;
        for (int i = pick(4); i > 0; --i) {
            text += parts[pick(static_cast<int>(std::size(parts)))];
        }
        return text;
    }

    std::string value(int depth) {
        switch (pick(depth > 0 ? 8 : 6)) {
            case 0:
                return "null";
            case 1:
                return std::to_string(static_cast<int64_t>(random_() << 32 ^ random_()));
            case 2:
                return std::to_string(static_cast<double>(random_()) / 1024.0 - 1e5);
            case 3:
                return pick(2) ? "true" : "false";
            case 4:
            case 5:
                return "\"" + string() + "\"";
            case 6:
                return object(depth - 1);
            default: {
                std::string text = "[";
                const int count = pick(5);
                for (int i = 0; i < count; ++i) {
                    text += (i ? "," : "") + value(depth - 1);
                }
                return text + "]";
            }
        }
    }

    std::mt19937_64 random_;
};

// A list of atoms as the dictionary text it stands for, every name and text in quotes.
std::string as_dictionary_text(int32_t count, const Atom *atoms) {
    static const std::set<std::string> marks = {"{", "}", "[", "]", "null"};
    std::string text;
    const auto add_quoted = [&text](const std::string &name) {
        text += '"';
        for (const char c : name) {
            text += c == '"' || c == '\\' ? "\\" : "";
            text += c;
        }
        text += '"';
    };
    for (const Atom &atom : std::span(atoms, static_cast<size_t>(count))) {
        text += ' ';
        if (atom.type == TypeLong) {
            text += std::to_string(atom.value.i);
        } else if (atom.type == TypeFloat) {
            char digits[32];
            std::snprintf(digits, sizeof digits, "%#.17g", atom.value.f);
            text += digits;
        } else if (const std::string name = atom.value.sym->name; marks.contains(name)) {
            text += name;
        } else {
            const bool marked = name.ends_with(':') || name.ends_with('\\');
            add_quoted(name.substr(0, name.size() - (marked ? 1 : 0)));
            text += name.ends_with(':') ? ":" : "";
        }
    }
    return text;
}

TEST(Json, WhatIsWrittenReadsBackTheSame) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        const std::string source = Generator(seed).object(4);
        std::string message;
        const OwnedDictionary first = read_json(source, &message);
        ASSERT_TRUE(first) << source << message;
        const std::string text = write_json(first.get());
        const OwnedDictionary second = read_json(text, &message);
        ASSERT_TRUE(second) << text << message;
        ASSERT_EQ(write_json(second.get()), text) << source;
        const OwnedDictionary clone(dictionary_clone(first.get()));
        ASSERT_EQ(write_json(clone.get()), text) << source;

        int32_t count = 0;
        Atom *atoms = nullptr;
        ASSERT_EQ(dictobj_dictionarytoatoms(first.get(), &count, &atoms), ErrorNone);
        Dictionary *from_atoms = nullptr;
        ASSERT_EQ(dictobj_dictionaryfromatoms(&from_atoms, count, atoms), ErrorNone) << source;
        const OwnedDictionary third(from_atoms);
        ASSERT_EQ(write_json(third.get()), text) << source;

        const std::string short_text = as_dictionary_text(count, atoms);
        Dictionary *from_text = nullptr;
        dictobj_dictionaryfromstring(&from_text, short_text.c_str(), 0, nullptr);
        const OwnedDictionary fourth(from_text);
        ASSERT_TRUE(fourth) << short_text;
        ASSERT_EQ(write_json(fourth.get()), text) << short_text;
        sysmem_freeptr(atoms);
    }
}

TEST(Json, DamagedDocumentsAreRefusedOrRead) {
    const int64_t before = memory_live_blocks();
    std::mt19937 random(7);
    for (unsigned seed = 0; seed < 300; ++seed) {
        std::string text = Generator(seed).object(3);
        for (int i = 0; i < 3; ++i) {
            const size_t at = random() % text.size();
            switch (random() % 3) {
                case 0:
                    text.resize(at + 1);
                    break;
                case 1:
                    text[at] = static_cast<char>(random());
                    break;
                default:
                    text.insert(at, 1, "{}[]:,\"\\"[random() % 8]);
            }
        }
        std::string message;
        const OwnedDictionary dictionary = read_json(text, &message);
        EXPECT_NE(dictionary == nullptr, message.empty()) << text;
    }
    take_posts();
    EXPECT_LE(memory_live_blocks(), before + 4);  // pools of names may have grown
}

}  // namespace
}  // namespace kiv::test
