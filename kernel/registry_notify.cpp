// Attachments, subscriptions and notifications.
//
// 1. An attachment stands in two records: the object's list of clients and the client's list of
//    objects it is attached to. Whichever is freed first takes it out of the other.
// 2. A subscription waits for a name, whether or not anything has it; it lasts until its subscriber
//    ends it or is freed.
// 3. A notification calls out to the clients in order of attaching. It walks a copy of the list and
//    asks before each call whether that client is still attached, so a client may detach, attach
//    others, or free itself, another client or the object. The record of the object is pinned, and
//    is marked when the object goes.
//
// Thread safety: lists change in the kernel's global critical region; clients are called on the
// notifying thread, without the region unless the notifier holds it.
#include <kiv/console.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <unordered_map>

#include "containers/internal.h"
#include "kernel/dispatch_call.h"
#include "kernel/immortal.h"
#include "kernel/inlets.h"
#include "kernel/registry_private.h"

namespace kiv {

namespace {

struct Subscription {
    Symbol *name_space;
    Symbol *class_name;  // null: any class
    Object *client;
    bool operator==(const Subscription &) const = default;
};

struct State {
    std::unordered_map<Symbol *, Vector<Subscription>, std::hash<Symbol *>, std::equal_to<Symbol *>,
                       SysAllocator<std::pair<Symbol *const, Vector<Subscription>>>>
        subscriptions;  // by the name waited for
};
Immortal<State> state;

using NotifyMethod = void *(*)(void *client, Symbol *name, Symbol *message, void *sender,
                               void *data);

bool contains(const Vector<Object *> &list, const Object *x) {
    return std::find(list.begin(), list.end(), x) != list.end();
}

bool take_out(Vector<Object *> &list, const Object *x) {
    const auto found = std::find(list.begin(), list.end(), x);
    if (found == list.end()) {
        return false;
    }
    list.erase(found);
    return true;
}

// --- Calling a client ----------------------------------------------------------------------------

Method find_notify(const Object *client) {
    const MethodRecord *const method = object_find_method(client, "notify"_sym);
    return method && method->function != reinterpret_cast<Method>(nullfn) ? method->function
                                                                          : nullptr;
}

Method notify_method(const Object *client) {
    const ObexPin record(client);
    if (!record) {
        return find_notify(client);
    }
    uintptr_t cached = record->notify.load();
    if (cached == ObexRecord::notify_unknown) {
        cached = reinterpret_cast<uintptr_t>(find_notify(client));
        record->notify.store(cached);
    }
    return reinterpret_cast<Method>(cached);
}

KIV_CALLS_ANY_TYPE void *call_notify(Method notify, Object *client, Symbol *name, Symbol *message,
                                     Object *sender, void *data) {
    return reinterpret_cast<NotifyMethod>(notify)(client, name, message, sender, data);
}

void notify_client(Object *client, Symbol *name, Symbol *message, Object *sender, void *data) {
    if (!object_valid(client)) {
        return;
    }
    if (const Method notify = notify_method(client)) {
        call_guarded(message,
                     [&] { return call_notify(notify, client, name, message, sender, data); });
    }
}

// A copy of a client list, on the stack when it is short.
class ClientsCopy {
  public:
    explicit ClientsCopy(const ObexRecord &record) noexcept {
        const Guard guard(global_region);
        detached_ = record.detached;
        const size_t count = record.clients.size();
        if (count <= few_.size()) {
            std::copy(record.clients.begin(), record.clients.end(), few_.begin());
            clients_ = {few_.data(), count};
            return;
        }
        try {
            many_ = record.clients;
            clients_ = many_;
        } catch (const std::bad_alloc &) {
            error("out of memory");
        }
    }
    std::span<Object *const> clients() const noexcept { return clients_; }
    // Whether a client of the copy is still attached.
    bool is_attached(const ObexRecord &record, const Object *client) const noexcept {
        const Guard guard(global_region);
        return !record.dead.load() &&
               (record.detached == detached_ || contains(record.clients, client));
    }

