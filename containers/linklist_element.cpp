// Linked list: the chain of elements, adding to it, reading it by index and by item.
#include <algorithm>

#include "containers/internal.h"
#include "containers/linklist_record.h"

namespace kiv {

namespace {

LinklistElement *element_make(void *item) noexcept {
    auto *element = static_cast<LinklistElement *>(sysmem_newptr(sizeof(LinklistElement)));
    if (element) {
        *element = {item, nullptr, nullptr, 0, 0};
    }
    return element;
}

LinklistElement *insert_beside(Linklist *list, void *item, const void *existing,
                               bool after) noexcept {
    if (!list || !existing) {
        return nullptr;
    }
    ListLock lock(list, Access::change);
    LinklistElement *place = element_holding(list, existing);
    return place ? element_insert_before(list, item, after ? place->next : place) : nullptr;
}

LinklistElement *move_beside(Linklist *list, const void *item, const void *existing,
                             bool after) noexcept {
    if (!list || !item || !existing) {
        return nullptr;
    }
    ListLock lock(list, Access::change);
    LinklistElement *moved = element_holding(list, item);
    LinklistElement *place = element_holding(list, existing);
    if (!moved || !place) {
        return nullptr;
    }
    if (moved != place) {
        element_unlink(list, moved);
        element_link_before(list, moved, after ? place->next : place);
    }
    return moved;
}

enum class Direction { forward, backward };

LinklistElement *neighbour(LinklistElement *element, Direction direction) noexcept {
    do {
        element = direction == Direction::forward ? element->next : element->previous;
    } while (element && element->pending);
    return element;
}

void step(Linklist *list, const void *item, void **out, Direction direction) noexcept {
    if (out) {
        *out = nullptr;
    }
    if (!list || !item || !out) {
        return;
    }
    ListLock lock(list, Access::read);
    LinklistElement *found = list->cursor.load(std::memory_order_relaxed);
    if (!found || found->item != item) {
        found = element_holding(list, item);
    }
    if (!found) {
        return;
    }
    LinklistElement *reached = neighbour(found, direction);
    list->cursor.store(reached ? reached : found, std::memory_order_relaxed);
    if (reached) {
        *out = reached->item;
    }
}

}  // namespace

LinklistElement *element_at(const Linklist *list, int32_t index) noexcept {
    const int32_t count = list->count.load(std::memory_order_relaxed);
    if (index < 0 || index >= count) {
        return nullptr;
    }
    LinklistElement *element;
    if (index <= count / 2) {
        element = list->head;
        for (int32_t i = 0; element && i < index; ++i) {
            element = element->next;
        }
    } else {
        element = list->tail;
        for (int32_t i = count - 1; element && i > index; --i) {
            element = element->previous;
        }
    }
    return element;
}

LinklistElement *element_holding(const Linklist *list, const void *item) noexcept {
    LinklistElement *element = list->head;
    while (element && element->item != item) {
        element = element->next;
    }
    return element;
}

void element_link_before(Linklist *list, LinklistElement *element,
                         LinklistElement *place) noexcept {
    element->next = place;
    element->previous = place ? place->previous : list->tail;
    (element->previous ? element->previous->next : list->head) = element;
    (place ? place->previous : list->tail) = element;
    // Only readers do without the lock.
    list->count.store(list->count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

LinklistElement *element_insert_before(Linklist *list, void *item,
                                       LinklistElement *place) noexcept {
    LinklistElement *element = element_make(item);
    if (element) {
        element_link_before(list, element, place);
    }
    return element;
}

LinklistElement *element_append(Linklist *list, void *item) noexcept {
    return element_insert_before(list, item, nullptr);
}

int32_t linklist_append_if_absent(Linklist *list, void *item) noexcept {
    if (!list) {
        return -1;
    }
    ListLock lock(list, Access::change);
    const LinklistElement *cursor = list->cursor.load(std::memory_order_relaxed);
    if ((cursor && cursor->item == item) || element_holding(list, item)) {
        return 0;
    }
    return element_append(list, item) ? list->count.load(std::memory_order_relaxed) : -1;
}

LinklistElement *linklist_append_element(Linklist *list, void *item) noexcept {
    if (!list) {
        return nullptr;
    }
    ListLock lock(list, Access::change);
    return element_append(list, item);
}

const char *linklist_check(Linklist *list) noexcept {
    if (!list) {
        return nullptr;
    }
    ListLock lock(list, Access::change);
    int32_t count = 0;
    const LinklistElement *last = nullptr;
    bool cursor_found = list->cursor.load() == nullptr;
    for (const LinklistElement *element = list->head; element; element = element->next) {
        if (element->previous != last) {
            return "an element's previous is not the one before it";
        }
        if (element->pending && (element->item || list->depth.load() == 0)) {
            return "a pending element at rest or with an item";
        }
        cursor_found = cursor_found || element == list->cursor.load();
        last = element;
        ++count;
    }
    if (list->tail != last) {
        return "tail is not the last element";
    }
    if (list->count.load() != count) {
        return "count is not the number of elements";
    }
    if (!cursor_found) {
        return "cursor is not in the list";
    }
    if (list->depth.load() == 0 && (list->walks || list->orphans || list->current.load())) {
        return "traces of an iteration that has ended";
    }
    return nullptr;
}

}  // namespace kiv

using namespace kiv;

int32_t linklist_append(Linklist *list, void *item) noexcept {
    if (!list) {
        return -1;
    }
    ListLock lock(list, Access::change);
    return element_append(list, item) ? list->count.load(std::memory_order_relaxed) : -1;
}

int32_t linklist_insertindex(Linklist *list, void *item, int32_t index) noexcept {
    if (!list) {
        return -1;
    }
    ListLock lock(list, Access::change);
    const int32_t count = list->count.load(std::memory_order_relaxed);
    const int32_t place = std::clamp(index, 0, count);
    if (!element_insert_before(list, item, element_at(list, place))) {
        return -1;
    }
    // Appending to a list answers the index of the element that the new one follows.
    return place == count && count > 0 ? count - 1 : place;
}

int32_t linklist_insert_sorted(Linklist *list, void *item, LinklistCompare compare) noexcept {
    if (!list || !compare) {
        return -1;
    }
    ListLock lock(list, Access::change);
    int32_t index = 0;
    LinklistElement *place = list->head;
    while (place && (place->pending || !compare(item, place->item))) {
        place = place->next;
        ++index;
    }
    return element_insert_before(list, item, place) ? index : -1;
}

LinklistElement *linklist_insertbeforeobjptr(Linklist *list, void *item, void *existing) noexcept {
    return insert_beside(list, item, existing, false);
}

LinklistElement *linklist_insertafterobjptr(Linklist *list, void *item, void *existing) noexcept {
    return insert_beside(list, item, existing, true);
}

LinklistElement *linklist_movebeforeobjptr(Linklist *list, void *item, void *existing) noexcept {
    return move_beside(list, item, existing, false);
}

LinklistElement *linklist_moveafterobjptr(Linklist *list, void *item, void *existing) noexcept {
    return move_beside(list, item, existing, true);
}

int32_t linklist_getsize(Linklist *list) noexcept {
    return list ? list->count.load(std::memory_order_relaxed) : 0;
}

void *linklist_getindex(Linklist *list, int32_t index) noexcept {
    if (!list) {
        return nullptr;
    }
    ListLock lock(list, Access::read);
    const LinklistElement *element = element_at(list, index);
    return element ? element->item : nullptr;
}

int32_t linklist_objptr2index(Linklist *list, void *item) noexcept {
    if (!list || !item) {
        return -1;
    }
    ListLock lock(list, Access::read);
    int32_t index = 0;
    for (const LinklistElement *element = list->head; element; element = element->next) {
        if (element->item == item) {
            return index;
        }
        ++index;
    }
    return -1;
}

int32_t linklist_next(Linklist *list, void *item, void **out) noexcept {
    step(list, item, out, Direction::forward);
    return 0;
}

int32_t linklist_prev(Linklist *list, void *item, void **out) noexcept {
    step(list, item, out, Direction::backward);
    return 0;
}

int32_t linklist_last(Linklist *list, void **out) noexcept {
    if (out) {
        *out = nullptr;
    }
    if (!list || !out) {
        return 0;
    }
    ListLock lock(list, Access::read);
    LinklistElement *last = list->tail;
    if (last && last->pending) {
        last = neighbour(last, Direction::backward);
    }
    list->cursor.store(last, std::memory_order_relaxed);
    if (last) {
        *out = last->item;
    }
    return 0;
}

// Pending elements hold no item any more and are left out.
int32_t linklist_makearray(Linklist *list, void **array, int32_t limit) noexcept {
    if (!list) {
        return -1;
    }
    if (!array) {
        return 0;
    }
    ListLock lock(list, Access::read);
    int32_t copied = 0;
    for (const LinklistElement *element = list->head; element && copied < limit;
         element = element->next) {
        if (!element->pending) {
            array[copied++] = element->item;
        }
    }
    return copied;
}

int32_t linklist_substitute(Linklist *list, int32_t index, void *item) noexcept {
    if (!list) {
        return 0;
    }
    ListLock lock(list, Access::change);
    LinklistElement *element = element_at(list, index);
    if (element && !element->pending) {
        element->item = item;
    }
    return 0;
}
