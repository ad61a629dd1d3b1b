// Making, checking and breaking connections.
//
// 1. A connection is in its sender's list, newest first, until it is broken: then its receiver is
//    null, its own `next` still leads on, and its memory is retired (outlet_memory.cpp), so that a
//    send that stands on it finds its way.
// 2. A connection with a receiver is also in the bucket of that receiver, so that freeing the
//    receiver breaks it. Incoming records of inlets have no receiver and are in no bucket.
// 3. A pass-through outlet has no traffic of its own. What is connected to it is connected to the
//    outlets behind its link as well, and its own list only tells the patcher so. Likewise an inlet
//    whose receiver is a pass-through outlet: an outlet connected to it is connected to everything
//    that the pass-through outlet lists.
//
// Thread safety: outlet_add and outlet_rm hold the run lock of the owner's scheduler, so cords
// never change during a pass of it. Every change of a list is made under the lock of the
// connections, the innermost, too, since two schedulers may share a receiver. Nothing is called
// with that one held.
#include <bit>

#include "containers/internal.h"
#include "kernel/inlets.h"
#include "sched/internal.h"

namespace kiv {

namespace {

constexpr size_t bucket_count = 1024;

struct State {
    platform::CriticalSection lock;
    std::atomic<Connection *> buckets[bucket_count] = {};
};
State &state() {
    static State instance;
    return instance;
}

class Lock {
  public:
    Lock() noexcept { state().lock.enter(); }
    ~Lock() { state().lock.exit(); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;
};

std::atomic<Connection *> &bucket_of(const void *receiver) {
    const uint64_t mixed = std::bit_cast<uint64_t>(receiver) * 0x9e3779b97f4a7c15u;
    return state().buckets[mixed >> 54];
}

// The lock that keeps a scheduler's passes away while cords of its objects change.
CriticalRef connection_lock(const Outlet *outlet) {
    return scheduler_run_lock(scheduler_fromobject(outlet->owner));
}

Connection *first_of(const std::atomic<Connection *> &list) {
    return list.load(std::memory_order_relaxed);
}
Connection *after(const Connection *connection) {
    return connection->next.load(std::memory_order_relaxed);
}

Connection *find_receiver(const Outlet *outlet, const void *receiver) {
    Connection *connection = first_of(outlet->connections);
    while (connection && connection->receiver.load(std::memory_order_relaxed) != receiver) {
        connection = after(connection);
    }
    return connection;
}

Connection *find_sender(const Inlet *inlet, const Outlet *sender) {
    Connection *connection = first_of(inlet->connections);
    while (connection && connection->sender != sender) {
        connection = after(connection);
    }
    return connection;
}

// --- Links. Under the lock of the connections. ---------------------------------------------------

void link_first(std::atomic<Connection *> &list, Connection *connection) {
    Connection *head = first_of(list);
    connection->next.store(head, std::memory_order_relaxed);
    if (head) {
        head->previous = connection;
    }
    list.store(connection, std::memory_order_seq_cst);
}

void unlink(std::atomic<Connection *> &list, Connection *connection) {
    Connection *next = after(connection);
    (connection->previous ? connection->previous->next : list)
        .store(next, std::memory_order_seq_cst);
    if (next) {
        next->previous = connection->previous;
    }
}

void enter_bucket(Connection *connection, const void *receiver) {
    std::atomic<Connection *> &head = bucket_of(receiver);
    connection->peer_next = first_of(head);
    if (connection->peer_next) {
        connection->peer_next->peer_previous = connection;
    }
    head.store(connection, std::memory_order_release);
    mark_class(receiver, ClassReceives);
}

void leave_bucket(Connection *connection, const void *receiver) {
    if (connection->peer_previous) {
        connection->peer_previous->peer_next = connection->peer_next;
    } else {
        bucket_of(receiver).store(connection->peer_next, std::memory_order_release);
    }
    if (connection->peer_next) {
        connection->peer_next->peer_previous = connection->peer_previous;
    }
}

// Whether a message of the sender's type can go straight to the cached method.
void update_direct(Connection *connection) {
    const bool usable = connection->method && connection->method != no_method &&
                        connection->receiver.load(std::memory_order_relaxed) &&
                        !(connection->monitor.load(std::memory_order_relaxed) & 1);
    connection->direct.store(usable ? connection->method : nullptr, std::memory_order_seq_cst);
}

// --- One record ----------------------------------------------------------------------------------

bool make_record(Outlet *outlet, Object *receiver) {
    auto *made = static_cast<Connection *>(object_alloc(connection_class()));
    if (!made) {
        return false;
    }
    made->sender = outlet;
    if (outlet->type) {
        // A lightweight receiver does not break its connections when it is freed, so each message
        // to it is checked.
        made->method = class_of(receiver)->lightweight
                           ? no_method
                           : direct_method(receiver, outlet->type, outlet->type);
    }
    made->receiver.store(receiver, std::memory_order_relaxed);
    Lock lock;
    update_direct(made);
    enter_bucket(made, receiver);
    link_first(outlet->connections, made);
    return true;
}

// Takes a connection out of every list. False when another thread was faster.
bool break_record(Connection *connection) {
    Lock lock;
    Object *receiver = connection->receiver.load(std::memory_order_relaxed);
    if (!receiver) {
        return false;
    }
    connection->direct.store(nullptr, std::memory_order_seq_cst);
    connection->receiver.store(nullptr, std::memory_order_seq_cst);
    leave_bucket(connection, receiver);
    unlink(connection->sender->connections, connection);
    return true;
}

bool forget_sender(Inlet *inlet, const Outlet *sender) {
    Connection *found = nullptr;
    {
        Lock lock;
        found = find_sender(inlet, sender);
        if (found) {
            unlink(inlet->connections, found);
        }
    }
    if (found) {
        freeobject(found);
    }
    return found != nullptr;
}

// Breaks one connection, tells the inlet at its end, and frees it.
bool disconnect_record(Connection *connection) {
    Object *receiver = connection->receiver.load(std::memory_order_relaxed);
    Outlet *sender = connection->sender;
    if (!receiver || !break_record(connection)) {
        return false;
    }
    freeobject(connection);
    if (is_inlet(receiver)) {
        auto *inlet = reinterpret_cast<Inlet *>(receiver);
        if ((inlet->flags & InletRecords) && !(sender->flags & OutletPassThrough) &&
            !forget_sender(inlet, sender)) {
            object_error(inlet->owner, "disconnect: not in inlet");
        }
    }
    return true;
}

// Puts the outlet into the list of a recording inlet.
bool inlet_notify(Inlet *inlet, Outlet *outlet) {
    if (!is_outlet(outlet)) {
        object_error(inlet->owner, "inlet: can only be connected to outlets");
        return false;
    }
    if (!(inlet->flags & InletRecords)) {
        return true;
    }
    if (find_sender(inlet, outlet)) {
        object_warn(inlet->owner, "inlet_notify: already in table");
        return true;
    }
    auto *made = static_cast<Connection *>(object_alloc(connection_class()));
    if (!made) {
        return false;
    }
    made->sender = outlet;
    Lock lock;
    link_first(inlet->connections, made);
    return true;
}

// --- What stands behind pass-through outlets and inlets ------------------------------------------

// The pass-through outlet that an inlet hands its messages to, or null.
Outlet *outlet_behind(void *receiver) {
    if (!is_inlet(receiver)) {
        return nullptr;
    }
    auto *inlet = static_cast<Inlet *>(receiver);
    if (!(inlet->flags & InletRecords) || !is_outlet(inlet->receiver)) {
        return nullptr;
    }
    auto *outlet = reinterpret_cast<Outlet *>(inlet->receiver);
    return outlet->flags & OutletPassThrough ? outlet : nullptr;
}

// Calls step(outlet, receiver, depth) for each pair of ends that a connection of these two stands
// for, but for the two themselves, until one answers false.
template <class Step>
bool each_pair_behind(Outlet *outlet, Object *receiver, int depth, Step step) {
    if (outlet->flags & OutletPassThrough) {
        if (is_outlet(outlet->link)) {
            return step(static_cast<Outlet *>(outlet->link), receiver, depth + 1);
        }
        if (is_inlet(outlet->link)) {
            auto *inlet = static_cast<Inlet *>(outlet->link);
            for (Connection *c = first_of(inlet->connections); c; c = after(c)) {
                if (!step(c->sender, receiver, depth + 1)) {
                    return false;
                }
            }
        }
    } else if (Outlet *behind = outlet_behind(receiver)) {
        for (Connection *c = first_of(behind->connections); c; c = after(c)) {
            Object *end = c->receiver.load(std::memory_order_relaxed);
            if (end && !step(outlet, end, depth + 1)) {
                return false;
            }
        }
    }
    return true;
}

void report_refused(Outlet *outlet, Object *receiver) {
    const void *end =
        is_inlet(receiver) ? inlet_owner(reinterpret_cast<Inlet *>(receiver)) : receiver;
    Object *owner = outlet->owner;
    object_error(owner, "can't connect (%s) to (%s)", class_name_of(owner), class_name_of(end));
    object_error(owner, "(doesn't match \"%s\")", outlet->type->name);
}

bool check(Outlet *outlet, Object *receiver, bool loud, int depth) {
    if (depth > max_nesting || outlet->link == receiver) {
        if (loud) {
            object_error(outlet->owner, "outlet loop");
        }
        return false;
    }
    if (find_receiver(outlet, receiver)) {
        if (loud) {
            object_warn(receiver, "outlet_add: already in table");
        }
        return false;
    }
    if (outlet->type && !(outlet->flags & OutletPassThrough) &&
        !accepts_type(receiver, outlet->type)) {
        if (loud) {
            report_refused(outlet, receiver);
        }
        return false;
    }
    return each_pair_behind(outlet, receiver, depth,
                            [loud](Outlet *o, Object *r, int d) { return check(o, r, loud, d); });
}

void disconnect(Outlet *outlet, Object *receiver, int depth) {
    if (depth > max_nesting) {
        return;
    }
    each_pair_behind(outlet, receiver, depth, [](Outlet *o, Object *r, int d) {
        disconnect(o, r, d);
        return true;
    });
    if (Connection *connection = find_receiver(outlet, receiver)) {
        disconnect_record(connection);
    }
}

// After a check. On no memory what was made so far stays for the caller to take back.
bool connect(Outlet *outlet, Object *receiver, int depth) {
    const bool behind = each_pair_behind(
        outlet, receiver, depth, [](Outlet *o, Object *r, int d) { return connect(o, r, d); });
    if (!behind || !make_record(outlet, receiver)) {
        return false;
    }
    return !is_inlet(receiver) || (outlet->flags & OutletPassThrough) ||
           inlet_notify(reinterpret_cast<Inlet *>(receiver), outlet);
}

}  // namespace

bool accepts_type(Object *x, Symbol *type) noexcept {
    const Method checkin = zgetfn(x, "checkin"_sym);
    if (checkin && checkin != no_method) {
        return call_method("checkin", checkin, x, type) == nullptr;
    }
    const bool number_or_list = type == "int"_sym || type == "float"_sym || type == "list"_sym;
    return object_find_method(x, type) || object_find_method(x, "anything"_sym) ||
           (number_or_list &&
            (object_find_method(x, "int"_sym) || object_find_method(x, "float"_sym)));
}

void break_connections_of(Outlet *outlet) noexcept {
    while (Connection *connection = first_of(outlet->connections)) {
        disconnect_record(connection);
    }
}

void break_connections_to(Object *receiver) noexcept {
    // Objects of most classes, every container's among them, are never connected.
    if (!(class_flags(class_of(receiver)) & ClassReceives) ||
        !bucket_of(receiver).load(std::memory_order_acquire)) {
        return;
    }
    SendState *mine = send_state();
    if (!mine) {
        return;
    }
    // Inside a section a connection that another thread breaks meanwhile stays readable.
    Section section(*mine);
    for (;;) {
        Connection *found = nullptr;
        {
            Lock lock;
            found = first_of(bucket_of(receiver));
            while (found && found->receiver.load(std::memory_order_relaxed) != receiver) {
                found = found->peer_next;
            }
        }
        if (!found) {
            return;
        }
        const Guard guard(connection_lock(found->sender));
        disconnect_record(found);
    }
}

void connection_monitor(Connection *connection, int32_t flags, bool on) noexcept {
    Lock lock;
    if (on) {
        connection->monitor.fetch_or(flags);
    } else {
        connection->monitor.fetch_and(~flags);
    }
    update_direct(connection);
}

void free_incoming(Inlet *inlet) noexcept {
    while (Connection *connection = first_of(inlet->connections)) {
        {
            Lock lock;
            unlink(inlet->connections, connection);
        }
        freeobject(connection);
    }
}

Symbol *outlet_type(const Outlet *outlet) noexcept {
    return outlet ? outlet->type : nullptr;
}

const char *outlet_check(Outlet *outlet) noexcept {
    Lock lock;
    const Connection *previous = nullptr;
    for (const Connection *c = first_of(outlet->connections); c; previous = c, c = after(c)) {
        const Object *receiver = c->receiver.load(std::memory_order_relaxed);
        if (c->magic != KIV_OBJECT_MAGIC || !receiver) {
            return "a broken connection is still linked";
        }
        if (c->previous != previous || c->sender != outlet) {
            return "a connection's links or sender are wrong";
        }
        const Connection *peer = first_of(bucket_of(receiver));
        while (peer && peer != c) {
            peer = peer->peer_next;
        }
        if (!peer) {
            return "a connection is missing from its receiver's bucket";
        }
    }
    return nullptr;
}

void outlet_set_link(Outlet *outlet, void *link) noexcept {
    outlet->link = link;
    outlet->flags |= OutletPassThrough;
}

}  // namespace kiv

using namespace kiv;

int32_t outlet_add(Outlet *outlet, void *receiver) noexcept {
    if (!object_valid(receiver)) {
        return 1;
    }
    if (!is_outlet(outlet)) {
        if (is_inlet(receiver)) {
            object_error(inlet_owner(static_cast<Inlet *>(receiver)),
                         "inlet: can only be connected to outlets");
        }
        return 1;
    }
    auto *target = static_cast<Object *>(receiver);
    const Guard guard(connection_lock(outlet));
    if (!check(outlet, target, true, 0)) {
        return 1;
    }
    if (!connect(outlet, target, 0)) {
        disconnect(outlet, target, 0);
        return 1;
    }
    return 0;
}

int32_t outlet_canadd(Outlet *outlet, void *receiver) noexcept {
    return is_outlet(outlet) && object_valid(receiver) &&
           check(outlet, static_cast<Object *>(receiver), false, 0);
}

void outlet_rm(Outlet *outlet, void *receiver) noexcept {
    if (!receiver || !is_outlet(outlet)) {
        return;
    }
    const Guard guard(connection_lock(outlet));
    if (!find_receiver(outlet, receiver)) {
        object_error(object_valid(receiver) ? receiver : nullptr, "outlet_rm: wasn't in table");
        return;
    }
    disconnect(outlet, static_cast<Object *>(receiver), 0);
}
