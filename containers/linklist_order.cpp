// Linked list: reordering. Iterations that run stay valid: elements are only linked anew.
#include <cstdlib>
#include <utility>

#include "containers/internal.h"
#include "containers/linklist_record.h"
#include "kernel/internal.h"

namespace kiv {

namespace {

// What belongs to an item moves with it. A pending element must stay empty to be purged.
void swap_items(LinklistElement *a, LinklistElement *b) noexcept {
    if (a && b && !a->pending && !b->pending) {
        std::swap(a->item, b->item);
        std::swap(a->flags, b->flags);
    }
}

// A chain being built, appended to in the order of the result.
struct Chain {
    LinklistElement *first = nullptr;
    LinklistElement *last = nullptr;

    void append(LinklistElement *element) noexcept {
        element->previous = last;
        (last ? last->next : first) = element;
        last = element;
    }
};

// One run of a pass: up to `left` elements from `at` on.
struct Run {
    LinklistElement *at = nullptr;
    int32_t left = 0;

    bool exhausted() const noexcept { return left == 0 || !at; }
    LinklistElement *take() noexcept {
        --left;
        return std::exchange(at, at->next);
    }
};

// Pending elements have no item to compare; they are taken as they come.
bool takes_right(const Run &p, const Run &q, LinklistCompare compare) noexcept {
    if (p.exhausted()) {
        return true;
    }
    if (q.exhausted() || p.at->pending) {
        return false;
    }
    return q.at->pending || !compare(p.at->item, q.at->item);
}

// Merges neighbouring runs of `width` elements into runs twice as long; answers how many merges.
int32_t merge_pass(Linklist *list, int32_t width, LinklistCompare compare) noexcept {
    Chain sorted;
    int32_t merges = 0;
    LinklistElement *rest = list->head;
    while (rest) {
        ++merges;
        Run p{rest, 0};
        LinklistElement *middle = rest;
        while (middle && p.left < width) {
            middle = middle->next;
            ++p.left;
        }
        Run q{middle, width};
        while (!p.exhausted() || !q.exhausted()) {
            sorted.append(takes_right(p, q, compare) ? q.take() : p.take());
        }
        rest = q.at;
    }
    sorted.last->next = nullptr;
    list->head = sorted.first;
    list->tail = sorted.last;
    return merges;
}

}  // namespace

}  // namespace kiv

using namespace kiv;

void linklist_swap(Linklist *list, int32_t a, int32_t b) noexcept {
    if (list) {
        ListLock lock(list, Access::change);
        swap_items(element_at(list, a), element_at(list, b));
    }
}

void linklist_reverse(Linklist *list) noexcept {
    if (!list) {
        return;
    }
    ListLock lock(list, Access::change);
    LinklistElement *element = list->head;
    while (element) {
        std::swap(element->next, element->previous);
        element = element->previous;
    }
    std::swap(list->head, list->tail);
}

void linklist_rotate(Linklist *list, int32_t n) noexcept {
    if (!list) {
        return;
    }
    ListLock lock(list, Access::change);
    const int32_t count = list->count.load(std::memory_order_relaxed);
    if (count <= 1) {
        return;
    }
    // Whole turns change nothing; the ring is closed and cut anew before the element that leads.
    const int32_t turns = n % count;
    const int32_t lead = turns > 0 ? count - turns : -turns;
    if (lead == 0) {
        return;
    }
    LinklistElement *first = element_at(list, lead);
    list->tail->next = list->head;
    list->head->previous = list->tail;
    list->head = first;
    list->tail = first->previous;
    list->tail->next = nullptr;
    first->previous = nullptr;
}

void linklist_shuffle(Linklist *list) noexcept {
    if (!list) {
        return;
    }
    ListLock lock(list, Access::change);
    const int32_t count = list->count.load(std::memory_order_relaxed);
    if (count <= 1) {
        return;
    }
    // An array of the elements spares two walks for each swap; without memory it goes without.
    const int64_t bytes = count * static_cast<int64_t>(sizeof(LinklistElement *));
    auto **elements = static_cast<LinklistElement **>(sysmem_newptr(bytes));
    int32_t i = 0;
    for (LinklistElement *element = list->head; elements && element; element = element->next) {
        elements[i++] = element;
    }
    for (i = 0; i < count; ++i) {
        const auto other = static_cast<int32_t>(kernel_random() % static_cast<uint32_t>(count));
        swap_items(elements ? elements[i] : element_at(list, i),
                   elements ? elements[other] : element_at(list, other));
    }
    sysmem_freeptr(elements);
}

// A bottom-up merge sort that relinks elements. compare(a, b) non-zero: a may stay before b.
void linklist_sort(Linklist *list, LinklistCompare compare) noexcept {
    if (!list || !compare) {
        return;
    }
    ListLock lock(list, Access::change);
    if (!list->head) {
        return;
    }
    int32_t width = 1;
    while (merge_pass(list, width, compare) > 1) {
        width = width > INT32_MAX / 2 ? INT32_MAX : width * 2;
    }
}
