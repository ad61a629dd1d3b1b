// Hash table: making, storing, looking up, removing.
//
// Structure: a fixed number of slots, each null or a list of entries in order of storing. A key's
// slot is its address modulo the slot count and never changes, so that walking a table has one
// order: by slot, then by age. The count is often far too small for what a table comes to hold
// (a dictionary has 59 slots and may have 100,000 keys), so a slot whose list has grown long gets
// an index from key to entry beside it (hashtab_index.cpp). The index changes nothing but the time
// a look-up takes; it belongs to the slot and is guarded by the lock of the slot's list.
//
// Invariants:
// 1. Every entry is the item of an element of its slot's list, and knows the element, so that
//    removing it walks nothing.
// 2. A slot's index, if any, finds the oldest entry of each key in the list. It is told before an
//    entry leaves the list and after one has joined it.
// 3. The lists own the entries and free them; an entry's destructor frees its value.
//
// Thread safety: no lock but the lists' own, each guarding its slot's finds, additions and removals
// and the fields of its entries. Slots are filled by compare-and-exchange. Clearing and freeing a
// table, and making it read-only, are for when no other thread uses it.
//
// Notifications, and the freeing of values, run without a lock and may change, clear or free the
// table. A removal learns of it from a witness among the list's iterations, a clearing from the
// table's own `witness`.
#include <kiv/class.h>
#include <kiv/object.h>

#include <cstddef>
#include <utility>

#include "containers/families.h"
#include "containers/free_nested.h"
#include "containers/hashtab_record.h"
#include "kernel/internal.h"

