// The order of waiting clocks: the `next` chain that everybody sees, and a tree beside it in which
// a place is found. Everything here runs under the queue lock.
//
// Who looks at the chain settles it first: what was set since the last look is put into its place.
// So a clock that is set over and over, or unset before anybody looked, costs no search at all; and
// since few clocks can wait to be placed, no look takes long.
#include <algorithm>
#include <span>

#include "sched/scheduler.h"

namespace kiv {

namespace {

constexpr int32_t fired_ahead = 4;  // a clock is fetched so many before its turn

// What firing or linking a clock touches of it: all that stands in front of its private fields.
void prefetch(const Clock *clock) {
    const auto *bytes = reinterpret_cast<const char *>(clock);
    __builtin_prefetch(bytes + offsetof(Clock, next), 1);
    __builtin_prefetch(bytes + offsetof(Clock, deferral), 1);
}

// Puts a clock into the chain behind `previous`, or in front of it all.
void chain(Scheduler *owner, Clock *previous, Clock *clock) {
    Clock *&link = previous ? previous->next : owner->queue;
    clock->next = link;
    link = clock;
}

}  // namespace

void clock_link(Scheduler *owner, Clock *clock) noexcept {
    if (owner->arrival_count == most_arrivals) {
        clocks_settle(owner);
    }
    clock->sequence = ++owner->settings;
    clock->queue_slot = &owner->queue;
    owner->arrivals[owner->arrival_count++] = {clock, clock->sort_time, clock->sequence};
    clock->arrival = owner->arrival_count;
}

void clock_unlink(Scheduler *owner, Clock *clock) noexcept {
    clock->queue_slot = nullptr;
    if (clock->arrival != 0) {
        const ClockArrival last = owner->arrivals[--owner->arrival_count];
        owner->arrivals[clock->arrival - 1] = last;
        last.clock->arrival = clock->arrival;
        clock->arrival = 0;
        return;
    }
    if (owner->queue == clock) {
        owner->tree.remove_first();
        owner->queue = clock->next;
        if (const Clock *const soon = owner->tree.near_first(fired_ahead)) {
            prefetch(soon);
        }
    } else {
        owner->tree.remove(clock)->next = clock->next;
    }
    clock->next = nullptr;
}

// The chain after the tree, so that the clocks found there have come into the cache; and in the
// same order, in which each is still the one before. Where nothing waits, clocks in order all go to
// the end; elsewhere their order is no help.
void clocks_settle(Scheduler *owner) noexcept {
    if (owner->arrival_count == 0) {
        return;
    }
    const std::span arrivals(owner->arrivals, static_cast<size_t>(owner->arrival_count));
    if (!owner->queue) {
        std::sort(arrivals.begin(), arrivals.end(), fires_before);
    }
    Clock *previous[most_arrivals];
    owner->tree.insert(arrivals, previous);
    for (size_t i = 0; i < arrivals.size(); ++i) {
        chain(owner, previous[i], arrivals[i].clock);
        arrivals[i].clock->arrival = 0;
    }
    owner->arrival_count = 0;
}

// The old sequences stay: clocks with equal times keep the order of their setting.
void clocks_shift(Scheduler *owner, const Scheduler *scheduler, double delta) noexcept {
    clocks_settle(owner);
    owner->tree.clear();
    Clock *clock = owner->queue;
    owner->queue = nullptr;
    while (clock) {
        Clock *const next = clock->next;
        if (clock->scheduler == scheduler) {
            clock->time += delta;
            clock->sort_time += delta;
        }
        Clock *previous = nullptr;
        const ClockArrival arrival{clock, clock->sort_time, clock->sequence};
        owner->tree.insert(std::span(&arrival, 1), &previous);
        chain(owner, previous, clock);
        clock = next;
    }
}

void clocks_move(Scheduler *from, Scheduler *to, const Scheduler *scheduler) noexcept {
    clocks_settle(from);
    for (Clock *clock = from->queue; clock;) {
        Clock *const next = clock->next;
        if (clock->scheduler == scheduler) {
            clock_unlink(from, clock);
            clock_link(to, clock);
        }
        clock = next;
    }
}

const char *clock_queue_check(Scheduler *scheduler) noexcept {
    const Guard guard(scheduler->queue_lock);
    clocks_settle(scheduler);
    for (const Clock *clock = scheduler->queue; clock; clock = clock->next) {
        if (clock->queue_slot != &scheduler->queue) {
            return "a waiting clock does not name its queue";
        }
        if (clock->next && !fires_before(*clock, *clock->next)) {
            return "clocks are out of order";
        }
    }
    return scheduler->tree.check(scheduler->queue);
}

}  // namespace kiv
