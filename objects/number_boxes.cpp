// button, toggle, number, flonum, comment: user-interface boxes.
//
// A box class is made from its box dictionary: jbox_new reads it, with the attributes the class
// declares as saved.
#include "objects/common.h"

#include <cstddef>

namespace kiv::objects {

namespace {

template <class Record>
Class *make_box_class(const char *name, void *(*constructor)(Symbol *, int32_t, Atom *)) {
    Class *const c = class_new(name, method(constructor), method(jbox_free),
                               static_cast<int32_t>(sizeof(Record)), nullptr, TypeGimme, 0);
    jbox_initclass(c, JBOX_UI);
    return c;
}

// The record with its box part; the outlets are made by the caller, from the right.
template <class Record>
Record *make_box(Class *c, int32_t argc, Atom *argv) {
    auto *x = static_cast<Record *>(object_alloc(c));
    if (x && jbox_new(&x->box, 0, argc, argv) != ErrorNone) {
        object_free(x);
        return nullptr;
    }
    return x;
}

// "getvalueof" and "setvalueof": the value by which presets know a box. Setting it sends it.
template <class Record, Atom (*get)(const Record *), void (*set)(Record *, Atom)>
struct Valued {
    static void get_value(const Record *x, int32_t *argc, Atom **argv) {
        if (atom_alloc(argc, argv, nullptr) == ErrorNone) {
            **argv = get(x);
        }
    }
    static void set_value(Record *x, int32_t argc, Atom *argv) {
        if (argc > 0 && is_number(argv[0])) {
            set(x, argv[0]);
        }
    }
    static void add(Class *c) {
        class_addmethod(c, method(get_value), "getvalueof", TypeCant, 0);
        class_addmethod(c, method(set_value), "setvalueof", TypeCant, 0);
    }
};

// --- button --------------------------------------------------------------------------------------

struct Button {
    Jbox box;
    Outlet *out;
};
Class *button_class;

void button_message(Button *x, Symbol *, int32_t, Atom *) {
    outlet_bang(x->out);
}

void *button_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_box<Button>(button_class, argc, argv);
    if (x) {
        x->out = bangout(x);
        jbox_ready(&x->box);
    }
    return x;
}

// --- toggle --------------------------------------------------------------------------------------

struct Toggle {
    Jbox box;
    Outlet *out;
    int64_t value;
};
Class *toggle_class;

void toggle_set(Toggle *x, int64_t value) {
    x->value = value;
    jbox_redraw(&x->box);
}

void toggle_number(Toggle *x, Atom number) {
    toggle_set(x, long_of(number));
    outlet_int(x->out, x->value);
}

void toggle_bang(Toggle *x) {
    toggle_number(x, long_atom(x->value == 0 ? 1 : 0));
}

Atom toggle_value(const Toggle *x) {
    return long_atom(x->value);
}

void *toggle_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_box<Toggle>(toggle_class, argc, argv);
    if (x) {
        x->out = intout(x);
        jbox_ready(&x->box);
    }
    return x;
}

// --- number, flonum ------------------------------------------------------------------------------

struct NumberBox {
    Jbox box;
    Outlet *out;
    Atom value;    // its kind is the box's
    Atom minimum;  // no number: no limit
    Atom maximum;
};
Class *number_class;
Class *flonum_class;

void number_store(NumberBox *x, Atom number) {
    const bool floats = x->value.type == TypeFloat;
    x->value = as_kind(number, floats);
    if (is_number(x->maximum) && float_of(x->value) > float_of(x->maximum)) {
        x->value = as_kind(x->maximum, floats);
    }
    if (is_number(x->minimum) && float_of(x->value) < float_of(x->minimum)) {
        x->value = as_kind(x->minimum, floats);
    }
    jbox_redraw(&x->box);
}

void number_send(NumberBox *x) {
    send_number(x->out, x->value);
}

void number_number(NumberBox *x, Atom number) {
    number_store(x, number);
    number_send(x);
}

void number_set(NumberBox *x, Symbol *, int32_t argc, Atom *argv) {
    number_store(x, number_argument(x, 0, argc, argv, x->value));
}

Atom number_value(const NumberBox *x) {
    return x->value;
}

NumberBox *number_box_new(Class *c, bool floats, int32_t argc, Atom *argv) {
    auto *x = make_box<NumberBox>(c, argc, argv);
    if (x) {
        x->value = as_kind(long_atom(0), floats);
        outlet_new(x, "bang");  // tells when text has been entered, which takes a window
        x->out = number_outlet(x, floats);
        jbox_ready(&x->box);
    }
    return x;
}

void *number_new(Symbol *, int32_t argc, Atom *argv) {
    return number_box_new(number_class, false, argc, argv);
}

void *flonum_new(Symbol *, int32_t argc, Atom *argv) {
    return number_box_new(flonum_class, true, argc, argv);
}

Class *add_number_box(const char *name, void *(*constructor)(Symbol *, int32_t, Atom *)) {
    Class *const c = make_box_class<NumberBox>(name, constructor);
    class_addmethod(c, method(number_send), "bang", 0);
    class_addmethod(c, method(number_set), "set", TypeGimme, 0);
    Numbers<NumberBox, number_number>::add(c);
    Valued<NumberBox, number_value, number_number>::add(c);
    const struct {
        const char *name;
        size_t offset;
    } limits[] = {{"minimum", offsetof(NumberBox, minimum)},
                  {"maximum", offsetof(NumberBox, maximum)}};
    for (const auto &limit : limits) {
        class_addattr(c, attr_offset_new(limit.name, "atom"_sym, 0, nullptr, nullptr,
                                         static_cast<int32_t>(limit.offset)));
        class_addattr_format(c, limit.name, "save"_sym, "long", "l", 1);
    }
    add_class(c);
    return c;
}

// --- comment -------------------------------------------------------------------------------------

struct Comment {
    Jbox box;
};
Class *comment_class;

void comment_set(Comment *x, Symbol *, int32_t argc, Atom *argv) {
    char *text = nullptr;
    int64_t size = 0;
    if (atom_gettext(argc, argv, &size, &text, 2) == ErrorNone) {
        object_attr_setsym(x, "text"_sym, gensym(text));
        sysmem_freeptr(text);
    }
}

void *comment_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_box<Comment>(comment_class, argc, argv);
    if (x) {
        jbox_ready(&x->box);
    }
    return x;
}

}  // namespace

void number_boxes_start() {
    button_class = make_box_class<Button>("button", button_new);
    Messages<Button, button_message>::add(button_class);
    add_class(button_class);

    toggle_class = make_box_class<Toggle>("toggle", toggle_new);
    class_addmethod(toggle_class, method(toggle_bang), "bang", 0);
    class_addmethod(toggle_class, method(toggle_set), "set", TypeLong, 0);
    Numbers<Toggle, toggle_number>::add(toggle_class);
    Valued<Toggle, toggle_value, toggle_number>::add(toggle_class);
    add_class(toggle_class);

    number_class = add_number_box("number", number_new);
    flonum_class = add_number_box("flonum", flonum_new);

    comment_class = make_box_class<Comment>("comment", comment_new);
    class_addmethod(comment_class, method(comment_set), "set", TypeGimme, 0);
    add_class(comment_class);
}

}  // namespace kiv::objects
