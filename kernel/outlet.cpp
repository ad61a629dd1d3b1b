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
#include <utility>

#include "kernel/inlets.h"

namespace kiv {

namespace {

void *const done = reinterpret_cast<void *>(1);

// Takes the thread's current proxy away during a send.
class WithoutProxy {
  public:
    WithoutProxy() noexcept : proxy_(std::exchange(proxy_context.proxy, nullptr)) {}
    ~WithoutProxy() { proxy_context.proxy = proxy_; }
    WithoutProxy(const WithoutProxy &) = delete;
    WithoutProxy &operator=(const WithoutProxy &) = delete;

  private:
    const Proxy *proxy_;
};

bool refused(const SendState &state, const Outlet *outlet) {
    return watching(watch::overflow_mask) && overflow_refuses(state, outlet->owner);
}

// Whether a send has to stop before its next connection.
inline bool cut_short(const SendState &state, const Outlet *outlet) {
    return watched.load(std::memory_order_relaxed) != 0 && refused(state, outlet);
}

// --- What is sent --------------------------------------------------------------------------------
//
// Each kind of message says what selector it has, how a cached method is called with it, how it
// reaches any other receiver (false when that has no method for it), and what atoms it makes.

struct Atoms {
    int32_t count;
    Atom *atoms;
};

struct BangMessage {
    static constexpr MessageKind kind = MessageKind::bang;
    Symbol *selector() const noexcept { return "bang"_sym; }
    void call(Method method, Object *x) const noexcept { call_bang(method, x); }
    bool deliver(Object *x) const noexcept { return deliver_bang(x); }
    Atoms atoms(Atom *) const noexcept { return {0, nullptr}; }
};

struct IntMessage {
    static constexpr MessageKind kind = MessageKind::integer;
    int64_t value;
    Symbol *selector() const noexcept { return "int"_sym; }
    void call(Method method, Object *x) const noexcept { call_int(method, x, value); }
    bool deliver(Object *x) const noexcept { return deliver_int(x, value); }
    Atoms atoms(Atom *one) const noexcept {
        one->type = TypeLong;
        one->value.i = value;
        return {1, one};
    }
};

struct FloatMessage {
    static constexpr MessageKind kind = MessageKind::real;
    double value;
    Symbol *selector() const noexcept { return "float"_sym; }
    void call(Method method, Object *x) const noexcept { call_float(method, x, value); }
    bool deliver(Object *x) const noexcept { return deliver_float(x, value); }
    Atoms atoms(Atom *one) const noexcept {
        one->type = TypeFloat;
        one->value.f = value;
        return {1, one};
    }
};

struct ListMessage {
    static constexpr MessageKind kind = MessageKind::list;
    int32_t argc;
    Atom *argv;
    Symbol *selector() const noexcept { return "list"_sym; }
    void call(Method method, Object *x) const noexcept {
        if (argc > 0) {
            call_list(method, x, selector(), argc, argv);
        }
    }
    bool deliver(Object *x) const noexcept {
        list_deliver(x, argc, argv);
        return true;
    }
    Atoms atoms(Atom *) const noexcept { return {argc, argv}; }
};

struct AnythingMessage {
    static constexpr MessageKind kind = MessageKind::other;
    Symbol *name;
    int32_t argc;
    Atom *argv;
    Symbol *selector() const noexcept { return name; }
    void call(Method, Object *) const noexcept {}
    bool deliver(Object *x) const noexcept { return deliver_anything(x, name, argc, argv); }
    Atoms atoms(Atom *) const noexcept { return {argc, argv}; }
};

// --- Serving the connections ---------------------------------------------------------------------

// Whether the outlet's connections keep methods for this kind of message.
template <class Message>
bool is_typed(const Outlet *outlet) {
    return Message::kind != MessageKind::other && outlet->kind == Message::kind;
}

template <class Message>
void deliver_loud(Object *receiver, const Message &message) {
    Symbol *const selector = message.selector();
    if (!object_valid(receiver)) {
        error("bad receiver");
    } else if (!selector) {
        object_error(receiver, "bad message");
    } else if (!message.deliver(receiver)) {
        report_not_understood(receiver, selector);
    }
}

// A connection without a direct method: one with a monitor, or of an outlet of another type.
template <class Message>
[[gnu::noinline]] void serve(const Connection *c, Object *receiver, bool typed, Message message) {
    if (c->monitor.load(std::memory_order_relaxed) & 1) {
        Atom one;
        const Atoms made = message.atoms(&one);
        monitors_tell(c, receiver, message.selector(), made.count, made.atoms);
    }
    if (typed && c->method != no_method) {
        message.call(c->method, receiver);
    } else {
        deliver_loud(receiver, message);
    }
}

// True when every connection was served.
template <bool typed, class Message>
inline bool serve_all(const SendState &state, const Outlet *outlet, const Message &message) {
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
        if (cut_short(state, outlet)) [[unlikely]] {
            return false;
        }
    }
    return true;
}
template <class Message>
inline bool serve_all(const SendState &state, const Outlet *outlet, const Message &message) {
    return is_typed<Message>(outlet) ? serve_all<true>(state, outlet, message)
                                     : serve_all<false>(state, outlet, message);
}

// The same, with the send's entry on the message stack and the debugger asked before each delivery.
template <class Message>
bool serve_debugged(SendState &state, const Outlet *outlet, const Message &message) {
    Atom one;
    const Atoms made = message.atoms(&one);
    MessageEntry entry{outlet->owner, message.selector(), made.count, made.atoms,
                       false,         state.messages};
    state.messages = &entry;
    bool ended = false;
    for (Connection *c = outlet->connections.load(std::memory_order_seq_cst); c && !ended;
         c = c->next.load(std::memory_order_seq_cst)) {
        if (Object *const receiver = c->receiver.load(std::memory_order_seq_cst)) {
            ended = message_pauses(&entry, receiver);
            if (!ended) {
                serve(c, receiver, is_typed<Message>(outlet), message);
                ended = cut_short(state, outlet);
            }
        }
    }
    state.messages = entry.outer;
    return !ended;
}

bool stack_left(const SendState &state, const void *frame) {
    return static_cast<const char *>(frame) > state.stack_limit;
}

// A send with something besides the outlet to look at.
template <class Message>
[[gnu::noinline]] void *send_watched(Outlet *outlet, Message message) {
    SendState *const state = send_state();
    if (!state || (outlet->flags & OutletSilenced) || refused(*state, outlet)) {
        return nullptr;
    }
    const Section section(*state, position::send);
    const WithoutProxy without_proxy;
    if (!stack_left(*state, __builtin_frame_address(0))) {
        overflow_begin(*state, outlet->owner);
        return nullptr;
    }
    const bool debugged = watching(watch::debugging) && message_debugged_here();
    const bool whole =
        debugged ? serve_debugged(*state, outlet, message) : serve_all(*state, outlet, message);
    return whole ? done : nullptr;
}

// The validity test without its probe: small blocks, as an outlet's is, stay readable after they
// were freed.
inline bool is_live(const Outlet *outlet) {
    return outlet && object_magic(outlet) == KIV_OBJECT_MAGIC;
}

template <class Message>
[[gnu::always_inline]] inline void *send(Outlet *outlet, const Message &message) {
    if (!is_live(outlet)) {
        return nullptr;
    }
    SendState *const state = this_send_state;
    if (!state || watched.load(std::memory_order_relaxed) != 0 || proxy_context.proxy ||
        !stack_left(*state, __builtin_frame_address(0))) [[unlikely]] {
        return send_watched(outlet, message);
    }
    if (outlet->flags & OutletSilenced) {
        return nullptr;
    }
    const Section section(*state, position::send, 0);
    return serve_all(*state, outlet, message) ? done : nullptr;
}

}  // namespace

}  // namespace kiv

using namespace kiv;

// Aligned to cache lines: a send in which one more line takes part is slower by a fifth.

[[gnu::aligned(64)]] void *outlet_bang(Outlet *outlet) noexcept {
    return send(outlet, BangMessage{});
}

[[gnu::aligned(64)]] void *outlet_int(Outlet *outlet, int64_t value) noexcept {
    return send(outlet, IntMessage{value});
}

[[gnu::aligned(64)]] void *outlet_float(Outlet *outlet, double value) noexcept {
    return send(outlet, FloatMessage{value});
}

[[gnu::aligned(64)]] void *outlet_list(Outlet *outlet, Symbol *, int32_t argc,
                                       Atom *argv) noexcept {
    return send(outlet, ListMessage{argv ? argc : 0, argv});
}

void *outlet_anything(Outlet *outlet, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    const int32_t count = argv && argc > 0 ? argc : 0;
    return selector == "list"_sym ? send(outlet, ListMessage{count, argv})
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
    if (!state || !is_outlet(outlet)) {
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
