// An object's list of outlets: making, finding and deleting them.
//
// An outlet is in its owner's list from its making until it is freed; its owner is null afterwards
// and its memory retired (outlet_memory.cpp). The list itself is changed by the owner's thread
// only.
#include <kiv/attr.h>

#include "kernel/inlets.h"
#include "sched/internal.h"

namespace kiv {

namespace {

void outlet_free(Outlet *outlet) noexcept {
    if (outlet->connections.load(std::memory_order_relaxed)) {
        const Guard guard(scheduler_run_lock(scheduler_fromobject(outlet->owner)));
        break_connections_of(outlet);
    }
    Object *owner = outlet->owner.exchange(nullptr);
    if (!owner) {
        return;
    }
    for (Outlet **link = &owner->outlets; *link; link = &(*link)->next) {
        if (*link == outlet) {
            *link = outlet->next;
            return;
        }
    }
}

MessageKind kind_of(const Symbol *type) {
    return type == "bang"_sym    ? MessageKind::bang
           : type == "int"_sym   ? MessageKind::integer
           : type == "float"_sym ? MessageKind::real
           : type == "list"_sym  ? MessageKind::list
                                 : MessageKind::other;
}

Outlet *outlet_make(void *owner, Symbol *type, Outlet **link) {
    auto *outlet = static_cast<Outlet *>(object_alloc(outlet_class()));
    if (outlet) {
        outlet->owner = static_cast<Object *>(owner);
        outlet->type = type;
        outlet->kind = kind_of(type);
        outlet->next = *link;
        *link = outlet;
    }
    return outlet;
}

}  // namespace

Class *message_class_new(const char *name, Method free_function, size_t size) noexcept {
    Class *c = class_new(name, nullptr, free_function, static_cast<int32_t>(size), nullptr, 0);
    if (c) {
        c->flags |= ClassNoAttrMessages | ClassRetired;
    }
    return c;
}

Class *outlet_class() noexcept {
    static Class *const made = [] {
        Class *c =
            message_class_new("outlet", reinterpret_cast<Method>(outlet_free), sizeof(Outlet));
        class_register(nullptr, c);
        return c;
    }();
    return made;
}

Class *connection_class() noexcept {
    static Class *const made = [] {
        Class *c = message_class_new("connection", nullptr, sizeof(Connection));
        if (c) {
            c->lightweight = 1;
            class_obexoffset_set(c, -1);
        }
        class_register(nullptr, c);
        return c;
    }();
    return made;
}

Object *outlet_owner(const Outlet *outlet) noexcept {
    return outlet ? outlet->owner.load() : nullptr;
}

void outlet_silence(Outlet *outlet, bool on) noexcept {
    if (outlet) {
        const uint8_t others = outlet->flags & static_cast<uint8_t>(~OutletSilenced);
        outlet->flags = on ? others | OutletSilenced : others;
    }
}

const char *class_name_of(const void *x) noexcept {
    return object_valid(x) ? class_of(x)->name->name : "";
}

void free_lines(Object *owner, void *end) noexcept {
    Object *box = object_box(owner);
    void *patcher = object_attr_getobj(box ? box : owner, "patcher"_sym);
    const Method method = patcher ? zgetfn(patcher, "freelinesconnectedto"_sym) : nullptr;
    if (method && method != no_method) {
        call_method("freelinesconnectedto", method, static_cast<Object *>(patcher), end);
    }
}

void object_free_inlets_outlets(Object *x) noexcept {
    overflow_forget(x);
    break_connections_to(x);
    while (Inlet *inlet = x->inlets) {
        Object *receiver = inlet->receiver;
        freeobject(inlet);
        // A proxy whose owner did not free it; its inlet let go of it.
        if (receiver && receiver != x && object_valid(receiver) &&
            class_of(receiver) == proxy_class() &&
            reinterpret_cast<Proxy *>(receiver)->owner == x) {
            freeobject(receiver);
        }
        if (x->inlets == inlet) {
            x->inlets = inlet->next;  // not a valid object any more: step over it
        }
    }
    while (Outlet *outlet = x->outlets) {
        freeobject(outlet);
        if (x->outlets == outlet) {
            x->outlets = outlet->next;
        }
    }
}

}  // namespace kiv

using namespace kiv;

Outlet *outlet_new(void *owner, const char *type) noexcept {
    return is_message_owner(owner) ? outlet_make(owner, type ? gensym(type) : nullptr,
                                                 &static_cast<Object *>(owner)->outlets)
                                   : nullptr;
}

Outlet *bangout(void *owner) noexcept {
    return outlet_new(owner, "bang");
}

Outlet *intout(void *owner) noexcept {
    return outlet_new(owner, "int");
}

Outlet *floatout(void *owner) noexcept {
    return outlet_new(owner, "float");
}

Outlet *listout(void *owner) noexcept {
    return outlet_new(owner, "list");
}

Outlet *outlet_append(void *owner, void *, Symbol *type) noexcept {
    if (!is_message_owner(owner)) {
        return nullptr;
    }
    Outlet **link = &static_cast<Object *>(owner)->outlets;
    while (*link) {
        link = &(*link)->next;
    }
    return outlet_make(owner, type, link);
}

Outlet *outlet_insert_after(void *owner, void *, Symbol *type, Outlet *previous) noexcept {
    if (!is_message_owner(owner)) {
        return nullptr;
    }
    const bool follows = is_outlet(previous) && previous->owner == owner;
    return outlet_make(owner, type,
                       follows ? &previous->next : &static_cast<Object *>(owner)->outlets);
}

void outlet_delete(Outlet *outlet) noexcept {
    if (!is_outlet(outlet)) {
        return;
    }
    if (Object *owner = outlet->owner) {
        free_lines(owner, outlet);
    }
    if (is_outlet(outlet)) {
        freeobject(outlet);
    }
}

Outlet *outlet_nth(void *owner, int32_t n) noexcept {
    Outlet *outlet = is_message_owner(owner) ? static_cast<Object *>(owner)->outlets : nullptr;
    while (outlet && n > 0) {
        outlet = outlet->next;
        --n;
    }
    return n == 0 ? outlet : nullptr;
}

int32_t outlet_count(void *owner) noexcept {
    Outlet *outlet = is_message_owner(owner) ? static_cast<Object *>(owner)->outlets : nullptr;
    int32_t count = 0;
    for (; outlet; outlet = outlet->next) {
        ++count;
    }
    return count;
}

void outlet_notify(Outlet *outlet) noexcept {
    Object *owner = is_outlet(outlet) ? outlet->owner.load() : nullptr;
    const Method method = owner ? zgetfn(owner, "userconnect"_sym) : nullptr;
    if (method && method != no_method) {
        call_method("userconnect", method, owner, outlet);
    }
}
