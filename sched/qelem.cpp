// Queue elements and the main thread's three queues.
//
// Invariant: a linked element has its set flag; an element with the flag that is not linked is
// about to be linked by the thread that raised the flag, or has just been unlinked. Raising it is
// one atomic exchange, so setting an element that is set already takes no lock, and the run that
// follows sees what the setter wrote.
//
// Thread safety: all queues change under one lock, which is never held while an element's function
// runs. Walk protocol of a pass: the head is unlinked and its owner and function copied before the
// call; afterwards the element is not touched, since its function may have freed it. Freeing an
// element waits for its function when that runs on the main thread and the caller is another one;
// for that `running` holds a frame for each pass under way.
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

// What a pass is calling now; on the main thread's stack.
struct Running {
    const Qelem *element;  // null between two elements
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
    double last_system_pass = -1e9;
    Class *element_class = nullptr;
    Class *system_class = nullptr;
};
State &state() {
    return immortal<State>();
}

thread_local bool in_queue = false;

void unlink(Qelem *element) {
    Queue &queue = *element->queue;
    (element->previous ? element->previous->next : queue.head) = element->next;
    (element->next ? element->next->previous : queue.tail) = element->previous;
    element->next = element->previous = nullptr;
    element->queue = nullptr;
    queue.count.fetch_sub(1, std::memory_order_relaxed);
}

void link_tail(Queue &queue, Qelem *element) {
    element->previous = queue.tail;
    (queue.tail ? queue.tail->next : queue.head) = element;
    queue.tail = element;
    element->queue = &queue;
    queue.count.fetch_add(1, std::memory_order_relaxed);
}

void link_head(Queue &queue, Qelem *element) {
    element->next = queue.head;
    (queue.head ? queue.head->previous : queue.tail) = element;
    queue.head = element;
    element->queue = &queue;
    queue.count.fetch_add(1, std::memory_order_relaxed);
}

bool runs(const Qelem *element) {
    const Guard guard(state().lock);
    const Running *frame = state().running;
    while (frame && frame->element != element) {
        frame = frame->outer;
    }
    return frame != nullptr;
}

void element_free(Qelem *element) {
    queue_remove(element);
    while (!systhread_ismainthread() && runs(element)) {
        std::this_thread::yield();
    }
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
    class_obexoffset_set(c, -1);
    class_addmethod(c, method(qelem_owner_set), "setowner", TypeCant, 0);
    return c;
}

// Elements now waiting, but no more than `most`.
uint32_t waiting(const Queue &queue, uint32_t most) {
    return std::min(queue.count.load(std::memory_order_relaxed), most);
}

// Takes the head off a queue; null when it is empty.
Qelem *take_head(Queue &queue, Running *frame, void **owner, Method *function) {
    const Guard guard(state().lock);
    Qelem *const element = queue.head;
    frame->element = element;
    if (element) {
        unlink(element);
        *owner = element->owner;
        *function = element->function;
        statistics_run(element);
        element->set.exchange(0, std::memory_order_acq_rel);
    }
    return element;
}

void run_elements(Queue &queue, uint32_t count) {
    if (count == 0) {
        return;
    }
    Running frame{};
    {
        const Guard guard(state().lock);
        frame.outer = std::exchange(state().running, &frame);
    }
    void *owner = nullptr;
    Method function = nullptr;
    for (; count > 0 && take_head(queue, &frame, &owner, &function); --count) {
        EventContext context{owner, nullptr, nullptr};
        event_context_push(&context);
        guarded("queue element", owner,
                [&] { reinterpret_cast<void (*)(void *)>(function)(owner); });
        event_context_pop();
    }
    const Guard guard(state().lock);
    state().running = frame.outer;
}

// How long the system queue has still to wait, in ms. Offline it need not: time stands still.
double system_pass_delay() {
    const double passed = std::fabs(time_now() - state().last_system_pass);
    return time_is_offline() || passed > system_pass_interval_ms
               ? 0.0
               : std::max(system_pass_interval_ms - passed, 0.001);
}

bool empty(const Queue &queue) {
    return waiting(queue, 1) == 0;
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

void queue_append(Queue &queue, Qelem *element) noexcept {
    if (element->set.exchange(1, std::memory_order_acq_rel)) {
        statistics_already_set(element);
        return;
    }
    bool was_empty = false;
    {
        const Guard guard(state().lock);
        if (element->queue || !element->set.load(std::memory_order_relaxed)) {
            return;  // another thread linked it, or withdrew the request
        }
        was_empty = queue.head == nullptr;
        link_tail(queue, element);
        statistics_set(element);
    }
    if (was_empty) {
        main_wake();
    }
}

void queue_front(Queue &queue, Qelem *element) noexcept {
    bool was_empty = false;
    {
        const Guard guard(state().lock);
        was_empty = queue.head == nullptr;
        element->set.store(1, std::memory_order_release);
        if (element->queue) {
            unlink(element);
        }
        link_head(queue, element);
        statistics_set(element);
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
    if (element->queue) {
        unlink(element);
    }
    element->set.store(0, std::memory_order_release);
}

Queue &low_queue() noexcept {
    return state().low;
}

void low_queue_disable(bool on) noexcept {
    state().low_disabled.store(on);
    main_wake();
}

// The idle queue has its turn before the low-priority one is emptied, or it would hardly ever run.
double main_queues_pass() noexcept {
    constexpr double disabled_retry_ms = 1.0;
    sched_idledequeue();
    const bool disabled = state().low_disabled.load();
    if (!disabled) {
        const bool outer = std::exchange(in_queue, true);
        run_elements(state().low, waiting(state().low, queue_throttle()));
        in_queue = outer;
    }
    if (!empty(state().system) && system_pass_delay() <= 0.0) {
        state().last_system_pass = time_now();
        run_elements(state().system, waiting(state().system, sysqelem_throttle()));
    }
    if (!empty(state().low)) {
        return disabled ? disabled_retry_ms : 0.0;
    }
    return empty(state().system) ? -1.0 : system_pass_delay();
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
    state().wake_pending.store(false);
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
    run_elements(state().idle, waiting(state().low, queue_throttle()));
}
