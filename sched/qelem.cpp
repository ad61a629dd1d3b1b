// Queue elements and the main thread's three queues.
//
// Invariant: whoever raises an element's set flag hands it over, to `arrived` or to a list; under
// the lock, an element without the flag is in neither, and one with it is in one of them or about
// to be. Raising the flag is one atomic exchange, so setting an element that is set already costs
// no more, and the run that follows sees what the setter wrote.
//
// Thread safety: setting takes no lock. The lists change under one lock, which is never held while
// an element's function runs; who looks at a list gathers first what has arrived. Walk protocol of
// a pass: the head is unlinked and its owner and function copied before the call; afterwards the
// element is not touched, since its function may have freed it. Freeing an element waits for its
// function when that runs on the main thread and the caller is another one; for that `running`
// holds a frame for each pass under way, and an element that the main thread frees is taken out of
// it.
#include "sched/qelem.h"

#include <algorithm>
#include <cmath>
#include <thread>
#include <utility>

#include "platform/platform.h"
#include "sched/guarded.h"

namespace kiv {

namespace {

constexpr double system_pass_interval_ms = 33.333333;

// What a pass is calling now; on the main thread's stack. The main thread alone writes it.
struct Running {
    std::atomic<const Qelem *> element;
    Running *outer;
};

struct State {
    platform::CriticalSection lock;
    Queue low;
    Queue idle;
    Queue system;
    platform::Event wake{false};
    std::atomic<bool> wake_pending{false};
    Running *running = nullptr;  // innermost first; under the lock
    std::atomic<bool> low_disabled{false};
    // Of the main thread alone.
    int64_t low_passes = 0;
    double last_system_pass = -1e9;
    // Constant after start-up.
    Class *element_class = nullptr;
    Class *system_class = nullptr;
};
State &state() {
    return immortal<State>();
}

thread_local bool in_queue = false;

void count_add(Queue &queue, int difference) {
    const uint32_t count = queue.count.load(std::memory_order_relaxed);
    queue.count.store(count + static_cast<uint32_t>(difference), std::memory_order_relaxed);
}

void unlink(Qelem *element) {
    Queue &queue = *element->queue;
    (element->previous ? element->previous->next : queue.head) = element->next;
    (element->next ? element->next->previous : queue.tail) = element->previous;
    element->next = element->previous = nullptr;
    element->queue = nullptr;
    count_add(queue, -1);
}

void link_tail(Queue &queue, Qelem *element) {
    element->previous = queue.tail;
    (queue.tail ? queue.tail->next : queue.head) = element;
    queue.tail = element;
    element->queue = &queue;
    count_add(queue, 1);
}

void link_head(Queue &queue, Qelem *element) {
    element->next = queue.head;
    (queue.head ? queue.head->previous : queue.tail) = element;
    queue.head = element;
    element->queue = &queue;
    count_add(queue, 1);
}

// Called on other threads than the main one.
bool runs(const Qelem *element) {
    const Guard guard(state().lock);
    const Running *frame = state().running;
    while (frame && frame->element.load(std::memory_order_relaxed) != element) {
        frame = frame->outer;
    }
    return frame != nullptr;
}

// Unsets an element that is about to go, and waits for its function. One whose function frees it,
// or whatever that calls, is no longer what the pass runs: its memory may become another element.
void let_go(Qelem *element) {
    queue_remove(element);
    if (systhread_ismainthread()) {
        for (Running *frame = state().running; frame; frame = frame->outer) {
            if (frame->element.load(std::memory_order_relaxed) == element) {
                frame->element.store(nullptr, std::memory_order_relaxed);
            }
        }
        return;
    }
    while (runs(element)) {
        std::this_thread::yield();
    }
}

void element_free(Qelem *element) {
    let_go(element);
    statistics_freed(element);
}

Qelem *element_make(Class *c, void *owner, Method function) {
    auto *element = static_cast<Qelem *>(object_alloc(c));
    if (element) {
        element->owner = owner;
        element->function = function;
        statistics_made(element);
    }
    return element;
}

void *system_new(Symbol *, int32_t argc, Atom *argv) {
    void *const owner = argc > 0 ? atom_getobj(argv) : nullptr;
    void *const function = argc > 1 ? atom_getobj(argv + 1) : nullptr;
    return element_make(state().system_class, owner, reinterpret_cast<Method>(function));
}

void system_set(Qelem *element) {
    queue_append(state().system, element);
}

Class *make_class(const char *name, Method constructor) {
    Class *const c = class_new(name, constructor, method(element_free),
                               static_cast<int32_t>(sizeof(Qelem)), nullptr, TypeGimme, 0);
    c->flags |= ClassPermanent;
    class_obexoffset_set(c, -1);
    class_addmethod(c, method(qelem_owner_set), "setowner", TypeCant, 0);
    return c;
}

// Puts what has arrived at the end of the list; false when nothing has. Under the lock.
bool gather(Queue &queue) {
    Qelem *newest = queue.arrived.exchange(nullptr, std::memory_order_acq_rel);
    Qelem *oldest = nullptr;
    while (newest) {
        Qelem *const older = newest->next;
        newest->next = oldest;
        oldest = std::exchange(newest, older);
    }
    const bool any = oldest != nullptr;
    while (oldest) {
        link_tail(queue, std::exchange(oldest, oldest->next));
    }
    return any;
}

// Has an element with the flag in its list, which the thread that raised the flag may only be
// about to hand over; false when the flag has fallen meanwhile. Under the lock, but for pauses.
bool await_link(const Qelem *element) {
    State &s = state();
    while (element->set.load(std::memory_order_acquire) != 0) {
        if (element->queue) {
            return true;
        }
        if (!gather(s.low) && !gather(s.idle) && !gather(s.system)) {
            const Unguarded pause(s.lock);
            std::this_thread::yield();
        }
    }
    return false;
}

bool empty(const Queue &queue) {
    return queue.count.load(std::memory_order_relaxed) == 0 &&
           !queue.arrived.load(std::memory_order_acquire);
}

void call(void *owner, Method function) {
    EventContext context{owner, nullptr, nullptr};
    event_context_push(&context);
    guarded("queue element", owner, [&] { reinterpret_cast<void (*)(void *)>(function)(owner); });
    event_context_pop();
}

// Runs as many elements from the head of a queue as now wait in `counted`, but no more than `most`.
void run_elements(Queue &queue, Queue &counted, uint32_t most) {
    if (empty(queue) || empty(counted)) {
        return;
    }
    State &s = state();
    const Guard guard(s.lock);
    gather(queue);
    gather(counted);
    uint32_t count = std::min(counted.count.load(std::memory_order_relaxed), most);
    Running frame{nullptr, s.running};
    s.running = &frame;
    for (; count > 0 && (queue.head || gather(queue)); --count) {
        Qelem *const element = queue.head;
        void *const owner = element->owner;
        const Method function = element->function;
        unlink(element);
        frame.element.store(element, std::memory_order_relaxed);
        if (statistics_on()) {
            statistics_run(element);
        }
        element->set.exchange(0, std::memory_order_acq_rel);
        const Unguarded run(s.lock);
        call(owner, function);
    }
    s.running = frame.outer;
}

// How long the system queue has still to wait, in ms: whole ones, so that time moves however great
// it is.
double system_pass_delay() {
    const double passed = std::fabs(time_now() - state().last_system_pass);
    return passed > system_pass_interval_ms ? 0.0
                                            : std::floor(system_pass_interval_ms - passed) + 1.0;
}

}  // namespace

void deferred_start() noexcept {
    state().element_class = make_class("qelem", nullptr);
    class_register("nobox"_sym, state().element_class);
    state().system_class = make_class("sysqelem", method(system_new));
    class_addmethod(state().system_class, method(system_set), "set", TypeCant, 0);
    class_register("nobox"_sym, state().system_class);
    calls_start();
    schedule_queues_start();
    "qelem_setowner"_sym->thing = reinterpret_cast<void *>(qelem_owner_set);
}

void qelem_owner_set(Qelem *element, Object *owner) noexcept {
    if (element) {
        element->owner_object = owner;
    }
}

void call_element_begin(Qelem *element, void *owner, Method function) noexcept {
    object_begin(element, state().element_class);
    element->owner = owner;
    element->function = function;
    element->statistics.store(&call_statistics, std::memory_order_relaxed);
}

void call_element_end(Qelem *element) noexcept {
    let_go(element);
    element->ob.magic = 0;
}

void queue_append(Queue &queue, Qelem *element) noexcept {
    if (element->set.exchange(1, std::memory_order_acq_rel)) {
        if (statistics_on()) {
            statistics_already_set(element);
        }
        return;
    }
    if (statistics_on()) {
        const Guard guard(state().lock);
        statistics_set(element);
    }
    Qelem *newest = queue.arrived.load(std::memory_order_relaxed);
    do {
        element->next = newest;
    } while (!queue.arrived.compare_exchange_weak(newest, element, std::memory_order_acq_rel,
                                                  std::memory_order_relaxed));
    if (!newest) {
        main_wake();
    }
}

void queue_front(Queue &queue, Qelem *element) noexcept {
    bool was_empty = false;
    {
        const Guard guard(state().lock);
        was_empty = empty(queue);
        bool waits = false;
        do {
            waits = element->set.exchange(1, std::memory_order_acq_rel) != 0;
        } while (waits && !await_link(element));
        if (waits) {
            unlink(element);
        }
        link_head(queue, element);
        if (statistics_on()) {
            waits ? statistics_already_set(element) : statistics_set(element);
        }
    }
    if (was_empty) {
        main_wake();
    }
}

void queue_remove(Qelem *element) noexcept {
    if (element->set.load(std::memory_order_acquire) == 0) {
        return;  // nor is it linked
    }
    const Guard guard(state().lock);
    if (await_link(element)) {
        unlink(element);
        element->set.store(0, std::memory_order_release);
    }
}

platform::CriticalSection &queues_lock() noexcept {
    return state().lock;
}

Queue &low_queue() noexcept {
    return state().low;
}

int64_t low_queue_passes() noexcept {
    return state().low_passes;
}

void low_queue_disable(bool on) noexcept {
    state().low_disabled.store(on);
    main_wake();
}

// The idle queue has its turn before the low-priority one is emptied, or it would hardly ever run.
double main_queues_pass() noexcept {
    constexpr double held_retry_ms = 1.0;  // of a queue that may not run
    State &s = state();
    sched_idledequeue();
    const bool disabled = s.low_disabled.load();
    if (!disabled) {
        ++s.low_passes;
        const bool outer = std::exchange(in_queue, true);
        run_elements(s.low, s.low, queue_throttle());
        in_queue = outer;
    }
    if (!empty(s.system) && system_pass_delay() <= 0.0) {
        s.last_system_pass = time_now();
        run_elements(s.system, s.system, sysqelem_throttle());
    }
    if (!empty(s.low)) {
        return disabled || queue_throttle() == 0 ? held_retry_ms : 0.0;
    }
    return empty(s.system) ? -1.0 : system_pass_delay();
}

bool main_queues_empty() noexcept {
    return empty(state().low) && empty(state().system);
}

void main_wake() noexcept {
    if (!state().wake_pending.exchange(true)) {
        state().wake.set();
    }
}

void main_wait(double ms) noexcept {
    state().wake.wait(ms);
    // An exchange, so that what was set before a request that came too late to be one is seen.
    state().wake_pending.exchange(false);
}

}  // namespace kiv

