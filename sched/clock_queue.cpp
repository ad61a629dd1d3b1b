// The order of waiting clocks: a skip list whose lowest lane is the `next` chain that everybody
// sees.
//
// A tree would set and unset as fast, but the chain in firing order is what walks the queue; lanes
// over that chain keep one structure instead of two. Everything here runs under the queue lock.
#include "sched/scheduler.h"

namespace kiv {

namespace {

constexpr int lanes = clock_express_lanes;

// The links that lead to the place of a clock: [0] in the chain, [l] in express lane l - 1.
struct Place {
    Clock **links[lanes + 1];
};

bool before(const Clock *a, double sort_time, uint64_t sequence) {
    return a->sort_time < sort_time || (a->sort_time == sort_time && a->sequence < sequence);
}

Place find_place(Scheduler *owner, double sort_time, uint64_t sequence) {
    Place place;
    Clock *left = nullptr;  // the last clock known to stand before the place
    for (int lane = lanes - 1; lane >= 0; --lane) {
        Clock **link = left ? &left->express[lane] : &owner->express[lane];
        while (*link && before(*link, sort_time, sequence)) {
            left = *link;
            link = &left->express[lane];
        }
        place.links[lane + 1] = link;
    }
    Clock **link = left ? &left->next : &owner->queue;
    while (*link && before(*link, sort_time, sequence)) {
        link = &(*link)->next;
    }
    place.links[0] = link;
    return place;
}

int random_height() {
    const uint32_t bits = kernel_random();
    int height = 1;
    while (height <= lanes && ((bits >> (2 * height)) & 3) == 0) {
        ++height;
    }
    return height;
}

void link_at(const Place &place, Clock *clock) {
    clock->next = *place.links[0];
    *place.links[0] = clock;
    for (int level = 1; level < clock->height; ++level) {
        clock->express[level - 1] = *place.links[level];
        *place.links[level] = clock;
    }
}

}  // namespace

bool clock_link(Scheduler *owner, Clock *clock) noexcept {
    clock->sequence = ++owner->settings;
    clock->height = random_height();
    link_at(find_place(owner, clock->sort_time, clock->sequence), clock);
    clock->queue_slot = &owner->queue;
    return owner->queue == clock;
}

void clock_unlink(Scheduler *owner, Clock *clock) noexcept {
    if (owner->queue == clock) {  // the head is the head of every lane it is on
        owner->queue = clock->next;
        for (int level = 1; level < clock->height; ++level) {
            owner->express[level - 1] = clock->express[level - 1];
        }
    } else {
        const Place place = find_place(owner, clock->sort_time, clock->sequence);
        *place.links[0] = clock->next;
        for (int level = 1; level < clock->height; ++level) {
            *place.links[level] = clock->express[level - 1];
        }
    }
    clock->next = nullptr;
    clock->queue_slot = nullptr;
}

void clocks_shift(Scheduler *owner, const Scheduler *scheduler, double delta) noexcept {
    Clock *clock = owner->queue;
    owner->queue = nullptr;
    for (Clock *&head : owner->express) {
        head = nullptr;
    }
    while (clock) {
        Clock *const next = clock->next;
        if (clock->scheduler == scheduler) {
            clock->time += delta;
            clock->sort_time += delta;
        }
        // The old sequence stays: clocks with equal times keep the order of their setting.
        link_at(find_place(owner, clock->sort_time, clock->sequence), clock);
        clock = next;
    }
}

void clocks_move(Scheduler *from, Scheduler *to, const Scheduler *scheduler) noexcept {
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
        for (const Clock *clock = scheduler->express[lane]; clock; clock = clock->express[lane]) {
            while (waiting && waiting != clock) {
                waiting = waiting->next;
            }
            if (!waiting || clock->height < lane + 2) {
                return "an express lane holds a clock that is not on it";
            }
        }
    }
    return nullptr;
}

}  // namespace kiv
