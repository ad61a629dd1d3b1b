// The box part: what a box dictionary does to a new box, attributes and accessors, classes that
// replace or add attributes, and the console's idea of where an object sits.
#include <kiv/attr.h>
#include <kiv/inlets.h>
#include <kiv/jpatchline.h>

#include "documents.h"
#include "patcher/internal.h"
#include "patcher/records.h"

namespace kiv {
namespace {

using namespace test;

// A user-interface class with attributes of its own, one of them in place of the box part's.
struct Dial {
    Jbox box;
    double level;
    Symbol *color_name;
    int32_t unsaved;
};
Class *dial_class;

void *dial_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = static_cast<Dial *>(object_alloc(dial_class));
    x->level = 0.5;
    x->color_name = gensym("none");
    if (jbox_new(&x->box, 0, argc, argv)) {
        object_free(x);
        return nullptr;
    }
    jbox_ready(&x->box);
    return x;
}

class BoxTest : public DocumentTest {
  protected:
    void SetUp() override {
        DocumentTest::SetUp();
        Class *c =
            class_new("dial", reinterpret_cast<Method>(dial_new),
                      reinterpret_cast<Method>(jbox_free), sizeof(Dial), nullptr, TypeGimme, 0);
        jbox_initclass(c, JBOX_UI);
        const auto add = [c](const char *name, const char *type, size_t offset, bool saved) {
            class_addattr(c, attr_offset_new(name, gensym(type), 0, nullptr, nullptr,
                                             static_cast<int32_t>(offset)));
            if (saved) {
                class_addattr_parse(c, name, "save"_sym, "long", "1");
            }
        };
        add("level", "float64", offsetof(Dial, level), true);
        class_addattr_parse(c, "level", "default"_sym, "float64", "0.5");
        add("color", "symbol", offsetof(Dial, color_name), true);
        add("unsaved", "long", offsetof(Dial, unsaved), false);
        class_register("box"_sym, c);
        dial_class = c;
        p = empty_patcher();
    }
    void TearDown() override {
        object_free(p);
        DocumentTest::TearDown();
    }
    Object *make(const std::string &dictionary) {
        char problem[256] = "";
        Dictionary *d = nullptr;
        EXPECT_EQ(dictobj_dictionaryfromstring(&d, dictionary.c_str(), 1, problem), 0) << problem;
        Object *made = newobject_fromdictionary(p, d);
        object_free(d);
        return made;
    }
    static Dictionary *written(Object *of) {
        Dictionary *d = dictionary_new();
        object_method(of, "appendtodictionary"_sym, d);
        return d;
    }
    static std::string number(const Dictionary *d, const char *key) {
        double value = 0;
        return dictionary_getfloat(d, gensym(key), &value) ? "none" : std::to_string(value);
    }
    Object *p;
};

TEST_F(BoxTest, TheDictionaryFillsTheBoxPart) {
    Object *b = make(R"({"kivclass":"newobj","text":"print","rect":[1,2,3,4],
        "patching_position":[5,6],"presentation":1,"presentation_rect":[10,20,30,40],
        "presentation_position":[50,60],"hint":"h","hidden":1,"fontname":"Times","fontface":3,
        "fontsize":9,"color":[1,0.5,0,1],"varname":"v","background":1,"ignoreclick":1,
        "hinttrack":1,"orderfront":1})");
    double rect[4];
    EXPECT_EQ(jbox_get_patching_rect(b, rect), 0);
    EXPECT_EQ(std::vector<double>(rect, rect + 4), (std::vector<double>{5, 6, 3, 4}));
    EXPECT_EQ(jbox_get_presentation_rect(b, rect), 0);
    EXPECT_EQ(std::vector<double>(rect, rect + 4), (std::vector<double>{50, 60, 30, 40}));
    EXPECT_EQ(jbox_get_patching_size(b, rect), 0);
    EXPECT_EQ(rect[1], 4);
    EXPECT_EQ(jbox_get_color(b, rect), 0);
    EXPECT_EQ(rect[1], 0.5);
    EXPECT_EQ(jbox_get_hidden(b) + jbox_get_background(b) + jbox_get_ignoreclick(b) +
                  jbox_get_hinttrack(b),
              4);
    EXPECT_STREQ(jbox_get_fontname(b)->name, "Times");
    EXPECT_EQ(jbox_get_fontsize(b), 9);
    EXPECT_EQ(jbox_get_font_weight(b), 1);
    EXPECT_EQ(jbox_get_font_slant(b), 1);
    EXPECT_STREQ(jbox_get_varname(b)->name, "v");
    EXPECT_EQ(jbox_get_patcher(b), p);
    EXPECT_STREQ(jbox_get_kivclass(b)->name, "newobj");
    EXPECT_STREQ(class_in(b).c_str(), "print");
}

