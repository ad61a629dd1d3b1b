#include <kiv/attr.h>

#include "documents.h"
#include "kernel/internal.h"
#include "patcher/internal.h"

namespace kiv {
namespace {

using namespace test;

// An object whose "loadbang" and whose making a test decides.
struct Probe {
    Object ob;
    void *obex;
};
struct {
    void (*on_new)(Symbol *word) = nullptr;
    void (*on_loadbang)(Probe *probe) = nullptr;
    Class *probe_class = nullptr;
    std::filesystem::path root;
    Object *victim = nullptr;
} hooks;

void *probe_new(Symbol *, int32_t argc, Atom *argv) {
    if (hooks.on_new) {
        hooks.on_new(argc > 0 ? atom_getsym(argv) : nullptr);
    }
    return object_alloc(hooks.probe_class);
}

void probe_loadbang(Probe *probe) {
    if (hooks.on_loadbang) {
        hooks.on_loadbang(probe);
    }
}

class LoadTest : public DocumentTest {
  protected:
    void SetUp() override {
        DocumentTest::SetUp();
        hooks = {};
        hooks.root = root;
        hooks.probe_class = class_new("probe", reinterpret_cast<Method>(probe_new), nullptr,
                                      sizeof(Probe), nullptr, TypeGimme, 0);
        class_obexoffset_set(hooks.probe_class, offsetof(Probe, obex));
        class_addmethod(hooks.probe_class, reinterpret_cast<Method>(probe_loadbang), "loadbang",
                        TypeCant, 0);
        class_register(gensym("box"), hooks.probe_class);
    }
};

TEST_F(LoadTest, EveryBadDocumentSaysWhy) {
    put("list.kivpat", "[\"patcher\"]");
    put("other.json", "{\"settings\":{}}");
    put("late.kivpat", "{\"x\":\"" + std::string(260, 'x') + "\",\"patcher\":{}}");
    put("number.kivpat", "{\"patcher\":5}");
    put("bad.kivpat", "{\"patcher\":{\"boxes\":[1,}}");
    put("plain.kivpat", document({}));
    const struct {
        const char *name;
        bool loads;
        const char *post;  // null: none
    } cases[] = {
        {"list.kivpat", false, "patcher file list.kivpat missing patcher!"},
        {"other.json", false, nullptr},
        {"late.kivpat", false, nullptr},
        {"number.kivpat", false, "patcher file number.kivpat missing patcher!"},
        {"bad.kivpat", false, "error parsing patcher file bad.kivpat"},
        {"missing.kivpat", false, "can't load patcher: error 2 opening missing.kivpat"},
        {"plain.kivpat", true, nullptr},
    };
    for (const auto &c : cases) {
        void *loaded = jpatcher_load(c.name, id(), 0, nullptr);
        EXPECT_EQ(c.loads, loaded != nullptr) << c.name;
        const Texts texts = take_texts();
        EXPECT_EQ(c.post != nullptr, !texts.empty()) << c.name;
        if (c.post && !texts.empty()) {
            EXPECT_EQ(c.post, texts[0]);
        }
        object_free(loaded);
    }
    EXPECT_EQ(nullptr, jpatcher_load(nullptr, 0, 0, nullptr));
    EXPECT_EQ(nullptr, jpatcher_load_fromdictionary("x", 0, nullptr, 0, nullptr));
}

TEST_F(LoadTest, TheHostHearsWhyADocumentDidNotLoad) {
    put("other.json", "{}");
    put("good.kivpat", document({box("a", "print")}));
    int32_t result = 0;
    EXPECT_EQ(nullptr, document_load(file("missing.kivpat").c_str(), &result));
    EXPECT_NE(0, result);
    EXPECT_EQ(nullptr, document_load(file("other.json").c_str(), &result));
    EXPECT_NE(0, result);
    EXPECT_EQ(nullptr, document_load(file("").c_str(), &result));
    EXPECT_NE(0, result);
    EXPECT_EQ(3u, take_texts().size());
    path_setdefault(0, 0);
    Object *loaded = document_load(file("good.kivpat").c_str(), &result);
    ASSERT_NE(nullptr, loaded);
    EXPECT_EQ(0, result);
    EXPECT_EQ(gensym("good"), jpatcher_get_name(loaded));
    EXPECT_EQ(gensym("good.kivpat"), jpatcher_get_filename(loaded));
    EXPECT_EQ(0, jpatcher_get_dirty(loaded));
    EXPECT_EQ(0, path_getdefault());
    object_free(loaded);
}

TEST_F(LoadTest, OneLoadParsesAFileOnce) {
    put("part.kivpat", document({box("a", "print")}));
    hooks.on_new = [](Symbol *) { std::ofstream(hooks.root / "part.kivpat") << document({}); };
    Object *loaded = load_text(
        document({box("a", "part 1"), box("b", "probe"), box("c", "part"), box("d", "part")}));
    for (Object *b = jpatcher_get_firstobject(loaded); b; b = jbox_get_nextobject(b)) {
        if (class_in(b) == "jpatcher") {
            EXPECT_EQ(1, jpatcher_get_count(jbox_get_object(b)));
        }
    }
    object_free(loaded);
    put("part.kivpat", document({box("a", "print")}));
    jpatcher_bulk_load_begin();
    for (int count : {1, 1}) {
        void *part = jpatcher_load("part.kivpat", id(), 0, nullptr);
        EXPECT_EQ(count, jpatcher_get_count(part));
        object_free(part);
        put("part.kivpat", document({}));
    }
    jpatcher_bulk_load_end();
    void *part = jpatcher_load("part.kivpat", id(), 0, nullptr);
    EXPECT_EQ(0, jpatcher_get_count(part));
    object_free(part);
}

TEST_F(LoadTest, ArgumentsOfOneLoadDoNotReachTheNext) {
    put("part.kivpat", document({box("a", "p #1")}));
    Dictionary *dictionary = nullptr;
    ASSERT_EQ(ErrorNone, dictionary_read("part.kivpat", id(), &dictionary));
    Atom arguments[2];
    atom_setlong(&arguments[0], 1);
    atom_setsym(&arguments[1], gensym("given"));
    for (const char *name : {"given", "#1"}) {
        const int32_t argc = name[0] == '#' ? 0 : 2;
        void *part = jpatcher_load_fromdictionary("part.kivpat", id(), dictionary, argc, arguments);
        Object *inner = jbox_get_object(jpatcher_get_firstobject(part));
        EXPECT_STREQ(name, jpatcher_get_name(inner)->name);
        object_free(part);
    }
    object_free(dictionary);
}

// --- Loadbang ------------------------------------------------------------------------------------

std::string bang_and_print(const std::string &name, const std::vector<std::string> &more = {}) {
    std::vector<std::string> boxes = {box("l", "loadbang"), box("o", "print " + name)};
    boxes.insert(boxes.end(), more.begin(), more.end());
    return patcher(boxes, {line("l", "o")});
}

TEST_F(LoadTest, LoadbangRunsInStagesInnermostFirst) {
    hooks.on_loadbang = [](Probe *) { post("probe"); };
    put("part.kivpat", "{\"patcher\":" + bang_and_print("part") + "}");
    Object *loaded =
        load_text("{\"patcher\":" +
                  bang_and_print("top", {box("a", "part"), box("x", "probe"),
                                         box("b", "p", ",\"patcher\":" + bang_and_print("sub"))}) +
                  "}");
    EXPECT_EQ((Texts{"part: bang", "probe", "sub: bang", "top: bang"}), take_texts());
    EXPECT_EQ(0, jpatcher_get_dirty(loaded));
    object_method(loaded, gensym("loadbang"));
    EXPECT_EQ(Texts(), take_texts()) << "once in a generation";
    loadbang_new_generation();
    object_method(loaded, gensym("loadbang"));
    EXPECT_EQ(4u, take_texts().size());
    object_free(loaded);
}

TEST_F(LoadTest, SuspensionHoldsTheQueueInOrder) {
    const auto text = [](const char *name) { return "{\"patcher\":" + bang_and_print(name) + "}"; };
    EXPECT_EQ(1, loadbang_suspend());
    EXPECT_EQ(2, loadbang_suspend());
    Object *a = load_text(text("A"));
    Object *b = load_text(text("B"));
    Object *gone = load_text(text("gone"));
    Object *c = load_text(text("C"));
    loadbang_queueobject(a);
    object_free(gone);
    loadbang_resume();
    EXPECT_EQ(Texts(), take_texts());
    loadbang_resume();
    EXPECT_EQ((Texts{"A: bang", "B: bang", "C: bang"}), take_texts());
    loadbang_resume();
    EXPECT_EQ(Texts(), take_texts());
    for (Object *patcher : {a, b, c}) {
        object_free(patcher);
    }
}

TEST_F(LoadTest, WhatLoadbangFreesIsNotServed) {
    const std::string text = document({box("a", "probe first"), box("b", "probe second"),
                                       box("c", "loadbang"), box("d", "print out")},
                                      {line("c", "d")});
    hooks.on_loadbang = [](Probe *probe) {
        Object *own = object_box(&probe->ob);
        post("%s", object_attr_getsym(own, gensym("text"))->name);
        if (Object *next = jbox_get_nextobject(own)) {
            jpatcher_deleteobj(jbox_get_patcher(own), next);
        }
    };
    Object *loaded = load_text(text);
    EXPECT_EQ((Texts{"probe first", "out: bang"}), take_texts());
    object_free(loaded);

    hooks.on_loadbang = [](Probe *probe) {
        post("freed");
        object_free(jbox_get_patcher(object_box(&probe->ob)));
    };
    EXPECT_EQ(nullptr, load_text(text));
    EXPECT_EQ(Texts{"freed"}, take_texts());
}

TEST_F(LoadTest, AConstructorMayFreeThePatcherThatIsBeingLoaded) {
    hooks.on_new = [](Symbol *) { object_free(gensym("#P")->thing); };
    EXPECT_EQ(nullptr,
              load_text(document({box("a", "print"), box("b", "probe"), box("c", "print")})));
    EXPECT_EQ(nullptr, gensym("#P")->thing);
}

TEST_F(LoadTest, AnAbstractionMadeAtRunTimeGetsLoadbangAtOnce) {
    put("part.kivpat", "{\"patcher\":" + bang_and_print("part") + "}");
    Object *parent = empty_patcher();
    newobject_fromboxtext(parent, "part");
    newobject_fromboxtext(parent, "part");
    EXPECT_EQ((Texts{"part: bang", "part: bang"}), take_texts());
    object_free(parent);
}

// --- Loaders by name -----------------------------------------------------------------------------

TEST_F(LoadTest, ACollectiveBringsItsAbstractions) {
    const std::string main = document({box("a", "part 3"), box("b", "whole")});
    put("all.kivc", R"({"collective":{"open":"whole.kivpat","files":{"whole.kivpat":)" + main +
                        R"(,"part.kivpat":)" +
                        document({box("a", "loadmess #1"), box("b", "print")}, {line("a", "b")}) +
                        "}}}");
    put("part.kivpat", document({}));
    const std::string refused = "patcher attempting to load itself: whole.kivpat";
    auto *whole = static_cast<Object *>(nameload("all.kivc", id(), 0, 0));
    ASSERT_TRUE(jpatcher_is_patcher(whole));
    EXPECT_STREQ("whole", jpatcher_get_name(whole)->name);
    const Texts texts = take_texts();
    EXPECT_EQ(1, std::count(texts.begin(), texts.end(), refused));
    EXPECT_EQ("print: 3", texts.back());
    newobject_fromboxtext(whole, "part 4");
    EXPECT_EQ(Texts{"print: 4"}, take_texts());
    Object *other = empty_patcher();
    newobject_fromboxtext(other, "part 4");
    EXPECT_EQ(Texts(), take_texts());
    object_free(other);
    object_free(whole);

    put("none.kivc", "{\"collective\":{}}");
    put("gone.kivc", "{\"collective\":{\"open\":\"x\",\"files\":{}}}");
    EXPECT_EQ(nullptr, document_load(file("none.kivc").c_str(), nullptr));
    EXPECT_EQ(nullptr, document_load(file("gone.kivc").c_str(), nullptr));
    EXPECT_EQ((Texts{"none.kivc: not a collective", "patcher file x missing patcher!"}),
              take_texts());
}

TEST_F(LoadTest, FilesLoadByTypeAndByName) {
    put("doc.kivpat", "{\"patcher\":" + bang_and_print("doc") + "}");
    put("help.kivHELP", document({}));
    void *word = this;
    Atom argument;
    atom_setlong(&argument, 1);
    Object *loaded[] = {
        static_cast<Object *>(fileload("doc.kivpat", id())),
        static_cast<Object *>(fileload_type("doc.kivpat", 0, file_type("JSON"))),
        static_cast<Object *>(
            fileload_extended("doc.kivpat", id(), file_type("JSON"), 1, &argument, &word)),
        static_cast<Object *>(stringload("doc")),
    };
    for (Object *patcher : loaded) {
        EXPECT_TRUE(jpatcher_is_patcher(patcher));
        object_free(patcher);
    }
    EXPECT_EQ(nullptr, word);
    EXPECT_EQ(4u, take_texts().size());
    EXPECT_EQ(nullptr, fileload_type("doc.kivpat", id(), file_type("kivc")));
    EXPECT_EQ(nullptr, stringload("nothing"));

    void *first = nameload_unique("doc.kivpat", id(), file_type("JSON"), 0, 1);
    EXPECT_EQ(first, nameload_unique("doc.kivpat", id(), file_type("JSON"), 1, 1));
    void *second = nameload("doc.kivpat", id(), file_type("JSON"), 0);
    EXPECT_NE(first, second);
    object_free(first);
    EXPECT_EQ(second, nameload_unique("doc.kivpat", id(), file_type("JSON"), 0, 1));
    object_free(second);
    put("argued.kivpat", document({R"({"box":{"kivclass":"message","id":"m","text":"a#1"}})"}));
    void *argued = nameload("argued.kivpat", id(), file_type("JSON"), 0);
    EXPECT_STREQ(object_attr_getsym(jpatcher_get_firstobject(argued), gensym("text"))->name, "a0");
    object_free(argued);
    put("lesson.kivlesson", document({}));
    put("snippet.kivsnip", document({}));
    EXPECT_EQ(nullptr, nameload("lesson.kivlesson", id(), 0, 0));
    for (void *made :
         {fileload("lesson.kivlesson", id()), nameload("snippet.kivsnip", id(), 0, 0)}) {
        EXPECT_TRUE(jpatcher_is_patcher(made));
        object_free(made);
    }
    void *help = nameload("help.kivHELP", id(), file_type("JSON"), 1);
    EXPECT_EQ(1, object_attr_getlong(help, gensym("ishelpfile")));
    object_free(help);
}

}  // namespace
}  // namespace kiv
