// Names with several receivers.
//
// Invariants, under the global region: a name's `thing` is null, its only receiver, or the name's
// forwarder when there are two or more. A name keeps its forwarder, empty, when it no longer needs
// it: another thread may just have read it from the symbol.
//
// A message is passed on to a snapshot of the receivers. Before each call the receiver must still
// be among them, so one that was unbound or freed meanwhile is left out.
#include <kiv/console.h>
#include <kiv/object.h>
#include <kiv/receivers.h>

#include <algorithm>
#include <atomic>

#include "containers/families.h"
#include "kernel/internal.h"

namespace kiv {

namespace {

using Receivers = Vector<void *>;

struct Forwarder {
    Object ob;
    Symbol *name;
    Receivers *receivers;  // in the order in which they were bound
};

using Forwarders = Map<Symbol *, Forwarder *>;

struct {
    Class *forwarder_class = nullptr;
    Forwarders *forwarders = nullptr;  // never destroyed: names outlive main()
} state;

void *bound_to(Symbol *name) noexcept {
    return std::atomic_ref(name->thing).load(std::memory_order_acquire);
}

void bind_to(Symbol *name, void *x) noexcept {
    std::atomic_ref(name->thing).store(x, std::memory_order_release);
}

Forwarder *as_forwarder(void *x) noexcept {
    return object_valid(x) && class_of(x) == state.forwarder_class ? static_cast<Forwarder *>(x)
                                                                   : nullptr;
}

Forwarder *forwarder_of(Symbol *name) {
    Forwarder *&forwarder = (*state.forwarders)[name];
    if (!forwarder) {
        auto *made = static_cast<Forwarder *>(object_alloc(state.forwarder_class));
        void *memory = made ? sysmem_newptr(sizeof(Receivers)) : nullptr;
        if (!memory) {
            object_free(made);
            throw std::bad_alloc();
        }
        made->name = name;
        made->receivers = new (memory) Receivers;
        forwarder = made;
    }
    return forwarder;
}

void destroy(Forwarder *forwarder) noexcept {
    const Guard guard(global_region);
    if (!forwarder->receivers) {
        return;
    }
    state.forwarders->erase(forwarder->name);
    if (bound_to(forwarder->name) == forwarder) {
        bind_to(forwarder->name, nullptr);
    }
    forwarder->receivers->~Receivers();
    sysmem_freeptr(forwarder->receivers);
}

bool is_receiver(Symbol *name, const void *x) noexcept {
    const Guard guard(global_region);
    void *thing = bound_to(name);
    if (thing == x) {
        return true;
    }
    const Forwarder *forwarder = as_forwarder(thing);
    return forwarder && std::ranges::find(*forwarder->receivers, x) != forwarder->receivers->end();
}

void *forward(Forwarder *forwarder, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    void *result = nullptr;
    Symbol *name = forwarder->name;
    try {
        Receivers snapshot;
        Vector<Atom> arguments;
        {
            const Guard guard(global_region);
            snapshot = *forwarder->receivers;
        }
        for (void *x : snapshot) {
            if (!is_receiver(name, x)) {
                continue;
            }
            if (!object_valid(x)) {
                receiver_unbind(name, x);
                continue;
            }
            // Each receiver gets atoms of its own to work on.
            arguments.assign(argv, argv + argc);
            result = typedmess(x, selector, argc, arguments.data());
        }
    } catch (const std::bad_alloc &) {
        object_error(forwarder, "%s: out of memory", name->name);
    }
    return result;
}

}  // namespace

void receivers_start() noexcept {
    void *memory = sysmem_newptr(sizeof(Forwarders));
    Class *c = class_new("receivers", nullptr, method(destroy),
                         static_cast<int32_t>(sizeof(Forwarder)), nullptr, 0);
    if (!c || !memory) {
        return;
    }
    state.forwarders = new (memory) Forwarders;
    c->flags |= ClassNoAttrMessages;
    class_addmethod(c, method(forward), "anything", TypeGimme, 0);
    class_register(nullptr, c);
    state.forwarder_class = c;
}

}  // namespace kiv

using namespace kiv;

ErrorCode receiver_bind(Symbol *name, void *x) noexcept {
    if (!name || !object_valid(x)) {
        return ErrorInvalidPointer;
    }
    const Guard guard(global_region);
    void *thing = bound_to(name);
    if (!object_valid(thing)) {
        bind_to(name, x);
        return ErrorNone;
    }
    if (thing == x) {
        return ErrorNone;
    }
    try {
        if (const Forwarder *forwarder = as_forwarder(thing)) {
            if (std::ranges::find(*forwarder->receivers, x) == forwarder->receivers->end()) {
                forwarder->receivers->push_back(x);
            }
        } else {
            Forwarder *made = forwarder_of(name);
            made->receivers->assign({thing, x});
            bind_to(name, made);
        }
    } catch (const std::bad_alloc &) {
        return ErrorOutOfMemory;
    }
    return ErrorNone;
}

ErrorCode receiver_unbind(Symbol *name, void *x) noexcept {
    if (!name || !x) {
        return ErrorInvalidPointer;
    }
    const Guard guard(global_region);
    void *thing = bound_to(name);
    if (thing == x) {
        bind_to(name, nullptr);
        return ErrorNone;
    }
    Forwarder *forwarder = as_forwarder(thing);
    if (!forwarder || std::erase(*forwarder->receivers, x) == 0) {
        return ErrorGeneric;
    }
    if (forwarder->receivers->size() == 1) {
        bind_to(name, forwarder->receivers->front());
        forwarder->receivers->clear();
    }
    return ErrorNone;
}
