// Proxies: they hand every message of an inlet to the owner and tell it which inlet it was.
//
// Which proxy and which number stand in thread-local slots, so the answer is right on every thread;
// the word inside the owner is only right for an owner that one thread uses. A message may free the
// proxy and its owner: the proxy then has no owner, its memory stays until the section ends, and
// nothing is put back into the owner.
#include <cstddef>
#include <utility>

#include "kernel/inlets.h"
#include "sched/internal.h"

namespace kiv {

constinit thread_local ProxyContext proxy_context{nullptr, 0};

namespace {

// Makes the proxy the thread's current one while it forwards.
class Forwarding {
  public:
    explicit Forwarding(Proxy *proxy) noexcept : proxy_(proxy), context_(proxy_context) {
        if (proxy->stash) {
            stashed_ = *proxy->stash;
            *proxy->stash = static_cast<int32_t>(proxy->number);
        }
        proxy_context = {proxy, proxy->number};
    }
    ~Forwarding() {
        proxy_context = context_;
        if (proxy_->owner && proxy_->stash) {
            *proxy_->stash = stashed_;
        }
    }
    Forwarding(const Forwarding &) = delete;
    Forwarding &operator=(const Forwarding &) = delete;

  private:
    Proxy *proxy_;
    ProxyContext context_;
    int32_t stashed_ = 0;
};

template <class Deliver>
void forward(Proxy *proxy, Symbol *selector, Deliver deliver) {
    SendState *state = send_state();
    Object *owner = proxy->owner;
    if (!state || !owner) {
        return;
    }
    Section section(*state);
    const Forwarding forwarding(proxy);
    if (!deliver(owner)) {
        object_error(owner, "%s doesn't understand \"%s\"", class_name_of(owner), selector->name);
    }
}

void proxy_bang(Proxy *proxy) {
    forward(proxy, "bang"_sym, [proxy](Object *owner) {
        if (!proxy->bang_method) {
            return deliver_bang(owner);
        }
        call_bang(proxy->bang_method, owner);
        return true;
    });
}

void proxy_int(Proxy *proxy, int64_t value) {
    forward(proxy, "int"_sym, [=](Object *owner) {
        if (!proxy->int_method) {
            return deliver_int(owner, value);
        }
        call_int(proxy->int_method, owner, value);
        return true;
    });
}

void proxy_float(Proxy *proxy, double value) {
    forward(proxy, "float"_sym, [=](Object *owner) {
        if (!proxy->float_method) {
            return deliver_float(owner, value);
        }
        call_float(proxy->float_method, owner, value);
        return true;
    });
}

void proxy_list(Proxy *proxy, Symbol *, int32_t argc, Atom *argv) {
    forward(proxy, "list"_sym, [=](Object *owner) {
        if (!proxy->list_method) {
            return deliver_anything(owner, "list"_sym, argc, argv);
        }
        call_list(proxy->list_method, owner, "list"_sym, argc, argv);
        return true;
    });
}

void proxy_anything(Proxy *proxy, Symbol *selector, int32_t argc, Atom *argv) {
    forward(proxy, selector,
            [=](Object *owner) { return deliver_anything(owner, selector, argc, argv); });
}

// A message whose selector is its first atom.
void proxy_anythingmap(Proxy *proxy, Symbol *, int32_t argc, Atom *argv) {
    if (argc > 0 && argv[0].type == TypeSymbol) {
        proxy_anything(proxy, argv[0].value.sym, argc - 1, argv + 1);
    }
}

void *proxy_checkin(Proxy *proxy, Symbol *type) {
    const bool accepted = proxy->owner && accepts_type(proxy->owner, type);
    return reinterpret_cast<void *>(static_cast<uintptr_t>(!accepted));
}

void proxy_free(Proxy *proxy) {
    Object *owner = std::exchange(proxy->owner, nullptr);
    Inlet *inlet = std::exchange(proxy->inlet, nullptr);
    if (owner && is_inlet(inlet) && inlet->receiver == &proxy->ob) {
        inlet_to(inlet, owner);
    }
}

Method cached(Object *owner, Symbol *selector) {
    const Method method = direct_method(owner, selector, selector);
    return method == no_method ? nullptr : method;
}

Proxy *proxy_make(void *owner, int32_t number, int32_t *stash) {
    if (!is_message_owner(owner)) {
        return nullptr;
    }
    auto *proxy = static_cast<Proxy *>(object_alloc(proxy_class()));
    if (!proxy) {
        return nullptr;
    }
    auto *object = static_cast<Object *>(owner);
    proxy->stash = stash;
    proxy->owner = object;
    proxy->number = static_cast<uint32_t>(number);
    proxy->int_method = cached(object, "int"_sym);
    proxy->bang_method = cached(object, "bang"_sym);
    proxy->float_method = cached(object, "float"_sym);
    proxy->list_method = cached(object, "list"_sym);
    mark_class(owner, ClassUsesProxies);
    return proxy;
}

// A proxy with an inlet of its own, which make(proxy) puts where it belongs.
template <class Make>
Proxy *proxy_with_inlet(void *owner, int32_t number, int32_t *stash, Make make) {
    Proxy *proxy = proxy_make(owner, number, stash);
    if (!proxy) {
        return nullptr;
    }
    proxy->inlet = make(proxy);
    if (!proxy->inlet) {
        freeobject(proxy);
        return nullptr;
    }
    return proxy;
}

bool is_proxy(const void *x) {
    return object_valid(x) && class_of(x) == proxy_class();
}

}  // namespace

Class *proxy_class() noexcept {
    static Class *const made = [] {
        Class *c = message_class_new("proxy", reinterpret_cast<Method>(proxy_free), sizeof(Proxy));
        class_addmethod(c, reinterpret_cast<Method>(proxy_bang), "bang", 0);
        class_addmethod(c, reinterpret_cast<Method>(proxy_int), "int", TypeLong, 0);
        class_addmethod(c, reinterpret_cast<Method>(proxy_float), "float", TypeFloat, 0);
        class_addmethod(c, reinterpret_cast<Method>(proxy_list), "list", TypeGimme, 0);
        class_addmethod(c, reinterpret_cast<Method>(proxy_anything), "anything", TypeGimme, 0);
        class_addmethod(c, reinterpret_cast<Method>(proxy_anythingmap), "anythingmap", TypeGimme,
                        0);
        class_addmethod(c, reinterpret_cast<Method>(proxy_checkin), "checkin", TypeCant, 0);
        class_register(nullptr, c);
        return c;
    }();
    return made;
}

void inlets_start() noexcept {
    send_states_start();
    watch_set(watch::barriers, !platform::barrier_everywhere());
    inlet_class();
    outlet_class();
    connection_class();
    proxy_class();
}

}  // namespace kiv

