// bag: a collection of numbers.
#include "objects/common.h"

namespace kiv::objects {

namespace {

// Numbers in the order in which they came in. Without an argument each number is there once; with
// one, as often as it was put in.
struct Bag {
    Object ob;
    Outlet *out;
    Atomarray *numbers;
    bool repeats;
    bool adding;  // what the second inlet said: a number is put in rather than taken out
};
Class *bag_class;

int32_t find(const Bag *x, const Atom &number) {
    int32_t count = 0;
    Atom *numbers = nullptr;
    atomarray_getatoms(x->numbers, &count, &numbers);
    for (int32_t i = 0; i < count; ++i) {
        if (same_atom(numbers[i], number)) {
            return i;
        }
    }
    return -1;
}

void number(Bag *x, Atom value) {
    const Guard guard;
    const int32_t found = find(x, value);
    if (!x->adding && found >= 0) {
        atomarray_chuckindex(x->numbers, found);
    } else if (x->adding && (found < 0 || x->repeats) &&
               atomarray_appendatom(x->numbers, &value) != ErrorNone) {
        object_error(x, "no memory for a number");
    }
}

void choose(Bag *x, Atom flag) {
    x->adding = float_of(flag) != 0.0;
}

// A number and what the second inlet is to say.
void list(Bag *x, Symbol *selector, int32_t argc, Atom *argv) {
    if (argc < 1 || !is_number(argv[0]) || (argc > 1 && !is_number(argv[1]))) {
        object_error(x, "bad arguments for message \"%s\"", selector->name);
        return;
    }
    if (argc > 1) {
        choose(x, argv[1]);
    }
    number(x, argv[0]);
}

// What is in the bag when it begins is sent, whatever happens to the bag meanwhile.
void bang(Bag *x) {
    int32_t count = 0;
    Atom *numbers = nullptr;
    {
        const Guard guard;
        atomarray_copyatoms(x->numbers, &count, &numbers);
    }
    for (int32_t i = 0; i < count && object_isvalid(x); ++i) {
        send_number(x->out, numbers[i]);
    }
    sysmem_freeptr(numbers);
}

bool take_oldest(Bag *x, Atom *oldest) {
    const Guard guard;
    return atomarray_getindex(x->numbers, 0, oldest) == ErrorNone &&
           atomarray_chuckindex(x->numbers, 0) == ErrorNone;
}

// Sends the oldest number and takes it out.
void cut(Bag *x) {
    Atom oldest;
    if (take_oldest(x, &oldest)) {
        send_number(x->out, oldest);
    }
}

void clear(Bag *x) {
    const Guard guard;
    atomarray_clear(x->numbers);
}

void length(Bag *x) {
    outlet_int(x->out, atomarray_getsize(x->numbers));
}

void bag_free(Bag *x) {
    object_free(x->numbers);
}

void *bag_new(Symbol *, int32_t argc, Atom *) {
    auto *x = make_object<Bag>(bag_class);
    if (x) {
        x->numbers = atomarray_new(0, nullptr);
        x->repeats = argc > 0;
        x->adding = true;
        intin(x, 1);
        x->out = outlet_new(x, nullptr);
    }
    return x;
}

}  // namespace

void bag_start() {
    bag_class = make_class<Bag>("bag", bag_new, bag_free);
    class_addmethod(bag_class, method(bang), "bang", 0);
    class_addmethod(bag_class, method(list), "list", TypeGimme, 0);
    class_addmethod(bag_class, method(cut), "cut", 0);
    class_addmethod(bag_class, method(clear), "clear", 0);
    class_addmethod(bag_class, method(length), "length", 0);
    Numbers<Bag, number>::add(bag_class);
    Numbers<Bag, choose>::add_cold(bag_class, "in1", "ft1");
    add_class(bag_class);
}

}  // namespace kiv::objects