  private:
    std::array<Object *, 16> few_;
    Vector<Object *> many_;
    std::span<Object *const> clients_;
    uint32_t detached_;
};

// A client that another thread frees meanwhile stays readable until the section ends.
void notify_clients(Object *x, const ObexPin &record, Symbol *name, Symbol *message, void *data) {
    SendState *const mine = send_state();
    if (!mine) {
        return;
    }
    const Section section(*mine);
    const ClientsCopy copy(*record.get());
    for (Object *const client : copy.clients()) {
        if (copy.is_attached(*record.get(), client)) {
            notify_client(client, name, message, x, data);
        }
    }
}

// Tells an object and its clients; the box to be told next, or null.
Object *notify_one(Object *x, Symbol *message, void *data) {
    const ObexPin record(x);
    if (!record) {
        return nullptr;
    }
    const uint32_t bits = record->flags.load();
    Symbol *const name = record->name;
    if (bits & ObexSelfNotify) {
        notify_client(x, name, message, x, data);
    }
    if (bits & ObexAttached) {
        notify_clients(x, record, name, message, data);
    }
    if (record->dead.load() || (class_flags(class_of(x)) & (ClassBox | ClassUi)) != ClassBox) {
        return nullptr;
    }
    Object *const box = record->box.load();
    return box != x ? box : nullptr;
}

// --- Attachments ---------------------------------------------------------------------------------

// Global region held.
bool client_detach(Object *client, Object *x) {
    ObexRecord *const record = obex_find(x);
    if (!record) {
        return false;
    }
    if (client == x) {
        return record->flags.fetch_and(~uint32_t{ObexSelfNotify}) & ObexSelfNotify;
    }
    if (!take_out(record->clients, client)) {
        return false;
    }
    ++record->detached;
    if (record->clients.empty()) {
        record->flags.fetch_and(~uint32_t{ObexAttached});
    }
    if (ObexRecord *const own = obex_find(client)) {
        take_out(own->attached_to, x);
    }
    return true;
}

ErrorCode detach(Object *client, Object *x) {
    const Guard guard(global_region);
    if (client_detach(client, x)) {
        return ErrorNone;
    }
    error("object_detach: object %p wasn't attached to object %p", static_cast<void *>(client),
          static_cast<void *>(x));
    return ErrorGeneric;
}

// --- Subscriptions -------------------------------------------------------------------------------

bool matches(const Subscription &wanted, const Object *x, const Symbol *name_space) {
    return wanted.name_space == name_space &&
           (!wanted.class_name || wanted.class_name == class_of(x)->name);
}

Symbol *class_or_any(Symbol *class_name) {
    return class_name && class_name->name[0] ? class_name : nullptr;
}

}  // namespace

bool client_attach(Object *client, Object *x) noexcept {
    ObexRecord *const record = obex_enforce(x);
    if (!record) {
        return false;
    }
    if (client == x) {
        record->flags.fetch_or(ObexSelfNotify);
        return true;
    }
    if (contains(record->clients, client)) {
        return true;
    }
    // A client without a record could not be taken out when it is freed.
    ObexRecord *const own = obex_enforce(client);
    if (!own) {
        return false;
    }
    try {
        record->clients.push_back(client);
        own->attached_to.push_back(x);
        own->flags.fetch_or(obex_client);
    } catch (const std::bad_alloc &) {
        take_out(record->clients, client);
        return false;
    }
    record->flags.fetch_or(ObexAttached);
    return true;
}

void clients_drop(ObexRecord *record) noexcept {
    for (Object *const client : record->clients) {
        if (ObexRecord *const own = object_valid(client) ? obex_find(client) : nullptr) {
            take_out(own->attached_to, record->owner);
        }
    }
    record->clients.clear();
    ++record->detached;
    record->flags.fetch_and(~uint32_t{ObexSelfNotify | ObexAttached});
}

void subscribers_attach(Object *x, const ObexRecord &record) noexcept {
    const auto waiting = state->subscriptions.find(record.name);
    if (waiting == state->subscriptions.end()) {
        return;
    }
    for (const Subscription &wanted : waiting->second) {
        if (matches(wanted, x, record.name_space)) {
            client_attach(wanted.client, x);
        }
    }
}

void registry_forget(Object *x) noexcept {
    const Guard guard(global_region);
    ObexRecord *const record = obex_find(x);
    if (!record) {
        return;
    }
    while (!record->attached_to.empty()) {
        Object *const observed = record->attached_to.back();
        record->attached_to.pop_back();
        client_detach(x, observed);
    }
    clients_drop(record);
    if (record->flags.load() & ObexSubscribes) {
        for (auto waiting = state->subscriptions.begin(); waiting != state->subscriptions.end();) {
            std::erase_if(waiting->second,
                          [x](const Subscription &wanted) { return wanted.client == x; });
            waiting =
                waiting->second.empty() ? state->subscriptions.erase(waiting) : std::next(waiting);
        }
    }
}

}  // namespace kiv

