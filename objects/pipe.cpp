// pipe: passes messages on later, any number in flight.
#include "objects/common.h"

namespace kiv::objects {

namespace {

struct Pipe;

// A message in flight. It owns its atoms and its clock, and is on the list of its pipe, oldest
// first. Who takes it off the list lands it: its clock, or whoever clears or flushes the pipe
// meanwhile. The list is guarded.
struct Flight {
    bool listed;
    Pipe *pipe;
    Clock *clock;
    Flight *next;
    Flight *previous;
    Symbol *selector;
    int32_t argc;
    Atom argv[1];
};

// With one value (or none typed) every message passes as it is; with more, each has an inlet and an
// outlet of its own, and a message to the first inlet sends them all on their way.
struct Pipe {
    Object ob;
    double ms;
    int32_t count;
    Linklist *inlets;
    Atom *values;
    Outlet **outs;
    Flight *oldest;
    Flight *newest;
};
Class *pipe_class;

// False when somebody else has taken it off the list.
bool take(Flight *flight) {
    const Guard guard;
    if (!flight->listed) {
        return false;
    }
    Pipe *const x = flight->pipe;
    (flight->previous ? flight->previous->next : x->oldest) = flight->next;
    (flight->next ? flight->next->previous : x->newest) = flight->previous;
    flight->listed = false;
    return true;
}

// The oldest one, off the list, or null; *is_last tells whether it is `last`.
Flight *take_oldest(Pipe *x, const Flight *last, bool *is_last) {
    const Guard guard;
    Flight *const flight = x->oldest;
    *is_last = flight == last;
    return flight && take(flight) ? flight : nullptr;
}

// Freeing the clock waits for its function when that runs on another thread.
void land(Flight *flight) {
    object_free(flight->clock);
    sysmem_freeptr(flight);
}

// A receiver may clear or free the pipe: the flight is off its list.
void send(Flight *flight) {
    Pipe *const x = flight->pipe;
    if (x->count == 1) {
        send_message(x->outs[0], flight->selector, flight->argc, flight->argv);
    } else {
        for (int32_t i = flight->argc - 1; i >= 0 && object_isvalid(x); --i) {
            outlet_atoms(x->outs[i], 1, flight->argv + i);
        }
    }
}

void arrive(Flight *flight) {
    if (take(flight)) {
        send(flight);
        land(flight);
    }
}

void depart(Pipe *x, Symbol *selector, int32_t argc, const Atom *argv) {
    auto *flight = static_cast<Flight *>(
        sysmem_newptrclear(static_cast<int64_t>(sizeof(Flight) + sizeof(Atom) * size_t(argc))));
    Clock *const clock =
        flight ? clock_new_withscheduler(flight, method(arrive), scheduler_fromobject(x)) : nullptr;
    if (!clock) {
        sysmem_freeptr(flight);
        object_error(x, "no memory for a message in flight");
        return;
    }
    flight->pipe = x;
    flight->clock = clock;
    flight->selector = selector;
    flight->argc = argc;
    if (argc > 0) {
        std::memcpy(flight->argv, argv, sizeof(Atom) * size_t(argc));
    }
    const Guard guard;  // from when it is listed, others may land it
    flight->listed = true;
    flight->previous = x->newest;
    (x->newest ? x->newest->next : x->oldest) = flight;
    x->newest = flight;
    clock_fdelay(clock, x->ms);
}

void set_ms(Pipe *x, const Atom &ms) {
    if (is_number(ms)) {
        x->ms = sane_ms(float_of(ms), 0.0);
    } else {
        object_error(x, "a time in milliseconds is wanted");
    }
}

void pipe_message(Pipe *x, Symbol *selector, int32_t argc, Atom *argv) {
    const int32_t inlet = proxy_getinlet(x);
    Elements elements(selector, argc, argv);
    const bool bang = selector == "bang"_sym && argc == 0;
    if (inlet == x->count) {
        set_ms(x, elements.count() > 0 ? elements[0] : symbol_atom(""_sym));
    } else if (x->count == 1) {
        depart(x, selector, argc, argv);
    } else {
        const bool stored = bang || store_elements(x, x->values, x->count, inlet, elements.count(),
                                                   elements.atoms());
        if (inlet == 0 && stored) {
            depart(x, "list"_sym, x->count, x->values);
        }
    }
}

void pipe_clear(Pipe *x) {
    bool is_last = false;
    while (Flight *const flight = take_oldest(x, nullptr, &is_last)) {
        land(flight);
    }
}

// Everything in flight arrives now, oldest first; what departs meanwhile stays in flight.
void pipe_flush(Pipe *x) {
    const Flight *const last = x->newest;
    bool done = last == nullptr;
    while (!done && object_isvalid(x)) {
        Flight *const flight = take_oldest(x, last, &done);
        if (!flight) {
            return;
        }
        clock_unset(flight->clock);
        send(flight);
        land(flight);
    }
}

void pipe_free(Pipe *x) {
    pipe_clear(x);
    object_free(x->inlets);
    sysmem_freeptr(x->values);
    sysmem_freeptr(x->outs);
}

void *pipe_new(Symbol *, int32_t argc, Atom *argv) {
    auto *x = make_object<Pipe>(pipe_class);
    if (!x) {
        return nullptr;
    }
    const int32_t count = port_count(x, argc - 1);
    x->values = new_array<Atom>(count);
    x->outs = new_array<Outlet *>(count);
    if (!x->values || !x->outs) {
        object_free(x);
        return nullptr;
    }
    x->count = count;
    if (argc > 0) {
        set_ms(x, argv[argc - 1]);
    }
    x->inlets = make_inlets(x, count);
    for (int32_t i = count - 1; i >= 0; --i) {
        x->values[i] = argc > 1 ? argv[i] : long_atom(0);
        x->outs[i] = outlet_new(x, nullptr);
    }
    return x;
}

}  // namespace

void pipe_start() {
    pipe_class = make_class<Pipe>("pipe", pipe_new, pipe_free);
    Messages<Pipe, pipe_message>::add(pipe_class);
    class_addmethod(pipe_class, method(pipe_clear), "clear", 0);
    class_addmethod(pipe_class, method(pipe_flush), "flush", 0);
    add_class(pipe_class);
}

}  // namespace kiv::objects
