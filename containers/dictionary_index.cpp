// How a dictionary finds its entries. It takes three forms, each made when it is first needed:
//
// - Packed: keys and values behind its own record, without records of theirs. So begins a small
//   dictionary that is read as a whole, of which documents hold very many and most are only read.
// - Listed: the order list holds a record for each entry. A dictionary takes this form when it is
//   first changed, or when somebody wants to see records, and never goes back.
// - Indexed: a table beside the list, once there are more than `most_walked` entries; until then a
//   look-up walks. Whoever finds no memory for the table goes on walking.
//
// Invariants:
// 1. The order list, if any, holds every entry and owns it. An entry remembers its element there,
//    so that it is removed without a search.
// 2. Nothing in the packed pairs changes, and no value in them is a string that a symbol could
//    hold. When there is a list, their values have moved there; the pairs stay for whoever is still
//    reading them.
// 3. If there is a table, it refers to the same entries. It is made from the list under the list's
//    lock; an entry is therefore put into the table by whoever appends it, if the table was there
//    when the list's lock was held, and by whoever makes the table otherwise. Likewise it leaves
//    the list first, and then the table if one is there by then.
// 4. The table is always emptied with chuck semantics: it never frees an entry.
//
// No lock is held while the table notifies its clients.
#include <algorithm>
#include <atomic>
#include <span>
#include <utility>

#include "containers/free_nested.h"
#include "containers/hashtab_record.h"
#include "containers/values.h"