using namespace kiv;

Proxy *proxy_new(void *owner, int32_t number, int32_t *stash) noexcept {
    return proxy_with_inlet(owner, number, stash, [owner](Proxy *proxy) {
        return inlet4(owner, proxy, nullptr, nullptr);
    });
}

Proxy *proxy_new_forinlet(void *owner, int32_t number, int32_t *stash, Inlet *inlet) noexcept {
    Proxy *proxy = proxy_make(owner, number, stash);
    proxy_setinletptr(proxy, inlet);
    return proxy;
}

Proxy *proxy_append(void *owner, int32_t number, int32_t *stash) noexcept {
    return proxy_with_inlet(owner, number, stash, [owner](Proxy *proxy) {
        return inlet_append(owner, proxy, nullptr, nullptr);
    });
}

Proxy *proxy_insert(void *owner, int32_t number, int32_t *stash, Proxy *previous) noexcept {
    return proxy_with_inlet(owner, number, stash, [owner, previous](Proxy *proxy) {
        return inlet_insert_after(owner, proxy, nullptr, nullptr, proxy_getinletptr(previous));
    });
}

void proxy_delete(Proxy *proxy) noexcept {
    if (!is_proxy(proxy)) {
        return;
    }
    inlet_delete(proxy->inlet);
    if (is_proxy(proxy)) {
        proxy->inlet = nullptr;
        freeobject(proxy);
    }
}

int32_t proxy_getinlet(void *owner) noexcept {
    if (!proxy_context.proxy || !is_message_owner(owner)) {
        return 0;
    }
    for (const Inlet *inlet = static_cast<Object *>(owner)->inlets; inlet; inlet = inlet->next) {
        if (inlet->receiver == &proxy_context.proxy->ob) {
            return static_cast<int32_t>(proxy_context.inlet);
        }
    }
    return 0;
}

Inlet *proxy_getinletptr(Proxy *proxy) noexcept {
    return is_proxy(proxy) ? proxy->inlet : nullptr;
}

void proxy_setinletptr(Proxy *proxy, Inlet *inlet) noexcept {
    if (!is_proxy(proxy)) {
        return;
    }
    if (is_inlet(proxy->inlet) && proxy->inlet->receiver == &proxy->ob) {
        inlet_to(proxy->inlet, proxy->owner);
    }
    proxy->inlet = is_inlet(inlet) ? inlet : nullptr;
    inlet_to(proxy->inlet, proxy);
}
