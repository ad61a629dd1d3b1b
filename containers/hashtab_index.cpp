// The index that a long slot list gets, so that finding one of its keys does not walk it.
//
// Open addressing with linear probing over a power of two of places, at most three quarters of them
// taken. A place has the key beside the entry, so that only the entry sought is read. It holds for
// each key the oldest of its entries, as a walk would find it; `hidden` counts the younger ones,
// which only a store that forces duplicates makes. Removing shifts later entries back, so there are
// no tombstones. Everything happens under the lock of the slot's list.
#include <utility>

#include "containers/hashtab_record.h"

namespace kiv {

// The places follow the record in one block.
struct SlotIndex {
    uint32_t capacity;
    uint32_t taken;
    uint64_t hidden;

    struct Place {
        const void *key;
        EntryRecord *entry;  // null: the place is free
    };
    Place &place(uint32_t i) noexcept { return reinterpret_cast<Place *>(this + 1)[i]; }
    const Place &place(uint32_t i) const noexcept {
        return reinterpret_cast<const Place *>(this + 1)[i];
    }
};

namespace {

// Shorter lists are as fast to walk. At 59 slots a table of some 450 keys begins to build indexes.
constexpr int32_t longest_walk = 8;

uint32_t home_of(const SlotIndex *index, const void *key) noexcept {
    const auto bits = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(key));
    return static_cast<uint32_t>((bits * 0x9e3779b97f4a7c15u) >> 32) & (index->capacity - 1);
}

// The place of a key's entry, or the free place where it belongs.
uint32_t place_of(const SlotIndex *index, const void *key) noexcept {
    uint32_t place = home_of(index, key);
    while (index->place(place).entry && index->place(place).key != key) {
        place = (place + 1) & (index->capacity - 1);
    }
    return place;
}

void insert(SlotIndex *index, EntryRecord *entry) noexcept {
    SlotIndex::Place &place = index->place(place_of(index, entry->key));
    if (place.entry) {
        ++index->hidden;
    } else {
        place = {entry->key, entry};
        ++index->taken;
    }
}

// Indexes the whole list anew, with room for half as many entries again or more.
SlotIndex *build(const Linklist *list) noexcept {
    uint32_t capacity = 32;
    while (capacity < 2 * static_cast<uint32_t>(list->count.load(std::memory_order_relaxed))) {
        capacity *= 2;
    }
    const size_t bytes = sizeof(SlotIndex) + capacity * sizeof(SlotIndex::Place);
    auto *index = static_cast<SlotIndex *>(sysmem_newptrclear(static_cast<int64_t>(bytes)));
    if (!index) {
        return nullptr;
    }
    index->capacity = capacity;
    for (const LinklistElement *element = list->head; element; element = element->next) {
        if (element->item) {
            insert(index, static_cast<EntryRecord *>(element->item));
        }
    }
    return index;
}

// Frees a place and moves into it what would no longer be found behind the gap.
void vacate(SlotIndex *index, uint32_t hole) noexcept {
    const uint32_t mask = index->capacity - 1;
    index->place(hole) = {};
    --index->taken;
    for (uint32_t i = (hole + 1) & mask; index->place(i).entry; i = (i + 1) & mask) {
        const uint32_t distance = (i - home_of(index, index->place(i).key)) & mask;
        if (distance >= ((i - hole) & mask)) {
            index->place(hole) = std::exchange(index->place(i), {});
            hole = i;
        }
    }
}

EntryRecord *next_with_same_key(const EntryRecord *entry) noexcept {
    for (const LinklistElement *element = entry->element->next; element; element = element->next) {
        auto *candidate = static_cast<EntryRecord *>(element->item);
        if (candidate && candidate->key == entry->key) {
            return candidate;
        }
    }
    return nullptr;
}

}  // namespace

EntryRecord *index_find(const SlotIndex *index, const void *key) noexcept {
    return index->place(place_of(index, key)).entry;
}

void index_add(SlotIndex *&index, const Linklist *list, EntryRecord *entry) noexcept {
    if (!index) {
        if (list->count.load(std::memory_order_relaxed) > longest_walk) {
            index = build(list);
        }
    } else if ((index->taken + 1) * 4 <= index->capacity * 3) {
        insert(index, entry);
    } else {
        sysmem_freeptr(index);
        index = build(list);
    }
}

void index_remove(SlotIndex *index, const EntryRecord *entry) noexcept {
    if (!index) {
        return;
    }
    const uint32_t place = place_of(index, entry->key);
    if (index->place(place).entry != entry) {
        --index->hidden;
        return;
    }
    EntryRecord *next = index->hidden > 0 ? next_with_same_key(entry) : nullptr;
    if (next) {
        index->place(place).entry = next;
        --index->hidden;
    } else {
        vacate(index, place);
    }
}

const char *index_check(const SlotIndex *index, const Linklist *list) noexcept {
    if (!index) {
        return nullptr;
    }
    uint32_t entries = 0;
    for (const LinklistElement *element = list->head; element; element = element->next) {
        if (auto *entry = static_cast<EntryRecord *>(element->item)) {
            ++entries;
            const EntryRecord *found = index_find(index, entry->key);
            if (!found || found->key != entry->key) {
                return "an entry is missing from its slot's index";
            }
        }
    }
    uint32_t taken = 0;
    for (uint32_t i = 0; i < index->capacity; ++i) {
        taken += index->place(i).entry != nullptr;
    }
    if (taken != index->taken || entries != index->taken + index->hidden) {
        return "a slot's index counts wrongly";
    }
    return nullptr;
}

}  // namespace kiv
