// The script messages of `thispatcher`: a table of words, each with the arguments it wants.
#include "objects/script.h"

#include "objects/common.h"

namespace kiv::objects {

namespace {

// A script message under way. The atoms are those behind its word.
struct Script {
    Object *x;  // reports what is wrong
    Object *patcher;
    const char *word;
    int32_t argc;
    Atom *argv;

    Object *box(int32_t index) const {
        return jpatcher_resolvebox(patcher, atom_getsym(argv + index));
    }
    double number(int32_t index) const { return float_of(argv[index]); }
};

// --- Making boxes --------------------------------------------------------------------------------

// Words as box text. Marks that were escaped so as to get here ("\$1", "\,") are marks there.
void set_text(Dictionary *dictionary, int32_t argc, const Atom *argv) {
    Binbuf *const text = binbuf_new();
    for (int32_t i = 0; i < argc; ++i) {
        Atom atom = argv[i];  // appending rewrites symbols that stand for marks
        binbuf_append(text, nullptr, 1, &atom);
    }
    char *chars = nullptr;
    int64_t size = 0;
    if (argc > 0 && binbuf_totext(text, &chars, &size) == 0) {
        dictionary_appendstring(dictionary, "text"_sym, chars);
        sysmem_freeptr(chars);
    }
    object_free(text);
}

// Whether the words behind a class name are the box's text, rather than typed into an object box
// that then becomes a box of that class.
bool has_own_text(Object *patcher, Symbol *name, int32_t words) {
    Symbol *const name_space = object_attr_getsym(patcher, "classnamespace"_sym);
    return name == "newobj"_sym || name == "message"_sym || name == "comment"_sym ||
           (words == 1 && class_is_ui(class_findbyname_casefree(name_space, name)));
}

// What `argv` says about a box: the name of a box class, its text and "@key value" pairs; or the
// text of an object box. Into `dictionary`.
void describe_box(Object *patcher, Dictionary *dictionary, int32_t argc, Atom *argv) {
    Symbol *const name = atom_getsym(argv);
    const int32_t words = attr_args_offset(argc, argv);
    const bool own = has_own_text(patcher, name, words);
    dictionary_appendsym(dictionary, "kivclass"_sym, own ? name : "newobj"_sym);
    set_text(dictionary, words - (own ? 1 : 0), argv + (own ? 1 : 0));
    attr_args_dictionary(dictionary, argc - words, argv + words);
}

void set_place(Dictionary *dictionary, Symbol *name, const Atom *position) {
    dictionary_appendsym(dictionary, "varname"_sym, name);
    dictionary_appendatoms(dictionary, "patching_position"_sym, 2, position);
}

// newobject CLASS [TEXT] @KEY VALUE ...
void newobject(const Script &s) {
    Dictionary *const dictionary = dictionary_new();
    describe_box(s.patcher, dictionary, s.argc, s.argv);
    newobject_fromdictionary(s.patcher, dictionary);
    object_free(dictionary);
}

// newdefault NAME X Y CLASS ARGUMENTS: the words of a box as they would be typed.
void newdefault(const Script &s) {
    Dictionary *const dictionary = dictionary_new();
    describe_box(s.patcher, dictionary, s.argc - 3, s.argv + 3);
    set_place(dictionary, atom_getsym(s.argv), s.argv + 1);
    newobject_fromdictionary(s.patcher, dictionary);
    object_free(dictionary);
}

// new NAME CLASS X Y ...: in the order of the older text form. Width and font, and text behind
// them, follow for object boxes ("newex"), messages and comments; further numbers for the others.
void newbox(const Script &s) {
    constexpr int32_t text_at = 6;
    Symbol *const name = atom_getsym(s.argv + 1);
    const bool object = name == "newex"_sym || name == "newobj"_sym;
    Dictionary *const dictionary = dictionary_new();
    dictionary_appendsym(dictionary, "kivclass"_sym, object ? "newobj"_sym : name);
    if (object || name == "message"_sym || name == "comment"_sym) {
        set_text(dictionary, s.argc - text_at, s.argv + text_at);
    }
    set_place(dictionary, atom_getsym(s.argv), s.argv + 2);
    newobject_fromdictionary(s.patcher, dictionary);
    object_free(dictionary);
}

// --- Cords ---------------------------------------------------------------------------------------

void connect(const Script &s) {
    typedmess(s.patcher, "connect"_sym, s.argc, s.argv);
}

void disconnect(const Script &s) {
    typedmess(s.patcher, "disconnect"_sym, s.argc, s.argv);
}

// hidden connect A OUTLET B INLET
void hidden(const Script &s) {
    Atom cord = long_atom(0);
    if (atom_getsym(s.argv) != "connect"_sym) {
        object_error(s.x, "script hidden: \"connect\" is wanted");
    } else if (object_method_typed(s.patcher, "connect"_sym, s.argc - 1, s.argv + 1, &cord) ==
               ErrorNone) {
        jpatchline_set_hidden(atom_getobj(&cord), 1);
    }
}

// connectcolor A OUTLET B INLET RED GREEN BLUE [ALPHA]: each colour from 0 to 1.
void connectcolor(const Script &s) {
    const Object *const from = s.box(0);
    const Object *const to = s.box(2);
    const double color[] = {s.number(4), s.number(5), s.number(6),
                            s.argc > 7 && is_number(s.argv[7]) ? s.number(7) : 1.0};
    for (Object *line = jpatcher_get_firstline(s.patcher); line;
         line = jpatchline_get_nextline(line)) {
        if (jpatchline_get_box1(line) == from && jpatchline_get_box2(line) == to &&
            jpatchline_get_outletnum(line) == long_of(s.argv[1]) &&
            jpatchline_get_inletnum(line) == long_of(s.argv[3])) {
            jpatchline_set_color(line, color);
            return;
        }
    }
    object_error(s.x, "script connectcolor: there is no such cord");
}

// --- Boxes that are there ------------------------------------------------------------------------

// The cords at a box in the order in which they were made: the ids and numbers of the ends, as
// "connect" takes them, and whether the cord is hidden.
constexpr int32_t cord_atoms = 5;
void add_cords(const Script &s, const Object *box, Atomarray *cords) {
    for (Object *line = jpatcher_get_firstline(s.patcher); line;
         line = jpatchline_get_nextline(line)) {
        Object *const from = jpatchline_get_box1(line);
        Object *const to = jpatchline_get_box2(line);
        if (from == box || to == box) {
            Atom cord[cord_atoms] = {
                symbol_atom(jbox_get_id(from)), long_atom(jpatchline_get_outletnum(line)),
                symbol_atom(jbox_get_id(to)), long_atom(jpatchline_get_inletnum(line)),
                long_atom(jpatchline_get_hidden(line))};
            atomarray_appendatoms(cords, cord_atoms, cord);
        }
    }
}

void connect_again(const Script &s, Atomarray *cords) {
    int32_t count = 0;
    Atom *atoms = nullptr;
    atomarray_getatoms(cords, &count, &atoms);
    for (int32_t i = 0; i + cord_atoms <= count; i += cord_atoms) {
        Atom made = long_atom(0);
        object_method_typed(s.patcher, "connect"_sym, cord_atoms - 1, atoms + i, &made);
        if (long_of(atoms[i + cord_atoms - 1]) != 0 && made.type == TypeObject) {
            jpatchline_set_hidden(atom_getobj(&made), 1);
        }
    }
}

// replace NAME CLASS ARGUMENTS: another box in its place, with its name, its id and its cords.
void replace(const Script &s) {
    Object *const box = s.box(0);
    Dictionary *const dictionary = dictionary_new();
    describe_box(s.patcher, dictionary, s.argc - 1, s.argv + 1);
    double position[2] = {};
    jbox_get_patching_position(box, position);
    const Atom place[] = {float_atom(position[0]), float_atom(position[1])};
    set_place(dictionary, jbox_get_varname(box), place);
    dictionary_appendsym(dictionary, "id"_sym, jbox_get_id(box));
    if (Object *const next = jbox_get_nextobject(box)) {
        dictionary_appendsym(dictionary, "orderbefore"_sym, jbox_get_id(next));
    }
    Atomarray *const cords = atomarray_new(0, nullptr);
    add_cords(s, box, cords);
    jpatcher_deleteobj(s.patcher, box);
    newobject_fromdictionary(s.patcher, dictionary);
    connect_again(s, cords);
    object_free(cords);
    object_free(dictionary);
}

void bringtofront(const Script &s) {
    object_method(s.patcher, "bringtofront"_sym, s.box(0));
}
void sendtoback(const Script &s) {
    object_method(s.patcher, "sendtoback"_sym, s.box(0));
}

// A click does to these what a bang does; one that ignores clicks stays silent.
void click(const Script &s) {
    Object *const box = s.box(0);
    Symbol *const name = object_classname(box);
    if (name != "button"_sym && name != "toggle"_sym && name != "message"_sym) {
        object_error(s.x, "script click: a %s takes no click", name->name);
    } else if (!jbox_get_ignoreclick(box)) {
        typedmess(box, "bang"_sym, 0, nullptr);
    }
}

void remove(const Script &s) {
    jpatcher_deleteobj(s.patcher, s.box(0));
}

void hide(const Script &s) {
    jbox_set_hidden(s.box(0), 1);
}
void show(const Script &s) {
    jbox_set_hidden(s.box(0), 0);
}

void ignoreclick(const Script &s) {
    jbox_set_ignoreclick(s.box(0), 1);
}
void respondtoclick(const Script &s) {
    jbox_set_ignoreclick(s.box(0), 0);
}

void move(const Script &s) {
    const double position[] = {s.number(1), s.number(2)};
    jbox_set_patching_position(s.box(0), position);
}

void offset(const Script &s) {
    double position[2] = {};
    jbox_get_patching_position(s.box(0), position);
    position[0] += s.number(1);
    position[1] += s.number(2);
    jbox_set_patching_position(s.box(0), position);
}

// offsetfrom NAME OTHER FROM_TOP_LEFT DX DY: the distance from the other box's top left corner, or
// from its bottom right one.
void offsetfrom(const Script &s) {
    double rect[4] = {};
    jbox_get_patching_rect(s.box(1), rect);
    const bool top_left = s.number(2) != 0.0;
    const double position[] = {rect[0] + (top_left ? 0.0 : rect[2]) + s.number(3),
                               rect[1] + (top_left ? 0.0 : rect[3]) + s.number(4)};
    jbox_set_patching_position(s.box(0), position);
}

void resize(const Script &s) {
    const double size[] = {s.number(1), s.number(2)};
    jbox_set_patching_size(s.box(0), size);
}

// send NAME MESSAGE: to the object in the box; sendbox: to the box around it.
void send_atoms(Object *receiver, int32_t argc, Atom *argv) {
    object_method_typed(receiver,
                        argc == 1 && is_long(argv[0])     ? "int"_sym
                        : argc == 1 && is_number(argv[0]) ? "float"_sym
                                                          : nullptr,
                        argc, argv, nullptr);
}
void send(const Script &s) {
    send_atoms(jbox_get_object(s.box(0)), s.argc - 1, s.argv + 1);
}
void sendbox(const Script &s) {
    send_atoms(s.box(0), s.argc - 1, s.argv + 1);
}

// nth NAME CLASS N: names the N-th object of a class, counted from 1.
void nth(const Script &s) {
    Symbol *const class_name = atom_getsym(s.argv + 1);
    int64_t left = long_of(s.argv[2]);
    for (Object *box = jpatcher_get_firstobject(s.patcher); box; box = jbox_get_nextobject(box)) {
        if (object_classname(jbox_get_object(box)) == class_name && --left == 0) {
            jbox_set_varname(box, atom_getsym(s.argv));
            return;
        }
    }
    object_error(s.x, "script nth: there are not so many %s objects", class_name->name);
}

// --- The words -----------------------------------------------------------------------------------

// What is wanted of the atoms, a letter each: b the name of a box that is there, s a symbol, n a
// number, and last, perhaps, a dot: more may follow. Without the dot, more are ignored.
struct Word {
    const char *name;
    const char *wanted;
    void (*run)(const Script &);
};
constexpr Word words[] = {
    {"new", "ssnn.", newbox},
    {"newobject", "s.", newobject},
    {"newdefault", "snns.", newdefault},
    {"connect", "", connect},
    {"disconnect", "", disconnect},
    {"connectcolor", "bnbnnnn.", connectcolor},
    {"hidden", "s.", hidden},
    {"replace", "bs.", replace},
    {"bringtofront", "b", bringtofront},
    {"sendtoback", "b", sendtoback},
    {"click", "b", click},
    {"delete", "b", remove},
    {"remove", "b", remove},
    {"hide", "b", hide},
    {"show", "b", show},
    {"ignoreclick", "b", ignoreclick},
    {"move", "bnn", move},
    {"respondtoclick", "b", respondtoclick},
    {"offset", "bnn", offset},
    {"offsetfrom", "bbnnn", offsetfrom},
    {"size", "bnn", resize},
    {"send", "ba.", send},
    {"sendbox", "bs.", sendbox},
    {"nth", "ssn", nth},
};

bool atom_fits(const Script &s, int32_t index, char wanted) {
    const Atom &atom = s.argv[index];
    switch (wanted) {
        case 'n':
            return is_number(atom);
        case 's':
            return is_symbol(atom);
        case 'b':
            if (!is_symbol(atom) || !s.box(index)) {
                char *text = nullptr;
                int64_t size = 0;
                atom_gettext(1, &atom, &size, &text, 2);
                object_error(s.x, "script %s: no such box: %s", s.word, text ? text : "");
                sysmem_freeptr(text);
                return false;
            }
            return true;
        default:
            return true;
    }
}

void run(const Word &word, const Script &s) {
    for (int32_t i = 0; word.wanted[i] && word.wanted[i] != '.'; ++i) {
        if (i >= s.argc) {
            object_error(s.x, "missing arguments for message \"script %s\"", s.word);
            return;
        }
        if (!atom_fits(s, i, word.wanted[i])) {
            if (word.wanted[i] != 'b') {
                object_error(s.x, "bad arguments for message \"script %s\"", s.word);
            }
            return;
        }
    }
    word.run(s);
}

}  // namespace

void script(Object *x, Object *patcher, int32_t argc, Atom *argv) {
    const char *const name = argc > 0 && is_symbol(argv[0]) ? argv[0].value.sym->name : "";
    for (const Word &word : words) {
        if (std::strcmp(word.name, name) == 0) {
            run(word, {x, patcher, name, argc - 1, argv + 1});
            return;
        }
    }
    object_error(x, "script: no such word: \"%s\"", name);
}

}  // namespace kiv::objects
