// print: posts every message with its name in front.
#include "objects/common.h"

namespace kiv::objects {

namespace {

Class *print_class;

struct Print {
    Object ob;
    Symbol *name;
};

void print_message(Print *x, Symbol *selector, int32_t argc, Atom *argv) {
    Elements elements(selector, argc, argv);
    char *text = nullptr;
    int64_t size = 0;
    if (atom_gettext(elements.count(), elements.atoms(), &size, &text, 2) == ErrorNone) {
        object_post(x, "%s: %s", x->name->name, text);
        sysmem_freeptr(text);
    } else {
        object_error(x, "no memory to print a message");
    }
}

void *print_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Print>(print_class);
    if (x) {
        x->name = "print"_sym;
        if (argc > 0) {
            convert_atom(argv[0], symbol_atom(x->name), *argv);
            x->name = atom_getsym(argv);
        }
    }
    return x;
}

}  // namespace

void print_start() {
    print_class = make_class<Print>("print", print_new);
    Messages<Print, print_message>::add(print_class);
    add_class(print_class);
}

}  // namespace kiv::objects
