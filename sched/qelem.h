// Queue elements and queues, shared by the files of this folder.
#pragma once

#include <kiv/atom.h>
#include <kiv/defer.h>

#include <atomic>

#include "kernel/internal.h"
#include "sched/scheduler.h"

namespace kiv {

// A doubly linked list of waiting elements; changes under the one lock of all queues.
struct Queue {
    Qelem *head = nullptr;
    Qelem *tail = nullptr;
    std::atomic<uint32_t> count{0};  // read without the lock
};

// How an element was used while statistics were on; changes under the statistics' lock, but
// for `already_set`.
struct QelemStatistics {
    int64_t sets;                      // that put it into a queue
    std::atomic<int64_t> already_set;  // that found it waiting
    int64_t runs;
    double set_at;  // ms on the platform's clock
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
    kiv::QelemStatistics *statistics;  // owned; null: never counted
    // Private from here on; changed under the queues' lock.
    Qelem *previous;
    kiv::Queue *queue;                 // in which it is linked, or null
    Qelem *list_next, *list_previous;  // among all elements, once these are listed
};

namespace kiv {

Queue &low_queue() noexcept;
void queue_append(Queue &queue, Qelem *element) noexcept;  // no effect when it waits already
void queue_front(Queue &queue, Qelem *element) noexcept;
void queue_remove(Qelem *element) noexcept;
void qelem_owner_set(Qelem *element, Object *owner) noexcept;

// Statistics (qelem_statistics.cpp). Each does nothing when statistics are off.
bool statistics_on() noexcept;
void statistics_made(Qelem *element) noexcept;
void statistics_freed(Qelem *element) noexcept;
void statistics_set(Qelem *element) noexcept;
void statistics_run(Qelem *element) noexcept;
void statistics_already_set(Qelem *element) noexcept;

}  // namespace kiv
