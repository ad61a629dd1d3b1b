#include <kiv/attr.h>

#include "documents.h"
#include "kernel/internal.h"
#include "patcher/creation.h"
#include "patcher/internal.h"
#include "patcher/records.h"

namespace kiv {
namespace {

using namespace test;

class CreationTest : public DocumentTest {
  protected:
    void SetUp() override {
        DocumentTest::SetUp();
        parent = empty_patcher();
    }
    void TearDown() override {
        object_free(parent);
        DocumentTest::TearDown();
    }
    Object *make(const char *text) const { return newobject_fromboxtext(parent, text); }
    Object *parent = nullptr;
};

TEST_F(CreationTest, BoxTextMakesTheObjectItNames) {
    nametab_add(gensym("speak"), gensym("print"));
    const struct {
        const char *text;
        const char *box_class;
        const char *object_class;
        const char *kept_text;
        Texts posts;
    } cases[] = {
        {"print hello", "newobj", "print", "print hello", {}},
        {"PRINT hello", "newobj", "print", "PRINT hello", {}},
        {"speak up", "newobj", "print", "speak up", {}},
        {"p", "newobj", "jpatcher", "p", {}},
        {"patcher name", "newobj", "jpatcher", "patcher name", {}},
        {"toggle", "toggle", "toggle", "toggle", {}},
        {"Toggle", "toggle", "toggle", "Toggle", {}},
        {"newobj @text \"print x\" @hidden 1", "newobj", "print", "print x", {}},
        {"newobj", "newobj", "jbogus", "", {}},
        {"", "newobj", "jbogus", "", {}},
        {"say \"two words\"", "newobj", "jbogus", "say \"two words\"", {"say: No such object"}},
        {"print a, b", "newobj", "jbogus", "print a, b", {"object box has comma or semicolon"}},
        {"print;", "newobj", "jbogus", "print;", {"object box has comma or semicolon"}},
        {"juibogus", "newobj", "jbogus", "juibogus", {"juibogus: No such object"}},
        {"newobj1 @text x", "juibogus", "juibogus", "x", {"newobj1: no such object"}},
    };
    for (const auto &c : cases) {
        Object *box = make(c.text);
        ASSERT_NE(nullptr, box) << c.text;
        EXPECT_STREQ(c.box_class, object_classname(box)->name) << c.text;
        EXPECT_EQ(c.object_class, class_in(box)) << c.text;
        EXPECT_STREQ(c.kept_text, object_attr_getsym(box, gensym("text"))->name);
        EXPECT_EQ(c.posts, take_texts()) << c.text;
        EXPECT_EQ(parent, jbox_get_patcher(box));
    }
    EXPECT_EQ(static_cast<int>(std::size(cases)), jpatcher_get_count(parent));
}

TEST_F(CreationTest, ReservedSymbolsAndTheDefaultPathAreRestored) {
    const int16_t path = path_getdefault();
    make("print");
    make("nosuch");
    EXPECT_EQ(nullptr, gensym("#P")->thing);
    EXPECT_EQ(nullptr, gensym("#B")->thing);
    EXPECT_EQ(path, path_getdefault());
}

TEST_F(CreationTest, AnInvalidPatcherIsAWarning) {
    Dictionary *dictionary = dictionary_new();
    EXPECT_EQ(nullptr, newobject_fromdictionary(nullptr, dictionary));
    const auto posts = take_posts();
    ASSERT_EQ(1u, posts.size());
    EXPECT_EQ(PostWarning, posts[0].kind);
    EXPECT_EQ("method newobject called on invalid object", posts[0].text);
    EXPECT_EQ(nullptr, newobject_fromdictionary(parent, nullptr));
    object_free(dictionary);
}

TEST_F(CreationTest, FormattedBoxesHaveTheirPlace) {
    Object *box = newobject_sprintf(
        parent, "@kivclass newobj @text \"int %d\" @patching_rect %d %d 50 22", 7, 10, 20);
    double rect[4];
    jbox_get_patching_rect(box, rect);
    EXPECT_EQ(10., rect[0]);
    EXPECT_EQ(50., rect[2]);
    EXPECT_EQ("int", class_in(box));
}

TEST_F(CreationTest, AnUnknownBoxClassKeepsItsDictionary) {
    Dictionary *box = dictionary_sprintf(
        "@kivclass gizmo @text hello @knob 5 @id obj-9 @patching_position 10 20");
    Object *made = newobject_fromdictionary(parent, box);
    const auto posts = take_posts();
    ASSERT_EQ(1u, posts.size());
    EXPECT_EQ("gizmo: no such object", posts[0].text);
    EXPECT_EQ(made, posts[0].source);
    double rect[4];
    jbox_get_patching_rect(made, rect);
    EXPECT_EQ(10., rect[0]);
    EXPECT_EQ(20., rect[1]);
    EXPECT_EQ(100., rect[2]);
    EXPECT_EQ(20., rect[3]);
    Dictionary *saved = dictionary_new();
    object_method(made, gensym("appendtodictionary"), saved);
    Symbol *name = nullptr;
    int64_t knob = 0;
    dictionary_getsym(saved, gensym("kivclass"), &name);
    dictionary_getlong(saved, gensym("knob"), &knob);
    EXPECT_EQ(gensym("gizmo"), name);
    EXPECT_EQ(5, knob);
    EXPECT_FALSE(dictionary_hasentry(saved, gensym("#P")));
    EXPECT_FALSE(dictionary_hasentry(box, gensym("#P")));
    object_free(saved);
    object_free(box);
}

TEST_F(CreationTest, AnObjectClassNamedAsABoxClassIsNoBox) {
    for (const char *name : {"print", "metro", "int", "jpatcher", "clock", ""}) {
        Dictionary *box = dictionary_new();
        dictionary_appendsym(box, gensym("kivclass"), gensym(name));
        EXPECT_STREQ("juibogus", object_classname(newobject_fromdictionary(parent, box))->name);
        object_free(box);
    }
}

TEST_F(CreationTest, ATypedInterfaceClassTakesPlaceAndIdentity) {
    Dictionary *box = dictionary_sprintf(
        "@kivclass newobj @text \"toggle @hint on\" @id obj-7 @varname sw @patching_rect 1 2 3 4");
    Object *made = newobject_fromdictionary(parent, box);
    double rect[4];
    jbox_get_patching_rect(made, rect);
    EXPECT_STREQ("toggle", object_classname(made)->name);
    EXPECT_STREQ("obj-7", jbox_get_id(made)->name);
    EXPECT_STREQ("sw", jbox_get_varname(made)->name);
    EXPECT_EQ(4., rect[3]);
    EXPECT_EQ(1, jpatcher_get_count(parent));
    object_free(box);
}

TEST_F(CreationTest, SavedMessagesMakeTheObject) {
    Dictionary *box = dictionary_sprintf("@kivclass newobj @text old @save #N print $1");
    Object *made = newobject_fromdictionary(parent, box);
    EXPECT_EQ("print", class_in(made));
    object_free(box);
}

TEST_F(CreationTest, NewBoxesAreMovedAndHiddenAsThePatcherSays) {
    auto *record = reinterpret_cast<Patcher *>(parent);
    record->paste_offset[0] = 5;
    record->paste_offset[1] = -5;
    record->hide_new_boxes = true;
    Object *made =
        newobject_sprintf(parent, "@kivclass newobj @text print @patching_rect 10 10 50 20");
    double rect[4];
    jbox_get_patching_rect(made, rect);
    EXPECT_EQ(15., rect[0]);
    EXPECT_EQ(5., rect[1]);
    EXPECT_EQ(1, jbox_get_hidden(made));
    EXPECT_EQ(made, record->last_created);
}

TEST_F(CreationTest, OtherMessagesGoToThePatcherItself) {
    Atom words[2];
    atom_setsym(&words[0], gensym("title"));
    atom_setsym(&words[1], gensym("Sketch"));
    object_method_typed(parent, gensym("newobject"), 2, words, nullptr);
    EXPECT_STREQ("Sketch", jpatcher_get_title(parent)->name);
    object_method_typed(parent, gensym("newobject"), 0, nullptr, nullptr);
    atom_setlong(&words[0], 3);
    object_method_typed(parent, gensym("newobject"), 1, words, nullptr);
    EXPECT_EQ((Texts{"missing arguments for message \"newobject\"",
                     "bad arguments for message \"newobject\""}),
              take_texts());
}

TEST_F(CreationTest, MakersAnswerForTheirNamespace) {
    Object *maker = static_cast<Object *>(gensym("#N")->thing);
    EXPECT_TRUE(newex_knows(maker, gensym("p")));
    EXPECT_TRUE(newex_knows(maker, gensym("patcher")));
    EXPECT_TRUE(newex_knows(maker, gensym("print")));
    EXPECT_FALSE(newex_knows(maker, gensym("newobj")));
    EXPECT_FALSE(newex_knows(maker, gensym("absent")));
    Object *factory = creation_maker(gensym("shader"));
    EXPECT_EQ(factory, creation_maker(gensym("shader")));
    EXPECT_EQ(factory, object_findregistered(gensym("jpatcher_classfactory"), gensym("shader")));
    EXPECT_TRUE(newex_knows(factory, gensym("p")));
    EXPECT_FALSE(newex_knows(factory, gensym("print")));
    creation_suspend(true);
    EXPECT_EQ("jbogus", class_in(make("print")));
    creation_suspend(false);
    EXPECT_EQ("print", class_in(make("print")));
}

// --- Abstractions --------------------------------------------------------------------------------

TEST_F(CreationTest, AnAbstractionGetsTenArguments) {
    put("args.kivpat", document({box("a", "patcherargs"), box("b", "print #1 #9"),
                                 R"({"box":{"kivclass":"message","id":"m","text":"say #2-#3"}})"}));
    Object *first = make("args x y 2.5 4 5 6 7 8 nine ten eleven twelve");
    ASSERT_EQ("jpatcher", class_in(first));
    const auto &arguments = reinterpret_cast<Patcher *>(jbox_get_object(first))->arguments;
    ASSERT_EQ(10u, arguments.size());
    EXPECT_EQ(TypeLong, arguments[0].type);
    EXPECT_EQ(TypeFloat, arguments[3].type);
    EXPECT_STREQ("nine", arguments[9].value.sym->name);
    Object *inner = jpatcher_get_lastobject(jbox_get_object(first));
    EXPECT_STREQ("say y-2.5", object_attr_getsym(inner, gensym("text"))->name);
    Object *printer = jbox_get_prevobject(inner);
    EXPECT_STREQ("print #1 #9", object_attr_getsym(printer, gensym("text"))->name);

    Object *second = make("args");
    const auto &none = reinterpret_cast<Patcher *>(jbox_get_object(second))->arguments;
    ASSERT_EQ(10u, none.size());
    EXPECT_EQ(TypeLong, none[9].type);
    EXPECT_EQ(0, none[9].value.i);
    EXPECT_NE(arguments[0].value.i, none[0].value.i);
    EXPECT_EQ(gensym("args"), jpatcher_get_name(jbox_get_object(second)));
}

TEST_F(CreationTest, ArgumentsReachSubpatchersAndKeepTheirType) {
    put("outer.kivpat",
        document({box("p", "p inside",
                      ",\"patcher\":" + patcher({box("x", "loadmess #1 #2"), box("y", "print #3")},
                                                {line("x", "y")}))}));
    make("outer 5 word tag");
    EXPECT_EQ(Texts{"tag: 5 word"}, take_texts());
    make("outer 5. \"$1\"");
    EXPECT_EQ(Texts{"0: 5. $1"}, take_texts());
}

TEST_F(CreationTest, AFileBesideThePatcherIsFoundFirst) {
    std::filesystem::create_directories(root / "library");
    std::filesystem::create_directories(root / "work");
    ASSERT_TRUE(search_path_add(file("library").c_str(), true));
    put("library/thing.kivpat", document({}));
    put("work/thing.kivpat", document({box("a", "p mine")}));
    put("work/user.kivpat", document({box("a", "thing")}));
    Object *user = document_load(file("work/user.kivpat").c_str(), nullptr);
    Object *inner = jbox_get_object(jpatcher_get_firstobject(user));
    EXPECT_EQ(1, jpatcher_get_count(inner));
    inner = jbox_get_object(make("thing"));
    EXPECT_EQ(0, jpatcher_get_count(inner));
    object_free(user);
}

TEST_F(CreationTest, AnAbstractionCannotContainItself) {
    const char *reason =
        "perhaps you have mistakenly named a patcher file the same name as an object it contains. "
        "this is not permitted.";
    put("self.kivpat", document({box("a", "self")}));
    put("ping.kivpat", document({box("a", "pong")}));
    put("pong.kivpat", document({box("a", "ping")}));
    Object *made = make("self");
    EXPECT_EQ((Texts{"patcher attempting to load itself: self.kivpat", reason}), take_texts());
    EXPECT_EQ("jbogus", class_in(jpatcher_get_firstobject(jbox_get_object(made))));
    make("ping");
    EXPECT_EQ((Texts{"patcher attempting to load itself: ping.kivpat", reason}), take_texts());
}

TEST_F(CreationTest, FilesThatAreNoPatchersAreNoObjects) {
    put("notes.txt", "just some text");
    put("broken.kivpat", "{\"patcher\":{\"boxes\":[}");
    put("empty.json", "");
    EXPECT_EQ("jbogus", class_in(make("notes")));
    EXPECT_EQ(Texts{"notes: No such object"}, take_texts());
    EXPECT_EQ("jbogus", class_in(make("empty")));
    EXPECT_EQ(Texts{"empty: No such object"}, take_texts());
    EXPECT_EQ("jbogus", class_in(make("broken")));
    EXPECT_EQ("error parsing patcher file broken.kivpat", take_texts().at(0));
}

TEST_F(CreationTest, AMissingObjectOfAKnownPackageIsHinted) {
    std::filesystem::create_directories(root / "pack");
    put("pack/package-info.json", R"({"name":"Waves","filelist":{"externals":["ripple.kve64"]}})");
    ASSERT_TRUE(search_path_add(file("pack").c_str(), false));
    make("ripple 3");
    const auto posts = take_posts();
    ASSERT_EQ(2u, posts.size());
    EXPECT_EQ("ripple: No such object", posts[0].text);
    EXPECT_EQ("ripple: object is available in the Waves package", posts[1].text);
    EXPECT_EQ(PostBug, posts[1].kind);
}

TEST_F(CreationTest, DeepNestingEndsInAnErrorNotInACrash) {
    std::string inner = patcher({});
    for (int level = 0; level < 240; ++level) {
        inner = patcher({box("a", "p", ",\"patcher\":" + inner)});
    }
    Object *loaded = load_text("{\"patcher\":" + inner + "}");
    EXPECT_NE(nullptr, loaded);
    EXPECT_NE(Texts(), take_texts());
    object_free(loaded);
    for (int level = 0; level < 400; ++level) {
        put("deep" + std::to_string(level) + ".kivpat",
            document({box("a", "deep" + std::to_string(level + 1))}));
    }
    EXPECT_EQ("jpatcher", class_in(make("deep0")));
    EXPECT_NE(Texts(), take_texts());
}

TEST_F(CreationTest, NoMemoryLosesTheBoxButNothingElse) {
    for (int64_t n = 1; n < 400; ++n) {
        Object *own = empty_patcher();
        memory_fail_at(n);
        newobject_fromboxtext(own, "print \"some words\" 1 2");
        memory_fail_at(0);
        EXPECT_LE(jpatcher_get_count(own), 1) << n;
        EXPECT_EQ(nullptr, gensym("#P")->thing) << n;
        object_free(own);
    }
    take_posts();
}

}  // namespace
}  // namespace kiv
