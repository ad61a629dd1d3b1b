// Documents: what is written is what was read, nothing is lost, and outlets keep their order.
#include <kiv/attr.h>
#include <kiv/inlets.h>

#include <chrono>
#include <sstream>

#include "containers/internal.h"
#include "documents.h"
#include "patcher/internal.h"
#include "patcher/records.h"

namespace kiv {
namespace {

using namespace test;

std::string saved(Object *patcher) {
    Dictionary *outer = dictionary_new();
    Dictionary *inner = dictionary_new();
    EXPECT_TRUE(patcher_write_dictionary(as_patcher(patcher), inner));
    dictionary_appenddictionary(outer, gensym("patcher"), inner);
    JsonText text;
    EXPECT_TRUE(json_from_dictionary(outer, text));
    object_free(outer);
    return std::string(text.view());
}

class PatcherDocumentTest : public DocumentTest {
  protected:
    // Loads, and checks that from the first saving on nothing changes any more.
    static std::string round_trip(const std::string &text) {
        Object *first = load_text(text);
        const std::string once = saved(first);
        object_free(first);
        take_posts();
        Object *second = load_text(once);
        EXPECT_EQ(saved(second), once);
        object_free(second);
        take_posts();
        return once;
    }
    static std::string cord(const std::string &from, int outlet, const std::string &to, int inlet,
                            const std::string &more = "") {
        return R"({"patchline":{"source":[")" + from + "\"," + std::to_string(outlet) +
               R"(],"destination":[")" + to + "\"," + std::to_string(inlet) + "]" + more + "}}";
    }
    static std::string at(int x, int y) {
        return R"(,"patching_rect":[)" + std::to_string(x) + "," + std::to_string(y) + ",50,20]";
    }
};

TEST_F(PatcherDocumentTest, EverythingADocumentHoldsSurvives) {
    const char *boxes[] = {
        R"({"box":{"kivclass":"newobj","id":"obj-1","text":"print a, b","x":{"deep":[1,[2,{"y":3.5}]]}}})",
        R"({"box":{"kivclass":"nobody","id":"obj-2","numinlets":3,"numoutlets":2,
            "outlettype":["int",""],"own":1,"text":"some \"text\"","patcher":{"boxes":[]}}})",
        R"({"box":{"kivclass":"newobj","id":"obj-3","text":"nobody 1 2","numinlets":4,"save":["#N","nobody"]}})",
        R"({"box":{"kivclass":"newobj","id":"obj-4","text":"p x","patcher":{"openinpresentation":1,"other":[],
            "boxes":[{"box":{"kivclass":"toggle","id":"t","presentation":1,"presentation_rect":[1,2,3,4]}},7],
            "lines":["x"]}}})",
        R"(5)",
        R"({"box":{"kivclass":"newobj","id":"obj-1","text":"print"}})",
        R"({"box":{"kivclass":"newobj","id":"obj-9","text":5,"varname":"v","hint":"ünïcode"}})",
        R"({"box":{}})"};
    const std::string text =
        R"({"patcher":{"fileversion":1,"rect":[1.5,2,300,400],"openrect":[0,0,10,10],
        "bgcolor":[0.1,0.2,0.3,1],"gridonopen":1,"gridsnaponopen":2,"gridsize":[8,8],
        "description":"d","title":"t","globalpatchername":"","isolateaudio":1,"showontab":0,
        "dependency_cache":[{"name":"x.kivpat","implicit":1}],"autosave":0,"later":{"a":null},
        "boxes":)" +
        joined({std::begin(boxes), std::end(boxes)}) + R"(,"lines":)" +
        joined({cord("obj-1", 0, "obj-2", 0), cord("obj-2", 1, "obj-4", 0, R"(,"order":0)"),
                cord("obj-2", 1, "obj-1", 0, R"(,"order":1,"q":"r")"),
                cord("obj-9", 0, "obj-1", 2, R"(,"color":[1,0,0,1],"midpoints":[1,2,3,4])"),
                cord("obj-3", 0, "gone", 0, R"(,"hidden":1)"), R"({"patchline":{}})", "\"x\"",
                cord("obj-4", -3, "obj-1", 0, R"(,"disabled":1)")}) +
        "}}";
    const std::string once = round_trip(text);
    for (const char *kept : {"\"deep\"",
                             "\"own\" : 1",
                             "\"nobody 1 2\"",
                             "\"openinpresentation\" : 1",
                             "\"other\"",
                             "\"presentation_rect\" : [ 1.0, 2.0, 3.0, 4.0 ]",
                             "ünïcode",
                             "\"kivclass\" : \"nobody\"",
                             "\"gridonopen\" : 1",
                             "\"gridsize\"",
                             "\"later\"",
                             "\"dependency_cache\"",
                             "\"autosave\"",
                             "\"isolateaudio\" : 1",
                             "\"gone\"",
                             "\"q\" : \"r\"",
                             "\"numinlets\" : 3",
                             "\"numinlets\" : 4",
                             "\"midpoints\" : [ 1.0, 2.0, 3.0, 4.0 ]",
                             "\"disabled\" : 1",
                             "\"color\" : [ 1.0, 0.0, 0.0, 1.0 ]",
                             "\"hidden\" : 1",
                             "\"print a, b\"",
                             "\"text\" : \"5\"",
                             "some \\\"text\\\"",
                             "\"order\" : 1",
                             "\"openrect\"",
                             "\"save\""}) {
        EXPECT_NE(once.find(kept), std::string::npos) << kept;
    }
    for (const char *dropped : {"gridsnaponopen", "showontab", "globalpatchername", "#P",
                                "realclass", "\"vol\"", "arguments"}) {
        EXPECT_EQ(once.find(dropped), std::string::npos) << dropped;
    }
}