namespace kiv {

namespace {

constexpr int32_t default_slot_count = 59;
constexpr int32_t not_freed = ContainerReference | ContainerData;

struct {
    Class *table_class = nullptr;
    Class *entry_class = nullptr;
} state;

// The list of a slot, made if need be; null on no memory.
Linklist *slot_list_make(Hashtab *table, uint32_t slot) noexcept {
    if (Linklist *list = slot_list(table, slot)) {
        return list;
    }
    Linklist *made = linklist_new_with_readonly(table->readonly);
    Linklist *present = nullptr;
    if (made && !std::atomic_ref(table->slots[slot])
                     .compare_exchange_strong(present, made, std::memory_order_acq_rel)) {
        object_free(made);
        made = present;
    }
    return made;
}

// Adds an entry to a locked slot.
bool add_entry(Hashtab *table, uint32_t slot, Linklist *list, void *key, void *value,
               int32_t flags) noexcept {
    auto *entry = static_cast<EntryRecord *>(object_alloc(state.entry_class));
    if (!entry) {
        return false;
    }
    entry->key = key;
    entry->value = value;
    entry->flags = flags;
    entry->owner = table;
    entry->element = element_append(list, entry);
    if (!entry->element) {
        entry->flags = ContainerReference;
        object_free(entry);
        return false;
    }
    index_add(slot_index(table, slot), list, entry);
    return true;
}

// The old value of an entry that gets a new one, if it is to be freed. Bits 1 and 2 are asked
// before bit 4 here, unlike when an entry is destroyed.
Released replaced_value(const Hashtab *table, const EntryRecord *entry,
                        const void *new_value) noexcept {
    const int32_t flags = table->flags | entry->flags;
    if ((flags & not_freed) || entry->value == new_value) {
        return {};
    }
    if (flags & ContainerMemory) {
        return {entry->value, true};
    }
    return object_valid(entry->value) ? Released{entry->value} : Released{};
}

// The one store behind all: what it does to an entry that is there is up to `replace`.
template <class Replace>
ErrorCode store(Hashtab *table, void *key, void *value, int32_t flags, bool duplicate,
                Replace replace) noexcept {
    if (!is_usable(table)) {
        return ErrorGeneric;
    }
    const int32_t entry_flags = flags & ~ContainerDuplicate;
    if (!slot_list_make(table, slot_number(table, key))) {
        return ErrorNone;
    }
    Released old;
    int32_t notify_flags = entry_flags;
    {
        SlotLock slot(table, key, Access::change);
        EntryRecord *entry = duplicate ? nullptr : slot.find();
        if (!slot.list()) {
            return ErrorNone;
        }
        if (entry) {
            old = replace(entry);
            notify_flags = entry->flags;
        } else if (!add_entry(table, slot_number(table, key), slot.list(), key, value,
                              entry_flags)) {
            return ErrorGeneric;
        }
    }
    const bool notify =
        !((table->flags | notify_flags) & ContainerNoNotify) && hashtab_watched(table);
    released_free(old);
    if (notify) {
        object_notify(table, "hashtab_entry_new"_sym, key);
    }
    return ErrorNone;
}

template <class Read>
ErrorCode with_entry(const Hashtab *table, const void *key, Read read) noexcept {
    if (!is_usable(table)) {
        return ErrorGeneric;
    }
    const SlotLock slot(table, key, Access::read);
    EntryRecord *entry = slot.find();
    if (!entry) {
        return ErrorGeneric;
    }
    read(entry);
    return ErrorNone;
}

// Tells the clients that an entry is about to go. False when nothing is left to remove.
bool announce_removal(Hashtab *table, void *key, bool keep_value) noexcept {
    if ((table->flags & ContainerNoNotify) || !hashtab_watched(table)) {
        return true;
    }
    Linklist *list;
    {
        SlotLock slot(table, key, Access::change);
        EntryRecord *entry = slot.find();
        if (!entry) {
            return true;
        }
        if (entry->flags & ContainerNoNotify) {
            return true;
        }
        if (!keep_value && ((table->flags | entry->flags) & not_freed)) {
            entry->value = nullptr;
        }
        list = slot.list();
    }
    const ListWitness witness(list);
    object_notify(table, "hashtab_entry_free"_sym, key);
    return witness.list_lives();
}

// An entry whose element's flags say so is not freed by its slot's list: it belongs to whoever set
// them, and must not point into a table that may go before it.
void leave_kept_entry(EntryRecord *entry) noexcept {
    if (entry->element->flags & not_freed) {
        entry->owner = nullptr;
    }
}

ErrorCode remove_key(Hashtab *table, void *key, bool keep_value) noexcept {
    if (!is_usable(table)) {
        return ErrorGeneric;
    }
    if (!announce_removal(table, key, keep_value)) {
        return ErrorNone;
    }
    SlotLock slot(table, key, Access::change);
    EntryRecord *entry = slot.find();
    if (!entry) {
        return ErrorGeneric;
    }
    if (keep_value || ((table->flags | entry->flags) & not_freed)) {
        entry->value = nullptr;
    }
    index_remove(slot_index(table, slot_number(table, key)), entry);
    leave_kept_entry(entry);
    const Released released = element_remove(slot.list(), entry->element);
    slot.release();
    released_free(released);
    return ErrorNone;
}

void free_slot(Linklist *list, SlotIndex *index) noexcept {
    sysmem_freeptr(index);
    if (list) {
        ListLock lock(list, Access::change);
        for (LinklistElement *element = list->head; element; element = element->next) {
            // Entries that are kept, or whose freeing is postponed, outlive the table.
            if (auto *entry = static_cast<EntryRecord *>(element->item)) {
                entry->flags |= entry->owner->flags;
                entry->owner = nullptr;
            }
        }
        lock.release();
        object_free(list);
    }
}

void destroy(Hashtab *table) noexcept {
    if (!table->slots) {
        return;
    }
    if (table->witness) {
        *table->witness = true;
    }
    if (!(table->flags & ContainerNoNotify) && hashtab_watched(table)) {
        object_notify(table, "hashtab_free"_sym, nullptr);
    }
    // Values that use the table while they are freed find it empty and cannot store.
    Linklist **slots = std::exchange(table->slots, nullptr);
    for (int32_t i = 0; i < table->slot_count; ++i) {
        free_slot(slots[i], reinterpret_cast<SlotIndex *>(slots[table->slot_count + i]));
    }
    sysmem_freeptr(slots);
}

// Bit 4 is asked before bits 1 and 2 here, unlike when a value is replaced.
void entry_destroy(HashtabEntry *entry) noexcept {
    const int32_t flags = entry->flags | (entry->owner ? entry->owner->flags : 0);
    if (flags & ContainerMemory) {
        sysmem_freeptr(entry->value);
    } else if (!(flags & not_freed) && object_valid(entry->value)) {
        free_nested(entry->value);
    }
}

int32_t class_hashtab() noexcept {
    return 1;
}

}  // namespace

bool hashtab_watched(Hashtab *table) noexcept {
    return std::atomic_ref(table->obex).load(std::memory_order_relaxed) &&
           (obex_flags(&table->ob) & (ObexSelfNotify | ObexAttached));
}

void hashtabs_make_classes() noexcept {
    state.table_class = class_new("hashtab", method(hashtab_new), method(destroy),
                                  static_cast<int32_t>(sizeof(Hashtab)), nullptr, TypeDefLong, 0);
    if (state.table_class) {
        state.table_class->flags |= ClassContainer;
        class_obexoffset_set(state.table_class, static_cast<int32_t>(offsetof(Hashtab, obex)));
    }
    state.entry_class = class_new("hashtab_entry", nullptr, method(entry_destroy),
                                  static_cast<int32_t>(sizeof(EntryRecord)), nullptr, 0);
    if (state.entry_class) {
        state.entry_class->flags |= ClassContainer;
        // Entries are many: nothing is attached to one, and freeing one asks nobody.
        state.entry_class->lightweight = 1;
        class_obexoffset_set(state.entry_class, -1);
    }
}

void hashtabs_start() noexcept {
    const DirectMethod methods[] = {
        {"class_hashtab", method(class_hashtab)},
        {"store", method(hashtab_store)},
        {"lookup", method(hashtab_lookup)},
        {"delete", method(hashtab_delete)},
        {"clear", method(hashtab_clear)},
        {"chuckkey", method(hashtab_chuckkey)},
        {"chuck", method(hashtab_chuck)},
        {"getsize", method(hashtab_getsize)},
        {"print", method(hashtab_print)},
        {"findfirst", method(hashtab_findfirst)},
        {"methodall", method(hashtab_methodall_imp)},
        {"funall", method(hashtab_funall)},
        {"funall_sorted", method(hashtab_funall_sorted)},
        {"objfunall", method(hashtab_objfunall)},
        {"getkeys", method(hashtab_getkeys)},
        {"readonly", method(hashtab_readonly)},
        {"flags", method(hashtab_flags)},
        {"getflags", method(hashtab_getflags)},
        {"storeflags", method(hashtab_storeflags)},
        {"lookupflags", method(hashtab_lookupflags)},
        {"lookupentry", method(hashtab_lookupentry)},
        {"keyflags", method(hashtab_keyflags)},
        {"getkeyflags", method(hashtab_getkeyflags)},
        {"tolinklist", method(hashtab_tolinklist)},
    };
    add_direct_methods(state.table_class, methods);
    const DirectMethod entry_methods[] = {
        {"forward", method(entry_forward)},
        {"objfun", method(entry_objfun)},
    };
    add_direct_methods(state.entry_class, entry_methods);
    class_register(nullptr, state.table_class);
    class_register(nullptr, state.entry_class);
}

}  // namespace kiv

