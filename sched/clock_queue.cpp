// The order of waiting clocks: a skip list whose lowest lane is the `next` chain that everybody
// sees.
//
// A tree would set and unset as fast, but the chain in firing order is what walks the queue; lanes
// over that chain keep one structure instead of two, and ask for no memory when a clock is set.
// Everything here runs under the queue lock.
//
// Who looks at the chain settles it first: what was set since the last look is put into its place.
// So a clock that is set over and over, or unset before anybody looked, costs no search at all; and
// since few clocks can wait to be placed, no look takes long.
#include <algorithm>
#include <bit>
#include <limits>
#include <span>

#include "sched/scheduler.h"

namespace kiv {

namespace {

// Where a clock goes on the express lanes: behind one link of each.
struct Place {
    ClockLink *express[clock_express_lanes];
};

// In place of a sequence: behind all clocks of the same time.
constexpr uint64_t behind_equals = std::numeric_limits<uint64_t>::max();

bool before(const Clock *a, double sort_time, uint64_t sequence) {
    return a->sort_time < sort_time || (a->sort_time == sort_time && a->sequence < sequence);
}

// Looks at the clock itself only where it must: it is seldom in the cache.
bool before(const ClockLink &a, double sort_time, uint64_t sequence) {
    return a.sort_time < sort_time ||
           (a.sort_time == sort_time &&
            (sequence == behind_equals || a.next->clock->sequence < sequence));
}

bool before(const ClockArrival &a, const ClockArrival &b) {
    return a.sort_time < b.sort_time || (a.sort_time == b.sort_time && a.sequence < b.sequence);
}

Place first_place(Scheduler *owner) {
    Place place;
    for (int lane = 0; lane < owner->lanes; ++lane) {
        place.express[lane] = &owner->express[lane];
    }
    return place;
}

// Moves a place on to that of a later clock; the last clock found to stand before it, or null. What
// an upper lane leads to lies beyond where the lower ones had got to, since it was not before the
// clock that they led to.
Clock *advance(const Scheduler *owner, Place &place, double sort_time, uint64_t sequence) {
    ClockTower *left = nullptr;
    for (int lane = owner->lanes - 1; lane >= 0; --lane) {
        ClockLink *link = left ? &left->link(lane) : place.express[lane];
        while (link->next && before(*link, sort_time, sequence)) {
            left = link->next;
            link = &left->link(lane);
        }
        place.express[lane] = link;
    }
    return left ? left->clock : nullptr;
}

void join_lanes(const Place &place, Clock *clock) {
    ClockTower *const tower = clock->tower;
    for (int lane = 0; tower && lane < tower->lanes; ++lane) {
        ClockLink *const back = place.express[lane];
        ClockLink &link = tower->link(lane);
        link = {back->next, back->sort_time, back};
        if (link.next) {
            link.next->link(lane).back = &link;
        }
        back->next = tower;
        back->sort_time = clock->sort_time;
    }
}

// Puts a clock into the chain, somewhere behind `previous` (null: anywhere).
void join_chain(Scheduler *owner, Clock *previous, Clock *clock, uint64_t sequence) {
    Clock *next = previous ? previous->next : owner->queue;
    while (next && before(next, clock->sort_time, sequence)) {
        previous = next;
        next = next->next;
    }
    clock->previous = previous;
    clock->next = next;
    (previous ? previous->next : owner->queue) = clock;
    if (next) {
        next->previous = clock;
    }
}

// What firing a clock reads of it lies on three cache lines.
void prefetch(const Clock *clock) {
    const auto *bytes = reinterpret_cast<const char *>(clock);
    for (size_t line = 0; line < 192; line += 64) {
        __builtin_prefetch(bytes + line);
    }
}

void unlink(Scheduler *owner, Clock *clock) {
    (clock->previous ? clock->previous->next : owner->queue) = clock->next;
    if (clock->next) {
        clock->next->previous = clock->previous;
    }
    ClockTower *const tower = clock->tower;
    for (int lane = 0; tower && lane < tower->lanes; ++lane) {
        const ClockLink &link = tower->link(lane);
        link.back->next = link.next;
        link.back->sort_time = link.sort_time;
        if (link.next) {
            link.next->link(lane).back = link.back;
        }
    }
    clock->next = clock->previous = nullptr;
}

}  // namespace

// The heights are chosen once, by a mixed count of the clocks made.
ClockTower *clock_tower_new(Clock *clock) noexcept {
    static std::atomic<uint64_t> made{0};
    uint64_t bits = made.fetch_add(1, std::memory_order_relaxed) * 0x9e3779b97f4a7c15u;
    bits = (bits ^ (bits >> 32)) * 0xd6e8feb86659fd93u;
    bits ^= bits >> 32;
    const int height = std::countr_zero(bits | uint64_t{1} << clock_express_lanes);
    if (height == 0) {
        return nullptr;
    }
    auto *tower = static_cast<ClockTower *>(sysmem_newptrclear(static_cast<int64_t>(
        sizeof(ClockTower) + static_cast<size_t>(height) * sizeof(ClockLink))));
    if (tower) {
        tower->clock = clock;
        tower->lanes = height;
    }
    return tower;
}

void clock_link(Scheduler *owner, Clock *clock) noexcept {
    if (owner->arrival_count == most_arrivals) {
        clocks_settle(owner);
    }
    if (clock->tower) {
        owner->lanes = std::max(owner->lanes, clock->tower->lanes);
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
    if (owner->queue == clock && clock->next && clock->next->next) {
        prefetch(clock->next->next);  // fired after the next one
    }
    unlink(owner, clock);
}

// In order, so that each place is found from the one before; and first all the lanes, so that the
// clocks they lead to are in the cache when the chain is joined. Each was set after all that stand
// at its time.
void clocks_settle(Scheduler *owner) noexcept {
    if (owner->arrival_count == 0) {
        return;
    }
    const std::span arrivals(owner->arrivals, static_cast<size_t>(owner->arrival_count));
    std::sort(arrivals.begin(), arrivals.end(),
              [](const ClockArrival &a, const ClockArrival &b) { return before(a, b); });
    Place place = first_place(owner);
    for (const ClockArrival &arrival : arrivals) {
        Clock *const left = advance(owner, place, arrival.sort_time, behind_equals);
        if (left) {
            prefetch(left);
        }
        arrival.clock->previous = left;
        join_lanes(place, arrival.clock);
    }
    constexpr size_t ahead = 8;
    Clock *left = nullptr;
    for (size_t i = 0; i < arrivals.size(); ++i) {
        if (i + ahead < arrivals.size()) {
            if (const Clock *const later = arrivals[i + ahead].clock->previous) {
                prefetch(later->next);
            }
        }
        Clock *const clock = arrivals[i].clock;
        join_chain(owner, clock->previous ? clock->previous : left, clock, behind_equals);
        clock->arrival = 0;
        left = clock;
    }
    owner->arrival_count = 0;
}

void clocks_shift(Scheduler *owner, const Scheduler *scheduler, double delta) noexcept {
    clocks_settle(owner);
    Clock *clock = owner->queue;
    owner->queue = nullptr;
    std::fill_n(owner->express, clock_express_lanes, ClockLink{});
    while (clock) {
        Clock *const next = clock->next;
        if (clock->scheduler == scheduler) {
            clock->time += delta;
            clock->sort_time += delta;
        }
        // The old sequence stays: clocks with equal times keep the order of their setting.
        Place place = first_place(owner);
        Clock *const left = advance(owner, place, clock->sort_time, clock->sequence);
        join_lanes(place, clock);
        join_chain(owner, left, clock, clock->sequence);
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
        if ((clock->previous ? clock->previous->next : scheduler->queue) != clock) {
            return "a waiting clock does not follow the one before it";
        }
        if (clock->next && !before(clock, clock->next->sort_time, clock->next->sequence)) {
            return "clocks are out of order";
        }
    }
    for (int lane = 0; lane < clock_express_lanes; ++lane) {
        const Clock *waiting = scheduler->queue;
        for (const ClockLink *link = &scheduler->express[lane]; link->next;
             link = &link->next->link(lane)) {
            ClockTower *const tower = link->next;
            while (waiting && waiting->tower != tower) {
                waiting = waiting->next;
            }
            if (!waiting || tower->clock != waiting || tower->lanes <= lane) {
                return "an express lane holds a clock that is not on it";
            }
            if (tower->link(lane).back != link || waiting->sort_time != link->sort_time) {
                return "an express lane has a link wrong";
            }
        }
    }
    return nullptr;
}

}  // namespace kiv
