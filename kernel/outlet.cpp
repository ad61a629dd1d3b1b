// Sending.
//
// 1. A send runs on the calling thread, to its end, and takes no lock. The stack is guarded by one
//    comparison; nothing is allocated but the thread's send state, once.
// 2. It walks the connection list from its head, newest first. A receiver may break any connection,
//    free itself, the sender or the outlet: the records that the walk stands on keep their memory
//    while the thread is in its section (outlet_memory.cpp), a broken connection has no receiver
//    and leads on, and of a freed outlet nothing but its owner, then null, is read.
// 3. While a send is under way the thread has no current proxy: what comes back into the sender
//    comes through a cord, and only a proxy on its way makes it the current one.
#include <cstdarg>

#include "kernel/inlets.h"

namespace kiv {

namespace {

void *const done = reinterpret_cast<void *>(1);

// What keeps a send's state in balance on every way out of it.
class Send {
  public:
    Send(SendState &state, Outlet *outlet) noexcept
        : section_(state),
          state_(state),
          outlet_(outlet),
          proxy_(proxy_context.proxy),
          debugged_(false) {
        ++state_.depth;
        if (proxy_) {
            proxy_context.proxy = nullptr;
        }
    }
    ~Send() {
        if (debugged_) [[unlikely]] {
            state_.messages = entry_.outer;
        }
        if (proxy_) {
            proxy_context.proxy = proxy_;
        }
        if (--state_.depth == 0 && state_.overflow) {
            overflow_end(state_);
        }
    }
    Send(const Send &) = delete;
    Send &operator=(const Send &) = delete;

    // False when the stack is used up: the send must not start.
    bool stack_left(const void *frame) noexcept {
        if (static_cast<const char *>(frame) > state_.stack_limit) {
            return true;
        }
        overflow_begin(state_, outlet_->owner);
        return false;
    }
    void debug(Symbol *selector, int32_t argc, Atom *argv) noexcept {
        if (message_debugging.load(std::memory_order_relaxed) && message_debugged_here())
            [[unlikely]] {
            entry_ = {outlet_->owner, selector, argc, argv, false, state_.messages};
            state_.messages = &entry_;
            debugged_ = true;
        }
    }
    bool paused(Object *receiver) noexcept {
        return debugged_ && message_pauses(&entry_, receiver);
    }
    bool cut_short() const noexcept {
        return overflow_count.load(std::memory_order_relaxed) != 0 &&
               overflow_refuses(state_, outlet_->owner);
    }

  private:
    Section section_;
    SendState &state_;
    Outlet *outlet_;
    const Proxy *proxy_;  // current when the send began
    bool debugged_;
    MessageEntry entry_;  // of a send that is debugged
};

bool refused(const Outlet *outlet, const SendState *state) {
    return !state || (overflow_count.load(std::memory_order_relaxed) != 0 &&
                      overflow_refuses(*state, outlet->owner));
}

// Serves every connection of an outlet: deliver(connection, receiver) for each receiver, after its
// monitors were told.
template <class Deliver>
inline void *send(Outlet *outlet, Symbol *selector, int32_t argc, Atom *argv, Deliver deliver) {
    if (!outlet || (outlet->flags & OutletSilenced)) {
        return nullptr;
    }
    SendState *state = send_state();
    if (refused(outlet, state)) {
        return nullptr;
    }
    Send now(*state, outlet);
    if (!now.stack_left(__builtin_frame_address(0))) {
        return nullptr;
    }
    now.debug(selector, argc, argv);
    for (Connection *c = outlet->connections.load(std::memory_order_seq_cst); c;
         c = c->next.load(std::memory_order_seq_cst)) {
        Object *receiver = c->receiver.load(std::memory_order_seq_cst);
        if (!receiver) {
            continue;
        }
        if (now.paused(receiver)) [[unlikely]] {
            return nullptr;
        }
        if (c->monitor.load(std::memory_order_relaxed) & 1) {
            monitors_tell(c, receiver, selector, argc, argv);
        }
        deliver(c, receiver);
        if (now.cut_short()) {
            return nullptr;
        }
    }
    return done;
}

// The method that a typed outlet cached for messages of its own type, or no_method.
Method cached_method(const Outlet *outlet, const Connection *connection, const Symbol *kind) {
    return outlet->type == kind ? connection->method : no_method;
}

template <class Deliver>
void deliver_loud(Object *receiver, const Symbol *selector, Deliver deliver) {
    if (!object_valid(receiver)) {
        error("bad receiver");
    } else if (!selector) {
        object_error(receiver, "bad message");
    } else if (!deliver(receiver)) {
        report_not_understood(receiver, selector);
    }
}

void *send_list(Outlet *outlet, int32_t argc, Atom *argv) {
    Symbol *const list = "list"_sym;
    return send(outlet, list, argc, argv, [=](const Connection *c, Object *receiver) {
        const Method cached = cached_method(outlet, c, list);
        if (cached != no_method) {
            if (argc > 0) {
                call_list(cached, receiver, list, argc, argv);
            }
            return;
        }
        deliver_loud(receiver, list, [=](Object *x) {
            list_deliver(x, argc, argv);
            return true;
        });
    });
}

}  // namespace

}  // namespace kiv

