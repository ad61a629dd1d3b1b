#include "patcher/text_form.h"

#include <kiv/dictionary.h>

#include "documents.h"

namespace kiv {
namespace {

using namespace test;

std::string text_of(Dictionary *dictionary) {
    int32_t argc = 0;
    Atom *argv = nullptr;
    dictobj_dictionarytoatoms(dictionary, &argc, &argv);
    char *text = nullptr;
    int64_t size = 0;
    atom_gettext(argc, argv, &size, &text, 0);
    std::string copy = text ? text : "";
    sysmem_freeptr(text);
    sysmem_freeptr(argv);
    object_free(dictionary);
    return copy;
}

Dictionary *read(const std::string &lines) {
    return text_form_read("old", lines.c_str(), static_cast<int64_t>(lines.size()));
}

std::string read_text(const std::string &lines) {
    return text_of(read("kiv v2;\r" + lines));
}

std::string json_text(const std::string &json) {
    Dictionary *dictionary = nullptr;
    char error[KIV_JSON_ERROR_SIZE] = "";
    dictobj_dictionaryfromstring(&dictionary, json.c_str(), 1, error);
    EXPECT_STREQ(error, "");
    return text_of(dictionary);
}

const std::string lines[] = {
    "#N vpatcher 100 50 700 500;",
    "#P window setfont \"Sans Serif\" 9.;",
    "#P newex 77 136 62 196617 print \"two words\" \\$1;",
    "#N vpatcher 20 20 300 300;",
    "#P outlet 50 200 15 0;",
    "#P inlet 50 50 15 0;",
    "#P connect 0 0 1 0;",
    "#P pop;",
    "#P hidden newobj 77 95 62 196617 p sub;",
    "#P message 77 55 62 196617 a \\, b \\; c;",
    "#P hidden fasten 0 0 1 0 80 70;",
    "#N table foo;",
    "#T size 128;",
    "#P newobj 10 200 40 196617 table foo;",
    "#P user dial 10 20 30 40;",
    "#P pop;",
};

class TextForm : public DocumentTest {
  protected:
    static std::string all() {
        std::string joined;
        for (const std::string &line : lines) {
            joined += line + "\r";
        }
        return joined;
    }
};

TEST_F(TextForm, SaysWhatThePresentFormWouldSay) {
    EXPECT_EQ(read_text(all()), json_text(R"({"patcher":{"rect":[100.,50.,600.,450.],"boxes":[
        {"box":{"kivclass":"dial","id":"obj-5","patching_rect":[10.,20.,30.,20.]}},
        {"box":{"kivclass":"newobj","id":"obj-4","text":"table foo",
                "patching_rect":[10.,200.,40.,20.],
                "save":["#N","table","foo",";","#T","size",128,";"]}},
        {"box":{"kivclass":"message","id":"obj-3","text":"a, b; c",
                "patching_rect":[77.,55.,62.,20.]}},
        {"box":{"kivclass":"newobj","id":"obj-2","text":"p sub","patching_rect":[77.,95.,62.,20.],
                "hidden":1,"patcher":{"rect":[20.,20.,280.,280.],"boxes":[
            {"box":{"kivclass":"newobj","id":"obj-2","text":"inlet",
                    "patching_rect":[50.,50.,15.,20.]}},
            {"box":{"kivclass":"newobj","id":"obj-1","text":"outlet",
                    "patching_rect":[50.,200.,15.,20.]}}],
            "lines":[{"patchline":{"source":["obj-2",0],"destination":["obj-1",0]}}]}}},
        {"box":{"kivclass":"newobj","id":"obj-1","text":"print \"two words\" $1",
                "patching_rect":[77.,136.,62.,20.]}}],
        "lines":[{"patchline":{"source":["obj-3",0],"destination":["obj-2",0],
                               "midpoints":[80,70],"hidden":1}}]}})"));
    EXPECT_EQ(take_texts(), std::vector<std::string>());
}

TEST_F(TextForm, ReportsLinesItDoesNotUnderstandAndReadsOn) {
    const char *const bad[] = {
        "#P connect 0 0 1 0",   "#P connect 0 0", "#P newex 1 2 3", "#P newex a b c d foo", "#P",
        "#P hidden hidden pop", "#X foo",         "#P 5",           "#P connect -1 0 0 0"};
    const std::string begin = "#N vpatcher 0 0 1 1;\r#P newex 1 2 3 4 foo;\r";
    const std::string plain = read_text(begin);
    for (const char *line : bad) {
        EXPECT_EQ(read_text(begin + line + ";\r#P pop;\r"), plain) << line;
        EXPECT_EQ(take_texts(),
                  std::vector<std::string>{"old: line not understood: " + std::string(line)});
    }
    EXPECT_EQ(read("kiv v2;\r#P newex 1 2 3 4 foo;\r"), nullptr);
    EXPECT_EQ(take_texts(),
              (std::vector<std::string>{"old: line not understood: #P newex 1 2 3 4 foo",
                                        "patcher file old missing patcher!"}));
}

TEST_F(TextForm, IsReadHoweverFarItGoes) {
    const std::string whole = "kiv v2;\r" + all();
    for (size_t length = 0; length < whole.size(); ++length) {
        object_free(read(whole.substr(0, length)));
    }
    std::string deep;
    for (int i = 0; i < 2000; ++i) {
        deep += "#N vpatcher 0 0 1 1;\r";
    }
    object_free(read("kiv v2;\r" + deep));
    EXPECT_EQ(take_texts().empty(), false);
}

TEST_F(TextForm, LoadsAsADocumentAndAsAnAbstraction) {
    put("old.kivpat", "kiv v2;\r#N vpatcher 0 0 10 10;\r#P newex 1 1 1 1 p #1;\r#P pop;\r");
    put("new.kivpat", document({box("obj-1", "old hello")}));
    auto *const loaded = static_cast<Object *>(fileload("new.kivpat", id()));
    Object *const inner = jbox_get_object(jpatcher_get_firstobject(loaded));
    EXPECT_EQ(jpatcher_get_name(jbox_get_object(jpatcher_get_firstobject(inner))), "hello"_sym);
    EXPECT_EQ(take_texts(), std::vector<std::string>());
    object_free(loaded);
}

}  // namespace
}  // namespace kiv