TEST_F(PatcherDocumentTest, BadCordsAreReportedAndKept) {
    const struct {
        std::string line;
        const char *text;
    } cases[] = {
        {cord("a", 1, "b", 0), "cord from a to b: a has no outlet 1"},
        {cord("a", 0, "b", 1), "cord from a to b: b has no inlet 1"},
        {cord("a", 0, "c", 0), "cord from a to c: no such box: c"},
        {cord("c", 0, "b", 0), "cord from c to b: no such box: c"},
        {R"({"patchline":{"source":["a",0]}})", "a cord lacks its source or destination"},
        {R"({"patchline":{"source":[0,"a"],"destination":["b",0]}})",
         "a cord lacks its source or destination"},
        {"5", "an element of \"lines\" is no cord"},
        {R"([["patchline"]])", "an element of \"lines\" is no cord"},
        {R"({"cord":1})", "an element of \"lines\" is no cord"},
    };
    for (const auto &c : cases) {
        Object *p = load_text(document({box("a", "t b"), box("b", "print")}, {c.line}));
        EXPECT_EQ(take_texts(), Texts{c.text});
        const std::string once = saved(p);
        EXPECT_NE(once.find("\"lines\" : [ "), std::string::npos);
        EXPECT_EQ(once.find("\"lines\" : [  ]"), std::string::npos) << c.line;
        object_free(p);
    }
}

TEST_F(PatcherDocumentTest, OutletsServeTheirCordsInTheDocumentsOrder) {
    const struct {
        const char *name;
        std::vector<std::string> lines;
        Texts served;
    } cases[] = {
        {"by position: right before left, low before high",
         {cord("s", 0, "left", 0), cord("s", 0, "right", 0), cord("s", 0, "low", 0)},
         {"right: bang", "low: bang", "left: bang"}},
        {"by order",
         {cord("s", 0, "left", 0, R"(,"order":1)"), cord("s", 0, "right", 0, R"(,"order":2)"),
          cord("s", 0, "low", 0, R"(,"order":0)")},
         {"low: bang", "left: bang", "right: bang"}},
        {"some with an order, some twice",
         {cord("s", 0, "left", 0), cord("s", 0, "right", 0, R"(,"order":1)"),
          cord("s", 0, "low", 0, R"(,"order":1)")},
         {"left: bang", "right: bang", "low: bang"}},
        {"orders out of range",
         {cord("s", 0, "left", 0, R"(,"order":-5)"), cord("s", 0, "right", 0, R"(,"order":99)"),
          cord("s", 0, "low", 0, R"(,"order":98)")},
         {"left: bang", "low: bang", "right: bang"}},
    };
    for (const auto &c : cases) {
        const std::string text = document(
            {box("s", "b 1"), box("left", "print left", at(0, 100)),
             box("right", "print right", at(300, 50)), box("low", "print low", at(0, 200))},
            c.lines);
        for (const std::string &source : {text, round_trip(text)}) {
            Object *p = load_text(source);
            outlet_bang(jbox_getoutlet(jpatcher_resolvebox(p, "s"_sym), 0));
            EXPECT_EQ(take_texts(), c.served) << c.name;
            object_free(p);
        }
    }
}

