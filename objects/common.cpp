#include "objects/common.h"

#include <algorithm>

namespace kiv::objects {

namespace {

// "#1" and its like stand for arguments that an abstraction was not given, as when its document is
// opened by itself: they count as absent.
bool is_placeholder(const Atom &atom) {
    return is_symbol(atom) && atom.value.sym->name[0] == '#';
}

const Atom *argument(void *x, int32_t index, int32_t argc, const Atom *argv, bool symbol) {
    if (index >= argc || (!symbol && is_placeholder(argv[index]))) {
        return nullptr;
    }
    if (symbol ? is_symbol(argv[index]) : is_number(argv[index])) {
        return argv + index;
    }
    object_error(x, "argument %d: a %s is wanted", index + 1, symbol ? "name" : "number");
    return nullptr;
}

}  // namespace

Atom number_argument(void *x, int32_t index, int32_t argc, const Atom *argv, const Atom &fallback) {
    const Atom *const found = argument(x, index, argc, argv, false);
    return found ? *found : fallback;
}

double float_argument(void *x, int32_t index, int32_t argc, const Atom *argv, double fallback) {
    const Atom *const found = argument(x, index, argc, argv, false);
    return found ? float_of(*found) : fallback;
}

int64_t long_argument(void *x, int32_t index, int32_t argc, const Atom *argv, int64_t fallback) {
    const Atom *const found = argument(x, index, argc, argv, false);
    return found ? long_of(*found) : fallback;
}

Symbol *symbol_argument(void *x, int32_t index, int32_t argc, const Atom *argv, Symbol *fallback) {
    const Atom *const found = argument(x, index, argc, argv, true);
    return found ? found->value.sym : fallback;
}

int32_t port_count(void *x, int64_t wanted) {
    if (wanted > most_ports) {
        object_error(x, "%lld inlets or outlets are too many: %d are made",
                     static_cast<long long>(wanted), most_ports);
    }
    return static_cast<int32_t>(std::clamp<int64_t>(wanted, 1, most_ports));
}

Linklist *make_inlets(void *owner, int32_t count) {
    Linklist *const proxies = linklist_new();
    for (int32_t i = count; proxies && i > 0; --i) {
        Proxy *const proxy = proxy_new(owner, i, nullptr);
        if (proxy && linklist_append(proxies, proxy) < 0) {
            proxy_delete(proxy);
        }
    }
    return proxies;
}

Object *box_of(void *x) {
    void *box = nullptr;
    object_obex_lookup(x, "#B"_sym, &box);
    return static_cast<Object *>(box);
}

Object *patcher_of(void *x) {
    return jbox_get_patcher(box_of(x));
}

void refuse(void *x, const Symbol *selector) {
    object_error(x, "doesn't understand \"%s\"", selector->name);
}

void send_number(Outlet *outlet, const Atom &number) {
    if (number.type == TypeFloat) {
        outlet_float(outlet, number.value.f);
    } else {
        outlet_int(outlet, number.value.i);
    }
}

void send_message(Outlet *outlet, Symbol *selector, int32_t argc, Atom *argv) {
    if (selector == "bang"_sym && argc == 0) {
        outlet_bang(outlet);
    } else if (selector == "int"_sym && argc == 1) {
        outlet_int(outlet, atom_getlong(argv));
    } else if (selector == "float"_sym && argc == 1) {
        outlet_float(outlet, atom_getfloat(argv));
    } else {
        outlet_anything(outlet, selector, argc, argv);
    }
}

void Elements::copy(Symbol *selector) {
    const Atom *const rest = atoms_;
    copied_ = true;
    atoms_ = atom_dynamic_start(local_, local_count, count_ + 1);
    if (!atoms_) {  // no memory: a message cut short is better than none
        atoms_ = local_;
        count_ = std::min(count_, local_count - 1);
    }
    atoms_[0] = symbol_atom(selector);
    std::copy_n(rest, count_, atoms_ + 1);
    ++count_;
}

bool same_atom(const Atom &a, const Atom &b) {
    if (a.type != b.type) {
        return false;
    }
    switch (a.type) {
        case TypeLong:
            return a.value.i == b.value.i;
        case TypeFloat:
            return a.value.f == b.value.f;
        case TypeSymbol:
            return a.value.sym == b.value.sym;
        default:
            return a.value.obj == b.value.obj;
    }
}

bool convert_atom(const Atom &from, const Atom &kind, Atom &to) {
    if (is_number(kind)) {
        if (!is_number(from)) {
            return false;
        }
        to = as_kind(from, kind.type == TypeFloat);
        return true;
    }
    if (is_number(from)) {
        char *text = nullptr;
        int64_t size = 0;
        if (atom_gettext(1, &from, &size, &text, 0) != ErrorNone) {
            return false;
        }
        atom_setsym(&to, gensym(text));
        sysmem_freeptr(text);
        return true;
    }
    to = from;
    return true;
}

void convert_or_zero(const Atom &from, Atom &to) {
    const Atom zero = is_symbol(to) ? symbol_atom(""_sym) : as_kind(long_atom(0), !is_long(to));
    if (!convert_atom(from, to, to)) {
        to = zero;
    }
}

bool store_elements(void *x, Atom *values, int32_t value_count, int32_t first, int32_t argc,
                    const Atom *argv) {
    bool stored = true;
    for (int32_t i = 0; i < argc && first + i < value_count; ++i) {
        if (!convert_atom(argv[i], values[first + i], values[first + i])) {
            object_error(x, "inlet %d holds a number", first + i + 1);
            stored = false;
        }
    }
    return stored;
}

}  // namespace kiv::objects
