// Linked list: finding and iterating.
//
// An iteration releases the lock around each callback, which may change the list, clear it or free
// it. It reads its next element before the callback, and the list keeps that pointer valid: what is
// removed meanwhile either stays linked until the last iteration ends, or moves the iteration on.
// When the list is freed, `walk.list` is null and nothing of it is touched again.
#include <kiv/object.h>

#include <cstdarg>

#include "containers/internal.h"
#include "containers/linklist_record.h"

namespace kiv {

namespace {

enum class WalkEnd { finished, stopped, list_gone };

// Joins the list's chain of iterations and leaves it, under the lock. Threads may iterate over a
// read-only list together, without a lock to guard the chain; nobody changes such a list.
void walk_enter(ListWalk &walk) noexcept {
    if (!walk.list->readonly) {
        walk.known = true;
        walk.outer = walk.list->walks;
        walk.list->walks = &walk;
    }
}

void walk_leave(const ListWalk &walk) noexcept {
    if (!walk.known) {
        return;
    }
    for (ListWalk **link = &walk.list->walks; *link; link = &(*link)->outer) {
        if (*link == &walk) {
            *link = walk.outer;
            return;
        }
    }
}

void walk_begin(ListWalk &walk, Linklist *list) noexcept {
    ListLock lock(list, Access::change);
    walk.list = list;
    walk.next = list->head;
    walk.enclosing = list->current.load(std::memory_order_relaxed);
    walk_enter(walk);
    list->depth.fetch_add(1);
}

// Unlinks what was deleted while the iterations ran. Under the lock.
void purge(Linklist *list) noexcept {
    orphans_free(list);
    if (!list->purge_pending) {
        return;
    }
    list->purge_pending = 0;
    LinklistElement *next;
    for (LinklistElement *element = list->head; element; element = next) {
        next = element->next;
        if (element->pending) {
            element_unlink(list, element);
            element_free(list, element);
        }
    }
}

void walk_end(ListWalk &walk) noexcept {
    Linklist *list = walk.list;
    ListLock lock(list, Access::change);
    walk_leave(walk);
    list->current.store(walk.enclosing, std::memory_order_relaxed);
    if (list->depth.fetch_sub(1) == 1 && !list->readonly) {
        list->current = nullptr;
        purge(list);
    }
}

// Calls visit(item, walk) for each item in order, without the lock, until it answers true.
template <class Visit>
WalkEnd walk_all(Linklist *list, Visit visit) noexcept {
    ListWalk walk;
    walk_begin(walk, list);
    bool stop = false;
    {
        ListLock lock(list, Access::read);
        while (LinklistElement *element = walk.next) {
            walk.next = element->next;
            void *item = element->pending ? nullptr : element->item;
            if (!item) {
                continue;
            }
            walk.element = element;
            list->current.store(element, std::memory_order_relaxed);
            lock.release();
            stop = visit(item, walk);
            if (!walk.list) {
                return stop ? WalkEnd::stopped : WalkEnd::list_gone;
            }
            if (stop) {
                break;
            }
            lock.take();
        }
    }
    walk_end(walk);
    return stop ? WalkEnd::stopped : WalkEnd::finished;
}

// Removes the element that a walk is visiting, if it is still there.
void remove_visited(ListWalk &walk, bool keep_item) noexcept {
    Released released;
    {
        ListLock lock(walk.list, Access::change);
        LinklistElement *element = walk.element;
        if (!element || element->pending) {
            return;
        }
        if (keep_item) {
            element->item = nullptr;
        }
        released = element_remove(walk.list, element);
    }
    released_free(released);
}

constexpr int64_t takes_no_messages = ContainerData | ContainerMemory;

// The eight pointer-sized arguments of a message, as the variadic forms receive them.
struct MessageArguments {
    void *p[8];
    explicit MessageArguments(va_list arguments) noexcept {
        for (void *&argument : p) {
            argument = va_arg(arguments, void *);
        }
    }
};

}  // namespace

ListWitness::ListWitness(Linklist *list) noexcept {
    ListLock lock(list, Access::change);
    walk_.list = list;
    walk_enter(walk_);
}

ListWitness::~ListWitness() {
    if (walk_.list) {
        ListLock lock(walk_.list, Access::change);
        walk_leave(walk_);
    }
}

bool linklist_funall_outlived(Linklist *list, LinklistFunction function, void *arg) noexcept {
    const WalkEnd end = walk_all(list, [=](void *item, ListWalk &) {
        function(item, arg);
        return false;
    });
    return end != WalkEnd::list_gone;
}

}  // namespace kiv

