// Linked list: making, locking, flags, the class.
//
// Invariants, under the list's lock:
// 1. head and tail are both null or both set; the chain is linked both ways and ends in null.
// 2. count is the number of linked elements, pending ones included. A pending element has a null
//    item; there are such only while an iteration runs.
// 3. cursor, current and what the iterations remember are null or existing elements.
// 4. Every iteration that runs is in `walks`; whoever unlinks an element moves them past it.
//
// Thread safety: each function takes the list's lock, shared or exclusive, for its work; count,
// cursor, current and depth are atomic because shared holders change them. Comparisons and finding
// callbacks run under the lock and must leave the list alone; all other callbacks, and the freeing
// of items, run without it.
#include <kiv/object.h>

#include <cstddef>

#include "containers/families.h"
#include "containers/linklist_record.h"
#include "kernel/internal.h"

namespace kiv {

namespace {

struct {
    Class *list_class = nullptr;
} state;

void *const all_ones = reinterpret_cast<void *>(UINTPTR_MAX);

void make_lock(Linklist *list) noexcept {
    CriticalRef region = nullptr;
    critical_new(&region);
    list->lock = region;
}

void free_lock(Linklist *list) noexcept {
    if (!list->lock || list->lock == all_ones) {
        return;
    }
    if (list->lock_kind == ListLockCritical) {
        critical_free(static_cast<CriticalRef>(list->lock));
    } else {
        systhread_rwlock_free(static_cast<RwlockRef>(list->lock));
    }
    list->lock = nullptr;
}

// Before the class is made there is no list.
Linklist *list_alloc() noexcept {
    return state.list_class ? static_cast<Linklist *>(object_alloc(state.list_class)) : nullptr;
}

// A list that was to have a lock and could not get one would not be safe to use.
Linklist *list_alloc_locked() noexcept {
    Linklist *list = list_alloc();
    if (list) {
        make_lock(list);
        if (!list->lock) {
            object_free(list);
            return nullptr;
        }
    }
    return list;
}

void destroy(Linklist *list) noexcept {
    linklist_clear(list);
    for (ListWalk *walk = list->walks; walk; walk = walk->outer) {
        walk->list = nullptr;
    }
    orphans_free(list);
    if (list->readonly && list->lock) {
        linklist_readonly(list, 0);
    }
    free_lock(list);
}

void objptrflags(Linklist *list, void *item, int64_t flags) noexcept {
    if (!list || !item) {
        return;
    }
    ListLock lock(list, Access::change);
    if (LinklistElement *element = element_holding(list, item)) {
        element->flags = static_cast<int32_t>(flags);
    }
}

int64_t getobjptrflags(Linklist *list, void *item) noexcept {
    if (!list || !item) {
        return 0;
    }
    ListLock lock(list, Access::read);
    const LinklistElement *element = element_holding(list, item);
    return element ? element->flags : 0;
}

int64_t isiterating(Linklist *list) noexcept {
    return list ? list->depth.load() : 0;
}

}  // namespace

void linklists_make_class() noexcept {
    Class *c = class_new("linklist", method(linklist_new), method(destroy),
                         static_cast<int32_t>(sizeof(Linklist)), nullptr, 0);
    if (c) {
        c->flags |= ClassContainer;
        class_obexoffset_set(c, static_cast<int32_t>(offsetof(Linklist, obex)));
    }
    state.list_class = c;
}

void linklists_start() noexcept {
    const DirectMethod methods[] = {
        {"chuck", method(linklist_chuck)},
        {"chuckindex", method(linklist_chuckindex)},
        {"getsize", method(linklist_getsize)},
        {"getindex", method(linklist_getindex)},
        {"objptr2index", method(linklist_objptr2index)},
        {"append", method(linklist_append)},
        {"insert", method(linklist_insertindex)},
        {"delete", method(linklist_deleteindex)},
        {"clear", method(linklist_clear)},
        {"makearray", method(linklist_makearray)},
        {"reverse", method(linklist_reverse)},
        {"rotate", method(linklist_rotate)},
        {"shuffle", method(linklist_shuffle)},
        {"swap", method(linklist_swap)},
        {"findfirst", method(linklist_findfirst)},
        {"findall", method(linklist_findall)},
        {"methodall", method(linklist_methodall_imp)},
        {"methodindex", method(linklist_methodindex_imp)},
        {"sort", method(linklist_sort)},
        {"funall", method(linklist_funall)},
        {"funallsafe", method(linklist_funall)},
        {"funall_break", method(linklist_funall_break)},
        {"funindex", method(linklist_funindex)},
        {"substitute", method(linklist_substitute)},
        {"prev", method(linklist_prev)},
        {"next", method(linklist_next)},
        {"last", method(linklist_last)},
        {"readonly", method(linklist_readonly)},
        {"flags", method(linklist_flags)},
        {"getflags", method(linklist_getflags)},
        {"objptrflags", method(objptrflags)},
        {"getobjptrflags", method(getobjptrflags)},
        {"isiterating", method(isiterating)},
    };
    add_direct_methods(state.list_class, methods);
    class_register(nullptr, state.list_class);
}

Linklist *linklist_new_unlocked() noexcept {
    return list_alloc();
}

Linklist *linklist_new_with_readonly(int32_t readonly) noexcept {
    if (readonly == 0) {
        return list_alloc_locked();
    }
    Linklist *list = list_alloc();
    if (list) {
        list->readonly = readonly;
    }
    return list;
}

Linklist *linklist_new_shared() noexcept {
    Linklist *list = list_alloc();
    if (!list) {
        return nullptr;
    }
    RwlockRef lock = nullptr;
    if (systhread_rwlock_new(&lock, 1) != 0) {
        object_free(list);
        return nullptr;
    }
    list->lock = lock;
    list->lock_kind = ListLockReadWrite;
    return list;
}

}  // namespace kiv

using namespace kiv;

Linklist *linklist_new() noexcept {
    return list_alloc_locked();
}

void linklist_chuck(Linklist *list) noexcept {
    if (!list) {
        return;
    }
    {
        ListLock lock(list, Access::change);
        for (LinklistElement *element = list->head; element; element = element->next) {
            element->item = nullptr;
        }
    }
    object_free(list);
}

void linklist_flags(Linklist *list, int64_t flags) noexcept {
    if (list) {
        ListLock lock(list, Access::change);
        list->flags = flags;
    }
}

int64_t linklist_getflags(Linklist *list) noexcept {
    return list ? list->flags : 0;
}

// While a list is read-only its lock stays held: whoever saw it writable before and still waits to
// change it goes on waiting.
void linklist_readonly(Linklist *list, int32_t on) noexcept {
    if (!list || (list->readonly != 0) == (on != 0)) {
        return;
    }
    if (on) {
        if (list->lock && list->lock_kind == ListLockCritical) {
            critical_enter(static_cast<CriticalRef>(list->lock));
        } else if (list->lock) {
            systhread_rwlock_wrlock(static_cast<RwlockRef>(list->lock));
        }
        list->readonly = on;
        return;
    }
    list->readonly = 0;
    if (!list->lock) {
        make_lock(list);
    } else if (list->lock_kind == ListLockCritical) {
        critical_exit(static_cast<CriticalRef>(list->lock));
    } else {
        systhread_rwlock_wrunlock(static_cast<RwlockRef>(list->lock));
    }
}