using namespace kiv;

Hashtab *hashtab_new(int32_t slot_count) noexcept {
    // Before the classes are made there is no table.
    auto *table = state.entry_class && state.table_class
                      ? static_cast<Hashtab *>(object_alloc(state.table_class))
                      : nullptr;
    if (!table) {
        return nullptr;
    }
    table->slot_count = slot_count < 1 ? default_slot_count : slot_count | 1;
    const int64_t bytes = int64_t{2} * table->slot_count * static_cast<int64_t>(sizeof(Linklist *));
    table->slots = static_cast<Linklist **>(sysmem_newptrclear(bytes));
    if (!table->slots) {
        object_free(table);
        return nullptr;
    }
    return table;
}

ErrorCode hashtab_storeflags(Hashtab *table, Symbol *key, void *value, int32_t flags) noexcept {
    const bool duplicate = (flags & ContainerDuplicate) != 0;
    return store(table, key, value, flags, duplicate, [=](EntryRecord *entry) {
        const Released old = replaced_value(table, entry, value);
        entry->value = value;
        entry->flags = flags;
        return old;
    });
}

ErrorCode hashtab_store(Hashtab *table, Symbol *key, void *value) noexcept {
    return hashtab_storeflags(table, key, value, 0);
}

ErrorCode hashtab_storesym(Hashtab *table, Symbol *key, Symbol *value) noexcept {
    return hashtab_storeflags(table, key, value, ContainerData);
}

ErrorCode hashtab_storelong(Hashtab *table, Symbol *key, int64_t value) noexcept {
    return hashtab_storeflags(table, key, reinterpret_cast<void *>(value), ContainerData);
}

ErrorCode hashtab_store_safe(Hashtab *table, Symbol *key, void *value) noexcept {
    return store(table, key, value, 0, false, [=](EntryRecord *entry) {
        entry->value = value;
        return Released{};
    });
}

