// The list's record, and what other files of this folder may do with a list beyond its interface.
#pragma once

#include <kiv/critical.h>
#include <kiv/linklist.h>
#include <kiv/sysmem.h>
#include <kiv/systhread.h>

#include <atomic>
#include <cstdint>

struct LinklistElement {
    void *item;  // null once it was released
    LinklistElement *next;
    LinklistElement *previous;
    int32_t flags;    // bits 1 and 2: the list does not free this item
    int32_t pending;  // 1: unlinked when the last iteration ends
};

namespace kiv {

struct ListWalk;

enum ListLockKind : int32_t { ListLockCritical = 0, ListLockReadWrite = 1 };

}  // namespace kiv

// Global, as its name is in the public header. Fields in the order of the record.
struct Linklist {
    Object ob;
    std::atomic<int32_t> count;  // pending elements still count
    LinklistElement *head;
    LinklistElement *tail;
    int32_t readonly;                        // non-zero: operations do not lock
    void *lock;                              // owned; null: no locking; all ones: the global region
    std::atomic<LinklistElement *> cursor;   // where next, prev and last have been
    int64_t flags;                           // ownership of the items
    std::atomic<LinklistElement *> current;  // visited by the innermost iteration
    std::atomic<int32_t> depth;              // iterations that run
    int32_t purge_pending;
    int32_t lock_kind;
    // Private from here on.
    kiv::ListWalk *walks;      // every running iteration of a list that is not read-only
    LinklistElement *orphans;  // chains cleared while iterations run: see linklist_remove.cpp
    void *obex;
};

namespace kiv {

// --- Locking -------------------------------------------------------------------------------------

enum class Access { read, change };

// Holds a list's lock for a scope, or not at all, as the list's lock and its read-only state say.
// It remembers what it took, so that either may change meanwhile.
class ListLock {
  public:
    ListLock(Linklist *list, Access access) noexcept : list_(list), access_(access) { take(); }
    ~ListLock() { release(); }
    ListLock(const ListLock &) = delete;
    ListLock &operator=(const ListLock &) = delete;

    void take() noexcept {
        if (list_->readonly || !list_->lock) {
            return;
        }
        held_ = list_->lock;
        kind_ = list_->lock_kind;
        if (kind_ == ListLockCritical) {
            critical_enter(static_cast<CriticalRef>(held_));
        } else if (access_ == Access::read) {
            systhread_rwlock_rdlock(static_cast<RwlockRef>(held_));
        } else {
            systhread_rwlock_wrlock(static_cast<RwlockRef>(held_));
        }
    }
    void release() noexcept {
        if (!held_) {
            return;
        }
        if (kind_ == ListLockCritical) {
            critical_exit(static_cast<CriticalRef>(held_));
        } else if (access_ == Access::read) {
            systhread_rwlock_rdunlock(static_cast<RwlockRef>(held_));
        } else {
            systhread_rwlock_wrunlock(static_cast<RwlockRef>(held_));
        }
        held_ = nullptr;
    }

  private:
    Linklist *list_;
    Access access_;
    int32_t kind_ = ListLockCritical;
    void *held_ = nullptr;
};

// --- Elements; the caller holds the lock ---------------------------------------------------------

// The element at an index, counted from the nearer end; null when out of range.
LinklistElement *element_at(const Linklist *list, int32_t index) noexcept;
LinklistElement *element_holding(const Linklist *list, const void *item) noexcept;
// Null on no memory, which leaves the list as it was.
LinklistElement *element_append(Linklist *list, void *item) noexcept;
LinklistElement *element_insert_before(Linklist *list, void *item, LinklistElement *place) noexcept;
void element_link_before(Linklist *list, LinklistElement *element,
                         LinklistElement *place) noexcept;  // a null place: at the end
// Takes an element out of the chain, counting it no more and moving every iteration past it.
void element_unlink(Linklist *list, LinklistElement *element) noexcept;
// Frees an unlinked element, forgetting it wherever the list or an iteration remembers it.
void element_free(Linklist *list, LinklistElement *element) noexcept;
void orphans_free(Linklist *list) noexcept;

// An item that a list has let go of and its owner is to free, once the lock is released: freeing
// calls out.
struct Released {
    void *item = nullptr;  // null: nothing to free
    bool memory = false;
    bool postponed = false;  // the element stays linked until no iteration runs
};
// Removes an element the way every deletion does: at once, or postponed while iterations run.
Released element_remove(Linklist *list, LinklistElement *element) noexcept;
void released_free(const Released &released) noexcept;

// --- Iteration -----------------------------------------------------------------------------------

// One running iteration. It lives on the iterating thread's stack and is known to the list, which
// keeps it pointing at elements that exist.
struct ListWalk {
    Linklist *list = nullptr;              // null once the list is freed
    LinklistElement *next = nullptr;       // to be visited next
    LinklistElement *element = nullptr;    // visited now; null once removed
    LinklistElement *enclosing = nullptr;  // the list's current element before this iteration
    ListWalk *outer = nullptr;
    bool known = false;  // false in a read-only list, which nobody changes
};

// Stands among a list's iterations without being one: it learns whether the list outlives a call
// out. A read-only list cannot tell.
class ListWitness {
  public:
    explicit ListWitness(Linklist *list) noexcept;
    ~ListWitness();
    ListWitness(const ListWitness &) = delete;
    ListWitness &operator=(const ListWitness &) = delete;
    bool list_lives() const noexcept { return walk_.list != nullptr; }

  private:
    ListWalk walk_;
};

// linklist_funall that tells whether the list outlived its callbacks.
bool linklist_funall_outlived(Linklist *list, LinklistFunction function, void *arg) noexcept;

// --- For tests and debug builds ------------------------------------------------------------------

// What is wrong with a list at rest, or null.
const char *linklist_check(Linklist *list) noexcept;

}  // namespace kiv