namespace kiv {

namespace {

Linklist *order_of(const Dictionary *dictionary) noexcept {
    return std::atomic_ref(const_cast<Linklist *&>(dictionary->order))
        .load(std::memory_order_acquire);
}

Hashtab *table_of(const Dictionary *dictionary) noexcept {
    return std::atomic_ref(const_cast<Hashtab *&>(dictionary->table))
        .load(std::memory_order_acquire);
}

// The pairs of a packed dictionary.
std::span<KeyValue> packed_of(const Dictionary *dictionary) noexcept {
    auto *behind = const_cast<Dictionary *>(dictionary) + 1;
    return {reinterpret_cast<KeyValue *>(behind), static_cast<size_t>(dictionary->packed)};
}

// The pair under a key of a packed dictionary, or null.
KeyValue *packed_find(const Dictionary *dictionary, const Symbol *key) noexcept {
    for (KeyValue &pair : packed_of(dictionary)) {
        if (pair.key == key) {
            return &pair;
        }
    }
    return nullptr;
}

// Frees a list of records whose values are somebody else's.
void discard_list(Linklist *order) noexcept {
    for (LinklistElement *element = order->head; element; element = element->next) {
        static_cast<DictionaryEntry *>(element->item)->value = {};
    }
    object_free(order);
}

// A list of records for the packed pairs, if any; null on no memory.
Linklist *list_packed(std::span<const KeyValue> packed) noexcept {
    Linklist *order = linklist_new();
    if (!order) {
        return nullptr;
    }
    for (const KeyValue &pair : packed) {
        DictionaryEntry *entry = dictionary_entry_new(pair.key, pair.value, 0);
        if (entry && (entry->element = element_append(order, entry))) {
            continue;
        }
        if (entry) {
            dictionary_entry_discard(entry);
        }
        discard_list(order);
        return nullptr;
    }
    return order;
}

Linklist *order_make(Dictionary *dictionary) noexcept {
    if (Linklist *order = order_of(dictionary)) {
        return order;
    }
    Linklist *made = list_packed(packed_of(dictionary));
    Linklist *present = nullptr;
    if (made && !std::atomic_ref(dictionary->order)
                     .compare_exchange_strong(present, made, std::memory_order_acq_rel)) {
        discard_list(made);
        made = present;
    }
    return made;
}

bool table_store(Hashtab *table, DictionaryEntry *entry) noexcept {
    Symbol *const key = entry->key;
    if (hashtab_storeflags(table, key, entry, 0) != ErrorNone) {
        return false;
    }
    // A store that finds no memory for its slot reports success. A client that was notified may
    // have cleared the dictionary, and with it the table.
    return !object_isvalid(table) || slot_list(table, slot_number(table, key));
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

// The record of an entry in the list, or null.
DictionaryEntry *find_record(const Dictionary *dictionary, const Symbol *key) noexcept {
    if (Hashtab *table = table_of(dictionary)) {
        void *entry = nullptr;
        hashtab_lookup(table, const_cast<Symbol *>(key), &entry);
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

}  // namespace

Dictionary *dictionary_pack(int32_t count, const KeyValue *pairs) noexcept {
    Dictionary *dictionary = dictionary_make(int64_t{count} * int64_t{sizeof(KeyValue)});
    if (dictionary) {
        dictionary->packed = count;
        std::copy_n(pairs, count, packed_of(dictionary).begin());
    }
    return dictionary;
}

bool dictionary_unpack(Dictionary *dictionary) noexcept {
    return !dictionary->packed || order_make(dictionary);
}

// What freeing a value calls out to finds the dictionary empty.
void dictionary_empty(Dictionary *dictionary) noexcept {
    Linklist *order = std::exchange(dictionary->order, nullptr);
    const std::span<KeyValue> packed = packed_of(dictionary);
    dictionary->packed = 0;
    hashtab_chuck(std::exchange(dictionary->table, nullptr));
    if (order) {
        object_free(order);
        return;
    }
    for (const KeyValue &pair : packed) {
        if (pair.value.type == TypeObject && pair.value.value.obj) {
            free_nested(pair.value.value.obj);
        }
    }
}

DictionaryEntry *dictionary_entry(const Dictionary *dictionary, Symbol *key) noexcept {
    if (!dictionary || !dictionary_unpack(const_cast<Dictionary *>(dictionary))) {
        return nullptr;
    }
    return find_record(dictionary, key);
}

Atom *dictionary_value(const Dictionary *dictionary, Symbol *key) noexcept {
    if (!dictionary) {
        return nullptr;
    }
    if (dictionary->packed && !order_of(dictionary)) {
        KeyValue *pair = packed_find(dictionary, key);
        return pair ? &pair->value : nullptr;
    }
    DictionaryEntry *entry = find_record(dictionary, key);
    if (!entry) {
        return nullptr;
    }
    string_to_symbol(entry);
    return &entry->value;
}

bool dictionary_has(const Dictionary *dictionary, const Symbol *key) noexcept {
    return dictionary &&
           (dictionary->packed && !order_of(dictionary) ? packed_find(dictionary, key) != nullptr
                                                        : find_record(dictionary, key) != nullptr);
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

void dictionary_list(const Dictionary *dictionary, Vector<EntryView> &out) {
    Linklist *order = dictionary ? order_of(dictionary) : nullptr;
    if (!order) {
        if (dictionary) {
            for (const KeyValue &pair : packed_of(dictionary)) {
                out.push_back({pair, 0});
            }
        }
        return;
    }
    const ListLock lock(order, Access::read);
    for (const LinklistElement *element = order->head; element; element = element->next) {
        // An item whose removal waits for the end of an iteration is gone already.
        if (const auto *entry = static_cast<const DictionaryEntry *>(element->item)) {
            out.push_back({{entry->key, entry->value}, entry->flags});
        }
    }
}

}  // namespace kiv

using namespace kiv;

int32_t dictionary_getentrycount(const Dictionary *dictionary) noexcept {
    if (Hashtab *table = dictionary ? table_of(dictionary) : nullptr) {
        return hashtab_getsize(table);
    }
    Linklist *order = dictionary ? order_of(dictionary) : nullptr;
    int32_t count = 0;
    if (!order && dictionary && dictionary->packed) {
        return static_cast<int32_t>(dictionary->packed);
    }
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
