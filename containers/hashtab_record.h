// The table's record, its entries and its slots. Private to the table's files.
#pragma once

#include <kiv/hashtab.h>

#include <atomic>
#include <cstdint>
#include <optional>

#include "containers/linklist_record.h"

// Fields in the order of the record.
struct Hashtab {
    Object ob;
    int32_t slot_count;  // odd; fixed for the table's life
    Linklist **slots;    // owned; slot_count lists, then slot_count indexes; null while destroyed
    int32_t readonly;
    int32_t flags;
    // Private from here on.
    void *obex;
    bool *witness;  // set to true when the table is destroyed while it is being cleared
};

namespace kiv {

struct EntryRecord : HashtabEntry {
    LinklistElement *element;  // its place in its slot's list
};

// --- A slot's index (hashtab_index.cpp); the caller holds the slot list's lock -------------------

struct SlotIndex;

EntryRecord *index_find(const SlotIndex *index, const void *key) noexcept;
// Takes in a new entry of a list, making or enlarging the index when that is due. An index that
// cannot grow is given up, and the list is walked again.
void index_add(SlotIndex *&index, const Linklist *list, EntryRecord *entry) noexcept;
// Before the entry leaves the list.
void index_remove(SlotIndex *index, const EntryRecord *entry) noexcept;
// What is wrong with an index, or null.
const char *index_check(const SlotIndex *index, const Linklist *list) noexcept;

// --- Slots ---------------------------------------------------------------------------------------

inline uint32_t slot_number(const Hashtab *table, const void *key) noexcept {
    const auto low = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key));
    return low % static_cast<uint32_t>(table->slot_count);
}
inline Linklist *slot_list(const Hashtab *table, uint32_t slot) noexcept {
    return std::atomic_ref(table->slots[slot]).load(std::memory_order_acquire);
}
inline SlotIndex *&slot_index(const Hashtab *table, uint32_t slot) noexcept {
    Linklist **place = table->slots + table->slot_count + slot;
    return *reinterpret_cast<SlotIndex **>(place);
}
inline bool is_usable(const Hashtab *table) noexcept {
    return table && table->slots;
}

// A key's slot with its list locked, if it has a list.
class SlotLock {
  public:
    SlotLock(const Hashtab *table, const void *key, Access access) noexcept
        : key_(key), number_(slot_number(table, key)), list_(slot_list(table, number_)) {
        if (list_) {
            lock_.emplace(list_, access);
            index_ = slot_index(table, number_);
        }
    }
    Linklist *list() const noexcept { return list_; }
    // The oldest entry with the key, or null.
    EntryRecord *find() const noexcept {
        if (!list_) {
            return nullptr;
        }
        if (index_) {
            return index_find(index_, key_);
        }
        for (const LinklistElement *element = list_->head; element; element = element->next) {
            auto *entry = static_cast<EntryRecord *>(element->item);
            if (entry && entry->key == key_) {
                return entry;
            }
        }
        return nullptr;
    }
    void release() noexcept {
        if (lock_) {
            lock_->release();
        }
    }

  private:
    const void *key_;
    uint32_t number_;
    Linklist *list_;
    SlotIndex *index_ = nullptr;
    std::optional<ListLock> lock_;
};

// Whether anyone may be listening. The flags of the extension record are only asked for when there
// is one: most tables have none.
bool hashtab_watched(Hashtab *table) noexcept;

// What is wrong with a table at rest, or null.
const char *hashtab_check(Hashtab *table) noexcept;

// The class messages of the walking functions.
Linklist *hashtab_tolinklist(Hashtab *table) noexcept;
void hashtab_funall_sorted(Hashtab *table, HashtabFunction function, void *arg,
                           LinklistCompare compare) noexcept;
void *entry_forward(HashtabEntry *entry, Symbol *selector, void *p1, void *p2, void *p3, void *p4,
                    void *p5, void *p6, void *p7, void *p8) noexcept;
void *entry_objfun(HashtabEntry *entry, HashtabValueFunction function, void *arg) noexcept;

}  // namespace kiv
