// An object's list of inlets: making, finding and deleting them.
//
// An inlet is in its owner's list from its making until it is freed; its owner is null afterwards
// and its memory retired (outlet_memory.cpp), so that a list being spread over inlets finds the
// next one. The list itself is changed by the owner's thread only.
#include <array>
#include <cstdio>
#include <utility>

#include "kernel/inlets.h"

namespace kiv {

namespace {

// Where an owner without inlets of its own keeps its extension pointer: laid out as an inlet.
bool is_placeholder(const Inlet *inlet) {
    return inlet && class_of(inlet)->name == "obex_container"_sym;
}

void unlink_inlet(Object *owner, const Inlet *inlet) {
    for (Inlet **link = &owner->inlets; *link; link = &(*link)->next) {
        if (*link == inlet) {
            *link = inlet->next;
            return;
        }
    }
}

void inlet_free(Inlet *inlet) noexcept {
    break_connections_to(&inlet->ob);
    free_incoming(inlet);
    if (Object *owner = std::exchange(inlet->owner, nullptr)) {
        unlink_inlet(owner, inlet);
    }
}

void find_method(Inlet *inlet) {
    inlet->method = direct_method(inlet->receiver, inlet->outgoing, inlet->incoming);
}

Inlet *inlet_make(void *owner, void *receiver, Symbol *incoming, Symbol *outgoing, Inlet **link) {
    auto *inlet = static_cast<Inlet *>(object_alloc(inlet_class()));
    if (!inlet) {
        return nullptr;
    }
    inlet->owner = static_cast<Object *>(owner);
    inlet->receiver = static_cast<Object *>(receiver);
    inlet->incoming = incoming;
    inlet->outgoing = outgoing;
    find_method(inlet);
    if (is_placeholder(*link)) {
        Inlet *placeholder = *link;
        *link = placeholder->next;
        inlet->obex = placeholder->obex;
        placeholder->owner = nullptr;
        freeobject(placeholder);
    }
    inlet->next = *link;
    *link = inlet;
    return inlet;
}

Symbol *name_of(const char *text) {
    return text ? gensym(text) : nullptr;
}

Inlet **head_of(void *owner) {
    return &static_cast<Object *>(owner)->inlets;
}

// The inlet of a number that calls the owner's method "in1".. or "ft1"...
Inlet *numbered_inlet(void *owner, int32_t n, Symbol *incoming, const char *prefix) {
    if (n < 1 || n > 9) {
        object_post(owner, "- external object error:");
        object_post(owner, "inlet %ld out of range", static_cast<long>(n));
        return nullptr;
    }
    if (!is_message_owner(owner)) {
        return nullptr;
    }
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "%s%d", prefix, static_cast<int>(n));
    return inlet_make(owner, owner, incoming, gensym(text.data()), head_of(owner));
}

}  // namespace

Class *inlet_class() noexcept {
    static Class *const made = [] {
        Class *c = message_class_new("inlet", reinterpret_cast<Method>(inlet_free), sizeof(Inlet));
        class_addmethod(c, reinterpret_cast<Method>(inlet_bang), "bang", 0);
        class_addmethod(c, reinterpret_cast<Method>(inlet_int), "int", TypeLong, 0);
        class_addmethod(c, reinterpret_cast<Method>(inlet_float), "float", TypeFloat, 0);
        class_addmethod(c, reinterpret_cast<Method>(inlet_list), "list", TypeGimme, 0);
        class_addmethod(c, reinterpret_cast<Method>(inlet_anything), "anything", TypeGimme, 0);
        class_register(nullptr, c);
        return c;
    }();
    return made;
}

Object *inlet_owner(const Inlet *inlet) noexcept {
    return inlet ? inlet->owner : nullptr;
}

void inlet_set_recording(Inlet *inlet) noexcept {
    inlet->flags |= InletRecords;
}

}  // namespace kiv

using namespace kiv;

Inlet *inlet_new(void *owner, const char *selector) noexcept {
    return inlet4(owner, owner, selector, selector);
}

Inlet *inlet4(void *owner, void *receiver, const char *incoming, const char *outgoing) noexcept {
    if (!is_message_owner(owner) || !object_valid(receiver)) {
        return nullptr;
    }
    return inlet_make(owner, receiver, name_of(incoming), name_of(outgoing), head_of(owner));
}

Inlet *intin(void *owner, int32_t n) noexcept {
    return numbered_inlet(owner, n, "int"_sym, "in");
}

Inlet *floatin(void *owner, int32_t n) noexcept {
    return numbered_inlet(owner, n, "float"_sym, "ft");
}

Inlet *inlet_append(void *owner, void *receiver, Symbol *incoming, Symbol *outgoing) noexcept {
    if (!is_message_owner(owner) || !object_valid(receiver)) {
        return nullptr;
    }
    Inlet **link = head_of(owner);
    if (is_placeholder(*link) && (*link)->next) {
        object_error(owner, "%s: inlet obex_container should be only inlet, but is not",
                     class_name_of(owner));
    }
    while (*link && !is_placeholder(*link)) {
        link = &(*link)->next;
    }
    return inlet_make(owner, receiver, incoming, outgoing, link);
}

Inlet *inlet_insert_after(void *owner, void *receiver, Symbol *incoming, Symbol *outgoing,
                          Inlet *previous) noexcept {
    if (!is_message_owner(owner) || !object_valid(receiver)) {
        return nullptr;
    }
    const bool follows = is_inlet(previous) && previous->owner == owner;
    return inlet_make(owner, receiver, incoming, outgoing,
                      follows ? &previous->next : head_of(owner));
}

void inlet_delete(Inlet *inlet) noexcept {
    if (!is_inlet(inlet)) {
        return;
    }
    Object *owner = inlet->owner;
    if (owner) {
        const Inlet *found = owner->inlets;
        while (found && found != inlet) {
            found = found->next;
        }
        if (!found) {
            object_error(owner, "inlet: %s: didn't find it", class_name_of(owner));
            return;
        }
        free_lines(owner, inlet);
    }
    if (is_inlet(inlet)) {
        freeobject(inlet);
    }
}

Inlet *inlet_nth(void *owner, int32_t n) noexcept {
    Inlet *inlet = is_message_owner(owner) ? *head_of(owner) : nullptr;
    while (inlet && n > 0) {
        inlet = inlet->next;
        --n;
    }
    return n == 0 ? inlet : nullptr;
}

int32_t inlet_count(void *owner) noexcept {
    Inlet *inlet = is_message_owner(owner) ? *head_of(owner) : nullptr;
    int32_t count = 0;
    for (; inlet; inlet = inlet->next) {
        count += is_placeholder(inlet) ? 0 : 1;
    }
    return count;
}

void inlet_to(Inlet *inlet, void *receiver) noexcept {
    if (is_inlet(inlet) && object_valid(receiver)) {
        inlet->receiver = static_cast<Object *>(receiver);
        find_method(inlet);
    }
}
