// Queue elements and queues, shared by the files of this folder.
#pragma once

#include <kiv/atom.h>
#include <kiv/defer.h>

#include <atomic>

#include "kernel/internal.h"
#include "sched/scheduler.h"

namespace kiv {

// A doubly linked list of waiting elements, which changes under the one lock of all queues, and
// the elements that were set since somebody last looked at it, newest first.
struct Queue {
    Qelem *head = nullptr;
    Qelem *tail = nullptr;
    std::atomic<uint32_t> count{0};  // in the list; read without the lock
    alignas(64) std::atomic<Qelem *> arrived{nullptr};
};

// How an element, or all deferred calls, were used while statistics were on; changes under the
// queues' lock, but for `already_set`.
struct QelemStatistics {
    int64_t sets;                      // that put it into a queue
    std::atomic<int64_t> already_set;  // that found it waiting
    int64_t runs;
    double waited_ms;
    double longest_ms;
};

}  // namespace kiv

struct Qelem {
    Object ob;
    Qelem *next;
    void *owner;
    Method function;
    std::atomic<int16_t> set;  // a run is asked for
    Object *owner_object;
    std::atomic<kiv::QelemStatistics *> statistics;  // null: not counted
    // Private from here on; changed under the queues' lock.
    Qelem *previous;
    kiv::Queue *queue;                 // in which it is linked, or null
    double set_at;                     // ms on the platform's clock; 0: was not counted
    Qelem *list_next, *list_previous;  // among all elements that are objects of their own
};

namespace kiv {

platform::CriticalSection &queues_lock() noexcept;
Queue &low_queue() noexcept;
int64_t low_queue_passes() noexcept;                       // so far; main thread
void queue_append(Queue &queue, Qelem *element) noexcept;  // no effect when it waits already
void queue_front(Queue &queue, Qelem *element) noexcept;
void queue_remove(Qelem *element) noexcept;
void qelem_owner_set(Qelem *element, Object *owner) noexcept;

// An element inside the record of a deferred call. Ending it unsets it, and waits for its function
// when that runs on another thread.
void call_element_begin(Qelem *element, void *owner, Method function) noexcept;
void call_element_end(Qelem *element) noexcept;

// Statistics (qelem_statistics.cpp). The last three are called while they are on.
inline std::atomic<bool> statistics_counting{false};
inline bool statistics_on() noexcept {
    return statistics_counting.load(std::memory_order_acquire);
}
extern QelemStatistics call_statistics;  // of all elements of deferred calls
void statistics_made(Qelem *element) noexcept;
void statistics_freed(Qelem *element) noexcept;
void statistics_set(Qelem *element) noexcept;  // with the queues' lock
void statistics_run(Qelem *element) noexcept;  // likewise
void statistics_already_set(Qelem *element) noexcept;

}  // namespace kiv
