// How a dictionary finds its entries.
//
// Most dictionaries are small, and documents hold very many of them: so the order list is made with
// the first entry, and the table only when there are more than `most_walked`; until then a look-up
// walks the list. Whoever finds no memory for the table goes on walking.
//
// Invariants:
// 1. The order list holds every entry and owns it. An entry remembers its element there, so that it
//    is removed without a search.
// 2. If there is a table, it refers to the same entries. It is made from the list under the list's
//    lock; an entry is therefore put into the table by whoever appends it, if the table was there
//    when the list's lock was held, and by whoever makes the table otherwise. Likewise it leaves
//    the list first, and then the table if one is there by then.
// 3. The table is always emptied with chuck semantics: it never frees an entry.
//
// No lock is held while the table notifies its clients.
#include <algorithm>
#include <atomic>

#include "containers/linklist_record.h"
#include "containers/values.h"

namespace kiv {

namespace {

constexpr int32_t most_walked = 16;

Linklist *order_of(const Dictionary *dictionary) noexcept {
    return std::atomic_ref(const_cast<Linklist *&>(dictionary->order))
        .load(std::memory_order_acquire);
}

Hashtab *table_of(const Dictionary *dictionary) noexcept {
    return std::atomic_ref(const_cast<Hashtab *&>(dictionary->table))
        .load(std::memory_order_acquire);
}

Linklist *order_make(Dictionary *dictionary) noexcept {
    if (Linklist *order = order_of(dictionary)) {
        return order;
    }
    Linklist *made = linklist_new();
    Linklist *present = nullptr;
    if (made && !std::atomic_ref(dictionary->order)
                     .compare_exchange_strong(present, made, std::memory_order_acq_rel)) {
        object_free(made);
        made = present;
    }
    return made;
}

bool table_store(Hashtab *table, DictionaryEntry *entry) noexcept {
    Symbol *const key = entry->key;
    if (hashtab_storeflags(table, key, entry, 0) != ErrorNone) {
        return false;
    }
    // A store that finds no memory for its slot reports success: only a look-up tells. A client
    // that was notified may have cleared the dictionary, and with it the table.
    void *found = nullptr;
    return !object_isvalid(table) || hashtab_lookup(table, key, &found) == ErrorNone;
}

void table_make(Dictionary *dictionary, Linklist *order) noexcept {
    Hashtab *table = hashtab_new(0);
    if (!table) {
        return;
    }
    {
        const ListLock lock(order, Access::read);
        bool complete = !table_of(dictionary);
        for (const LinklistElement *element = order->head; complete && element;
             element = element->next) {
            complete =
                !element->item || table_store(table, static_cast<DictionaryEntry *>(element->item));
        }
        if (complete) {
            std::atomic_ref(dictionary->table).store(table, std::memory_order_release);
            return;
        }
    }
    hashtab_chuck(table);
}

}  // namespace

DictionaryEntry *dictionary_entry(const Dictionary *dictionary, Symbol *key) noexcept {
    if (!dictionary) {
        return nullptr;
    }
    if (Hashtab *table = table_of(dictionary)) {
        void *entry = nullptr;
        hashtab_lookup(table, key, &entry);
        return static_cast<DictionaryEntry *>(entry);
    }
    Linklist *order = order_of(dictionary);
    if (!order) {
        return nullptr;
    }
    const ListLock lock(order, Access::read);
    for (const LinklistElement *element = order->head; element; element = element->next) {
        auto *entry = static_cast<DictionaryEntry *>(element->item);
        if (entry && entry->key == key) {
            return entry;
        }
    }
    return nullptr;
}

bool dictionary_link(Dictionary *dictionary, DictionaryEntry *entry) noexcept {
    Linklist *order = order_make(dictionary);
    if (!order) {
        return false;
    }
    Hashtab *table = nullptr;
    bool many = false;
    {
        const ListLock lock(order, Access::change);
        entry->element = element_append(order, entry);
        table = table_of(dictionary);
        many = order->count > most_walked;
    }
    if (!entry->element) {
        return false;
    }
    if (!table) {
        if (many) {
            table_make(dictionary, order);
        }
        return true;
    }
    if (!table_store(table, entry)) {
        linklist_chuckptr(order, entry->element);
        return false;
    }
    return true;
}

void dictionary_unlink(Dictionary *dictionary, DictionaryEntry *entry) noexcept {
    linklist_chuckptr(dictionary->order, entry->element);
    if (Hashtab *table = table_of(dictionary)) {
        hashtab_chuckkey(table, entry->key);
    }
}

Vector<DictionaryEntry *> dictionary_entries(const Dictionary *dictionary) {
    Vector<DictionaryEntry *> entries;
    Linklist *order = dictionary ? order_of(dictionary) : nullptr;
    if (order) {
        entries.resize(static_cast<size_t>(linklist_getsize(order)));
        entries.resize(
            static_cast<size_t>(linklist_makearray(order, reinterpret_cast<void **>(entries.data()),
                                                   static_cast<int32_t>(entries.size()))));
        std::erase(entries, nullptr);  // items whose removal waits for the end of an iteration
    }
    return entries;
}

}  // namespace kiv

using namespace kiv;

int32_t dictionary_getentrycount(const Dictionary *dictionary) noexcept {
    if (Hashtab *table = dictionary ? table_of(dictionary) : nullptr) {
        return hashtab_getsize(table);
    }
    Linklist *order = dictionary ? order_of(dictionary) : nullptr;
    int32_t count = 0;
    if (order) {
        const ListLock lock(order, Access::read);
        for (const LinklistElement *element = order->head; element; element = element->next) {
            count += element->item != nullptr;
        }
    }
    return count;
}

ErrorCode dictionary_getkeys(const Dictionary *dictionary, int32_t *count,
                             Symbol ***keys) noexcept {
    if (!dictionary || !count || !keys) {
        return ErrorGeneric;
    }
    *count = 0;
    *keys = nullptr;
    if (Hashtab *table = table_of(dictionary)) {
        hashtab_getkeys(table, count, keys);
        return *keys || hashtab_getsize(table) == 0 ? ErrorNone : ErrorOutOfMemory;
    }
    const ErrorCode result = dictionary_getkeys_ordered(dictionary, count, keys);
    // The order that a table gives: by slot, then by age.
    constexpr uint32_t slot_count = 59;
    const auto slot = [](const Symbol *key) {
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key)) % slot_count;
    };
    for (int32_t i = 1; i < *count; ++i) {
        Symbol **const end = *keys + i;
        std::rotate(
            std::upper_bound(*keys, end, *end,
                             [&](const Symbol *x, const Symbol *y) { return slot(x) < slot(y); }),
            end, end + 1);
    }
    return result;
}
