// pack, unpack, swap, append, prepend: making lists and taking them apart.
#include "objects/common.h"

#include <algorithm>

namespace kiv::objects {

namespace {

// Two integers when nothing is typed.
int32_t element_count(void *x, int32_t argc) {
    return argc > 0 ? port_count(x, argc) : 2;
}

Atom initial_element(int32_t index, int32_t argc, const Atom *argv) {
    return index < argc ? argv[index] : long_atom(0);
}

// --- pack ----------------------------------------------------------------------------------------

struct Pack {
    Object ob;
    Outlet *out;
    Linklist *inlets;
    int32_t count;
    Atom *values;  // each keeps the kind it was made with
};
Class *pack_class;

void pack_send(Pack *x) {
    Atom local[32];
    Atom *const copy = atom_dynamic_start(local, 32, x->count);
    if (copy) {  // receivers may change the values while they are sent
        std::copy_n(x->values, x->count, copy);
        outlet_list(x->out, "list"_sym, x->count, copy);
        atom_dynamic_end(local, copy);
    }
}

void pack_message(Pack *x, Symbol *selector, int32_t argc, Atom *argv) {
    const int32_t inlet = proxy_getinlet(x);
    bool stored = true;
    if (selector != "bang"_sym || argc > 0) {
        Elements elements(selector, argc, argv);
        stored = store_elements(x, x->values, x->count, inlet, elements.count(), elements.atoms());
    }
    if (inlet == 0 && stored) {
        pack_send(x);
    }
}

void pack_set(Pack *x, Symbol *, int32_t argc, Atom *argv) {
    store_elements(x, x->values, x->count, 0, argc, argv);
}

void pack_free(Pack *x) {
    object_free(x->inlets);
    sysmem_freeptr(x->values);
}

void *pack_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Pack>(pack_class);
    if (x) {
        const int32_t count = element_count(x, argc);
        x->values = new_array<Atom>(count);
        x->count = x->values ? count : 0;
        for (int32_t i = 0; i < x->count; ++i) {
            x->values[i] = initial_element(i, argc, argv);
        }
        x->inlets = make_inlets(x, x->count - 1);
        x->out = listout(x);
    }
    return x;
}

// --- unpack --------------------------------------------------------------------------------------

struct Unpack {
    Object ob;
    int32_t count;
    Atom *values;  // each keeps the kind it was made with
    Outlet **outs;
};
Class *unpack_class;

// A bang sends the values that came last, or were typed.
void unpack_message(Unpack *x, Symbol *selector, int32_t argc, Atom *argv) {
    const bool bang = selector == "bang"_sym && argc == 0;
    Elements elements(selector, argc, argv);
    const int32_t given = bang ? x->count : elements.count();
    for (int32_t i = (given < x->count ? given : x->count) - 1; i >= 0 && object_isvalid(x); --i) {
        if (!bang) {
            convert_or_zero(elements[i], x->values[i]);
        }
        Atom value = x->values[i];
        outlet_atoms(x->outs[i], 1, &value);
    }
}

void unpack_free(Unpack *x) {
    sysmem_freeptr(x->values);
    sysmem_freeptr(x->outs);
}

void *unpack_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Unpack>(unpack_class);
    if (x) {
        const int32_t count = element_count(x, argc);
        x->values = new_array<Atom>(count);
        x->outs = new_array<Outlet *>(count);
        x->count = x->values && x->outs ? count : 0;
        for (int32_t i = x->count - 1; i >= 0; --i) {
            x->values[i] = initial_element(i, argc, argv);
            x->outs[i] = is_number(x->values[i]) ? number_outlet(x, x->values[i].type == TypeFloat)
                                                 : outlet_new(x, nullptr);
        }
    }
    return x;
}

// --- swap ----------------------------------------------------------------------------------------

struct Swap {
    Object ob;
    Outlet *left_out;
    Outlet *right_out;
    Atom left;
    Atom right;  // its kind is the object's
};
Class *swap_class;

void swap_send(Swap *x) {
    const Atom stored = x->right;
    send_number(x->right_out, x->left);
    if (object_isvalid(x)) {
        send_number(x->left_out, stored);
    }
}

