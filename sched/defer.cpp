// Deferred and scheduled calls: a private copy of a message, run once later.
//
// A record owns its atoms and its element (a queue element or a clock) and frees both, and itself,
// when it has run or is dropped. Thread safety: records are made on any thread and end on the
// thread that runs them; a record whose owner is freed first is emptied by deferred_cancel under
// the lock `calls`, which the run takes as well to claim its owner.
#include <kiv/console.h>

#include <algorithm>
#include <cstring>

#include "sched/qelem.h"

namespace kiv {

namespace {

struct DeferredCall {
    Object ob;
    void *owner;
    Symbol *selector;
    Method function;
    int16_t count;
    Atom *atoms;
    Object *element;  // the Qelem or the Clock that runs it
    int32_t front;
    // Private from here on.
    bool dropped;   // the owner was freed while the call waited
    bool to_defer;  // hand the call on to the main thread
    DeferredCall *next_call, *previous_call;
};

// Calls that wait and name an owner, so that freeing the owner finds them.
struct State {
    platform::CriticalSection lock;
    DeferredCall *calls = nullptr;
};
State &state() {
    static State instance;
    return instance;
}

class Locked {
  public:
    Locked() { state().lock.enter(); }
    ~Locked() { state().lock.exit(); }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;
};

using CallFunction = void (*)(void *owner, Symbol *selector, int32_t argc, Atom *argv);

void call_free(DeferredCall *call) {
    {
        const Locked locked;
        if (call->previous_call) {
            call->previous_call->next_call = call->next_call;
        } else if (state().calls == call) {
            state().calls = call->next_call;
        }
        if (call->next_call) {
            call->next_call->previous_call = call->previous_call;
        }
    }
    sysmem_freeptr(call->atoms);
    object_free(call->element);
}

Class *make_call_class() {
    Class *made = class_new("deferred_call", nullptr, method(call_free),
                            static_cast<int32_t>(sizeof(DeferredCall)), nullptr, 0);
    class_obexoffset_set(made, -1);
    class_register("nobox"_sym, made);
    return made;
}

Class *call_class() {
    static Class *const c = make_call_class();
    return c;
}

// The record, its atoms copied; marked on the owner unless the call asks for idle priority.
DeferredCall *call_make(void *owner, Method function, Symbol *selector, int32_t argc, Atom *argv) {
    auto *call = static_cast<DeferredCall *>(object_alloc(call_class()));
    if (!call) {
        return nullptr;
    }
    call->owner = owner;
    call->selector = selector;
    call->function = function;
    if (argc > 0 && argv) {
        call->count = static_cast<int16_t>(std::min(argc, 32767));
        const auto size = static_cast<int64_t>(sizeof(Atom)) * call->count;
        call->atoms = static_cast<Atom *>(sysmem_newptr(size));
        if (!call->atoms) {
            object_free(call);
            return nullptr;
        }
        std::memcpy(call->atoms, argv, static_cast<size_t>(size));
    }
    if (selector != "idlepriority"_sym && object_valid(owner)) {
        obex_flags_set(static_cast<Object *>(owner), ObexHasDeferred);
        const Locked locked;
        call->next_call = state().calls;
        if (state().calls) {
            state().calls->previous_call = call;
        }
        state().calls = call;
    }
    return call;
}

// False when the owner is gone: the call must not be made.
bool owner_lives(const DeferredCall *call) {
    const Locked locked;
    return !call->dropped && (!call->owner || object_valid(call->owner));
}

// The element's function. The event context names the record; the callee is to see its owner.
void call_run(DeferredCall *call) {
    if (owner_lives(call)) {
        EventContext *const context = event_context();
        if (context && context->owner == call) {
            context->owner = call->owner;
        }
        reinterpret_cast<CallFunction>(call->function)(call->owner, call->selector, call->count,
                                                       call->atoms);
    }
    object_free(call);
}

void scheduled_run(DeferredCall *call) {
    if (call->to_defer && owner_lives(call)) {
        defer(call->owner, call->function, call->selector, call->count, call->atoms);
        object_free(call);
    } else {
        call_run(call);
    }
}

DeferredCall *queue_call(bool front, void *owner, Method function, Symbol *selector, int32_t argc,
                         Atom *argv) {
    DeferredCall *const call = call_make(owner, function, selector, argc, argv);
    if (!call) {
        return nullptr;
    }
    Qelem *const element = qelem_new(call, method(call_run));
    call->element = reinterpret_cast<Object *>(element);
    call->front = front ? 1 : 0;
    if (!element) {
        object_free(call);
        return nullptr;
    }
    if (selector != "idlepriority"_sym && object_valid(owner)) {
        qelem_owner_set(element, static_cast<Object *>(owner));
    }
    if (front) {
        queue_front(low_queue(), element);
    } else {
        queue_append(low_queue(), element);
    }
    return call;
}

void schedule_call(void *owner, Method function, double delay, bool to_defer, Symbol *selector,
                   int32_t argc, Atom *argv) {
    DeferredCall *const call = call_make(owner, function, selector, argc, argv);
    if (!call) {
        return;
    }
    Clock *const clock =
        clock_new_withscheduler(call, method(scheduled_run), scheduler_fromobject(owner));
    call->element = reinterpret_cast<Object *>(clock);
    call->to_defer = to_defer;
    if (!clock) {
        object_free(call);
        return;
    }
    clock->owner_object = nullptr;  // freeing the owner drops the call, which frees the clock
    clock_fdelay(clock, std::max(delay, 0.0));
}

}  // namespace

// Waiting calls stay in their queues and are dropped, not run, when they come up.
void deferred_cancel(Object *owner) noexcept {
    if (!(obex_flags(owner) & ObexHasDeferred)) {
        return;
    }
    const Locked locked;
    for (DeferredCall *call = state().calls; call; call = call->next_call) {
        call->dropped = call->dropped || call->owner == owner;
    }
}

}  // namespace kiv

