// What the files of inlets, outlets and proxies share: their records, the send state of a thread,
// and the deliveries. No other folder includes this.
#pragma once

#include <kiv/console.h>
#include <kiv/inlets.h>

#include <atomic>

#include "kernel/class_flags.h"
#include "kernel/dispatch_call.h"
#include "kernel/internal.h"
#include "platform/platform.h"

// --- Records -------------------------------------------------------------------------------------
// Fields in the order of the record; what stands below "ours" is private.

// One for each cord. `next` and `receiver` are read by sends without a lock; everything else
// changes under the lock of the connections (outlet_connect.cpp).
struct Connection {
    MethodRecord *methods;
    uintptr_t magic;
    std::atomic<Connection *> next;
    Connection *previous;
    std::atomic<Object *> receiver;  // null once broken, and in an inlet's incoming list
    Method method;                   // of a typed outlet: called directly, unless it is nullfn
    std::atomic<int32_t> monitor;
    // ours
    std::atomic<Method> direct;  // `method`, while nothing else has to be looked at for a delivery
    Outlet *sender;
    Connection *peer_next;  // the connections whose receiver falls into the same bucket
    Connection *peer_previous;
};

struct Outlet {
    Object ob;
    std::atomic<Connection *> connections;
    std::atomic<Object *> owner;  // null once freed
    Symbol *type;
    void *link;
    Outlet *next;
    uint8_t state[10];
    uint32_t words[2];
    uint64_t wide;
    uint8_t flags;
};

struct Inlet {
    Object ob;
    Object *receiver;
    Object *owner;  // null once freed
    Symbol *incoming;
    Method method;
    Inlet *next;
    std::atomic<Connection *> connections;
    uint16_t flags;
    void *obex;  // of the owner, taken over from the placeholder
    // ours
    Symbol *outgoing;
};

struct Proxy {
    Object ob;
    int32_t *stash;
    Object *owner;  // null once freed
    uint32_t number;
    Method int_method;
    Method bang_method;
    Method float_method;
    Method list_method;
    uintptr_t zero;
    Inlet *inlet;
};

namespace kiv {

// What a cached method is when there is none.
inline const Method no_method = reinterpret_cast<Method>(nullfn);

enum OutletFlag : uint8_t { OutletPassThrough = 1, OutletSilenced = 16 };
enum InletFlag : uint16_t { InletRecords = 1 };

// --- The send state of a thread (outlet_memory.cpp) ----------------------------------------------

struct SendState {
    int32_t depth;            // sends under way
    const char *stack_limit;  // no send starts at or below it
    Object *overflow_object;
    int32_t overflow;  // non-zero while the thread unwinds from an overflow
    // ours
    const MessageEntry *messages;  // the sends under way, while they are debugged
    // Grows at the beginning and at the end of every section, so it is odd inside one.
    std::atomic<uint64_t> sections;
    uint64_t awaited;  // guarded by the lock of retired memory, as the links are
    SendState *next;
    SendState *previous;
};

extern constinit thread_local SendState *this_send_state;
SendState *send_state_make() noexcept;  // null when memory is exhausted
void send_state_free() noexcept;        // of the calling thread; the end of a thread calls it

inline SendState *send_state() noexcept {
    return this_send_state ? this_send_state : send_state_make();
}

// Whether blocks that were retired wait for the end of a section.
extern constinit std::atomic<bool> reclaim_due;
void memory_reclaim() noexcept;

// Whether whoever frees records orders all threads' memory, so that a section needs no barrier.
extern constinit bool sections_are_light;

// While a thread is in a section, records that were reachable during it keep their memory.
class Section {
  public:
    explicit Section(SendState &state) noexcept
        : state_(state), count_(state.sections.load(std::memory_order_relaxed)) {
        if (is_outermost()) {
            state.sections.store(count_ + 1, std::memory_order_relaxed);
            if (sections_are_light) {
                std::atomic_signal_fence(std::memory_order_seq_cst);
            } else {
                state.sections.exchange(count_ + 1, std::memory_order_seq_cst);
            }
        }
    }
    ~Section() {
        if (is_outermost()) {
            state_.sections.store(count_ + 2, std::memory_order_release);
            if (reclaim_due.load(std::memory_order_relaxed)) {
                memory_reclaim();
            }
        }
    }
    Section(const Section &) = delete;
    Section &operator=(const Section &) = delete;

  private:
    bool is_outermost() const noexcept { return (count_ & 1) == 0; }