TEST_F(BoxTest, OrderAndIdEntriesPlaceTheBox) {
    Object *first = make(R"({"kivclass":"newobj","text":"print","id":"a"})");
    Object *before = make(R"({"kivclass":"newobj","text":"print","id":"b","orderbefore":"a"})");
    EXPECT_EQ(jpatcher_get_firstobject(p), before);
    EXPECT_EQ(jbox_get_nextobject(before), first);
    Object *same = make(R"({"kivclass":"newobj","text":"print","id":"a"})");
    EXPECT_STREQ(jbox_get_id(same)->name, "obj-1");
    make(R"({"kivclass":"newobj","text":"print","orderbefore":"nobody"})");
    EXPECT_EQ(jpatcher_get_count(p), 4);
    EXPECT_EQ(take_texts(), Texts{});
}

TEST_F(BoxTest, SettingsOfAttributesBelongToOneBox) {
    Object *set = make(R"({"kivclass":"dial","saved_attribute_attributes":{
        "level":{"label":"Loudness","range":[0,11],"deep":{"x":1}},"nothing":{"label":"x"},"hidden":5}})");
    Object *plain = make(R"({"kivclass":"dial"})");
    const auto setting = [](Object *box, Symbol *name) {
        void *attribute = object_attr_get(box, "level"_sym);
        return object_attr_get(attribute, name) ? object_attr_getsym(attribute, name) : ""_sym;
    };
    EXPECT_STREQ(setting(set, "label"_sym)->name, "Loudness");
    EXPECT_STRNE(setting(plain, "label"_sym)->name, "Loudness");
    object_attr_setfloat(set, "level"_sym, 0.5);
    EXPECT_EQ(object_attr_getfloat(set, "level"_sym), 0.5);

    object_attr_setsym(object_attr_get(set, "level"_sym), "label"_sym, "Volume"_sym);
    Dictionary *d = written(set);
    Dictionary *all = nullptr;
    Dictionary *level = nullptr;
    ASSERT_EQ(dictionary_getdictionary(d, "saved_attribute_attributes"_sym, &all), 0);
    ASSERT_EQ(dictionary_getdictionary(all, "level"_sym, &level), 0);
    Symbol *label = nullptr;
    int32_t argc = 0;
    Atom *argv = nullptr;
    Dictionary *part = nullptr;
    EXPECT_EQ(dictionary_getsym(level, "label"_sym, &label), 0);
    EXPECT_EQ(label, "Volume"_sym);
    EXPECT_EQ(dictionary_getatoms(level, "range"_sym, &argc, &argv), 0);
    EXPECT_EQ(argc, 2);
    EXPECT_EQ(dictionary_getdictionary(level, "deep"_sym, &part), 0);
    EXPECT_TRUE(dictionary_hasentry(all, "nothing"_sym));
    EXPECT_TRUE(dictionary_hasentry(all, "hidden"_sym));
    object_free(d);
    d = written(plain);
    EXPECT_FALSE(dictionary_hasentry(d, "saved_attribute_attributes"_sym));
    object_free(d);
}

TEST_F(BoxTest, WrongValuesLeaveTheBoxAsItWas) {
    for (const char *wrong :
         {R"("fontsize":"big")", R"("patching_rect":"wide")", R"("hidden":{})", R"("color":[])",
          R"("id":5)", R"("patching_position":[1])", R"("outlettype":7)", R"("numinlets":"x")",
          R"("varname":[])", R"("fontface":1e300)", R"("patching_rect":[null,1])"}) {
        Object *b = make(R"({"kivclass":"newobj","text":"print",)" + std::string(wrong) + "}");
        ASSERT_TRUE(b) << wrong;
        EXPECT_EQ(jbox_get_fontsize(b), 12.) << wrong;
        EXPECT_EQ(class_in(b), "print") << wrong;
        jpatcher_deleteobj(p, b);
    }
}

TEST_F(BoxTest, OwnAttributesAreReadAndWrittenWhenTheyDifferFromTheirDefault) {
    Object *b = make(R"({"kivclass":"dial","level":0.75,"color":"red","unsaved":7,"odd":[1,2]})");
    EXPECT_EQ(object_attr_getfloat(b, "level"_sym), 0.75);
    EXPECT_STREQ(object_attr_getsym(b, "color"_sym)->name, "red");
    EXPECT_EQ(object_attr_getlong(b, "unsaved"_sym), 0);
    EXPECT_EQ(jbox_get_object(b), b);

    Dictionary *d = written(b);
    EXPECT_EQ(number(d, "level"), "0.750000");
    EXPECT_EQ(number(d, "unsaved"), "7.000000");  // unknown to the class's documents, so kept
    Symbol *name = nullptr;
    EXPECT_EQ(dictionary_getsym(d, "color"_sym, &name), 0);
    EXPECT_STREQ(name->name, "red");
    int32_t argc = 0;
    Atom *argv = nullptr;
    EXPECT_EQ(dictionary_getatoms(d, "odd"_sym, &argc, &argv), 0);
    EXPECT_EQ(argc, 2);
    object_free(d);

    object_attr_setfloat(b, "level"_sym, 0.5);
    d = written(b);
    EXPECT_FALSE(dictionary_hasentry(d, "level"_sym));
    EXPECT_FALSE(dictionary_hasentry(d, "hidden"_sym));
    EXPECT_FALSE(dictionary_hasentry(d, "#P"_sym));
    object_free(d);
}

