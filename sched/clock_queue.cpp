// The order of waiting clocks: a skip list whose lowest lane is the `next` chain that everybody
// sees.
//
// A tree would set and unset as fast, but the chain in firing order is what walks the queue; lanes
// over that chain keep one structure instead of two. Everything here runs under the queue lock.
//
// Who looks at the chain settles it first: what was set since the last look is put into its place.
// So a clock that is set over and over, or unset before anybody looked, costs no search at all; and
// since few clocks can wait to be placed, no look takes long.
#include <algorithm>
#include <limits>

#include "sched/scheduler.h"

namespace kiv {

namespace {

constexpr int lanes = clock_express_lanes;

// The links that lead to the place of a clock: in the chain, and in each express lane.
struct Place {
    Clock **chain;
    ClockLane *express[lanes];
};

// In place of a sequence: behind all clocks of the same time.
constexpr uint64_t behind_equals = std::numeric_limits<uint64_t>::max();

bool before(const Clock *a, double sort_time, uint64_t sequence) {
    return a->sort_time < sort_time || (a->sort_time == sort_time && a->sequence < sequence);
}

// Looks at the clock itself only where it must: it is seldom in the cache.
bool before(const ClockLane &a, double sort_time, uint64_t sequence) {
    return a.sort_time < sort_time ||
           (a.sort_time == sort_time && (sequence == behind_equals || a.next->sequence < sequence));
}

Place first_place(Scheduler *owner) {
    Place place;
    place.chain = &owner->queue;
    for (int lane = 0; lane < lanes; ++lane) {
        place.express[lane] = &owner->express[lane];
    }
    return place;
}

// Moves a place on to that of a later clock. What an upper lane leads to lies beyond where the
// lower ones had got to, since it was not before the clock that they led to.
void advance(Place &place, double sort_time, uint64_t sequence) {
    Clock *left = nullptr;  // the last clock known to stand before the place
    for (int lane = lanes - 1; lane >= 0; --lane) {
        ClockLane *link = left ? &left->express[lane] : place.express[lane];
        while (link->next && before(*link, sort_time, sequence)) {
            left = link->next;
            link = &left->express[lane];
        }
        place.express[lane] = link;
    }
    Clock **link = left ? &left->next : place.chain;
    while (*link && before(*link, sort_time, sequence)) {
        link = &(*link)->next;
    }
    place.chain = link;
}

Place find_place(Scheduler *owner, const Clock *clock) {
    Place place = first_place(owner);
    advance(place, clock->sort_time, clock->sequence);
    return place;
}

// A quarter of the clocks on each next lane; a generator of its own, under the lock that is held.
int random_height(Scheduler *owner) {
    owner->random = owner->random * 6364136223846793005u + 1442695040888963407u;
    const uint64_t bits = owner->random >> 40;
    int height = 1;
    while (height <= lanes && ((bits >> (2 * height)) & 3) == 0) {
        ++height;
    }
    return height;
}

// What firing a clock reads of it lies on three cache lines.
void prefetch(const Clock *clock) {
    const auto *bytes = reinterpret_cast<const char *>(clock);
    for (size_t line = 0; line < 192; line += 64) {
        __builtin_prefetch(bytes + line);
    }
}

void link_at(const Place &place, Clock *clock) {
    clock->next = *place.chain;
    *place.chain = clock;
    for (int lane = 0; lane < clock->height - 1; ++lane) {
        clock->express[lane] = *place.express[lane];
        *place.express[lane] = {clock, clock->sort_time};
    }
}

}  // namespace

void clock_link(Scheduler *owner, Clock *clock) noexcept {
    if (owner->arrival_count == most_arrivals) {
        clocks_settle(owner);
    }
    clock->sequence = ++owner->settings;
    clock->queue_slot = &owner->queue;
    owner->arrivals[owner->arrival_count++] = {clock, clock->sort_time};
    clock->arrival = owner->arrival_count;
}

void clock_unlink(Scheduler *owner, Clock *clock) noexcept {
    clock->queue_slot = nullptr;
    if (clock->arrival != 0) {
        const ClockLane last = owner->arrivals[--owner->arrival_count];
        owner->arrivals[clock->arrival - 1] = last;
        last.next->arrival = clock->arrival;
        clock->arrival = 0;
        return;
    }
    if (owner->queue == clock) {  // the head is the head of every lane it is on
        owner->queue = clock->next;
        std::copy_n(clock->express, clock->height - 1, owner->express);
        prefetch(owner->queue);  // the next to be fired
    } else {
        const Place place = find_place(owner, clock);
        *place.chain = clock->next;
        for (int lane = 0; lane < clock->height - 1; ++lane) {
            *place.express[lane] = clock->express[lane];
        }
    }
    clock->next = nullptr;
}

// In order, so that each place is found from the one before.
void clocks_settle(Scheduler *owner) noexcept {
    if (owner->arrival_count == 0) {
        return;
    }
    std::sort(owner->arrivals, owner->arrivals + owner->arrival_count,
              [](const ClockLane &a, const ClockLane &b) {
                  return before(a, b.sort_time, b.next->sequence);
              });
    Place place = first_place(owner);
    for (int32_t i = 0; i < owner->arrival_count; ++i) {
        Clock *const clock = owner->arrivals[i].next;
        clock->arrival = 0;
        clock->height = random_height(owner);
        advance(place, clock->sort_time, behind_equals);  // it was set after all that stand there
        link_at(place, clock);
    }
    owner->arrival_count = 0;
}

void clocks_shift(Scheduler *owner, const Scheduler *scheduler, double delta) noexcept {
    clocks_settle(owner);
    Clock *clock = owner->queue;
    owner->queue = nullptr;
    std::fill_n(owner->express, lanes, ClockLane{});
    while (clock) {
        Clock *const next = clock->next;
        if (clock->scheduler == scheduler) {
            clock->time += delta;
            clock->sort_time += delta;
        }
        // The old sequence stays: clocks with equal times keep the order of their setting.
        link_at(find_place(owner, clock), clock);
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
        if (clock->next && !before(clock, clock->next->sort_time, clock->next->sequence)) {
            return "clocks are out of order";
        }
    }
    for (int lane = 0; lane < lanes; ++lane) {
        const Clock *waiting = scheduler->queue;
        for (const ClockLane *link = &scheduler->express[lane]; link->next;
             link = &link->next->express[lane]) {
            while (waiting && waiting != link->next) {
                waiting = waiting->next;
            }
            if (!waiting || waiting->height < lane + 2) {
                return "an express lane holds a clock that is not on it";
            }
            if (waiting->sort_time != link->sort_time) {
                return "an express lane has a clock's time wrong";
            }
        }
    }
    return nullptr;
}

}  // namespace kiv
