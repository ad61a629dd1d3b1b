// route, select, gate, switch: which way a message goes.
#include "objects/common.h"

namespace kiv::objects {

namespace {

// --- route, select -------------------------------------------------------------------------------

// One outlet for each key, and the last for what matches none.
struct Match {
    Object ob;
    int32_t count;
    Atom *keys;
    Outlet **outs;
};
Class *route_class;
Class *select_class;

// The index of the key that equals an atom, or the count of keys.
int32_t find_key(const Match *x, const Atom &atom) {
    int32_t found = 0;
    while (found < x->count && !same_atom(atom, x->keys[found])) {
        ++found;
    }
    return found;
}

// That of the key that equals the message's first element.
int32_t find_first(const Match *x, const Elements &message) {
    return message.count() > 0 ? find_key(x, message[0]) : x->count;
}

void route_message(Match *x, Symbol *selector, int32_t argc, Atom *argv) {
    Elements message(selector, argc, argv);
    const int32_t found = find_first(x, message);
    if (found == x->count) {  // "int", "float" and "list" as keys stand for the kind of message
        const Atom kind = symbol_atom(selector);
        send_message(x->outs[find_key(x, kind)], selector, argc, argv);
    } else if (message.count() > 1) {
        outlet_atoms(x->outs[found], message.count() - 1, message.atoms() + 1);
    } else {
        outlet_bang(x->outs[found]);
    }
}

void select_message(Match *x, Symbol *selector, int32_t argc, Atom *argv) {
    Elements message(selector, argc, argv);
    const int32_t found = find_first(x, message);
    if (found == x->count) {
        send_message(x->outs[found], selector, argc, argv);
    } else {
        outlet_bang(x->outs[found]);
    }
}

// The second inlet of a select with one number: what it waits for.
void select_key(Match *x, Atom number) {
    if (x->count == 1) {
        x->keys[0] = as_kind(number, x->keys[0].type == TypeFloat);
    }
}

void match_free(Match *x) {
    sysmem_freeptr(x->keys);
    sysmem_freeptr(x->outs);
}

Match *match_new(Class *c, int32_t argc, const Atom *argv, bool bangs) {
    auto *x = make_object<Match>(c);
    if (!x) {
        return nullptr;
    }
    const Atom zero = long_atom(0);
    const int32_t count = port_count(x, argc);
    x->keys = new_array<Atom>(count);
    x->outs = new_array<Outlet *>(count + 1);
    if (!x->keys || !x->outs) {
        object_free(x);
        return nullptr;
    }
    x->count = count;
    x->outs[count] = outlet_new(x, nullptr);
    for (int32_t i = count - 1; i >= 0; --i) {
        x->keys[i] = i < argc ? argv[i] : zero;
        x->outs[i] = bangs ? bangout(x) : outlet_new(x, nullptr);
    }
    return x;
}

void *route_new(Symbol *, int32_t argc, Atom *argv) {
    return match_new(route_class, argc, argv, false);
}

void *select_new(Symbol *, int32_t argc, Atom *argv) {
    Match *const x = match_new(select_class, argc, argv, true);
    if (x && x->count == 1 && is_number(x->keys[0])) {
        number_inlet(x, x->keys[0].type == TypeFloat, 1);
    }
    return x;
}

// --- gate, switch --------------------------------------------------------------------------------

// A gate has one way in and several out, a switch several in and one out; `open` counts them from
// 1, and 0 closes.
struct Gate {
    Object ob;
    int32_t count;
    int64_t open;
    Linklist *inlets;
    Outlet **outs;  // a switch has one
};
Class *gate_class;
Class *switch_class;

void choose(Gate *x, Symbol *selector, int32_t argc, const Atom *argv) {
    if (argc < 1 || !is_number(argv[0])) {
        refuse(x, selector);
        return;
    }
    const int64_t wanted = long_of(argv[0]);
    x->open = wanted < 0 ? 0 : wanted > x->count ? x->count : wanted;
}

// Sends what it holds open.
void tell(Gate *x, Symbol *selector, int32_t argc, Atom *argv) {
    if (selector == "bang"_sym) {
        outlet_int(x->outs[0], x->open);
    } else {
        choose(x, selector, argc, argv);
    }
}

void gate_message(Gate *x, Symbol *selector, int32_t argc, Atom *argv) {
    if (proxy_getinlet(x) == 0) {
        choose(x, selector, argc, argv);
    } else if (x->open > 0) {
        send_message(x->outs[x->open - 1], selector, argc, argv);
    }
}

void switch_message(Gate *x, Symbol *selector, int32_t argc, Atom *argv) {
    const int32_t inlet = proxy_getinlet(x);
    if (inlet == 0) {
        tell(x, selector, argc, argv);
    } else if (inlet == x->open) {
        send_message(x->outs[0], selector, argc, argv);
    }
}

void gate_free(Gate *x) {
    object_free(x->inlets);
    sysmem_freeptr(x->outs);
}

Gate *gate_make(Class *c, int32_t argc, const Atom *argv, bool is_switch) {
    auto *x = make_object<Gate>(c);
    if (!x) {
        return nullptr;
    }
    x->count = port_count(x, long_argument(x, 0, argc, argv, is_switch ? 2 : 1));
    const int32_t outs = is_switch ? 1 : x->count;
    x->outs = new_array<Outlet *>(outs);
    if (!x->outs) {
        object_free(x);
        return nullptr;
    }
    x->inlets = make_inlets(x, is_switch ? x->count : 1);
    for (int32_t i = outs - 1; i >= 0; --i) {
        x->outs[i] = outlet_new(x, nullptr);
    }
    const int64_t open = long_argument(x, 1, argc, argv, 0);
    x->open = open < 0 ? 0 : open > x->count ? x->count : open;
    return x;
}

void *gate_new(Symbol *, int32_t argc, Atom *argv) {
    return gate_make(gate_class, argc, argv, false);
}

void *switch_new(Symbol *, int32_t argc, Atom *argv) {
    return gate_make(switch_class, argc, argv, true);
}

}  // namespace

void routing_start() {
    route_class = make_class<Match>("route", route_new, match_free);
    Messages<Match, route_message>::add(route_class);
    add_class(route_class);

    select_class = make_class<Match>("select", select_new, match_free);
    Messages<Match, select_message>::add(select_class);
    Numbers<Match, select_key>::add_cold(select_class, "in1", "ft1");
    add_class(select_class, {"sel"});

    gate_class = make_class<Gate>("gate", gate_new, gate_free);
    Messages<Gate, gate_message>::add(gate_class);
    add_class(gate_class);

    switch_class = make_class<Gate>("switch", switch_new, gate_free);
    Messages<Gate, switch_message>::add(switch_class);
    add_class(switch_class);
}

}  // namespace kiv::objects
