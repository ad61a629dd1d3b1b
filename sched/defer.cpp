// Deferred and scheduled calls: a private copy of a message, run once later.
//
// A record lies in one block with its atoms and, when the low-priority queue is to run it, with its
// queue element; other elements, and clocks, are objects of their own, which it owns. It ends with
// its run, or when its owner is freed before.
//
// Thread safety: records are made on any thread. `lock` guards the table of the records that mark
// an owner, and what these say of their run. They enter the table and their queue in one hold of
// it, and whoever takes one that waits frees it: the thread that runs it, or the one that frees the
// owner. That one also waits for those that run on other threads.
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
    bool marks_owner;  // freeing the owner ends the call
    bool to_defer;     // hand the call on to the main thread
    bool taken;        // by whoever frees the owner; under the lock
    ThreadId runner;   // thread that makes the call now, or 0; under the lock
    OwnedLink<DeferredCall> owned;
};

// A call as it is asked for.
struct Request {
    void *owner;
    Method function;
    Symbol *selector;
    int32_t argc;
    Atom *argv;
};

struct State {
    platform::CriticalSection lock;
    OwnedTable<DeferredCall> by_owner;
};
State &state() {
    return immortal<State>();
}

using CallFunction = void (*)(void *owner, Symbol *selector, int32_t argc, Atom *argv);

int32_t atom_count(const Request &asked) {
    return asked.argv ? std::max(asked.argc, 0) : 0;
}

// The element in a record's own block.
Qelem *own_element(DeferredCall *call) {
    return reinterpret_cast<Qelem *>(call + 1);
}

void call_free(DeferredCall *call) {
    if (call->owned.owner) {
        const Guard guard(state().lock);
        state().by_owner.remove(call);
    }
    if (call->element == reinterpret_cast<Object *>(own_element(call))) {
        call_element_end(own_element(call));
    } else {
        object_free(call->element);
    }
}

Class *call_class() {
    static Class *const c = make_plain_class("deferred_call", call_free);
    return c;
}

DeferredCall *refuse(DeferredCall *call) {
    object_free(call);
    error("deferred call: out of memory");
    return nullptr;
}

// False without memory for the mark.
bool mark_owner(DeferredCall *call) {
    call->marks_owner = call->selector != "idlepriority"_sym && object_valid(call->owner);
    return !call->marks_owner ||
           obex_flags_set(static_cast<Object *>(call->owner), ObexHasDeferred);
}

// The owner as an object, when the record marks it.
Object *marked_owner(const DeferredCall *call) {
    return call->marks_owner ? static_cast<Object *>(call->owner) : nullptr;
}

// A record with room for an element and the atoms behind it. Null without function or memory.
DeferredCall *call_make(const Request &asked, int64_t element_size) {
    if (!asked.function) {
        return nullptr;
    }
    const int32_t count = atom_count(asked);
    const int64_t extra = element_size + int64_t{sizeof(Atom)} * count;
    auto *const call = reinterpret_cast<DeferredCall *>(object_alloc_extra(call_class(), extra));
    if (!call) {
        error("sysmem_newptr: unable to allocate block of size %lld!",
              static_cast<long long>(int64_t{sizeof(DeferredCall)} + extra));
        return nullptr;
    }
    call->owner = asked.owner;
    call->selector = asked.selector;
    call->function = asked.function;
    call->atom_count = count;
    call->count = static_cast<int16_t>(std::min(count, 32767));
    if (count > 0) {
        call->atoms = reinterpret_cast<Atom *>(reinterpret_cast<char *>(call + 1) + element_size);
        std::memcpy(call->atoms, asked.argv, sizeof(Atom) * static_cast<size_t>(count));
    }
    return mark_owner(call) ? call : refuse(call);
}

// Has put() hand a record to its queue. It may be gone afterwards.
template <class Put>
void hand_over(DeferredCall *call, Put put) {
    if (!call->marks_owner) {
        put();
        return;
    }
    const Guard guard(state().lock);
    state().by_owner.add(call, call->owner);
    put();
}

// False when whoever frees the owner has taken the call, and frees it once this thread lets go.
bool take_to_run(DeferredCall *call) {
    if (call->marks_owner) {
        const Guard guard(state().lock);
        if (call->taken) {
            return false;
        }
        call->runner = systhread_self();
    }
    return true;
}

// The event context names the record; whoever is called is to see its owner.
void name_owner(const DeferredCall *call) {
    EventContext *const context = event_context();
    if (context && context->owner == call) {
        context->owner = call->owner;
    }
}

void make_call(const Request &asked) {
    guarded("deferred call", asked.owner, [&asked] {
        reinterpret_cast<CallFunction>(asked.function)(asked.owner, asked.selector,
                                                       atom_count(asked), asked.argv);
    });
}

DeferredCall *queue_call(const Request &asked, bool front);

// The function of a record's queue element or clock.
void call_run(DeferredCall *call) {
    if (!take_to_run(call)) {
        return;
    }
    if (!call->owner || object_valid(call->owner)) {
        name_owner(call);
        const Request kept{call->owner, call->function, call->selector, call->atom_count,
                           call->atoms};
        if (call->to_defer && !systhread_ismainthread()) {
            queue_call(kept, false);
        } else {
            make_call(kept);
        }
    }
    object_free(call);
}

