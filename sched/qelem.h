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
};

}  // namespace kiv

struct Qelem {
    Object ob;
    Qelem *next;
    void *owner;
    Method function;
    std::atomic<int16_t> set;  // a run is asked for
    Object *owner_object;
    // Private from here on; changed under the queues' lock.
    Qelem *previous;
    kiv::Queue *queue;  // in which it is linked, or null
};

namespace kiv {

Queue &low_queue() noexcept;
void queue_append(Queue &queue, Qelem *element) noexcept;  // no effect when it waits already
void queue_front(Queue &queue, Qelem *element) noexcept;
void queue_remove(Qelem *element) noexcept;
void qelem_owner_set(Qelem *element, Object *owner) noexcept;
bool time_is_offline() noexcept;

}  // namespace kiv
