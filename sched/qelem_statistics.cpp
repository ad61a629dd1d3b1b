// The list of queue elements and how each is used, for whoever looks for what keeps the main thread
// busy.
//
// An element gets its record when statistics are switched on, or when it is made while they are; it
// keeps it to its end, so that it can be counted in without a lock. The elements of deferred calls
// run once: they are counted together, and are not in the list. The queues' lock guards the list;
// it is not held while anything is posted.
#include <kiv/console.h>

#include <algorithm>

#include "platform/platform.h"
#include "sched/qelem.h"

namespace kiv {

QelemStatistics call_statistics{};

namespace {

struct {
    Qelem *elements = nullptr;  // newest first
    int64_t passes_before = 0;
} state;

struct Line {
    const char *what;
    void *owner;
    int64_t sets, already_set, runs;
    double waited_ms, longest_ms;
};

// Gives an element a record; without memory it is not counted.
void add_record(Qelem *element) {
    if (void *const block = sysmem_newptr(sizeof(QelemStatistics))) {
        element->statistics.store(new (block) QelemStatistics{}, std::memory_order_release);
    }
}

void clear(QelemStatistics &counts) {
    counts.sets = counts.runs = 0;
    counts.already_set.store(0);
    counts.waited_ms = counts.longest_ms = 0.0;
}

void begin_counting() {
    const Guard guard(queues_lock());
    clear(call_statistics);
    for (Qelem *element = state.elements; element; element = element->list_next) {
        element->set_at = 0.0;
        if (QelemStatistics *const counts = element->statistics.load()) {
            clear(*counts);
        } else {
            add_record(element);
        }
    }
    state.passes_before = low_queue_passes();
    statistics_counting.store(true, std::memory_order_release);
}

void add_line(Vector<Line> &lines, const char *what, void *owner, const QelemStatistics *counts) {
    if (counts && counts->sets != 0) {
        lines.push_back({what, owner, counts->sets, counts->already_set.load(), counts->runs,
                         counts->waited_ms, counts->longest_ms});
    }
}

// A copy, since posting sets queue elements itself.
Vector<Line> used_elements() {
    Vector<Line> lines;
    const Guard guard(queues_lock());
    add_line(lines, "deferred calls", nullptr, &call_statistics);
    for (const Qelem *element = state.elements; element; element = element->list_next) {
        add_line(lines, "queue element", element->owner, element->statistics.load());
    }
    return lines;
}

}  // namespace

void statistics_made(Qelem *element) noexcept {
    const Guard guard(queues_lock());
    if (statistics_on()) {
        add_record(element);
    }
    element->list_next = state.elements;
    if (element->list_next) {
        element->list_next->list_previous = element;
    }
    state.elements = element;
}

void statistics_freed(Qelem *element) noexcept {
    {
        const Guard guard(queues_lock());
        (element->list_previous ? element->list_previous->list_next : state.elements) =
            element->list_next;
        if (element->list_next) {
            element->list_next->list_previous = element->list_previous;
        }
    }
    sysmem_freeptr(element->statistics.load());
}

void statistics_set(Qelem *element) noexcept {
    if (QelemStatistics *const counts = element->statistics.load()) {
        ++counts->sets;
        element->set_at = platform::time_ms();
    }
}

void statistics_already_set(Qelem *element) noexcept {
    if (QelemStatistics *const counts = element->statistics.load()) {
        counts->already_set.fetch_add(1, std::memory_order_relaxed);
    }
}

void statistics_run(Qelem *element) noexcept {
    QelemStatistics *const counts = element->statistics.load();
    if (counts && element->set_at > 0.0) {
        const double waited = platform::time_ms() - element->set_at;
        element->set_at = 0.0;
        ++counts->runs;
        counts->waited_ms += waited;
        counts->longest_ms = std::max(counts->longest_ms, waited);
    }
}

void queue_statistics(bool on) noexcept {
    if (on) {
        begin_counting();
        return;
    }
    if (!statistics_counting.exchange(false)) {
        return;
    }
    post("low-priority queue: %lld passes",
         static_cast<long long>(low_queue_passes() - state.passes_before));
    try {
        for (const Line &line : used_elements()) {
            object_post(object_valid(line.owner) ? line.owner : nullptr,
                        "%s: %lld sets, %lld while set, %lld runs, waited %.3f ms (%.3f at most)",
                        line.what, static_cast<long long>(line.sets),
                        static_cast<long long>(line.already_set), static_cast<long long>(line.runs),
                        line.waited_ms, line.longest_ms);
        }
    } catch (const std::bad_alloc &) {
        // Reported where it failed.
    }
}

}  // namespace kiv
