// Tables of what waits on behalf of objects, so that freeing an object finds its own at once.
//
// An item holds its link as a field `owned`; chains run through the items of owners with the same
// hash. A table grows with its items; when it cannot, its chains get longer. One lock, the users',
// guards a table and the links of its items.
#pragma once

#include <kiv/object.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include "sched/internal.h"

namespace kiv {

template <class Item>
struct OwnedLink {
    const void *owner;  // null: never in a table; readable without the lock
    Item *next;
    Item **link;  // what leads to this item; null: no longer in the table
};

template <class Item>
class OwnedTable {
  public:
    // False when nothing of the owner's is in the table: most objects that are freed have nothing.
    // Needs no lock.
    bool may_hold(const void *owner) const noexcept {
        return counts_[hash(owner) % counted].load(std::memory_order_acquire) != 0;
    }

    void add(Item *item, const void *owner) noexcept {
        if (count_ >= chains_.size()) {
            grow();
        }
        item->owned.owner = owner;
        push(chain(owner), item);
        ++count_;
        counts_[hash(owner) % counted].fetch_add(1, std::memory_order_release);
    }

    void remove(Item *item) noexcept {
        if (item->owned.link) {
            take(item);
            --count_;
            counts_[hash(item->owned.owner) % counted].fetch_sub(1, std::memory_order_release);
        }
    }

    // Calls visit(item) for every item of an owner until it answers false. It must not change the
    // table.
    template <class Visit>
    void visit(const void *owner, Visit visit) noexcept {
        for (Item *item = chain(owner); item; item = item->owned.next) {
            if (item->owned.owner == owner && !visit(item)) {
                return;
            }
        }
    }

  private:
    static constexpr size_t first_chains = 256;
    static constexpr size_t counted = 1024;

    static size_t hash(const void *owner) noexcept {
        return (reinterpret_cast<uintptr_t>(owner) * 0x9e3779b97f4a7c15u) >> 32;
    }

    Item *&chain(const void *owner) noexcept {
        if (chains_.empty()) {
            return only_chain_;
        }
        return chains_[hash(owner) & (chains_.size() - 1)];
    }

    static void push(Item *&head, Item *item) noexcept {
        item->owned.next = head;
        item->owned.link = &head;
        if (head) {
            head->owned.link = &item->owned.next;
        }
        head = item;
    }

    static void take(Item *item) noexcept {
        *item->owned.link = item->owned.next;
        if (item->owned.next) {
            item->owned.next->owned.link = item->owned.link;
        }
        item->owned.link = nullptr;
    }

    void grow() noexcept {
        Vector<Item *> old;
        try {
            old.assign(chains_.empty() ? first_chains : 2 * chains_.size(), nullptr);
        } catch (const std::bad_alloc &) {
            return;
        }
        old.swap(chains_);
        const auto move_all = [this](Item *item) {
            while (item) {
                Item *const next = item->owned.next;
                push(chain(item->owned.owner), item);
                item = next;
            }
        };
        move_all(std::exchange(only_chain_, nullptr));
        for (Item *head : old) {
            move_all(head);
        }
    }

    Vector<Item *> chains_;
    Item *only_chain_ = nullptr;  // while there is no memory for more
    size_t count_ = 0;
    std::atomic<uint32_t> counts_[counted] = {};  // items by their owners' hash
};

}  // namespace kiv