TEST_F(PatcherDocumentTest, OrderIsWrittenForSeveralConnectionsOnly) {
    Object *p = load_text(
        document({box("a", "t b"), box("b", "print"), box("c", "print")}, {cord("a", 0, "b", 0)}));
    EXPECT_EQ(saved(p).find("\"order\""), std::string::npos);
    Atom ends[4];
    atom_setsym(ends, "a"_sym);
    atom_setlong(ends + 1, 0);
    atom_setsym(ends + 2, "c"_sym);
    atom_setlong(ends + 3, 0);
    typedmess(p, "connect"_sym, 4, ends);
    Dictionary *older = dictionary_new();
    object_method(jpatcher_get_firstline(p), "appendtodictionary"_sym, older);
    int64_t order = -1;
    EXPECT_EQ(dictionary_getlong(older, "order"_sym, &order), 0);
    EXPECT_EQ(order, 1);  // the newest connection is served first
    object_free(older);
    EXPECT_NE(saved(p).find("\"order\" : 0"), std::string::npos);
    object_free(p);
}

TEST_F(PatcherDocumentTest, VersionQueriesLookAtTheDocumentBeingRead) {
    EXPECT_EQ(jpatcher_dictionary_modernui(nullptr), 1);
    EXPECT_EQ(jpatcher_dictionary_version(), 1);
    EXPECT_EQ(jpatcher_get_currentfileversion(), 1);
    Dictionary *d = dictionary_new();
    EXPECT_EQ(jpatcher_dictionary_modernui(d), 0);
    Dictionary *version = dictionary_new();
    dictionary_appendlong(version, "major"_sym, 7);
    dictionary_appenddictionary(d, "appversion"_sym, version);
    EXPECT_EQ(jpatcher_dictionary_modernui(d), 0);
    "#PD"_sym->thing = d;
    EXPECT_EQ(jpatcher_dictionary_version(), 7);
    dictionary_appendlong(version, "modernui"_sym, 1);
    EXPECT_EQ(jpatcher_dictionary_modernui(nullptr), 1);
    "#PD"_sym->thing = nullptr;
    object_free(d);
    Object *p = load_text(R"({"patcher":{"fileversion":200}})");
    EXPECT_EQ(jpatcher_get_fileversion(p), 127);
    object_free(p);
}

TEST_F(PatcherDocumentTest, WritingNamesTheFileAndCleansThePatcher) {
    Object *p = empty_patcher();
    newobject_fromboxtext(p, "print");
    EXPECT_EQ(jpatcher_get_dirty(p), 1);
    typedmess(p, "write"_sym, 0, nullptr);
    EXPECT_EQ(take_texts(), Texts{"write: no file name"});
    Atom name;
    atom_setsym(&name, "made"_sym);
    typedmess(p, "write"_sym, 1, &name);
    EXPECT_EQ(jpatcher_get_dirty(p), 0);
    EXPECT_TRUE(std::filesystem::exists(file("made.kivpat")));
    EXPECT_STREQ(jpatcher_get_name(p)->name, "made");
    EXPECT_EQ(jpatcher_get_filepath(p)->name, file("made.kivpat"));
    atom_setsym(&name, "no/such/folder/x"_sym);
    jpatcher_set_dirty(p, 1);
    typedmess(p, "writeas"_sym, 1, &name);
    EXPECT_EQ(take_texts().size(), 1u);
    EXPECT_EQ(jpatcher_get_dirty(p), 1);
    EXPECT_STREQ(jpatcher_get_name(p)->name, "made");
    // A name with folders is split into the file's folder and its name.
    std::filesystem::create_directories(root / "deep");
    atom_setsym(&name, gensym(file("deep/other").c_str()));
    typedmess(p, "writeas"_sym, 1, &name);
    EXPECT_EQ(jpatcher_get_filepath(p)->name, file("deep/other.kivpat"));
    EXPECT_STREQ(jpatcher_get_name(p)->name, "other");
    object_free(p);
}