TEST_F(BoxTest, AccessorsTakeAnyArgument) {
    Object *other = reinterpret_cast<Object *>(dictionary_new());
    double values[4] = {1, 1, 1, 1};
    for (void *x : {static_cast<void *>(nullptr), static_cast<void *>(other)}) {
        EXPECT_EQ(jbox_get_patcher(x), nullptr);
        EXPECT_EQ(jbox_get_object(x), nullptr);
        EXPECT_EQ(jbox_get_id(x), ""_sym);
        EXPECT_EQ(jbox_get_hidden(x), 0);
        EXPECT_EQ(jbox_get_fontsize(x), 0.);
        EXPECT_EQ(jbox_get_patching_rect(x, values), -1);
        EXPECT_EQ(values[3], 0.);
        EXPECT_EQ(jbox_set_patching_rect(x, values), -1);
        EXPECT_EQ(jbox_set_hidden(x, 1), -1);
        EXPECT_EQ(jbox_set_varname(x, "v"_sym), -1);
        EXPECT_EQ(jbox_getinlet(x, 0), nullptr);
        EXPECT_EQ(jbox_getoutlet(x, 0), nullptr);
        EXPECT_EQ(jbox_get_boxpath(x), ""_sym);
        EXPECT_EQ(jpatcher_get_count(x), 0);
        EXPECT_EQ(jpatcher_get_fileversion(x), 0);
        EXPECT_EQ(jpatcher_get_firstobject(x), nullptr);
        EXPECT_EQ(jpatcher_set_title(x, "t"_sym), -1);
        EXPECT_EQ(jpatcher_is_patcher(x), 0);
        EXPECT_EQ(jpatcher_resolvebox(x, "v"_sym), nullptr);
        EXPECT_EQ(jpatchline_get_box1(x), nullptr);
        EXPECT_EQ(jpatchline_set_hidden(x, 1), -1);
        EXPECT_EQ(jpatchline_addpaintmethod(x, nullptr, nullptr), -1);
        EXPECT_EQ(jpatchercontroller_connectobjects(x, nullptr, 0, nullptr, 0), nullptr);
    }
    EXPECT_EQ(take_texts(), Texts{});
    object_free(other);
}

TEST_F(BoxTest, BothRectanglesMoveTogetherAndByMode) {
    Object *b = make(R"({"kivclass":"dial","patching_rect":[1,2,3,4]})");
    const double all[4] = {10, 20, 30, 40};
    double rect[4];
    jbox_set_rect(b, all);
    jbox_get_presentation_rect(b, rect);
    EXPECT_EQ(rect[3], 40);
    jbox_set_position(b, all + 2);
    jbox_get_patching_rect(b, rect);
    EXPECT_EQ(rect[0], 30);
    const double other[4] = {0, 0, 5, 5};
    EXPECT_EQ(jbox_set_rect_for_sym(b, "presentation_rect"_sym, other), 0);
    EXPECT_EQ(jbox_get_rect_for_sym(b, "nothing"_sym, rect), -1);
    object_attr_setlong(p, "presentation"_sym, 1);
    jbox_get_rect_for_view(b, p, rect);
    EXPECT_EQ(rect[2], 5);
}

TEST_F(BoxTest, ABoxWithoutPatcherIsReportedAndHarmless) {
    Dictionary *d = dictionary_new();
    dictionary_appendsym(d, "kivclass"_sym, "dial"_sym);
    Atom argument;
    atom_setobj(&argument, d);
    auto *b = static_cast<Object *>(object_new_typed("box"_sym, "dial"_sym, 1, &argument));
    EXPECT_EQ(take_texts(), Texts{"no patcher in box dictionary constructor"});
    EXPECT_EQ(jbox_get_patcher(b), nullptr);
    jbox_set_varname(b, "v"_sym);
    EXPECT_STREQ(jbox_get_boxpath(b)->name, "v");
    object_free(b);
    object_free(d);
}

