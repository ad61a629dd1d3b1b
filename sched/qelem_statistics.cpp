// The list of queue elements and how each is used, for whoever looks for what keeps the main thread
// busy.
//
// The list exists from the first time that statistics are switched on; elements made from then on
// are in it and have a record. A record lives as long as its element, so that it can be counted in
// without a lock. `lock` guards the list; it is never held while anything is called or posted.
#include <kiv/console.h>

#include <algorithm>

#include "platform/platform.h"
#include "sched/qelem.h"

namespace kiv {

namespace {

struct State {
    platform::CriticalSection lock;
    std::atomic<bool> listing{false};
    std::atomic<bool> counting{false};
    Qelem *elements = nullptr;  // newest first
};
State &state() {
    return immortal<State>();
}

struct Line {
    void *owner;
    int64_t sets, already_set, runs;
    double waited_ms, longest_ms;
};

void clear_all() {
    const Guard guard(state().lock);
    for (Qelem *element = state().elements; element; element = element->list_next) {
        QelemStatistics &counts = *element->statistics;
        counts.sets = counts.runs = 0;
        counts.already_set.store(0);
        counts.waited_ms = counts.longest_ms = 0.0;
    }
}

// A copy, since posting sets queue elements itself.
Vector<Line> used_elements() {
    Vector<Line> lines;
    const Guard guard(state().lock);
    for (const Qelem *element = state().elements; element; element = element->list_next) {
        const QelemStatistics &counts = *element->statistics;
        if (counts.sets != 0) {
            lines.push_back({element->owner, counts.sets, counts.already_set.load(), counts.runs,
                             counts.waited_ms, counts.longest_ms});
        }
    }
    return lines;
}

}  // namespace

bool statistics_on() noexcept {
    return state().counting.load(std::memory_order_relaxed);
}

void statistics_made(Qelem *element) noexcept {
    if (!state().listing.load(std::memory_order_relaxed)) {
        return;
    }
    element->statistics =
        static_cast<QelemStatistics *>(sysmem_newptrclear(sizeof(QelemStatistics)));
    if (!element->statistics) {
        return;
    }
    const Guard guard(state().lock);
    element->list_next = state().elements;
    if (element->list_next) {
        element->list_next->list_previous = element;
    }
    state().elements = element;
}

void statistics_freed(Qelem *element) noexcept {
    if (!element->statistics) {
        return;
    }
    {
        const Guard guard(state().lock);
        (element->list_previous ? element->list_previous->list_next : state().elements) =
            element->list_next;
        if (element->list_next) {
            element->list_next->list_previous = element->list_previous;
        }
    }
    sysmem_freeptr(element->statistics);
}

void statistics_set(Qelem *element) noexcept {
    if (statistics_on() && element->statistics) {
        const Guard guard(state().lock);
        ++element->statistics->sets;
        element->statistics->set_at = platform::time_ms();
    }
}

void statistics_already_set(Qelem *element) noexcept {
    if (statistics_on() && element->statistics) {
        element->statistics->already_set.fetch_add(1, std::memory_order_relaxed);
    }
}

void statistics_run(Qelem *element) noexcept {
    if (statistics_on() && element->statistics && element->statistics->set_at > 0.0) {
        const Guard guard(state().lock);
        QelemStatistics &counts = *element->statistics;
        const double waited = platform::time_ms() - counts.set_at;
        ++counts.runs;
        counts.waited_ms += waited;
        counts.longest_ms = std::max(counts.longest_ms, waited);
    }
}

void queue_statistics(bool on) noexcept {
    if (on) {
        clear_all();
        state().listing.store(true);
        state().counting.store(true);
        return;
    }
    if (!state().counting.exchange(false)) {
        return;
    }
    try {
        for (const Line &line : used_elements()) {
            object_post(object_valid(line.owner) ? line.owner : nullptr,
                        "queue element: %lld sets, %lld while set, %lld runs, waited %.3f ms (%.3f "
                        "at most)",
                        static_cast<long long>(line.sets), static_cast<long long>(line.already_set),
                        static_cast<long long>(line.runs), line.waited_ms, line.longest_ms);
        }
    } catch (const std::bad_alloc &) {
        // Reported where it failed.
    }
}

}  // namespace kiv
