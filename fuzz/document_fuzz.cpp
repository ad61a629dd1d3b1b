// Whole documents: the input is read as a recipe of boxes, texts, attributes, cords and edits, so
// that every mutation is a document again. It is loaded, edited while it lives, written, and what
// was written must load and be written the same. An input that begins with "{" is a document as it
// is: those that are kept in fuzz/findings do not depend on how recipes are read.
#include <kiv/dictionary.h>
#include <kiv/jbox.h>
#include <kiv/jpatcher.h>
#include <kiv/kiv.h>

#include <string>
#include <string_view>
#include <vector>

#include "console/internal.h"
#include "containers/internal.h"
#include "fuzz/fuzz.h"

using namespace kiv;

namespace {

// Few enough that doubling at every box stays affordable.
constexpr int max_boxes = 6;
constexpr int max_cords = 12;
constexpr int max_edits = 8;
constexpr int max_depth = 3;

constexpr const char *words[] = {
    "print",
    "loadbang",
    "loadmess 1 2 a",
    "patcherargs 3 @x 1",
    "int 5",
    "float 2.5",
    "+ 1",
    "- 2.",
    "* 3",
    "/ 0",
    "% 0",
    "== 4",
    "t b i f s l",
    "t 1 foo 2.",
    "b 3",
    "pack 1 2. x",
    "unpack i f s",
    "swap",
    "route a 1 b",
    "sel 1 a",
    "gate 2 1",
    "switch 2 1",
    "change",
    "counter 1 5",
    "random 10 1",
    "metro 5",
    "delay 5",
    "pipe 1 2 5",
    "timer",
    "s wire",
    "r wire",
    "v shared 7",
    "inlet",
    "outlet",
    "thispatcher",
    "pcontrol",
    "preset",
    "defer",
    "schedule",
    "append x",
    "prepend y",
    "bag",
    "accum 1",
    "iaccum 2",
    "p inside",
    "toggle",
    "message",
    "number @minimum 2",
    "button",
    "comment",
    "newobj",
    "bpatcher",
    "nothing 1 2",
    "a, b; c",
    "#1 #0-x",
    "",
    "bangbang 4",
    "i",
    "f 1.5",
    "> 2",
    "<< 70",
    "del",
};
constexpr const char *classes[] = {"newobj",   "newobj", "newobj",   "newobj", "message",
                                   "toggle",   "number", "flonum",   "button", "comment",
                                   "bpatcher", "jbogus", "jpatcher", ""};
constexpr const char *keys[] = {"hidden",
                                "varname",
                                "patching_rect",
                                "rect",
                                "fontsize",
                                "presentation",
                                "color",
                                "id",
                                "minimum",
                                "orderbefore",
                                "numinlets",
                                "numoutlets",
                                "odd",
                                "args",
                                "name",
                                "save",
                                "text",
                                "outlettype",
                                "patching_position",
                                "embed",
                                "snapshots",
                                "saved_attribute_attributes"};
constexpr const char *values[] = {"0",
                                  "1",
                                  "-1",
                                  "2.5",
                                  "\"a\"",
                                  "[]",
                                  "[1,2]",
                                  "[0,0,9,9]",
                                  "[\"\"]",
                                  "1e300",
                                  "null",
                                  "\"obj-1\"",
                                  "{}",
                                  "[1,\"b\",3.5,{\"c\":[]}]",
                                  "99999999999",
                                  "[\"p\",\";\"]",
                                  R"({"restore":"a","list":{"a":{"obj-1":[1,"x"],"obj-2":5}}})",
                                  R"({"hidden":{"label":"x","type":{}},"minimum":{"save":[1,2]}})"};
constexpr const char *messages[] = {"bang",     "int",   "float",  "list",     "set",   "stop",
                                    "clear",    "text",  "hidden", "loadbang", "read",  "append",
                                    "anything", "store", "enable", "dispose",  "script"};

class Recipe {
  public:
    Recipe(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    int byte() { return at_ < size_ ? data_[at_++] : 0; }
    int below(int n) { return byte() % n; }
    bool more() const { return at_ < size_; }
    template <class T, size_t n>
    T pick(T (&table)[n]) {
        return table[static_cast<size_t>(below(static_cast<int>(n)))];
    }
    // Text of its own, or a word from the table.
    std::string text() {
        const int length = below(24);
        if (length < 16) {
            return pick(words);
        }
        std::string out;
        for (int i = 0; i < length - 14 && more(); ++i) {
            out += static_cast<char>(byte());
        }
        return out.find("write") == std::string::npos ? out : "";
    }
    std::string escaped() {
        std::string out;
        for (const char c : text()) {
            if (c == '"' || c == '\\') {
                out += '\\';
            }
            out += c;
        }
        return "\"" + out + "\"";
    }

  private:
    const uint8_t *data_;
    size_t size_;
    size_t at_ = 0;
};

std::string patcher_text(Recipe &recipe, int depth);

std::string box_text(Recipe &recipe, int number, int depth) {
    std::string out = "{\"box\":{\"kivclass\":\"" + std::string(recipe.pick(classes)) +
                      "\",\"id\":\"obj-" + std::to_string(number) + "\"";
    out += ",\"text\":" + recipe.escaped();
    for (int extra = recipe.below(4); extra > 0; --extra) {
        out += ",\"" + std::string(recipe.pick(keys)) + "\":" + recipe.pick(values);
    }
    if (depth < max_depth && recipe.below(5) == 0) {
        out += ",\"patcher\":" + patcher_text(recipe, depth + 1);
    }
    return out + "}}";
}

std::string cord_text(Recipe &recipe, int boxes) {
    std::string out;
    for (const char *end : {"source", "destination"}) {
        out += std::string(out.empty() ? "" : ",") + "\"" + end + "\":[\"obj-" +
               std::to_string(recipe.below(boxes + 2)) + "\"," +
               std::to_string(recipe.below(5) - 1) + "]";
    }
    switch (recipe.below(8)) {
        case 0:
            out += ",\"order\":" + std::to_string(recipe.below(5) - 1);
            break;
        case 1:
            out += ",\"disabled\":1";
            break;
        case 2:
            out += ",\"midpoints\":[1,2,3,4]";
            break;
        case 3:
            out += ",\"odd\":" + std::string(recipe.pick(values));
            break;
        default:
            break;
    }
    return "{\"patchline\":{" + out + "}}";
}

std::string patcher_text(Recipe &recipe, int depth) {
    const int boxes = recipe.below(depth == 0 ? max_boxes : 3) + 1;
    std::string out = "{\"boxes\":[";
    for (int i = 1; i <= boxes; ++i) {
        out += (i > 1 ? "," : "") + box_text(recipe, i, depth);
    }
    out += "],\"lines\":[";
    const int cords = recipe.below(depth == 0 ? max_cords : 6);
    for (int i = 0; i < cords; ++i) {
        out += (i > 0 ? "," : "") + cord_text(recipe, boxes);
    }
    out += "]";
    if (recipe.below(6) == 0) {
        out += ",\"" + std::string(recipe.pick(keys)) + "\":" + recipe.pick(values);
    }
    return out + "}";
}

Object *nth_box(Object *patcher, int n) {
    Object *box = jpatcher_get_firstobject(patcher);
    while (box && n-- > 0) {
        box = jbox_get_nextobject(box);
    }
    return box;
}

// False once an edit has freed the patcher.
bool edit(Recipe &recipe, Object *patcher) {
    Object *box = nth_box(patcher, recipe.below(max_boxes));
    Atom atoms[4];
    switch (recipe.below(6)) {
        case 0:
            newobject_fromboxtext(patcher, recipe.text().c_str());
            break;
        case 1:
            jpatcher_deleteobj(patcher, box);
            break;
        case 2:
        case 3: {
            atom_setobj(&atoms[0], box);
            atom_setlong(&atoms[1], recipe.below(4));
            atom_setobj(&atoms[2], nth_box(patcher, recipe.below(max_boxes)));
            atom_setlong(&atoms[3], recipe.below(4));
            typedmess(patcher, gensym(recipe.below(2) ? "connect" : "disconnect"), 4, atoms);
            break;
        }
        default: {
            const int count = recipe.below(4);
            for (int i = 0; i < count; ++i) {
                if (recipe.below(2)) {
                    atom_setlong(&atoms[i], recipe.byte() - 3);
                } else {
                    atom_setsym(&atoms[i], gensym(recipe.text().c_str()));
                }
            }
            Symbol *selector = gensym(recipe.pick(messages));
            if (box) {
                typedmess(recipe.below(2) ? box : jbox_get_object(box), selector, count, atoms);
            }
        }
    }
    return jpatcher_is_patcher(patcher);
}

std::string saved(Object *patcher) {
    Dictionary *outer = dictionary_new();
    Dictionary *inner = dictionary_new();
    object_method(patcher, gensym("appendtodictionary"), inner);
    dictionary_appenddictionary(outer, gensym("patcher"), inner);
    JsonText text;
    fuzz::require(json_from_dictionary(outer, text), "a patcher can be written");
    object_free(outer);
    return std::string(text.view());
}

Object *load(const std::string &text) {
    return static_cast<Object *>(
        lowload_jpatcher_frombuffer(text.c_str(), static_cast<int64_t>(text.size())));
}

// Without loadbang, which may change what it finds.
Object *load_still(const std::string &text) {
    return static_cast<Object *>(jpatcher_load_frombuffer(
        nullptr, 0, text.c_str(), static_cast<int64_t>(text.size()), 0, nullptr));
}

void check_writing(Object *patcher) {
    Object *again = load_still(saved(patcher));
    fuzz::require(again, "what was written can be loaded");
    const std::string once = saved(again);
    object_free(again);
    again = load_still(once);
    fuzz::require(again, "what was written can be loaded again");
    fuzz::require(saved(again) == once, "from the second time on it is written the same");
    object_free(again);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text = fuzz::as_text(data, size);
    const bool whole = text.starts_with('{');
    Recipe recipe(data, whole ? 0 : size);
    Object *patcher =
        load(whole ? std::string(text) : "{\"patcher\":" + patcher_text(recipe, 0) + "}");
    bool alive = patcher != nullptr;
    for (int i = 0; i < max_edits && alive && recipe.more(); ++i) {
        alive = edit(recipe, patcher);
    }
    if (alive) {
        check_writing(patcher);
        object_free(patcher);
    }
    main_queues_pass();
    console_clear();
    fuzz::settle();
    return 0;
}
