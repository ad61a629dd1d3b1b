#include <kiv/attr.h>
#include <kiv/class.h>
#include <kiv/inlets.h>
#include <kiv/path.h>

#include <cstdio>
#include <thread>
#include <vector>

#include "containers/values.h"
#include "containers/values_support.h"

namespace kiv::test {
namespace {

using namespace kiv::literals;
using Texts = std::vector<std::string>;

TEST(Dictionary, ReplacesInPlace) {
    const OwnedDictionary dictionary = make_dictionary();
    for (const char *key : {"b", "a", "c"}) {
        dictionary_appendlong(dictionary.get(), gensym(key), 1);
    }
    dictionary_appendstring(dictionary.get(), "a"_sym, "new");
    dictionary_appendfloat(dictionary.get(), "a"_sym, 2.5);
    EXPECT_EQ(in_short(dictionary.get()), R"({"b" : 1,"a" : 2.5,"c" : 1})");
    EXPECT_EQ(dictionary_deleteentry(dictionary.get(), "b"_sym), ErrorNone);
    EXPECT_EQ(dictionary_deleteentry(dictionary.get(), "b"_sym), ErrorGeneric);
    dictionary_appendlong(dictionary.get(), "b"_sym, 3);
    EXPECT_EQ(ordered_keys(dictionary.get()), "acb");
    EXPECT_EQ(dictionary_getentrycount(dictionary.get()), 3);
    int32_t count = 0;
    Symbol **keys = nullptr;
    EXPECT_EQ(dictionary_getkeys(dictionary.get(), &count, &keys), ErrorNone);
    EXPECT_EQ(count, 3);
    dictionary_freekeys(dictionary.get(), count, keys);
}

// Which objects are freed when an entry is replaced, deleted, chucked and cleared.
TEST(Dictionary, FreesWhatItOwns) {
    enum How { replace, remove, chuck, clear, destroy };
    for (const How how : {replace, remove, chuck, clear, destroy}) {
        for (const int32_t flags : {0, int32_t{ContainerReference}, int32_t{ContainerData}}) {
            Dictionary *dictionary = dictionary_new();
            String *string = string_new("x");
            dictionary_appendobject_flags(dictionary, "k"_sym, string, flags);
            switch (how) {
                case replace:
                    dictionary_appendlong(dictionary, "k"_sym, 1);
                    break;
                case remove:
                    dictionary_deleteentry(dictionary, "k"_sym);
                    break;
                case chuck:
                    dictionary_chuckentry(dictionary, "k"_sym);
                    break;
                case clear:
                    dictionary_clear(dictionary);
                    break;
                case destroy:
                    break;
            }
            EXPECT_EQ(dictionary_hasentry(dictionary, "k"_sym), how == replace || how == destroy);
            object_free(dictionary);
            const bool freed = flags == 0 && how != chuck;
            EXPECT_EQ(object_isvalid(string) == 0, freed) << how << " " << flags;
            if (!freed) {
                object_free(string);
            }
        }
    }
    const int64_t before = memory_live_blocks();
    {
        const OwnedDictionary dictionary = make_dictionary();
        void *block = sysmem_newptr(10);
        dictionary_appendobject_flags(dictionary.get(), "k"_sym, block, ContainerMemory);
        const OwnedDictionary clone(dictionary_clone(dictionary.get()));
        // Storing the same object again is no reason to free it.
        dictionary_appendobject_flags(dictionary.get(), "k"_sym, block, ContainerMemory);
    }
    EXPECT_EQ(memory_live_blocks(), before);
    EXPECT_TRUE(take_posts().empty());
}

TEST(Dictionary, AcceptsObjectsOfTheRightClassOnly) {
    const OwnedDictionary dictionary = make_dictionary();
    String *string = string_new("x");
    EXPECT_EQ(dictionary_appenddictionary(dictionary.get(), "k"_sym, string), ErrorGeneric);
    EXPECT_EQ(dictionary_appendatomarray(dictionary.get(), "k"_sym, string), ErrorGeneric);
    EXPECT_EQ(dictionary_appenddictionary(dictionary.get(), "k"_sym, nullptr), ErrorGeneric);
    EXPECT_EQ(dictionary_getentrycount(dictionary.get()), 0);
    object_free(string);
    dictionary_appenddictionary(dictionary.get(), "d"_sym, dictionary_new());
    dictionary_appendatoms(dictionary.get(), "a"_sym, 0, nullptr);
    EXPECT_TRUE(dictionary_entryisdictionary(dictionary.get(), "d"_sym));
    EXPECT_FALSE(dictionary_entryisdictionary(dictionary.get(), "a"_sym));
    EXPECT_TRUE(dictionary_entryisatomarray(dictionary.get(), "a"_sym));
    Dictionary *found = nullptr;
    EXPECT_EQ(dictionary_getdictionary(dictionary.get(), "a"_sym, &found), ErrorGeneric);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(dictionary_getdictionary(dictionary.get(), "d"_sym, &found), ErrorNone);
    EXPECT_TRUE(object_classname_compare(found, "dictionary"_sym));
}

TEST(Dictionary, ConvertsNumbers) {
    const OwnedDictionary dictionary = make_dictionary();
    const struct {
        Atom atom;
        int64_t as_long;
        double as_float;
        const char *post;
    } cases[] = {
        {long_atom(-7), -7, -7.0, nullptr},
        {float_atom(2.9), 2, 2.9, nullptr},
        {float_atom(-2.9), -2, -2.9, nullptr},
        {float_atom(1e300), INT64_MAX, 1e300, nullptr},
        {symbol_atom("12"), 12, 12.0, nullptr},
        {symbol_atom(" -3.5e1x"), -3, -35.0, nullptr},
        {symbol_atom("abc"), 0, 0.0, "abc: bad number"},
        {Atom{}, 0, 0.0, nullptr},
        {object_atom(dictionary.get()), 0, 0.0, nullptr},
    };
    for (const auto &c : cases) {
        dictionary_appendatom_flags(dictionary.get(), "k"_sym, &c.atom, ContainerReference);
        int64_t integer = 99;
        EXPECT_EQ(dictionary_getlong(dictionary.get(), "k"_sym, &integer), ErrorNone);
        EXPECT_EQ(integer, c.as_long);
        EXPECT_EQ(take_texts(), c.post ? Texts{c.post} : Texts{});
        double number = 99.0;
        EXPECT_EQ(dictionary_getfloat(dictionary.get(), "k"_sym, &number), ErrorNone);
        EXPECT_EQ(number, c.as_float);
        EXPECT_EQ(take_texts(), c.post ? Texts{c.post} : Texts{});
    }
}

TEST(Dictionary, TurnsStringsIntoSymbolsWhenReading) {
    const OwnedDictionary dictionary = make_dictionary();
    const auto kind_after = [&dictionary](auto read) {
        dictionary_appendstring(dictionary.get(), "s"_sym, "text");
        read();
        const Atom value = dictionary_entry(dictionary.get(), "s"_sym)->value;
        EXPECT_STREQ(value.type == TypeSymbol ? value.value.sym->name : "", "text");
    };
    Symbol *symbol = nullptr;
    const char *text = nullptr;
    kind_after([&] { dictionary_getsym(dictionary.get(), "s"_sym, &symbol); });
    EXPECT_EQ(symbol, "text"_sym);
    EXPECT_FALSE(dictionary_entryisstring(dictionary.get(), "s"_sym));
    kind_after([&] { dictionary_getstring(dictionary.get(), "s"_sym, &text); });
    EXPECT_STREQ(text, "text");
    kind_after([&] { dictionary_entryisdictionary(dictionary.get(), "s"_sym); });
    int32_t count = 0;
    Atom *atoms = nullptr;
    kind_after([&] { dictionary_getatoms(dictionary.get(), "s"_sym, &count, &atoms); });
    EXPECT_EQ(count, 1);
    EXPECT_EQ(atoms->value.sym, "text"_sym);
    dictionary_appendlong(dictionary.get(), "n"_sym, 1);
    EXPECT_EQ(dictionary_getsym(dictionary.get(), "n"_sym, &symbol), ErrorGeneric);
    EXPECT_EQ(symbol, ""_sym);
    EXPECT_EQ(dictionary_getstring(dictionary.get(), "n"_sym, &text), ErrorGeneric);
}

TEST(Dictionary, GivesDefaults) {
    const OwnedDictionary dictionary = make_dictionary();
    int64_t integer = 0;
    EXPECT_EQ(dictionary_getdeflong(dictionary.get(), "k"_sym, &integer, 5), ErrorGeneric);
    EXPECT_EQ(integer, 5);
    Symbol *symbol = nullptr;
    EXPECT_EQ(dictionary_getdefsym(nullptr, "k"_sym, &symbol, "d"_sym), ErrorGeneric);
    EXPECT_EQ(symbol, "d"_sym);
    const Atom fallback[] = {long_atom(1), long_atom(2)};
    int32_t count = 0;
    Atom *atoms = nullptr;
    EXPECT_EQ(dictionary_copydefatoms(dictionary.get(), "k"_sym, &count, &atoms, 2, fallback),
              ErrorGeneric);
    ASSERT_EQ(count, 2);
    EXPECT_NE(atoms, fallback);
    EXPECT_EQ(atoms[1].value.i, 2);
    sysmem_freeptr(atoms);
    dictionary_appendatoms(dictionary.get(), "k"_sym, 1, fallback);
    EXPECT_EQ(dictionary_copydefatoms(dictionary.get(), "k"_sym, &count, &atoms, 0, nullptr),
              ErrorNone);
    EXPECT_EQ(count, 1);
    sysmem_freeptr(atoms);
}

TEST(Dictionary, ClonesWhatItIsToldTo) {
    String *string = string_new("x");
    void *list = linklist_new();
    const Atom atoms[] = {object_atom(string), object_atom(list)};
    OwnedDictionary dictionary = make_dictionary();
    EXPECT_EQ(dictionary_appendatoms_flags(dictionary.get(), "a"_sym, 2, atoms, DictionaryClones),
              ErrorNone);
    EXPECT_EQ(take_texts(), Texts{"cloneatoms: non-clonable object; class is linklist"});
    EXPECT_EQ(dictionary_appendatom_flags(dictionary.get(), "b"_sym, &atoms[1], DictionaryClones),
              ErrorNone);
    EXPECT_EQ(take_texts(),
              Texts{"dictionary_appendatom_flags: non-clonable object; class is linklist"});
    EXPECT_EQ(dictionary_appendatom_flags(dictionary.get(), "c"_sym, &atoms[0], DictionaryClones),
              ErrorNone);
    dictionary.reset();
    EXPECT_TRUE(object_isvalid(string));
    EXPECT_TRUE(object_isvalid(list));
    object_free(string);
    object_free(list);
}

TEST(Dictionary, CopiesEntries) {
    const auto copied = [](auto copy) {
        const OwnedDictionary source = read_json(R"({"a":{"x":1},"b":[2],"c":"3"})");
        const OwnedDictionary target = read_json(R"({"b":0,"z":9})");
        EXPECT_EQ(copy(source.get(), target.get()), ErrorNone);
        return in_short(target.get());
    };
    EXPECT_EQ(copied(dictionary_merge_to_existing),
              R"({"b" : [ 2 ],"z" : 9,"a" : {"x" : 1},"c" : "3"})");
    EXPECT_EQ(copied(dictionary_clone_to_existing), R"({"a" : {"x" : 1},"b" : [ 2 ],"c" : "3"})");
    EXPECT_EQ(copied([](Dictionary *source, Dictionary *target) {
                  return dictionary_copyunique(target, source);
              }),
              R"({"b" : 0,"z" : 9,"a" : {"x" : 1},"c" : "3"})");
    EXPECT_EQ(copied([](Dictionary *source, Dictionary *target) {
                  Symbol *keys[] = {"c"_sym, "none"_sym, nullptr};
                  return dictionary_copyentries(source, target, keys);
              }),
              R"({"b" : 0,"z" : 9,"c" : "3"})");
}

// A walk's function may do anything to the dictionary.
TEST(Dictionary, SurvivesChangesDuringAWalk) {
    struct Walk {
        Dictionary *dictionary;
        std::string seen;
        void (*change)(Dictionary *);
    };
    const auto seen_while = [](void (*change)(Dictionary *)) {
        Walk walk{read_json(R"({"a":1,"b":"x","c":[1]})").release(), "", change};
        dictionary_funall(
            walk.dictionary,
            [](DictionaryEntry *entry, void *arg) {
                auto *w = static_cast<Walk *>(arg);
                w->seen += dictionary_entry_getkey(entry)->name;
                if (w->seen.size() == 1) {
                    w->change(w->dictionary);
                }
            },
            &walk);
        if (object_isvalid(walk.dictionary)) {
            walk.seen += "/" + ordered_keys(walk.dictionary);
            object_free(walk.dictionary);
        }
        return walk.seen;
    };
    EXPECT_EQ(seen_while([](Dictionary *d) { dictionary_deleteentry(d, "a"_sym); }), "abc/bc");
    EXPECT_EQ(seen_while([](Dictionary *d) { dictionary_deleteentry(d, "b"_sym); }), "ac/ac");
    EXPECT_EQ(seen_while([](Dictionary *d) { dictionary_appendlong(d, "d"_sym, 1); }), "abcd/abcd");
    EXPECT_EQ(seen_while([](Dictionary *d) {
                  dictionary_clear(d);
                  dictionary_appendlong(d, "n"_sym, 1);
              }),
              "a/n");
    EXPECT_EQ(seen_while([](Dictionary *d) { object_free(d); }), "a");
}

TEST(Dictionary, HoldsManyKeys) {
    constexpr int count = 50000;
    std::vector<Symbol *> keys;
    for (int i = 0; i < count; ++i) {
        keys.push_back(gensym(std::to_string(i).c_str()));
    }
    const OwnedDictionary dictionary = make_dictionary();
    for (int i = 0; i < count; ++i) {
        dictionary_appendlong(dictionary.get(), keys[static_cast<size_t>(i)], i);
    }
    for (int i = 0; i < count; i += 2) {
        ASSERT_EQ(dictionary_deleteentry(dictionary.get(), keys[static_cast<size_t>(i)]),
                  ErrorNone);
    }
    EXPECT_EQ(dictionary_getentrycount(dictionary.get()), count / 2);
    int64_t value = 0;
    EXPECT_EQ(dictionary_getlong(dictionary.get(), keys[count - 1], &value), ErrorNone);
    EXPECT_EQ(value, count - 1);
    EXPECT_EQ(dictionary_clear(dictionary.get()), ErrorNone);
    EXPECT_EQ(dictionary_getentrycount(dictionary.get()), 0);
}

// The order, and later the table, are made while both threads append.
TEST(Dictionary, GrowsUnderTwoThreads) {
    for (int round = 0; round < 200; ++round) {
        const OwnedDictionary dictionary = make_dictionary();
        const auto append = [&dictionary](int first) {
            for (int i = first; i < 60; i += 2) {
                dictionary_transaction_lock(dictionary.get());
                dictionary_transaction_unlock(dictionary.get());
                dictionary_appendlong(dictionary.get(), gensym(std::to_string(i).c_str()), i);
            }
        };
        std::thread other(append, 1);
        append(0);
        other.join();
        ASSERT_EQ(dictionary_getentrycount(dictionary.get()), 60);
        for (int i = 0; i < 60; ++i) {
            int64_t value = -1;
            dictionary_getlong(dictionary.get(), gensym(std::to_string(i).c_str()), &value);
            ASSERT_EQ(value, i);
        }
    }
}

TEST(Dictionary, FreesAnyDepthWithAShallowStack) {
    const int64_t before = memory_live_blocks();
    Dictionary *dictionary = dictionary_new();
    for (int i = 0; i < 50000; ++i) {
        Dictionary *outer = dictionary_new();
        if (i % 2) {
            const Atom atom = object_atom(dictionary);
            dictionary_appendatoms(outer, "k"_sym, 1, &atom);
        } else {
            dictionary_appenddictionary(outer, "k"_sym, dictionary);
        }
        dictionary = outer;
    }
    EXPECT_EQ(dictionary_clone(dictionary), nullptr);
    EXPECT_EQ(take_texts().size(), 1u);
    std::thread([dictionary] { object_free(dictionary); }).join();
    EXPECT_EQ(memory_live_blocks(), before);
}

TEST(Dictionary, SurvivesFailingAllocations) {
    const Atom atoms[] = {long_atom(1), symbol_atom("x")};
    fail_each_allocation([&atoms] {
        const OwnedDictionary dictionary = make_dictionary();
        return dictionary && dictionary_appendlong(dictionary.get(), "a"_sym, 1) == ErrorNone &&
               dictionary_appendstring(dictionary.get(), "b"_sym, "text") == ErrorNone &&
               dictionary_appendatoms(dictionary.get(), "c"_sym, 2, atoms) == ErrorNone &&
               dictionary_appendatoms(dictionary.get(), "a"_sym, 2, atoms) == ErrorNone &&
               dictionary_clear(dictionary.get()) == ErrorNone;
    });
    const OwnedDictionary source = read_json(R"({"a":[[],["x:"],{"b":1}],"c":2})");
    fail_each_allocation([&source] {
        int32_t count = 0;
        Atom *made = nullptr;
        Dictionary *again = nullptr;
        if (dictobj_dictionarytoatoms(source.get(), &count, &made) == ErrorNone) {
            dictobj_dictionaryfromatoms(&again, count, made);
        }
        sysmem_freeptr(made);
        object_free(again);
        return again != nullptr;
    });
    fail_each_allocation([] {
        const OwnedDictionary made(dictionary_sprintf("@a %d @b x y", 1));
        return made && dictionary_getentrycount(made.get()) == 2;
    });
}

TEST(Dictionary, NotifiesTheTablesClientsOfReplacements) {
    static int notified;
    notified = 0;
    Class *c = class_new("dictionary_test_client", nullptr, nullptr, sizeof(Object), nullptr, 0);
    class_addmethod(c, method(+[](void *, Symbol *, Symbol *message, void *, void *) {
                        notified += message == "hashtab_entry_new"_sym;
                    }),
                    "notify", TypeCant, 0);
    class_register("nobox"_sym, c);
    void *client = object_alloc(c);
    const OwnedDictionary dictionary = make_dictionary();
    for (int i = 0; i < 20; ++i) {  // from a number of keys on there is a table
        dictionary_appendlong(dictionary.get(), gensym(std::to_string(i).c_str()), i);
    }
    object_attach_byptr_register(client, dictionary->table, "nobox"_sym);
    dictionary_appendlong(dictionary.get(), "k"_sym, 1);
    EXPECT_EQ(notified, 1);
    dictionary_appendlong(dictionary.get(), "k"_sym, 2);
    EXPECT_EQ(notified, 2);
    const Atom atom = long_atom(3);
    dictionary_appendatom_flags(dictionary.get(), "k"_sym, &atom, ContainerNoNotify);
    EXPECT_EQ(notified, 2);
    object_detach_byptr(client, dictionary->table);
    object_free(client);
    class_free(c);
}

TEST(Dictionary, IsMadeFromTextAndPosted) {
    const OwnedDictionary dictionary(
        dictionary_sprintf("@name %s @size %d %g @empty", "\"two words\"", 3, 4.5));
    ASSERT_TRUE(dictionary);
    Symbol *name = nullptr;
    dictionary_getsym(dictionary.get(), "name"_sym, &name);
    EXPECT_STREQ(name->name, "two words");
    dictionary_appenddictionary(dictionary.get(), "sub"_sym,
                                read_json(R"({"a":[1,{"b":2}]})").release());
    take_posts();
    EXPECT_EQ(dictionary_dump(dictionary.get(), 1, 1), ErrorNone);
    const Texts texts = take_texts();
    ASSERT_GE(texts.size(), 6u);
    EXPECT_EQ(texts[1], "size : [ 3 4.5 ]");
    const Texts nested(texts.end() - 4, texts.end());
    EXPECT_EQ(nested, (Texts{"sub : dictionary", "  a : [ 1 dictionary ]", "    a[1] : dictionary",
                             "      b : 2"}));
    dictionary_appendobject_flags(dictionary.get(), "self"_sym, dictionary.get(),
                                  ContainerReference);
    dictionary_appendobject_flags(dictionary.get(), "self2"_sym, dictionary.get(),
                                  ContainerReference);
    EXPECT_EQ(dictionary_dump(dictionary.get(), 1, 1), ErrorGeneric);
    EXPECT_EQ(take_texts().back(), "dictionary_dump: nested deeper than 1000 containers");
}

struct WithSize {
    Object ob;
    int32_t size;
};

TEST(Dictionary, CarriesAttributes) {
    Class *c = class_new("dictionary_test_sized", nullptr, nullptr, sizeof(WithSize), nullptr, 0);
    const std::unique_ptr<Class, FreeClass> owned(c);
    class_addattr(
        c, attr_offset_new("size", "long"_sym, 0, nullptr, nullptr, offsetof(WithSize, size)));
    class_addattr_parse(c, "size", "default"_sym, "long", "42");
    class_register("nobox"_sym, c);
    const OwnedDictionary prototype(dictionary_prototypefromclass(c));
    EXPECT_EQ(in_short(prototype.get()), R"({"size" : 42})");
    const std::unique_ptr<WithSize, FreeObject> x(static_cast<WithSize *>(object_alloc(c)));
    EXPECT_EQ(dictionary_getattribute(prototype.get(), nullptr, "size"_sym, x.get()), ErrorNone);
    EXPECT_EQ(x->size, 42);
    x->size = 7;
    EXPECT_EQ(dictionary_appendattribute(prototype.get(), "s"_sym, "size"_sym, x.get()), ErrorNone);
    EXPECT_EQ(in_short(prototype.get()), R"({"size" : 42,"s" : 7})");
    EXPECT_NE(dictionary_getattribute(prototype.get(), "none"_sym, "size"_sym, x.get()), ErrorNone);
    EXPECT_NE(dictionary_appendattribute(prototype.get(), "s"_sym, "no"_sym, x.get()), ErrorNone);
}

// --- Named dictionaries --------------------------------------------------------------------------

TEST(Dictobj, SharesByName) {
    Dictionary *dictionary = dictionary_new();
    Symbol *name = ""_sym;
    ASSERT_EQ(dictobj_register(dictionary, &name), dictionary);
    EXPECT_EQ(dictobj_namefromptr(dictionary), name);
    EXPECT_EQ(dictobj_findregistered_retain(name), dictionary);
    dictionary_appendlong(dictionary, "a"_sym, 1);
    const OwnedDictionary clone(dictobj_findregistered_clone(name));
    EXPECT_EQ(in_short(clone.get()), R"({"a" : 1})");
    EXPECT_EQ(dictobj_namefromptr(clone.get()), nullptr);

    object_free(dictionary);
    EXPECT_TRUE(object_isvalid(dictionary));  // still retained
    dictobj_release(dictionary);
    EXPECT_FALSE(object_isvalid(dictionary));
    EXPECT_EQ(dictobj_findregistered_retain(name), nullptr);
    EXPECT_EQ(dictobj_findregistered_clone(name), nullptr);
}

TEST(Dictobj, ReadsFromStrings) {
    Dictionary *dictionary = dictionary_new();
    char message[KIV_JSON_ERROR_SIZE] = "";
    EXPECT_EQ(dictobj_dictionaryfromstring(&dictionary, "a: 1 b: x y", 0, message), ErrorNone);
    EXPECT_EQ(in_short(dictionary), R"({"a" : 1,"b" : [ "x", "y" ]})");
    for (const bool is_json : {true, false}) {
        EXPECT_EQ(dictobj_dictionaryfromstring(&dictionary, "{ oops", is_json, message),
                  ErrorGeneric);
        EXPECT_EQ(dictionary, nullptr);
        EXPECT_STREQ(message, is_json ? "parsing object: line=1, char=3, text='...{ '"
                                      : "value without a key: line=1, char=1");
    }
    EXPECT_EQ(dictobj_dictionaryfromstring(&dictionary, "[1]", 1, nullptr), ErrorGeneric);
    EXPECT_EQ(dictionary, nullptr);
}

std::string json_of_text(const char *text) {
    int64_t size = 0;
    char *json = nullptr;
    if (dictobj_jsonfromstring(&size, &json, text) != ErrorNone) {
        const Texts texts = take_texts();
        return texts.size() == 1 ? texts[0] : "?";
    }
    EXPECT_EQ(std::strlen(json), static_cast<size_t>(size));
    const OwnedDictionary dictionary = read_json(json);
    sysmem_freeptr(json);
    return dictionary ? in_short(dictionary.get()) : "not JSON";
}

TEST(Dictobj, ReadsDictionaryText) {
    const struct {
        const char *text;
        const char *json;
    } cases[] = {
        {"", "{}"},
        {"a:1", "dictionary text: value without a key: line=1, char=4"},
        {"a: 1 b: -2.5 c: +.5 d: 1. e: 1e3 f: 12ab", R"({"a" : 1,"b" : -2.5,"c" : 0.5,"d" : 1.0,)"
                                                     R"("e" : 1000.0,"f" : "12ab"})"},
        {"a: 99999999999999999999 b: - c: 0007",
         R"({"a" : 100000000000000000000.0,"b" : "-","c" : 7})"},
        {"a: x y b: c: [] d: [1]", R"({"a" : [ "x", "y" ],"b" : [  ],"c" : [  ],"d" : [ 1 ]})"},
        {"a:{b:{}c: 1}", R"({"a" : {"b" : {},"c" : 1}})"},
        {"a: [[1 2][x]] 3", R"({"a" : [ [ [ 1, 2 ], [ "x" ] ], 3 ]})"},
        {R"("two words": "12" "": "x:" n: null "null" \null)",
         R"({"two words" : "12","" : "x:","n" : [ null, "null", "null" ]})"},
        {R"(a: http://x:80/ b: two\ words c: \{ d: note\: e: \12 f: "q\"\\")",
         R"({"a" : "http://x:80/","b" : "two words","c" : "{","d" : "note:","e" : "12",)"
         R"("f" : "q\"\\"})"},
        {"a: 1\nb: 2 a: 3", R"({"a" : 3,"b" : 2})"},
        {"a: 1\n }", "dictionary text: '}' unexpected: line=2, char=2"},
        {"a: [ b: 1 ]", "dictionary text: key in a list: line=1, char=8"},
        {"a: { b: 1", "dictionary text: '}' expected: line=1, char=10"},
        {"a: \"x", "dictionary text: closing '\"' missing: line=1, char=4"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(json_of_text(c.text), c.json) << c.text;
    }
    EXPECT_EQ(json_of_text(("a: " + std::string(1000, '[')).c_str()),
              "dictionary text: containers nested too deeply: line=1, char=1003");
}

TEST(Dictobj, RefusesAtomsThatAreNoDictionary) {
    const struct {
        std::vector<Atom> atoms;
        const char *message;
    } cases[] = {
        {{long_atom(1)}, "value without a key"},
        {{symbol_atom("a:"), symbol_atom("{")}, "'}' expected"},
        {{symbol_atom("a:"), symbol_atom("["), symbol_atom("}")}, "'}' unexpected"},
        {{symbol_atom("]")}, "']' unexpected"},
        {{symbol_atom("a:"), symbol_atom("["), symbol_atom("b:")}, "key in a list"},
    };
    for (const auto &c : cases) {
        Dictionary *dictionary = nullptr;
        EXPECT_EQ(dictobj_dictionaryfromatoms(&dictionary, static_cast<int32_t>(c.atoms.size()),
                                              c.atoms.data()),
                  ErrorGeneric);
        EXPECT_EQ(dictionary, nullptr);
        EXPECT_EQ(take_texts(), Texts{std::string("dictobj_dictionaryfromatoms: ") + c.message});
    }
}

TEST(Dictobj, AtomsKeepSymbolsThatLookLikeSyntax) {
    const OwnedDictionary dictionary = read_json(
        R"({"a:":"b:","c\\":"d\\","{":"}","":["[","]",null,"null",":","\\"],"l":["{"],"e":""})");
    int32_t count = 0;
    Atom *atoms = nullptr;
    ASSERT_EQ(dictobj_dictionarytoatoms(dictionary.get(), &count, &atoms), ErrorNone);
    Dictionary *again = nullptr;
    ASSERT_EQ(dictobj_dictionaryfromatoms(&again, count, atoms), ErrorNone);
    const OwnedDictionary owned(again);
    EXPECT_EQ(write_json(again), write_json(dictionary.get()));
    sysmem_freeptr(atoms);
}

TEST(Dictobj, MakesAtomsSafeForCords) {
    const OwnedDictionary dictionary = make_dictionary();
    Symbol *name = nullptr;
    Atom atom = object_atom(dictionary.get());
    EXPECT_EQ(dictobj_atom_safety(&atom), 1);
    EXPECT_EQ(atom.value.sym, "dictionary"_sym);
    dictobj_register(dictionary.get(), &name);
    atom = object_atom(dictionary.get());
    dictobj_atom_safety(&atom);
    EXPECT_EQ(atom.value.sym, name);
    const std::unique_ptr<String, FreeObject> string(string_new("text"));
    atom = object_atom(string.get());
    dictobj_atom_safety(&atom);
    EXPECT_EQ(atom.value.sym, "text"_sym);
    atom = long_atom(1);
    EXPECT_EQ(dictobj_atom_safety(&atom), 0);
    EXPECT_EQ(dictobj_atom_safety(nullptr), 0);
}

TEST(Dictobj, SendsWhatCordsCanCarry) {
    static std::string received;
    static Dictionary *found;
    Class *c = class_new("dictionary_test_cords", nullptr, nullptr, sizeof(Object), nullptr, 0);
    const std::unique_ptr<Class, FreeClass> owned(c);
    const auto note = +[](Object *, Symbol *selector, int32_t argc, Atom *argv) {
        received = selector->name + std::string(" ") + text_of_atoms(argc, argv);
        found = argc == 1 ? dictobj_findregistered_retain(atom_getsym(argv)) : nullptr;
    };
    class_addmethod(c, method(note), "anything", TypeGimme, 0);
    class_addmethod(c, method(note), "list", TypeGimme, 0);
    class_register("nobox"_sym, c);
    const std::unique_ptr<void, FreeObject> receiver(object_alloc(c));
    const std::unique_ptr<void, FreeObject> sender(object_alloc(c));
    Outlet *outlet = outlet_new(sender.get(), nullptr);
    outlet_add(outlet, receiver.get());

    const OwnedDictionary dictionary = read_json(R"({"l":["a",{"b":1},2],"n":[1,"x"]})");
    Atom atom = object_atom(dictionary.get());
    dictobj_outlet_atoms(outlet, 1, &atom);
    EXPECT_TRUE(received.starts_with("dictionary u")) << received;
    EXPECT_EQ(found, dictionary.get());
    dictobj_release(found);
    EXPECT_EQ(dictobj_namefromptr(dictionary.get()), nullptr);

    Atomarray *array = nullptr;
    dictionary_getatomarray(dictionary.get(), "l"_sym, &array);
    atom = object_atom(array);
    dictobj_outlet_atoms(outlet, 1, &atom);
    EXPECT_EQ(received, "a dictionary 2");
    dictionary_getatomarray(dictionary.get(), "n"_sym, &array);
    dictobj_outlet_atoms(outlet, atomarray_getsize(array), array->atoms);
    EXPECT_EQ(received, "list 1 x");
}

// --- Files ---------------------------------------------------------------------------------------

// The last one frees the first, which is being freed, from far inside.
TEST(Dictionary, FreesARingOnce) {
    const int64_t before = memory_live_blocks();
    Dictionary *const first = dictionary_new();
    Dictionary *last = first;
    for (int i = 0; i < 200; ++i) {
        Dictionary *const next = dictionary_new();
        dictionary_appendobject(last, "next"_sym, next);
        last = next;
    }
    dictionary_appendobject(last, "next"_sym, first);
    object_free(first);
    EXPECT_EQ(memory_live_blocks(), before);
}

TEST(Dictionary, IsReadFromAndWrittenToFiles) {
    const std::string folder = testing::TempDir();
    const int16_t path = path_frompathname(folder.c_str());
    ASSERT_NE(path, 0);
    const OwnedDictionary dictionary = read_json(R"({"a":[1,2.5,"x"],"b":{"c":null}})");
    ASSERT_EQ(dictionary_write(dictionary.get(), "kiv_dictionary_test.json", path), ErrorNone);
    Dictionary *read = nullptr;
    ASSERT_EQ(dictionary_read("kiv_dictionary_test.json", path, &read), ErrorNone);
    const OwnedDictionary owned(read);
    EXPECT_EQ(write_json(read), write_json(dictionary.get()));

    // A dictionary that cannot be written leaves the file alone.
    dictionary_appendobject_flags(dictionary.get(), "self"_sym, dictionary.get(),
                                  ContainerReference);
    EXPECT_EQ(dictionary_write(dictionary.get(), "kiv_dictionary_test.json", path), ErrorGeneric);
    EXPECT_EQ(dictionary_read("kiv_dictionary_test.json", path, &read), ErrorNone);
    object_free(read);
    take_posts();
    EXPECT_EQ(dictionary_read("kiv_no_such_file.json", path, &read), ErrorGeneric);
    EXPECT_EQ(read, nullptr);
    EXPECT_EQ(take_posts().size(), 1u);
    std::remove((folder + "/kiv_dictionary_test.json").c_str());
}

}  // namespace
}  // namespace kiv::test