using namespace kiv;

int32_t linklist_match(void *a, void *b) noexcept {
    return a == b;
}

int32_t linklist_findfirst(Linklist *list, void **out, LinklistTest test, void *arg) noexcept {
    if (out) {
        *out = nullptr;
    }
    if (!list || !test) {
        return -1;
    }
    ListLock lock(list, Access::read);
    int32_t index = 0;
    for (const LinklistElement *element = list->head; element; element = element->next) {
        if (element->item && test(element->item, arg)) {
            if (out) {
                *out = element->item;
            }
            return index;
        }
        ++index;
    }
    return -1;
}

void linklist_findall(Linklist *list, Linklist **out, LinklistTest test, void *arg) noexcept {
    if (!out) {
        return;
    }
    *out = nullptr;
    if (!list || !test) {
        return;
    }
    ListLock lock(list, Access::read);
    for (const LinklistElement *element = list->head; element; element = element->next) {
        if (!element->item || !test(element->item, arg)) {
            continue;
        }
        if (!*out && !(*out = linklist_new())) {
            return;
        }
        linklist_append(*out, element->item);
    }
}

int32_t linklist_funall(Linklist *list, LinklistFunction function, void *arg) noexcept {
    if (list && function) {
        linklist_funall_outlived(list, function, arg);
    }
    return 0;
}

int32_t linklist_funall_break(Linklist *list, LinklistFunction function, void *arg) noexcept {
    if (!list || !function) {
        return 0;
    }
    const WalkEnd end = walk_all(list, [=](void *item, ListWalk &) {
        // Results are 32-bit: what a callback leaves in the upper half of the word means nothing.
        return static_cast<int32_t>(reinterpret_cast<intptr_t>(function(item, arg))) != 0;
    });
    return end == WalkEnd::stopped;
}

void *linklist_funindex(Linklist *list, int32_t index, LinklistFunction function,
                        void *arg) noexcept {
    void *item = linklist_getindex(list, index);
    return item && function ? function(item, arg) : nullptr;
}

void linklist_prune(Linklist *list, LinklistTest test, void *arg, int32_t mode) noexcept {
    if (!list || !test) {
        return;
    }
    walk_all(list, [=](void *item, ListWalk &walk) {
        if (test(item, arg) && walk.list) {
            remove_visited(walk, (mode & 1) != 0);
        }
        return false;
    });
}

void linklist_methodall_imp(Linklist *list, Symbol *selector, void *p1, void *p2, void *p3,
                            void *p4, void *p5, void *p6, void *p7, void *p8) noexcept {
    if (!list || (list->flags & takes_no_messages)) {
        return;
    }
    walk_all(list, [=](void *item, ListWalk &) {
        object_method_imp(item, selector, p1, p2, p3, p4, p5, p6, p7, p8);
        return false;
    });
}

void *linklist_methodindex_imp(Linklist *list, int32_t index, Symbol *selector, void *p1, void *p2,
                               void *p3, void *p4, void *p5, void *p6, void *p7,
                               void *p8) noexcept {
    if (!list || (list->flags & takes_no_messages)) {
        return nullptr;
    }
    void *item = linklist_getindex(list, index);
    return item ? object_method_imp(item, selector, p1, p2, p3, p4, p5, p6, p7, p8) : nullptr;
}

void(linklist_methodall)(Linklist *list, Symbol *selector, ...) noexcept {
    va_list arguments;
    va_start(arguments, selector);
    const MessageArguments a(arguments);
    va_end(arguments);
    linklist_methodall_imp(list, selector, a.p[0], a.p[1], a.p[2], a.p[3], a.p[4], a.p[5], a.p[6],
                           a.p[7]);
}

void *(linklist_methodindex)(Linklist *list, int32_t index, Symbol *selector, ...) noexcept {
    va_list arguments;
    va_start(arguments, selector);
    const MessageArguments a(arguments);
    va_end(arguments);
    return linklist_methodindex_imp(list, index, selector, a.p[0], a.p[1], a.p[2], a.p[3], a.p[4],
                                    a.p[5], a.p[6], a.p[7]);
}