DeferredCall *queue_call(const Request &asked, bool front) {
    DeferredCall *const call = call_make(asked, sizeof(Qelem));
    if (!call) {
        return nullptr;
    }
    Qelem *const element = own_element(call);
    call_element_begin(element, call, method(call_run));
    qelem_owner_set(element, marked_owner(call));
    call->element = reinterpret_cast<Object *>(element);
    call->front = front ? 1 : 0;
    hand_over(call, [element, front] {
        front ? queue_front(low_queue(), element) : queue_append(low_queue(), element);
    });
    return call;
}

DeferredCall *system_call(const Request &asked) {
    DeferredCall *const call = call_make(asked, 0);
    if (!call) {
        return nullptr;
    }
    Atom made[2];
    atom_setobj(made, call);
    atom_setobj(made + 1, reinterpret_cast<void *>(call_run));
    auto *const element =
        static_cast<Object *>(object_new_typed("nobox"_sym, "sysqelem"_sym, 2, made));
    if (!element) {
        return refuse(call);
    }
    call->element = element;
    object_method(element, "setowner"_sym, marked_owner(call));
    hand_over(call, [element] { object_method(element, "set"_sym); });
    return call;
}

void schedule_call(const Request &asked, double time, bool to_defer) {
    DeferredCall *const call = call_make(asked, 0);
    if (!call) {
        return;
    }
    // Not tracked: freeing the owner ends the call, and so its clock.
    Clock *const clock = clock_make(call, method(call_run), scheduler_fromobject(asked.owner),
                                    marked_owner(call), false);
    if (!clock) {
        refuse(call);
        return;
    }
    call->element = &clock->ob;
    call->to_defer = to_defer;
    hand_over(call, [clock, time] { clock_fset(clock, time); });
}

// The time after a delay. One that is negative, or not a number, counts as 0.
double after(void *owner, double delay) {
    return gettime_forobject(owner) + std::max(0.0, delay);
}

// Takes one of an owner's calls out of the table, passing over those that run on other threads and
// telling of them.
DeferredCall *take_from_table(const Object *owner, bool *some_run) {
    const ThreadId self = systhread_self();
    *some_run = false;
    DeferredCall *found = nullptr;
    const Guard guard(state().lock);
    state().by_owner.visit(owner, [&](DeferredCall *call) {
        const bool runs_elsewhere = call->runner != 0 && call->runner != self;
        *some_run = *some_run || runs_elsewhere;
        found = runs_elsewhere ? nullptr : call;
        return found == nullptr;
    });
    if (found) {
        found->taken = true;
        state().by_owner.remove(found);
    }
    return found;
}

}  // namespace

void calls_start() noexcept {
    call_class();
}

void deferred_cancel(Object *owner) noexcept {
    bool some_run = true;
    while (some_run && state().by_owner.may_hold(owner)) {
        DeferredCall *const call = take_from_table(owner, &some_run);
        if (!call) {
            std::this_thread::yield();
        } else {
            some_run = true;
            if (call->runner == 0) {
                object_free(call);
            }  // else it runs further down on this thread's stack
        }
    }
}

}  // namespace kiv

using namespace kiv;

void *defer(void *owner, Method function, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    if (!systhread_ismainthread()) {
        return defer_low(owner, function, selector, argc, argv);
    }
    if (function) {
        make_call({owner, function, selector, argc, argv});
    }
    return nullptr;
}

void *defer_medium(void *owner, Method function, Symbol *selector, int32_t argc,
                   Atom *argv) noexcept {
    return defer(owner, function, selector, argc, argv);
}

void *defer_low(void *owner, Method function, Symbol *selector, int32_t argc, Atom *argv) noexcept {
    return queue_call({owner, function, selector, argc, argv}, false);
}

void *defer_front(void *owner, Method function, Symbol *selector, int32_t argc,
                  Atom *argv) noexcept {
    return queue_call({owner, function, selector, argc, argv}, true);
}

void *defer_sys_low(void *owner, Method function, Symbol *selector, int32_t argc,
                    Atom *argv) noexcept {
    return system_call({owner, function, selector, argc, argv});
}

void schedulef(void *owner, Method function, double time, Symbol *selector, int32_t argc,
               Atom *argv) noexcept {
    const double not_before = std::max(gettime_forobject(owner), time);
    schedule_call({owner, function, selector, argc, argv}, not_before, false);
}

void schedule(void *owner, Method function, int64_t time, Symbol *selector, int32_t argc,
              Atom *argv) noexcept {
    schedulef(owner, function, static_cast<double>(time), selector, argc, argv);
}

void schedule_fdelay(void *owner, Method function, double delay, Symbol *selector, int32_t argc,
                     Atom *argv) noexcept {
    schedule_call({owner, function, selector, argc, argv}, after(owner, delay), false);
}

void schedule_delay(void *owner, Method function, int64_t delay, Symbol *selector, int32_t argc,
                    Atom *argv) noexcept {
    schedule_fdelay(owner, function, static_cast<double>(delay), selector, argc, argv);
}

void schedule_fdefer(void *owner, Method function, double delay, Symbol *selector, int32_t argc,
                     Atom *argv) noexcept {
    schedule_call({owner, function, selector, argc, argv}, after(owner, delay), true);
}

void schedule_defer(void *owner, Method function, int64_t delay, Symbol *selector, int32_t argc,
                    Atom *argv) noexcept {
    schedule_fdefer(owner, function, static_cast<double>(delay), selector, argc, argv);
}
