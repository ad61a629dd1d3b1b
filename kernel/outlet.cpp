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
          depth_(state.depth) {
        state_.depth = depth_ + 1;
        if (proxy_) {
            proxy_context.proxy = nullptr;
        }
    }
    ~Send() {
        if (proxy_) {
            proxy_context.proxy = proxy_;
        }
        state_.depth = depth_;
        if (depth_ == 0 && state_.overflow) {
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
    bool cut_short() const noexcept {
        return overflow_count.load(std::memory_order_relaxed) != 0 &&
               overflow_refuses(state_, outlet_->owner);
    }

  private:
    Section section_;
    SendState &state_;
    Outlet *outlet_;
    const Proxy *proxy_;  // current when the send began
    int32_t depth_;       // of the sends around it
};

bool refused(const Outlet *outlet, const SendState *state) {
    return !state || (overflow_count.load(std::memory_order_relaxed) != 0 &&
                      overflow_refuses(*state, outlet->owner));
}

// --- What is sent --------------------------------------------------------------------------------
//
// Each kind of message says what selector it has, how a cached method is called with it, how it
// reaches any other receiver (false when that has no method for it), and what atoms it makes.
// `cached` tells whether methods are cached for it, in outlets of its type.

struct Atoms {
    int32_t count;
    Atom *atoms;
};

struct BangMessage {
    static constexpr bool cached = true;
    Symbol *selector;
    void call(Method method, Object *x) const noexcept { call_bang(method, x); }
    bool deliver(Object *x) const noexcept { return deliver_bang(x); }
    Atoms atoms(Atom *) const noexcept { return {0, nullptr}; }
};

struct IntMessage {
    static constexpr bool cached = true;
    Symbol *selector;
    int64_t value;
    void call(Method method, Object *x) const noexcept { call_int(method, x, value); }
    bool deliver(Object *x) const noexcept { return deliver_int(x, value); }
    Atoms atoms(Atom *one) const noexcept {
        one->type = TypeLong;
        one->value.i = value;
        return {1, one};
    }
};

struct FloatMessage {
    static constexpr bool cached = true;
    Symbol *selector;
    double value;
    void call(Method method, Object *x) const noexcept { call_float(method, x, value); }
    bool deliver(Object *x) const noexcept { return deliver_float(x, value); }
    Atoms atoms(Atom *one) const noexcept {
        one->type = TypeFloat;
        one->value.f = value;
        return {1, one};
    }
};

struct ListMessage {
    static constexpr bool cached = true;
    Symbol *selector;
    int32_t argc;
    Atom *argv;
    void call(Method method, Object *x) const noexcept {
        if (argc > 0) {
            call_list(method, x, selector, argc, argv);
        }
    }
    bool deliver(Object *x) const noexcept {
        list_deliver(x, argc, argv);
        return true;
    }
    Atoms atoms(Atom *) const noexcept { return {argc, argv}; }
};

struct AnythingMessage {
    static constexpr bool cached = false;
    Symbol *selector;
    int32_t argc;
    Atom *argv;
    void call(Method, Object *) const noexcept {}
    bool deliver(Object *x) const noexcept { return deliver_anything(x, selector, argc, argv); }
    Atoms atoms(Atom *) const noexcept { return {argc, argv}; }
};

// --- Serving the connections ---------------------------------------------------------------------

template <class Message>
bool is_typed(const Outlet *outlet, const Message &message) {
    return Message::cached && outlet->type == message.selector;
}

template <class Message>
void deliver_loud(Object *receiver, const Message &message) {
    if (!object_valid(receiver)) {
        error("bad receiver");
    } else if (!message.selector) {
        object_error(receiver, "bad message");
    } else if (!message.deliver(receiver)) {
        report_not_understood(receiver, message.selector);
    }
}

// A connection without a direct method: one with a monitor, or of an outlet of another type.
template <class Message>
[[gnu::noinline]] void serve(const Connection *c, Object *receiver, bool typed,
                             const Message &message) {
    if (c->monitor.load(std::memory_order_relaxed) & 1) {
        Atom one;
        const Atoms made = message.atoms(&one);
        monitors_tell(c, receiver, message.selector, made.count, made.atoms);
    }
    if (typed && c->method != no_method) {
        message.call(c->method, receiver);
    } else {
        deliver_loud(receiver, message);
    }
}

// The same send, with its entry on the message stack and the debugger asked before each delivery.
template <class Message>
[[gnu::noinline]] void *send_debugged(SendState &state, Outlet *outlet, const Send &now,
                                      const Message &message) {
    Atom one;
    const Atoms made = message.atoms(&one);
    MessageEntry entry{outlet->owner, message.selector, made.count, made.atoms,
                       false,         state.messages};
    state.messages = &entry;
    bool ended = false;
    for (Connection *c = outlet->connections.load(std::memory_order_seq_cst); c && !ended;
         c = c->next.load(std::memory_order_seq_cst)) {
        if (Object *const receiver = c->receiver.load(std::memory_order_seq_cst)) {
            ended = message_pauses(&entry, receiver);
            if (!ended) {
                serve(c, receiver, is_typed(outlet, message), message);
                ended = now.cut_short();
            }
        }
    }
    state.messages = entry.outer;
    return ended ? nullptr : done;
}

template <class Message>
inline void *send(Outlet *outlet, const Message &message) {
    if (!outlet || (outlet->flags & OutletSilenced)) {
        return nullptr;
    }
    SendState *const state = send_state();
    if (refused(outlet, state)) {
        return nullptr;
    }
    Send now(*state, outlet);
    if (!now.stack_left(__builtin_frame_address(0))) {
        return nullptr;
    }
    if (message_debugging.load(std::memory_order_relaxed) && message_debugged_here()) [[unlikely]] {
        return send_debugged(*state, outlet, now, message);
    }
    const bool typed = is_typed(outlet, message);
    for (Connection *c = outlet->connections.load(std::memory_order_seq_cst); c;
         c = c->next.load(std::memory_order_seq_cst)) {
        // In this order: a connection loses its direct method before its receiver.
        Object *const receiver = c->receiver.load(std::memory_order_seq_cst);
        const Method direct = typed ? c->direct.load(std::memory_order_seq_cst) : nullptr;
        if (direct) {
            message.call(direct, receiver);
        } else if (receiver) {
            serve(c, receiver, typed, message);
        }
        if (now.cut_short()) {
            return nullptr;
        }
    }
    return done;
}

}  // namespace

}  // namespace kiv

using namespace kiv;

void *outlet_bang(Outlet *outlet) noexcept {
    return send(outlet, BangMessage{"bang"_sym});
}

void *outlet_int(Outlet *outlet, int64_t value) noexcept {
    return send(outlet, IntMessage{"int"_sym, value});
}

void *outlet_float(Outlet *outlet, double value) noexcept {
    return send(outlet, FloatMessage{"float"_sym, value});
}

void *outlet_list(Outlet *outlet, Symbol *, int32_t argc, Atom *argv) noexcept {
    return send(outlet, ListMessage{"list"_sym, argv ? argc : 0, argv});
}

void *outlet_anything(Outlet *outlet, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    const int32_t count = argv && argc > 0 ? argc : 0;
    return selector == "list"_sym ? send(outlet, ListMessage{selector, count, argv})
                                  : send(outlet, AnythingMessage{selector, count, argv});
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