ErrorCode hashtab_lookup(Hashtab *table, Symbol *key, void **value) noexcept {
    if (!value) {
        return ErrorGeneric;
    }
    *value = nullptr;
    return with_entry(table, key, [=](const EntryRecord *entry) { *value = entry->value; });
}

ErrorCode hashtab_lookupsym(Hashtab *table, Symbol *key, Symbol **value) noexcept {
    return hashtab_lookup(table, key, reinterpret_cast<void **>(value));
}

ErrorCode hashtab_lookuplong(Hashtab *table, Symbol *key, int64_t *value) noexcept {
    if (!value) {
        return ErrorGeneric;
    }
    *value = 0;
    return with_entry(table, key, [=](const EntryRecord *entry) {
        *value = reinterpret_cast<int64_t>(entry->value);
    });
}

ErrorCode hashtab_lookupflags(Hashtab *table, Symbol *key, void **value, int32_t *flags) noexcept {
    if (flags) {
        *flags = 0;
    }
    if (!value) {
        return ErrorGeneric;
    }
    *value = nullptr;
    return with_entry(table, key, [=](const EntryRecord *entry) {
        *value = entry->value;
        if (flags) {
            *flags = entry->flags;
        }
    });
}

ErrorCode hashtab_lookupentry(Hashtab *table, Symbol *key, HashtabEntry **entry) noexcept {
    if (!entry) {
        return ErrorGeneric;
    }
    *entry = nullptr;
    return with_entry(table, key, [=](EntryRecord *found) { *entry = found; });
}

ErrorCode hashtab_keyflags(Hashtab *table, Symbol *key, int32_t flags) noexcept {
    if (!is_usable(table)) {
        return ErrorGeneric;
    }
    const SlotLock slot(table, key, Access::change);
    EntryRecord *entry = slot.find();
    if (!entry) {
        return ErrorGeneric;
    }
    entry->flags = flags;
    if (flags & not_freed) {
        entry->element->flags = flags;
    }
    return ErrorNone;
}

int32_t hashtab_getkeyflags(Hashtab *table, Symbol *key) noexcept {
    int32_t flags = 0;
    with_entry(table, key, [&](const EntryRecord *entry) { flags = entry->flags; });
    return flags;
}

ErrorCode hashtab_delete(Hashtab *table, Symbol *key) noexcept {
    return remove_key(table, key, false);
}

ErrorCode hashtab_chuckkey(Hashtab *table, Symbol *key) noexcept {
    return remove_key(table, key, true);
}

ErrorCode hashtab_clear(Hashtab *table) noexcept {
    if (!is_usable(table)) {
        return ErrorGeneric;
    }
    bool gone = false;
    bool *outer = std::exchange(table->witness, &gone);
    if (!(table->flags & ContainerNoNotify) && hashtab_watched(table)) {
        object_notify(table, "hashtab_free"_sym, nullptr);
    }
    for (uint32_t slot = 0; !gone && slot < static_cast<uint32_t>(table->slot_count); ++slot) {
        Linklist *list = std::atomic_ref(table->slots[slot]).exchange(nullptr);
        free_slot(list, std::exchange(slot_index(table, slot), nullptr));
    }
    if (gone) {
        if (outer) {
            *outer = true;
        }
    } else {
        table->witness = outer;
    }
    return ErrorNone;
}

ErrorCode hashtab_chuck(Hashtab *table) noexcept {
    if (!table) {
        return ErrorGeneric;
    }
    for (uint32_t slot = 0; table->slots && slot < static_cast<uint32_t>(table->slot_count);
         ++slot) {
        if (Linklist *list = slot_list(table, slot)) {
            ListLock lock(list, Access::change);
            for (LinklistElement *element = list->head; element; element = element->next) {
                if (auto *entry = static_cast<EntryRecord *>(element->item)) {
                    entry->value = nullptr;
                }
            }
        }
    }
    return object_free(table);
}

void hashtab_readonly(Hashtab *table, int32_t on) noexcept {
    if (!is_usable(table)) {
        return;
    }
    table->readonly = on;
    for (uint32_t slot = 0; slot < static_cast<uint32_t>(table->slot_count); ++slot) {
        linklist_readonly(slot_list(table, slot), on);
    }
}

void hashtab_flags(Hashtab *table, int32_t flags) noexcept {
    if (table) {
        table->flags = flags;
    }
}

int32_t hashtab_getflags(Hashtab *table) noexcept {
    return table ? table->flags : 0;
}