using namespace kiv;

void *defer(void *owner, Method function, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    if (!function) {
        return nullptr;
    }
    if (systhread_ismainthread()) {
        reinterpret_cast<CallFunction>(function)(owner, selector, argc, argv);
        return nullptr;
    }
    return defer_low(owner, function, selector, argc, argv);
}

void *defer_medium(void *owner, Method function, Symbol *selector, int32_t argc,
                   Atom *argv) noexcept {
    return defer(owner, function, selector, argc, argv);
}

void *defer_low(void *owner, Method function, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    return function ? queue_call(false, owner, function, selector, argc, argv) : nullptr;
}

void *defer_front(void *owner, Method function, Symbol *selector, int32_t argc,
                  Atom *argv) noexcept {
    return function ? queue_call(true, owner, function, selector, argc, argv) : nullptr;
}

void *defer_sys_low(void *owner, Method function, Symbol *selector, int32_t argc,
                    Atom *argv) noexcept {
    if (!function) {
        return nullptr;
    }
    DeferredCall *const call = call_make(owner, function, selector, argc, argv);
    if (!call) {
        return nullptr;
    }
    Atom made[2];
    atom_setobj(made, call);
    atom_setobj(made + 1, reinterpret_cast<void *>(call_run));
    call->element = static_cast<Object *>(object_new_typed("nobox"_sym, "sysqelem"_sym, 2, made));
    if (!call->element) {
        object_free(call);
        return nullptr;
    }
    object_method(call->element, "setowner"_sym, owner);
    object_method(call->element, "set"_sym);
    return call;
}

void schedulef(void *owner, Method function, double time, Symbol *selector, int32_t argc,
               Atom *argv) noexcept {
    if (function) {
        schedule_call(owner, function, time - gettime_forobject(owner), false, selector, argc,
                      argv);
    }
}

void schedule(void *owner, Method function, int64_t time, Symbol *selector, int32_t argc,
              Atom *argv) noexcept {
    schedulef(owner, function, static_cast<double>(time), selector, argc, argv);
}

void schedule_fdelay(void *owner, Method function, double delay, Symbol *selector, int32_t argc,
                     Atom *argv) noexcept {
    if (function) {
        schedule_call(owner, function, delay, false, selector, argc, argv);
    }
}

void schedule_delay(void *owner, Method function, int64_t delay, Symbol *selector, int32_t argc,
                    Atom *argv) noexcept {
    schedule_fdelay(owner, function, static_cast<double>(delay), selector, argc, argv);
}

void schedule_fdefer(void *owner, Method function, double delay, Symbol *selector, int32_t argc,
                     Atom *argv) noexcept {
    if (function) {
        schedule_call(owner, function, delay, true, selector, argc, argv);
    }
}

void schedule_defer(void *owner, Method function, int64_t delay, Symbol *selector, int32_t argc,
                    Atom *argv) noexcept {
    schedule_fdefer(owner, function, static_cast<double>(delay), selector, argc, argv);
}