    SendState &state_;
    uint64_t count_;  // when it began
};

// --- Through which proxy the message that runs came in (proxy.cpp) -------------------------------

struct ProxyContext {
    const Proxy *proxy;
    uint32_t inlet;
};
extern constinit thread_local ProxyContext proxy_context;

// --- Classes -------------------------------------------------------------------------------------

Class *outlet_class() noexcept;
Class *inlet_class() noexcept;
Class *proxy_class() noexcept;
Class *connection_class() noexcept;
// A class of the kernel whose instances take no attribute messages and give their memory to
// memory_retire.
Class *message_class_new(const char *name, Method free_function, size_t size) noexcept;

inline bool is_outlet(const void *x) noexcept {
    return object_valid(x) && class_of(x) == outlet_class();
}
inline bool is_inlet(const void *x) noexcept {
    return object_valid(x) && class_of(x) == inlet_class();
}
// True when `x` can own inlets and outlets.
inline bool is_message_owner(const void *x) noexcept {
    return object_valid(x) && class_of(x)->lightweight == 0;
}
const char *class_name_of(const void *x) noexcept;

// Asks the patcher of an inlet's or outlet's owner to free the lines connected to it.
void free_lines(Object *owner, void *end) noexcept;

// --- Deliveries (outlet_deliver.cpp) -------------------------------------------------------------

// Calls a method as a function of exactly these arguments; what it throws ends here.
template <class... Arguments>
KIV_CALLS_ANY_TYPE inline void *call_method(const char *selector, Method method, Object *x,
                                            Arguments... arguments) noexcept {
    try {
        return reinterpret_cast<void *(*)(void *, Arguments...)>(method)(x, arguments...);
    } catch (...) {
        report_exception(gensym(selector));
        return nullptr;
    }
}
inline void call_bang(Method method, Object *x) noexcept {
    call_method("bang", method, x);
}
inline void call_int(Method method, Object *x, int64_t value) noexcept {
    call_method("int", method, x, value);
}
inline void call_float(Method method, Object *x, double value) noexcept {
    call_method("float", method, x, value);
}
inline void call_list(Method method, Object *x, Symbol *selector, int32_t argc,
                      Atom *argv) noexcept {
    call_method("list", method, x, selector, argc, argv);
}

// The method of `x` for `selector` when it can be called as a message of `kind` is ("bang" with
// nothing, "int" with a 64-bit integer, "float" with a double, "list" as a type-8 method; a method
// of any other kind with nothing known of it); else no_method.
Method direct_method(Object *x, Symbol *selector, const Symbol *kind) noexcept;
// Call the method of `x`, a valid object, for the message: its own, for a number that of the other
// number type with the value converted, else "anything". False when there is none; no report.
bool deliver_bang(Object *x) noexcept;
bool deliver_int(Object *x, int64_t value) noexcept;
bool deliver_float(Object *x, double value) noexcept;
bool deliver_anything(Object *x, Symbol *selector, int32_t argc, Atom *argv) noexcept;
void report_not_understood(Object *x, const Symbol *selector) noexcept;

// --- Connections (outlet_connect.cpp) ------------------------------------------------------------

// Whether a typed message can reach `x` (the rule for connecting a typed outlet).
bool accepts_type(Object *x, Symbol *type) noexcept;
// Breaks every connection of an outlet, and every connection to a receiver that is being freed.
void break_connections_of(Outlet *outlet) noexcept;
void break_connections_to(Object *receiver) noexcept;
// Sets or clears monitor bits of a connection.
void connection_monitor(Connection *connection, int32_t flags, bool on) noexcept;
// Forgets the outlets that a recording inlet lists.
void free_incoming(Inlet *inlet) noexcept;

// --- Monitors (outlet_monitor.cpp) ---------------------------------------------------------------

void monitors_tell(const Connection *connection, Object *receiver, Symbol *selector, int32_t argc,
                   Atom *argv) noexcept;

// --- Message debugging (message_stack.cpp) -------------------------------------------------------

extern constinit std::atomic<bool> message_debugging;
bool message_debugged_here() noexcept;  // asked only while message_debugging is set
// Whether the debugger pauses the send of an entry before this delivery.
bool message_pauses(MessageEntry *entry, Object *receiver) noexcept;

// --- Inlets' messages (inlet.cpp) ----------------------------------------------------------------

void inlet_bang(Inlet *inlet) noexcept;
void inlet_int(Inlet *inlet, int64_t value) noexcept;
void inlet_float(Inlet *inlet, double value) noexcept;
void inlet_list(Inlet *inlet, Symbol *selector, int32_t argc, Atom *argv) noexcept;
void inlet_anything(Inlet *inlet, Symbol *selector, int32_t argc, Atom *argv) noexcept;

// --- The overflow state (overflow.cpp) -----------------------------------------------------------

extern constinit std::atomic<int32_t> overflow_count;
// Whether a send by an object of `owner` is refused; only asked while overflow_count is not 0.
bool overflow_refuses(const SendState &state, Object *owner) noexcept;
void overflow_begin(SendState &state, Object *owner) noexcept;
void overflow_end(SendState &state) noexcept;    // the thread's outermost send is over
void overflow_forget(const Object *x) noexcept;  // it is being freed

// Truncates toward zero; beyond the range the nearest end of it, and 0 for "not a number".
constexpr int64_t long_from_double(double value) noexcept {
    if (value != value) {
        return 0;
    }
    if (value >= 9223372036854775808.0) {
        return INT64_MAX;
    }
    return value < -9223372036854775808.0 ? INT64_MIN : static_cast<int64_t>(value);
}

}  // namespace kiv