void swap_number(Swap *x, Atom number) {
    x->left = as_kind(number, x->right.type == TypeFloat);
    swap_send(x);
}

void swap_keep(Swap *x, Atom number) {
    x->right = as_kind(number, x->right.type == TypeFloat);
}

void *swap_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Swap>(swap_class);
    if (x) {
        x->right = number_argument(x, 0, argc, argv, long_atom(0));
        const bool floats = x->right.type == TypeFloat;
        x->left = as_kind(long_atom(0), floats);
        number_inlet(x, floats, 1);
        x->right_out = number_outlet(x, floats);
        x->left_out = number_outlet(x, floats);
    }
    return x;
}

// --- append, prepend -----------------------------------------------------------------------------

struct Extend {
    Object ob;
    Outlet *out;
    Atomarray *addition;
    bool in_front;
};
Class *append_class;
Class *prepend_class;

// The elements with the addition, in `local` when it is large enough; null without memory.
Atom *extended(Extend *x, Elements &elements, Atom *local, int32_t local_count, int32_t *total) {
    const Guard guard;
    int32_t added = 0;
    Atom *addition = nullptr;
    atomarray_getatoms(x->addition, &added, &addition);
    *total = elements.count() + added;
    Atom *const message = atom_dynamic_start(local, local_count, *total);
    if (message) {
        std::copy_n(elements.atoms(), elements.count(), message + (x->in_front ? added : 0));
        std::copy_n(addition, added, message + (x->in_front ? 0 : elements.count()));
    }
    return message;
}

void extend_message(Extend *x, Symbol *selector, int32_t argc, Atom *argv) {
    Elements elements(selector, argc, argv);
    Atom local[64];
    int32_t total = 0;
    Atom *const message = extended(x, elements, local, 64, &total);
    if (!message) {
        object_error(x, "no memory for a message of %d elements", total);
        return;
    }
    if (total > 0) {
        outlet_atoms(x->out, total, message);
    }
    atom_dynamic_end(local, message);
}

void extend_set(Extend *x, Symbol *, int32_t argc, Atom *argv) {
    const Guard guard;
    atomarray_setatoms(x->addition, argc, argv);
}

void extend_free(Extend *x) {
    object_free(x->addition);
}

Extend *extend_new(Class *c, bool in_front, int32_t argc, const Atom *argv) {
    auto *x = make_object<Extend>(c);
    if (x) {
        x->addition = atomarray_new(argc, argv);
        x->in_front = in_front;
        x->out = outlet_new(x, nullptr);
    }
    return x;
}

void *append_new(Symbol *, int32_t argc, Atom *argv) {
    return extend_new(append_class, false, argc, argv);
}

void *prepend_new(Symbol *, int32_t argc, Atom *argv) {
    return extend_new(prepend_class, true, argc, argv);
}

Class *add_extend(const char *name, void *(*constructor)(Symbol *, int32_t, Atom *)) {
    Class *const c = make_class<Extend>(name, constructor, extend_free);
    Messages<Extend, extend_message>::add(c);
    class_addmethod(c, method(extend_set), "set", TypeGimme, 0);
    add_class(c);
    return c;
}

}  // namespace

void lists_start() {
    pack_class = make_class<Pack>("pack", pack_new, pack_free);
    Messages<Pack, pack_message>::add(pack_class);
    class_addmethod(pack_class, method(pack_set), "set", TypeGimme, 0);
    add_class(pack_class);

    unpack_class = make_class<Unpack>("unpack", unpack_new, unpack_free);
    Messages<Unpack, unpack_message>::add(unpack_class);
    add_class(unpack_class);

    swap_class = make_class<Swap>("swap", swap_new);
    class_addmethod(swap_class, method(swap_send), "bang", 0);
    Numbers<Swap, swap_number>::add(swap_class);
    Numbers<Swap, swap_keep>::add_cold(swap_class, "in1", "ft1");
    add_class(swap_class);

    append_class = add_extend("append", append_new);
    prepend_class = add_extend("prepend", prepend_new);
}

}  // namespace kiv::objects