TEST_F(PatcherDocumentTest, DependenciesAreTheFilesInUse) {
    std::filesystem::create_directories(root / "lib");
    ASSERT_TRUE(search_path_add(file("lib").c_str(), false));
    put("lib/outer.kivpat", document({box("a", "inner"), box("b", "inner")}));
    put("lib/inner.kivpat", document({}));
    put("top.kivpat", document({box("a", "outer"),
                                box("b", "p", ",\"patcher\":" + patcher({box("i", "inner")}))}));
    auto *p = static_cast<Object *>(nameload("top.kivpat", id(), file_type("JSON"), 0));
    const std::string text = saved(p);
    const size_t at = text.find("dependency_cache");
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(text.find("dependency_cache", at + 1), std::string::npos) << "subpatchers have none";
    std::vector<size_t> places;
    for (const char *part : {"inner.kivpat", "outer.kivpat"}) {
        places.push_back(text.find("\"name\" : \"" + std::string(part), at));
        EXPECT_EQ(text.find(part, places.back() + 20), std::string::npos) << part;
    }
    EXPECT_LT(places[0], places[1]);
    EXPECT_NE(text.find("\"patcherrelativepath\" : \"./lib\"", at), std::string::npos) << text;
    EXPECT_NE(text.find("\"bootpath\" : \"" + file("lib") + "\"", at), std::string::npos);
    object_free(p);
}

TEST_F(PatcherDocumentTest, FilledTextIsWrittenAsItWas) {
    put("part.kivpat", document({R"({"box":{"kivclass":"message","id":"m","text":"say #1"}})"}));
    Object *p = load_text(document({box("obj-1", "part 5")}));
    Object *part = jbox_get_object(jpatcher_get_firstobject(p));
    EXPECT_NE(saved(part).find("say #1"), std::string::npos);
    typedmess(jpatcher_get_firstobject(part), "set"_sym, 0, nullptr);
    EXPECT_EQ(saved(part).find("say #1"), std::string::npos);
    object_free(p);
}

TEST_F(PatcherDocumentTest, AnEmbeddedFileNeedsTheFileNoMore) {
    put("part.kivpat", document({box("secret", "print")}));
    Object *p = load_text(document({R"({"box":{"kivclass":"bpatcher","id":"b","name":"part"}})"}));
    EXPECT_EQ(saved(p).find("secret"), std::string::npos);
    object_attr_setlong(jpatcher_get_firstobject(p), "embed"_sym, 1);
    const std::string text = saved(p);
    object_free(p);
    std::filesystem::remove(root / "part.kivpat");
    p = load_text(text);
    EXPECT_EQ(jpatcher_get_count(jbox_get_object(jpatcher_get_firstobject(p))), 1);
    EXPECT_EQ(take_texts(), Texts{});
    object_free(p);
}

TEST_F(PatcherDocumentTest, AnAbstractionStaysInItsOwnFile) {
    put("part.kivpat", document({box("secret", "print")}));
    Object *p = load_text(document({box("obj-1", "part 1 2")}));
    EXPECT_EQ(class_in(jpatcher_get_firstobject(p)), "jpatcher");
    EXPECT_EQ(saved(p).find("secret"), std::string::npos);
    int32_t argc = 0;
    Atom *argv = nullptr;
    object_attr_getvalueof(jbox_get_object(jpatcher_get_firstobject(p)), "arguments"_sym, &argc,
                           &argv);
    EXPECT_EQ(argc, 2);
    EXPECT_EQ(atom_getlong(argv + 1), 2);
    sysmem_freeptr(argv);
    object_free(p);
}

// Quadratic walks show: this takes a tenth of a second without any, minutes with them.
TEST_F(PatcherDocumentTest, LargeDocumentsLoadAndSave) {
    std::vector<std::string> boxes;
    std::vector<std::string> lines;
    constexpr int count = 10000;
    for (int i = 0; i < count; ++i) {
        boxes.push_back(box("obj-" + std::to_string(i + 1), i % 2 ? "print" : "t b b",
                            at(i % 100 * 60, i / 100 * 30)));
        if (i % 2) {
            for (int k = 0; k < 3; ++k) {
                lines.push_back(cord("obj-" + std::to_string(i), k % 2,
                                     "obj-" + std::to_string((i + 2 * k) % count + 1), 0));
            }
        }
    }
    const std::string text = document(boxes, lines);
    Object *p = load_text(text);
    EXPECT_EQ(jpatcher_get_count(p), count);
    EXPECT_EQ(take_texts(), Texts{});
    EXPECT_GT(saved(p).size(), text.size());
    object_free(p);
}

}  // namespace
}  // namespace kiv
