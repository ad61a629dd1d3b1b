// Deferred and scheduled calls: a private copy of a message, run once later.
//
// A record owns its atoms and its element (a queue element or a clock) and frees both, and itself,
// when it has run or comes up after it was dropped. Thread safety: records are made on any thread
// and end on the thread that runs them. `lock` guards the table of the records that name an owner:
// freeing the owner drops those that wait, and waits for one that runs on another thread.
#include <kiv/console.h>

#include <algorithm>
#include <cstring>
#include <thread>

#include "platform/platform.h"
#include "sched/guarded.h"
#include "sched/plain_class.h"
#include "sched/qelem.h"

namespace kiv {

namespace {

struct DeferredCall {
    Object ob;
    void *owner;
    Symbol *selector;
    Method function;
    int16_t count;  // of the atoms, as far as it goes
    Atom *atoms;
    Object *element;  // the Qelem or the Clock that runs it
    int32_t front;
    // Private from here on.
    int32_t atom_count;
    bool to_defer;    // hand the call on to the main thread
    bool dropped;     // the owner was freed while the call waited; under the lock
    ThreadId runner;  // thread that makes the call now, or 0; under the lock
    OwnedLink<DeferredCall> owned;
};

struct State {
    platform::CriticalSection lock;
    OwnedTable<DeferredCall> by_owner;
};
State &state() {
    return immortal<State>();
}

using CallFunction = void (*)(void *owner, Symbol *selector, int32_t argc, Atom *argv);

void call_free(DeferredCall *call) {
    if (call->owned.owner) {
        const Guard guard(state().lock);
        state().by_owner.remove(call);
    }
    sysmem_freeptr(call->atoms);
    object_free(call->element);
}

Class *call_class() {
    static Class *const c = make_plain_class("deferred_call", call_free);
    return c;
}

bool copy_atoms(DeferredCall *call, int32_t argc, const Atom *argv) {
    const int64_t size = int64_t{sizeof(Atom)} * argc;
    call->atoms = static_cast<Atom *>(sysmem_newptr(size));
    if (!call->atoms) {
        error("sysmem_newptr: unable to allocate block of size %d!", static_cast<int32_t>(size));
        return false;
    }
    std::memcpy(call->atoms, argv, static_cast<size_t>(size));
    call->atom_count = argc;
    call->count = static_cast<int16_t>(std::min(argc, 32767));
    return true;
}

DeferredCall *call_make(void *owner, Method function, Symbol *selector, int32_t argc,
                        const Atom *argv) {
    auto *call = static_cast<DeferredCall *>(object_alloc(call_class()));
    if (!call) {
        return nullptr;
    }
    call->owner = owner;
    call->selector = selector;
    call->function = function;
    if (argc > 0 && argv && !copy_atoms(call, argc, argv)) {
        object_free(call);
        return nullptr;
    }
    if (selector != "idlepriority"_sym && object_valid(owner)) {
        obex_flags_set(static_cast<Object *>(owner), ObexHasDeferred);
        const Guard guard(state().lock);
        state().by_owner.add(call, owner);
    }
    return call;
}

// The owner as an object, when the record is marked with it.
Object *marked_owner(const DeferredCall *call) {
    return call->owned.owner ? static_cast<Object *>(call->owner) : nullptr;
}

// False when the owner is gone: the call must not be made.
bool claim(DeferredCall *call) {
    if (!call->owned.owner) {  // nobody can drop it
        return !call->owner || object_valid(call->owner);
    }
    const Guard guard(state().lock);
    if (call->dropped || !object_valid(call->owner)) {
        return false;
    }
    call->runner = systhread_self();
    return true;
}

// The event context names the record; whoever is called is to see its owner.
void name_owner(const DeferredCall *call) {
    EventContext *const context = event_context();
    if (context && context->owner == call) {
        context->owner = call->owner;
    }
}

void make_call(void *owner, Method function, Symbol *selector, int32_t argc, Atom *argv) {
    guarded("deferred call", owner,
            [&] { reinterpret_cast<CallFunction>(function)(owner, selector, argc, argv); });
}

// The function of a record's queue element or clock.
void call_run(DeferredCall *call) {
    if (claim(call)) {
        name_owner(call);
        if (call->to_defer) {
            defer(call->owner, call->function, call->selector, call->atom_count, call->atoms);
        } else {
            make_call(call->owner, call->function, call->selector, call->atom_count, call->atoms);
        }
    }
    object_free(call);
}

// Gives a record what runs it; null, and the record freed, when that could not be made.
DeferredCall *with_element(DeferredCall *call, void *element) {
    call->element = static_cast<Object *>(element);
    if (!element) {
        object_free(call);
        return nullptr;
    }
    return call;
}

DeferredCall *queue_call(bool front, void *owner, Method function, Symbol *selector, int32_t argc,
                         Atom *argv) {
    DeferredCall *const call = call_make(owner, function, selector, argc, argv);
    Qelem *const element = call ? qelem_new(call, method(call_run)) : nullptr;
    if (!call || !with_element(call, element)) {
        return nullptr;
    }
    call->front = front ? 1 : 0;
    qelem_owner_set(element, marked_owner(call));
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
    // Not tracked: freeing the owner drops the call, which takes its clock with it.
    Clock *const clock =
        clock_make(call, method(call_run), scheduler_fromobject(owner), marked_owner(call), false);
    if (with_element(call, clock)) {
        call->to_defer = to_defer;
        clock_fdelay(clock, std::max(0.0, delay));
    }
}

// Drops an owner's waiting calls; true when one of them runs on another thread just now.
bool drop_waiting(const Object *owner) {
    const ThreadId self = systhread_self();
    const Guard guard(state().lock);
    bool runs = false;
    state().by_owner.visit(owner, [&](DeferredCall *call) {
        call->dropped = true;
        runs = runs || (call->runner != 0 && call->runner != self);
        return true;
    });
    return runs;
}

}  // namespace

// Waiting calls stay in their queues and are let go of when they come up.
void calls_start() noexcept {
    call_class();
}

void deferred_cancel(Object *owner) noexcept {
    while (state().by_owner.may_hold(owner) && drop_waiting(owner)) {
        std::this_thread::yield();
    }
}

}  // namespace kiv

using namespace kiv;

void *defer(void *owner, Method function, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    if (!function) {
        return nullptr;
    }
    if (systhread_ismainthread()) {
        make_call(owner, function, selector, argc, argv);
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
    if (!with_element(call, object_new_typed("nobox"_sym, "sysqelem"_sym, 2, made))) {
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
