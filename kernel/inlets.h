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

namespace kiv {
// What an outlet's type stands for; methods are cached for the kinds that a send tells apart.
enum class MessageKind : uint8_t { other, bang, integer, real, list };
}  // namespace kiv

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
    // ours
    kiv::MessageKind kind;  // what `type` stands for
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

enum Unwinding : int32_t { NotUnwinding, UnwindingNow, UnwindingEnds };

struct SendState {
    const char *stack_limit;  // no send starts at or below it
    Object *overflow_object;
    int32_t overflow;  // non-zero while the thread unwinds from an overflow: an Unwinding
    // ours
    std::atomic<uint64_t> position;  // where the thread is (namespace position)
    const MessageEntry *messages;    // the sends under way, while they are debugged
    uint64_t awaited;                // guarded by the lock of retired memory, as the links are
    SendState *next;
    SendState *previous;
};

// The sends under way on a thread, its other sections (stacks do not hold a million of either), and
// how often it left its outermost one.
namespace position {
inline constexpr uint64_t send = 1;
inline constexpr uint64_t visit = uint64_t{1} << 20;
inline constexpr uint64_t generation = uint64_t{1} << 40;
constexpr uint64_t sends(uint64_t at) {
    return at & (visit - 1);
}
constexpr bool is_inside(uint64_t at) {
    return (at & (generation - 1)) != 0;
}
}  // namespace position

extern constinit thread_local SendState *this_send_state;
void send_states_start() noexcept;
SendState *send_state_make() noexcept;  // null when memory is exhausted; the thread's end frees it

inline SendState *send_state() noexcept {
    return this_send_state ? this_send_state : send_state_make();
}

// All that a send has to look at beyond its own outlet, in one word, which is 0 nearly always.
namespace watch {
inline constexpr uint64_t overflow = 1;  // the number of overflow conditions in force: 32 bits
inline constexpr uint64_t overflow_mask = 0xffffffff;
inline constexpr uint64_t unwinding = uint64_t{1} << 32;  // the number of threads: 16 bits
inline constexpr uint64_t debugging = uint64_t{1} << 48;  // messages are debugged
inline constexpr uint64_t reclaim = uint64_t{1} << 49;    // retired blocks wait for a section's end
inline constexpr uint64_t barriers = uint64_t{1} << 50;   // sections have to order memory
}  // namespace watch
// Alone in its cache line.
struct alignas(64) Watched : std::atomic<uint64_t> {
    using atomic::atomic;
};
extern constinit Watched watched;

inline uint64_t watching(uint64_t what) noexcept {
    return watched.load(std::memory_order_relaxed) & what;
}
// Writes only what changes: every send of every thread reads the word.
inline void watch_set(uint64_t what, bool on) noexcept {
    if (watching(what) == (on ? what : 0)) {
        return;
    }
    if (on) {
        watched.fetch_or(what, std::memory_order_relaxed);
    } else {
        watched.fetch_and(~what, std::memory_order_relaxed);
    }
}

void memory_reclaim() noexcept;
void section_opened(SendState &state) noexcept;
void section_closed(SendState &state) noexcept;

// While a thread is in a section, records that were reachable during it keep their memory.
class Section {
  public:
    // `watching_now` is what is watched, if the caller knows.
    explicit Section(SendState &state, uint64_t unit = position::visit,
                     uint64_t watching_now = watched.load(std::memory_order_relaxed)) noexcept
        : state_(state), before_(state.position.load(std::memory_order_relaxed)) {
        state.position.store(before_ + unit, std::memory_order_relaxed);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if (watching_now != 0) [[unlikely]] {
            section_opened(state);
        }
    }
    ~Section() {
        const uint64_t after =
            position::is_inside(before_) ? before_ : before_ + position::generation;
        state_.position.store(after, std::memory_order_release);
        if (watched.load(std::memory_order_relaxed) != 0) [[unlikely]] {
            section_closed(state_);
        }
    }
    Section(const Section &) = delete;
    Section &operator=(const Section &) = delete;

  private:
    SendState &state_;
    uint64_t before_;
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

bool message_debugged_here() noexcept;  // asked only while watch::debugging is set
// Whether the debugger pauses the send of an entry before this delivery.
bool message_pauses(MessageEntry *entry, Object *receiver) noexcept;

// --- Inlets' messages (inlet.cpp) ----------------------------------------------------------------

void inlet_bang(Inlet *inlet) noexcept;
void inlet_int(Inlet *inlet, int64_t value) noexcept;
void inlet_float(Inlet *inlet, double value) noexcept;
void inlet_list(Inlet *inlet, Symbol *selector, int32_t argc, Atom *argv) noexcept;
void inlet_anything(Inlet *inlet, Symbol *selector, int32_t argc, Atom *argv) noexcept;

// --- The overflow state (overflow.cpp) -----------------------------------------------------------

// Whether a send by an object of `owner` is refused; only asked while watch::overflow is not 0.
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
