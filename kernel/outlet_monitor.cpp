// Monitors: objects that are told of every message before it is delivered to a receiver.
//
// The keys stand in the receiver's monitor table, a list of references in its extension record
// under "monitors"; an inlet has none, so its owner's is used. A bit on the connection says whether
// the table is looked at at all. A key is called through its method "monitormessage" with the
// receiver, the sender, the selector and the atoms; the list's own walk lets it unregister itself
// meanwhile.
#include <kiv/linklist.h>

#include "kernel/inlets.h"

namespace kiv {

namespace {

struct Message {
    Object *receiver;
    Object *sender;
    Symbol *selector;
    int32_t argc;
    Atom *argv;
};

Object *table_owner(Object *receiver) {
    return is_inlet(receiver) ? inlet_owner(reinterpret_cast<Inlet *>(receiver)) : receiver;
}

Linklist *monitor_table(Object *receiver, bool make) {
    Object *owner = table_owner(receiver);
    void *table = nullptr;
    object_obex_lookup(owner, "monitors"_sym, &table);
    if (!table && make) {
        auto *made = linklist_new();
        if (!made) {
            return nullptr;
        }
        linklist_flags(made, ContainerReference);
        if (object_obex_storeflags(owner, "monitors"_sym, made, ContainerOwns) != ErrorNone) {
            object_free(made);
            return nullptr;
        }
        table = made;
    }
    return static_cast<Linklist *>(table);
}

void *tell(void *key, void *argument) {
    const auto *message = static_cast<const Message *>(argument);
    const Method method = object_valid(key) ? zgetfn(key, "monitormessage"_sym) : nullptr;
    if (method && method != no_method) {
        call_method("monitormessage", method, static_cast<Object *>(key), message->receiver,
                    message->sender, message->selector, message->argc, message->argv);
    }
    return nullptr;
}

Connection *connection_to(Outlet *outlet, const void *receiver) {
    Connection *c = outlet->connections.load(std::memory_order_seq_cst);
    while (c && c->receiver.load(std::memory_order_seq_cst) != receiver) {
        c = c->next.load(std::memory_order_seq_cst);
    }
    return c;
}

}  // namespace

void monitors_tell(const Connection *connection, Object *receiver, Symbol *selector, int32_t argc,
                   Atom *argv) noexcept {
    Linklist *table = object_valid(receiver) ? monitor_table(receiver, false) : nullptr;
    if (table) {
        Message message{receiver, connection->sender->owner, selector, argc, argv};
        linklist_funall(table, tell, &message);
    }
}

}  // namespace kiv

using namespace kiv;

void outlet_addmonitor(Outlet *outlet, void *receiver, void *key, int32_t flags) noexcept {
    SendState *state = send_state();
    if (!state || !key || !is_outlet(outlet) || !object_valid(receiver)) {
        return;
    }
    Section section(*state);
    Connection *connection = connection_to(outlet, receiver);
    Linklist *table = connection ? monitor_table(static_cast<Object *>(receiver), true) : nullptr;
    if (table) {
        if (linklist_objptr2index(table, key) < 0) {
            linklist_append(table, key);
        }
        connection_monitor(connection, flags, true);
    }
}

void outlet_removemonitor(Outlet *outlet, void *receiver, void *key, int32_t flags) noexcept {
    SendState *state = send_state();
    if (!state || !key || !is_outlet(outlet) || !object_valid(receiver)) {
        return;
    }
    Section section(*state);
    if (Connection *connection = connection_to(outlet, receiver)) {
        connection_monitor(connection, flags, false);
    }
    Linklist *table = monitor_table(static_cast<Object *>(receiver), false);
    const int32_t index = table ? linklist_objptr2index(table, key) : -1;
    if (index >= 0) {
        linklist_chuckindex(table, index);
    }
}