using namespace kiv;

void *outlet_bang(Outlet *outlet) noexcept {
    Symbol *const bang = "bang"_sym;
    return send(outlet, bang, 0, nullptr, [=](const Connection *c, Object *receiver) {
        const Method cached = cached_method(outlet, c, bang);
        if (cached != no_method) {
            call_bang(cached, receiver);
        } else {
            deliver_loud(receiver, bang, deliver_bang);
        }
    });
}

void *outlet_int(Outlet *outlet, int64_t value) noexcept {
    Symbol *const kind = "int"_sym;
    Atom atom;
    atom.type = TypeLong;
    atom.value.i = value;
    return send(outlet, kind, 1, &atom, [=](const Connection *c, Object *receiver) {
        const Method cached = cached_method(outlet, c, kind);
        if (cached != no_method) {
            call_int(cached, receiver, value);
        } else {
            deliver_loud(receiver, kind, [=](Object *x) { return deliver_int(x, value); });
        }
    });
}

void *outlet_float(Outlet *outlet, double value) noexcept {
    Symbol *const kind = "float"_sym;
    Atom atom;
    atom.type = TypeFloat;
    atom.value.f = value;
    return send(outlet, kind, 1, &atom, [=](const Connection *c, Object *receiver) {
        const Method cached = cached_method(outlet, c, kind);
        if (cached != no_method) {
            call_float(cached, receiver, value);
        } else {
            deliver_loud(receiver, kind, [=](Object *x) { return deliver_float(x, value); });
        }
    });
}

void *outlet_list(Outlet *outlet, Symbol *, int32_t argc, Atom *argv) noexcept {
    return send_list(outlet, argv ? argc : 0, argv);
}

void *outlet_anything(Outlet *outlet, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    const int32_t count = argv && argc > 0 ? argc : 0;
    if (selector == "list"_sym) {
        return send_list(outlet, count, argv);
    }
    return send(outlet, selector, count, argv, [=](const Connection *, Object *receiver) {
        deliver_loud(receiver, selector,
                     [=](Object *x) { return deliver_anything(x, selector, count, argv); });
    });
}

void *outlet_atoms(Outlet *outlet, int32_t argc, Atom *argv) noexcept {
    if (!argv) {
        return nullptr;
    }
    const bool alone = argc == 1;
    switch (argv[0].type) {
        case TypeLong:
            return alone ? outlet_int(outlet, argv[0].value.i)
                         : outlet_list(outlet, nullptr, argc, argv);
        case TypeFloat:
            return alone ? outlet_float(outlet, argv[0].value.f)
                         : outlet_list(outlet, nullptr, argc, argv);
        case TypeSymbol:
            return outlet_anything(outlet, argv[0].value.sym, argc - 1, argv + 1);
        default:
            return nullptr;
    }
}

void outlet_msg_imp(Outlet *outlet, Symbol *class_name, Symbol *selector, void *p1, void *p2,
                    void *p3, void *p4, void *p5, void *p6, void *p7, void *p8) noexcept {
    SendState *state = send_state();
    if (!outlet || !state) {
        return;
    }
    Section section(*state);
    for (Connection *c = outlet->connections.load(std::memory_order_seq_cst); c;
         c = c->next.load(std::memory_order_seq_cst)) {
        Object *receiver = c->receiver.load(std::memory_order_seq_cst);
        if (!is_inlet(receiver)) {
            continue;
        }
        Object *owner = inlet_owner(reinterpret_cast<Inlet *>(receiver));
        if (object_valid(owner) && class_of(owner)->name == class_name) {
            object_method_imp(owner, selector, p1, p2, p3, p4, p5, p6, p7, p8);
        }
    }
}

// Called without the macro of its name, it takes exactly eight further words.
void(outlet_msg)(Outlet *outlet, Symbol *class_name, Symbol *selector, ...) noexcept {
    void *words[8];
    va_list list;
    va_start(list, selector);
    for (void *&word : words) {
        word = va_arg(list, void *);
    }
    va_end(list);
    outlet_msg_imp(outlet, class_name, selector, words[0], words[1], words[2], words[3], words[4],
                   words[5], words[6], words[7]);
}