using namespace kiv;

Qelem *qelem_new(void *owner, Method function) noexcept {
    return element_make(state().element_class, owner, function);
}

void qelem_free(Qelem *element) noexcept {
    object_free(element);
}

void qelem_set(Qelem *element) noexcept {
    if (element) {
        queue_append(state().low, element);
    }
}

void qelem_front(Qelem *element) noexcept {
    if (element) {
        queue_front(state().low, element);
    }
}

void qelem_unset(Qelem *element) noexcept {
    if (element) {
        queue_remove(element);
    }
}

void qelem_idleset(Qelem *element) noexcept {
    if (element) {
        queue_append(state().idle, element);
    }
}

void qelem_idlefront(Qelem *element) noexcept {
    if (element) {
        queue_front(state().idle, element);
    }
}

void qelem_idleunset(Qelem *element) noexcept {
    qelem_unset(element);
}

void qelem_idlefree(Qelem *element) noexcept {
    object_free(element);
}

int32_t sched_isinqueue() noexcept {
    return in_queue ? 1 : 0;
}

// The number run is counted on the low-priority queue: an idle pass beside an empty one runs
// nothing.
void sched_idledequeue() noexcept {
    if (systhread_ismainthread()) {
        run_elements(state().idle, state().low, queue_throttle());
    }
}
