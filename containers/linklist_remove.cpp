// Linked list: removing elements and freeing their items.
//
// While an iteration runs, an element that is not the current one stays linked, its item gone, with
// its pending mark set; the end of the last iteration unlinks it. The current element goes at once:
// every iteration that had it ahead is moved to its successor.
//
// Clearing never waits for an iteration. The cleared chain stays readable for the iterations that
// are in it, as an orphan: its elements are marked pending, keep their `next`, and are freed when
// the last iteration ends. The first element's `previous` links one orphaned chain to the next.
//
// Items are freed after the lock is released, because freeing an object calls out; so an object may
// use the list, or even free it, while it is freed by it.
#include "containers/free_nested.h"
#include "containers/internal.h"
#include "containers/linklist_record.h"

namespace kiv {

namespace {

bool owns(const Linklist *list, const LinklistElement *element) noexcept {
    constexpr int64_t kept = ContainerReference | ContainerData;
    return !(list->flags & kept) && !(element->flags & kept);
}

void chain_free(LinklistElement *first) noexcept {
    while (first) {
        LinklistElement *next = first->next;
        sysmem_freeptr(first);
        first = next;
    }
}

// Removes one element under the lock `lock`, then frees its item without it. False when postponed.
bool remove_and_free(Linklist *list, LinklistElement *element, ListLock &lock) noexcept {
    const Released released = element_remove(list, element);
    lock.release();
    released_free(released);
    return !released.postponed;
}

int32_t remove_index(Linklist *list, int32_t index, bool keep_item) noexcept {
    if (!list) {
        return -1;
    }
    ListLock lock(list, Access::change);
    LinklistElement *element = element_at(list, index);
    if (!element) {
        return -1;
    }
    if (keep_item) {
        element->flags |= ContainerReference;
    }
    return remove_and_free(list, element, lock) ? index : -1;
}

int32_t remove_item(Linklist *list, const void *item, bool keep_item) noexcept {
    if (!list || !item) {
        return -1;
    }
    ListLock lock(list, Access::change);
    LinklistElement *element = element_holding(list, item);
    if (!element) {
        return -1;
    }
    if (keep_item) {
        element->flags |= ContainerReference;
    }
    remove_and_free(list, element, lock);
    return 0;
}

// What was cleared while an iteration runs is out of the list, but still readable.
bool is_linked(const Linklist *list, const LinklistElement *element) noexcept {
    return !element->pending &&
           (element->previous ? element->previous->next : list->head) == element;
}

// Moves every iteration whose next element is `element` on to the one after it.
void walks_skip(Linklist *list, const LinklistElement *element) noexcept {
    for (ListWalk *walk = list->walks; walk; walk = walk->outer) {
        if (walk->next == element) {
            walk->next = element->next;
        }
    }
}

// Detaches the whole chain. An iteration may be in it, and find nothing more to visit there.
LinklistElement *detach_all(Linklist *list) noexcept {
    LinklistElement *first = list->head;
    for (ListWalk *walk = list->walks; walk; walk = walk->outer) {
        walk->element = nullptr;
        walk->enclosing = nullptr;
    }
    list->current = nullptr;
    for (LinklistElement *element = first; element; element = element->next) {
        element->pending = 1;
        if (!owns(list, element)) {
            element->item = nullptr;
        }
    }
    list->head = nullptr;
    list->tail = nullptr;
    list->count = 0;
    list->cursor = nullptr;
    list->purge_pending = 0;
    return first;
}

}  // namespace

void element_unlink(Linklist *list, LinklistElement *element) noexcept {
    walks_skip(list, element);
    (element->previous ? element->previous->next : list->head) = element->next;
    (element->next ? element->next->previous : list->tail) = element->previous;
    list->count.store(list->count.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
}

void element_free(Linklist *list, LinklistElement *element) noexcept {
    if (list->cursor.load(std::memory_order_relaxed) == element) {
        list->cursor = nullptr;
    }
    if (list->current.load(std::memory_order_relaxed) == element) {
        list->current = nullptr;
    }
    for (ListWalk *walk = list->walks; walk; walk = walk->outer) {
        if (walk->element == element) {
            walk->element = nullptr;
        }
        if (walk->enclosing == element) {
            walk->enclosing = nullptr;
        }
    }
    sysmem_freeptr(element);
}

void orphans_free(Linklist *list) noexcept {
    while (LinklistElement *first = list->orphans) {
        list->orphans = first->previous;
        chain_free(first);
    }
}

Released element_remove(Linklist *list, LinklistElement *element) noexcept {
    Released released;
    if (owns(list, element)) {
        released.item = element->item;
        released.memory = (list->flags & ContainerMemory) != 0;
    }
    element->item = nullptr;
    if (list->depth.load() != 0 && element != list->current.load()) {
        element->pending = 1;
        list->purge_pending = 1;
        released.postponed = true;
    } else {
        element_unlink(list, element);
        element_free(list, element);
    }
    return released;
}

void released_free(const Released &released) noexcept {
    if (!released.item) {
        return;
    }
    if (released.memory) {
        sysmem_freeptr(released.item);
    } else {
        free_nested(released.item);
    }
}

}  // namespace kiv

using namespace kiv;

void linklist_clear(Linklist *list) noexcept {
    if (!list) {
        return;
    }
    ListWitness witness(list);
    LinklistElement *first;
    bool memory;
    {
        ListLock lock(list, Access::change);
        first = detach_all(list);
        memory = (list->flags & ContainerMemory) != 0;
    }
    for (LinklistElement *element = first; element; element = element->next) {
        const Released released{element->item, memory};
        element->item = nullptr;
        released_free(released);
    }
    if (first && witness.list_lives()) {
        ListLock lock(list, Access::change);
        if (list->depth.load() != 0) {
            first->previous = list->orphans;
            list->orphans = first;
            return;
        }
    }
    chain_free(first);
}

int32_t linklist_deleteindex(Linklist *list, int32_t index) noexcept {
    return remove_index(list, index, false);
}

int32_t linklist_chuckindex(Linklist *list, int32_t index) noexcept {
    return remove_index(list, index, true);
}

int32_t linklist_deleteobject(Linklist *list, void *item) noexcept {
    return remove_item(list, item, false);
}

int32_t linklist_chuckobject(Linklist *list, void *item) noexcept {
    return remove_item(list, item, true);
}

int32_t linklist_chuckptr(Linklist *list, LinklistElement *element) noexcept {
    if (!list || !element) {
        return -1;
    }
    ListLock lock(list, Access::change);
    if (!is_linked(list, element)) {
        return -1;
    }
    element->flags |= ContainerReference;
    return remove_and_free(list, element, lock) ? 0 : -1;
}