using namespace kiv;

void *object_attach(Symbol *name_space, Symbol *name, void *client) noexcept {
    if (!object_valid(client) || !name) {
        return nullptr;
    }
    const Guard guard(global_region);
    auto *const x = static_cast<Object *>(object_findregistered(name_space, name));
    return x && client_attach(static_cast<Object *>(client), x) ? x : nullptr;
}

ErrorCode object_attach_byptr(void *client, void *x) noexcept {
    if (!object_valid(client) || !object_valid(x)) {
        return ErrorInvalidPointer;
    }
    const Guard guard(global_region);
    if (object_findregisteredbyptr(nullptr, nullptr, x) != ErrorNone) {
        error("object_attach_byptr: %s is not registered. trying to attach %s",
              object_classname(x)->name, object_classname(client)->name);
        return ErrorGeneric;
    }
    return client_attach(static_cast<Object *>(client), static_cast<Object *>(x)) ? ErrorNone
                                                                                  : ErrorGeneric;
}

ErrorCode object_attach_byptr_register(void *client, void *x, Symbol *name_space) noexcept {
    if (!object_valid(client) || !object_valid(x)) {
        return ErrorInvalidPointer;
    }
    if (object_findregisteredbyptr(nullptr, nullptr, x) != ErrorNone &&
        object_register(name_space, symbol_unique(), x) != x) {
        return ErrorGeneric;
    }
    return object_attach_byptr(client, x);
}

ErrorCode object_detach(Symbol *name_space, Symbol *name, void *client) noexcept {
    void *const x = object_findregistered(name_space, name);
    if (!x || !object_valid(client)) {
        return ErrorGeneric;
    }
    return detach(static_cast<Object *>(client), static_cast<Object *>(x));
}

ErrorCode object_detach_byptr(void *client, void *x) noexcept {
    if (!object_valid(client) || !object_valid(x)) {
        return ErrorInvalidPointer;
    }
    return detach(static_cast<Object *>(client), static_cast<Object *>(x));
}

void *object_subscribe(Symbol *name_space, Symbol *name, Symbol *class_name,
                       void *client) noexcept {
    if (!name || !object_valid(client)) {
        return nullptr;
    }
    Symbol *const space = name_space ? name_space : "nobox"_sym;
    auto *const subscriber = static_cast<Object *>(client);
    const Subscription wanted{space, class_or_any(class_name), subscriber};
    const Guard guard(global_region);
    ObexRecord *const record = obex_enforce(subscriber);
    if (!record) {
        return nullptr;
    }
    try {
        Vector<Subscription> &waiting = state->subscriptions[name];
        if (std::find(waiting.begin(), waiting.end(), wanted) != waiting.end()) {
            return nullptr;
        }
        waiting.push_back(wanted);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
    record->flags.fetch_or(ObexSubscribes);
    Object *const x = registry_find(space, name);
    return x && matches(wanted, x, space) && client_attach(subscriber, x) ? x : nullptr;
}

ErrorCode object_unsubscribe(Symbol *name_space, Symbol *name, Symbol *class_name,
                             void *client) noexcept {
    if (!name || !object_valid(client)) {
        return ErrorInvalidPointer;
    }
    Symbol *const space = name_space ? name_space : "nobox"_sym;
    const Subscription wanted{space, class_or_any(class_name), static_cast<Object *>(client)};
    const Guard guard(global_region);
    const auto waiting = state->subscriptions.find(name);
    if (waiting == state->subscriptions.end() || std::erase(waiting->second, wanted) == 0) {
        return ErrorGeneric;
    }
    if (waiting->second.empty()) {
        state->subscriptions.erase(waiting);
    }
    return ErrorNone;
}

ErrorCode object_notify(void *x, Symbol *message, void *data) noexcept {
    if (!object_valid(x) || !message) {
        return ErrorGeneric;
    }
    // Boxes may hold one another.
    auto *notified = static_cast<Object *>(x);
    for (int32_t hops = 0; notified && hops < max_nesting; ++hops) {
        notified = notify_one(notified, message, data);
        notified = object_valid(notified) ? notified : nullptr;
    }
    return ErrorNone;
}
