// message: a box of message text that is evaluated to its outlet.
#include "objects/common.h"

#include <utility>

namespace kiv::objects {

namespace {

// The receiver of the text's messages: it sends whatever it gets out of the box's outlet.
struct Mouth {
    Object ob;
    Outlet *out;
};
Class *mouth_class;

struct MessageBox {
    Jbox box;
    Outlet *out;
    Mouth *mouth;
    Binbuf *text;
};
Class *message_class;

void mouth_say(Mouth *mouth, Symbol *selector, int32_t argc, Atom *argv) {
    send_message(mouth->out, selector, argc, argv);
}

Binbuf *retained_text(MessageBox *x) {
    const Guard guard;
    return object_retain(x->text) == ErrorNone ? x->text : nullptr;
}

void evaluate(MessageBox *x, Symbol *selector, int32_t argc, Atom *argv) {
    const bool bang = selector == "bang"_sym && argc == 0;
    Elements arguments(selector, argc, argv);
    constexpr int32_t most_arguments = 9;
    const int32_t count = arguments.count() < most_arguments ? arguments.count() : most_arguments;
    // A message that frees the box or replaces its text must not pull it from under the evaluation.
    Binbuf *const text = retained_text(x);
    Mouth *const mouth = x->mouth;
    if (text && object_retain(mouth) == ErrorNone) {
        binbuf_eval(text, static_cast<int16_t>(bang ? 0 : count), arguments.atoms(), mouth);
        object_release(mouth);
    }
    object_release(text);
}

// The text attribute is what is shown and saved. Boxes belong to the main thread.
void show_text(MessageBox *x, Symbol *, int32_t, Atom *) {
    Binbuf *const buffer = retained_text(x);
    char *text = nullptr;
    int64_t size = 0;
    if (binbuf_totext(buffer, &text, &size) == 0) {
        object_attr_setsym(x, "text"_sym, gensym(text));
        sysmem_freeptr(text);
    }
    object_release(buffer);
    jbox_redraw(&x->box);
}

void append_buffer(Binbuf *buf, Binbuf *from) {
    int64_t type_offset = 0;
    int64_t value_offset = 0;
    Atom atom;
    while (binbuf_getatom(from, &type_offset, &value_offset, &atom) == 0) {
        binbuf_append(buf, nullptr, 1, &atom);
    }
}

// Copies: appending rewrites ";", "," and "$" symbols in the array it is given.
void append_atoms(Binbuf *buf, int32_t argc, const Atom *argv) {
    for (int32_t i = 0; i < argc; ++i) {
        Atom atom = argv[i];
        binbuf_append(buf, nullptr, 1, &atom);
    }
}

// A new buffer takes the place of the old: an evaluation that is under way keeps reading the old.
void replace(MessageBox *x, int32_t before_count, const Atom *before, Binbuf *middle,
             int32_t after_count, const Atom *after) {
    Binbuf *text = binbuf_new();
    if (!text) {
        object_error(x, "no memory for the text");
        return;
    }
    append_atoms(text, before_count, before);
    if (middle) {
        append_buffer(text, middle);
    }
    append_atoms(text, after_count, after);
    {
        const Guard guard;
        std::swap(x->text, text);
    }
    object_free(text);
    defer(x, method(show_text), nullptr, 0, nullptr);
}

void set(MessageBox *x, Symbol *, int32_t argc, Atom *argv) {
    replace(x, argc, argv, nullptr, 0, nullptr);
}

void append(MessageBox *x, Symbol *, int32_t argc, Atom *argv) {
    Binbuf *const text = retained_text(x);
    replace(x, 0, nullptr, text, argc, argv);
    object_release(text);
}

void prepend(MessageBox *x, Symbol *, int32_t argc, Atom *argv) {
    Binbuf *const text = retained_text(x);
    replace(x, argc, argv, text, 0, nullptr);
    object_release(text);
}

void message_free(MessageBox *x) {
    object_free(x->text);
    if (x->mouth) {
        x->mouth->out = nullptr;
        object_free(x->mouth);
    }
    jbox_free(&x->box);
}

// The text as it was typed stays what is saved; the buffer is what is evaluated.
void read_text(MessageBox *x, Dictionary *dictionary) {
    const char *text = nullptr;
    Symbol *name = nullptr;
    if (dictionary_getsym(dictionary, "text"_sym, &name) == ErrorNone) {
        text = name->name;
    } else if (dictionary_getstring(dictionary, "text"_sym, &text) != ErrorNone) {
        return;
    }
    int64_t size = 0;
    while (text[size]) {
        ++size;
    }
    char *start = const_cast<char *>(text);  // read, never written
    binbuf_text(x->text, &start, size);
}

void *message_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = static_cast<MessageBox *>(object_alloc(message_class));
    if (!x) {
        return nullptr;
    }
    x->text = binbuf_new();
    x->mouth = make_object<Mouth>(mouth_class);
    if (!x->text || !x->mouth || jbox_new(&x->box, 0, argc, argv) != ErrorNone) {
        object_free(x);
        return nullptr;
    }
    x->mouth->out = x->out = outlet_new(x, nullptr);
    if (void *const dictionary = argc > 0 ? atom_getobj(argv) : nullptr) {
        read_text(x, static_cast<Dictionary *>(dictionary));
    }
    jbox_ready(&x->box);
    return x;
}

}  // namespace

void message_box_start() {
    mouth_class =
        class_new("message", nullptr, nullptr, static_cast<int32_t>(sizeof(Mouth)), nullptr, 0);
    Messages<Mouth, mouth_say>::add(mouth_class);
    class_register("nobox"_sym, mouth_class);

    message_class = class_new("message", method(message_new), method(message_free),
                              static_cast<int32_t>(sizeof(MessageBox)), nullptr, TypeGimme, 0);
    jbox_initclass(message_class, JBOX_UI);
    Messages<MessageBox, evaluate>::add(message_class);
    class_addmethod(message_class, method(set), "set", TypeGimme, 0);
    class_addmethod(message_class, method(append), "append", TypeGimme, 0);
    class_addmethod(message_class, method(prepend), "prepend", TypeGimme, 0);
    add_class(message_class);
}

}  // namespace kiv::objects