TEST_F(BoxTest, APrototypeServesTheNextBoxOnly) {
    Dictionary *prototype = dictionary_new();
    dictionary_appendfloat(prototype, "level"_sym, 0.25);
    dictionary_appendlong(prototype, "hidden"_sym, 1);
    jpatcher_setnextobexprototype(prototype);
    object_free(prototype);
    Object *b = make(R"({"kivclass":"dial","hidden":0})");
    EXPECT_EQ(object_attr_getfloat(b, "level"_sym), 0.25);
    EXPECT_EQ(jbox_get_hidden(b), 0);
    EXPECT_EQ(jpatcher_getnextobexprototype(), nullptr);
    EXPECT_EQ(object_attr_getfloat(make(R"({"kivclass":"dial"})"), "level"_sym), 0.5);
}

TEST_F(BoxTest, PasteOffsetAndHidingApplyToNewBoxes) {
    auto *patcher = as_patcher(p);
    patcher->paste_offset[0] = 10.;
    patcher->hide_new_boxes = true;
    Object *b = make(R"({"kivclass":"dial","patching_rect":[1,2,3,4]})");
    double xy[2];
    jbox_get_patching_position(b, xy);
    EXPECT_EQ(xy[0], 11.);
    EXPECT_EQ(jbox_get_hidden(b), 1);
}

TEST_F(BoxTest, TheControllerCreatesFromTextAndFromDictionaries) {
    Object *controller = jpatcher_get_controller(p);
    Atom argument;
    atom_setsym(&argument, "loud"_sym);
    Object *b = jpatchercontroller_createobject(controller, "print"_sym, 1, &argument);
    EXPECT_STREQ(object_attr_getsym(b, "text"_sym)->name, "print loud");
    EXPECT_EQ(jpatchercontroller_createobject(nullptr, "print"_sym, 0, nullptr), nullptr);
    put("inner.kivpat", document({}));
    Object *pasted = jpatchercontroller_pastefileat(controller, "inner.kivpat", id(), 30, 40);
    EXPECT_EQ(class_in(pasted), "jpatcher");
    double xy[2];
    jbox_get_patching_position(pasted, xy);
    EXPECT_EQ(xy[1], 40);
    // A file that the patcher's own search does not lead to is found by its path.
    std::filesystem::create_directories(root / "my files");
    put("my files/far.kivpat", document({}));
    const int16_t far = path_frompathname(file("my files").c_str());
    EXPECT_EQ(class_in(jpatchercontroller_pastefileat(controller, "far.kivpat", far, 0, 0)),
              "jpatcher");
    EXPECT_EQ(take_texts(), Texts{});
}

// What a window would show is kept for the views that come later.
TEST_F(BoxTest, CaptionFocusAndFontAreKept) {
    auto *b = reinterpret_cast<Jbox *>(newobject_fromboxtext(p, "print"));
    jbox_show_caption(b);
    jbox_grabfocus(b);
    EXPECT_EQ(object_attr_getlong(b, "captionshown"_sym), 1);
    EXPECT_EQ(object_attr_getobj(p, "focusbox"_sym), b);
    jbox_hide_caption(b);
    EXPECT_EQ(object_attr_getlong(b, "captionshown"_sym), 0);
    jpatcher_deleteobj(p, b);
    EXPECT_EQ(object_attr_getobj(p, "focusbox"_sym), nullptr);
    void *font = jpatcher_getboxfont(p);
    object_attr_setfloat(p, "default_fontsize"_sym, 17.);
    EXPECT_EQ(object_attr_getfloat(font, "fontsize"_sym), 17.);
    EXPECT_EQ(jpatcher_getboxfont(p), font);
}

TEST_F(BoxTest, NumbersAreNamesInFull) {
    Object *b = newobject_fromboxtext(p, "print");
    Atom name;
    atom_setlong(&name, 12345678901);
    object_attr_setvalueof(b, "varname"_sym, 1, &name);
    EXPECT_STREQ(jbox_get_varname(b)->name, "12345678901");
    EXPECT_EQ(jpatcher_resolvebox(p, gensym("12345678901")), b);
}

TEST_F(BoxTest, EntriesOfTheConsoleNameBoxAndPatcher) {
    Object *sub = jbox_get_object(make(R"({"kivclass":"newobj","text":"p deep"})"));
    Object *b = newobject_fromboxtext(sub, "print");
    object_error(jbox_get_object(b), "by the object");
    object_error(b, "by the box");
    const std::vector<Posted> posts = take_posts();
    for (const Posted &posted : posts) {
        EXPECT_EQ(posted.class_name, "print") << posted.text;
        EXPECT_EQ(posted.box_id, "obj-1") << posted.text;
    }
    EXPECT_EQ(posts.size(), 2u);
}

}  // namespace
}  // namespace kiv
