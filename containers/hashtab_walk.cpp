// Hash table: walking all entries, slot by slot, each slot in the order of its list.
//
// Each slot is walked by its list's iteration, which survives whatever the callback does to it.
// When the list does not outlive a callback, the table was cleared or freed, and the walk ends: in
// both cases there is nothing left that was there when it began.
#include <kiv/console.h>
#include <kiv/object.h>

#include <algorithm>
#include <cstdarg>

#include "containers/hashtab_record.h"
#include "containers/internal.h"
#include "kernel/internal.h"

namespace kiv {

namespace {

// Calls visit(list) for the list of each slot until it answers true.
template <class Visit>
bool any_list(const Hashtab *table, Visit visit) noexcept {
    for (uint32_t slot = 0; slot < static_cast<uint32_t>(table->slot_count); ++slot) {
        Linklist *list = slot_list(table, slot);
        if (list && visit(list)) {
            return true;
        }
    }
    return false;
}

void walk_entries(const Hashtab *table, LinklistFunction function, void *arg) noexcept {
    any_list(table, [=](Linklist *list) { return !linklist_funall_outlived(list, function, arg); });
}

// Calls visit(entry) for every entry, each slot's under its list's lock, until it answers true.
template <class Visit>
bool any_entry_locked(const Hashtab *table, Visit visit) noexcept {
    return any_list(table, [&](Linklist *list) {
        const ListLock lock(list, Access::read);
        for (const LinklistElement *element = list->head; element; element = element->next) {
            auto *entry = static_cast<EntryRecord *>(element->item);
            if (entry && visit(entry)) {
                return true;
            }
        }
        return false;
    });
}

bool is_still_stored(const Hashtab *table, const void *key, const void *entry) noexcept {
    const SlotLock slot(table, key, Access::read);
    if (slot.find() == entry) {
        return true;
    }
    // One with the entry's address may be another that got its memory.
    const LinklistElement *holding = slot.list() ? element_holding(slot.list(), entry) : nullptr;
    return holding && static_cast<const EntryRecord *>(holding->item)->key == key;
}

Linklist *first_list(const Hashtab *table) noexcept {
    Linklist *first = nullptr;
    any_list(table, [&](Linklist *list) {
        first = list;
        return true;
    });
    return first;
}

struct KeyedEntry {
    void *key;
    HashtabEntry *entry;
};

// The entries of a list, with their keys, in order.
int32_t keyed_entries(Linklist *list, Vector<KeyedEntry> &out) {
    Vector<void *> items(static_cast<size_t>(linklist_getsize(list)));
    const int32_t count =
        linklist_makearray(list, items.data(), static_cast<int32_t>(items.size()));
    out.reserve(items.size());
    for (int32_t i = 0; i < count; ++i) {
        auto *entry = static_cast<HashtabEntry *>(items[static_cast<size_t>(i)]);
        out.push_back({entry->key, entry});
    }
    return count;
}

struct Message {
    Symbol *selector;
    void *p[8];
};

void *send_message(void *item, void *arg) noexcept {
    const auto *message = static_cast<const Message *>(arg);
    void *const *p = message->p;
    return entry_forward(static_cast<HashtabEntry *>(item), message->selector, p[0], p[1], p[2],
                         p[3], p[4], p[5], p[6], p[7]);
}

struct ValueCall {
    HashtabValueFunction function;
    void *arg;
};

void *call_with_value(void *item, void *arg) noexcept {
    const auto *call = static_cast<const ValueCall *>(arg);
    return entry_objfun(static_cast<HashtabEntry *>(item), call->function, call->arg);
}

}  // namespace

// A value that is no live object any more is passed over.
void *entry_forward(HashtabEntry *entry, Symbol *selector, void *p1, void *p2, void *p3, void *p4,
                    void *p5, void *p6, void *p7, void *p8) noexcept {
    const int32_t flags = entry->flags | (entry->owner ? entry->owner->flags : 0);
    if ((flags & (ContainerData | ContainerMemory)) || !object_valid(entry->value)) {
        return nullptr;
    }
    return object_method_imp(entry->value, selector, p1, p2, p3, p4, p5, p6, p7, p8);
}

void *entry_objfun(HashtabEntry *entry, HashtabValueFunction function, void *arg) noexcept {
    return function && object_valid(entry->value) ? function(entry->value, arg) : nullptr;
}

// The list refers to the entries, so that freeing it and chucking it are the same.
Linklist *hashtab_tolinklist(Hashtab *table) noexcept {
    Linklist *list = is_usable(table) ? linklist_new() : nullptr;
    if (list) {
        linklist_flags(list, ContainerReference);
        any_entry_locked(table, [=](EntryRecord *entry) {
            linklist_append(list, entry);
            return false;
        });
    }
    return list;
}

// Walks a snapshot: an entry that was removed meanwhile is not visited, and the walk ends when the
// table is cleared or freed. Entries are looked for by address, never read, once they may be gone.
void hashtab_funall_sorted(Hashtab *table, HashtabFunction function, void *arg,
                           LinklistCompare compare) noexcept {
    Linklist *sorted = function ? hashtab_tolinklist(table) : nullptr;
    if (!sorted) {
        return;
    }
    linklist_sort(sorted, compare);
    try {
        Vector<KeyedEntry> entries;
        if (keyed_entries(sorted, entries) > 0) {
            const ListWitness witness(first_list(table));
            for (const KeyedEntry &keyed : entries) {
                if (is_still_stored(table, keyed.key, keyed.entry)) {
                    function(keyed.entry, arg);
                }
                if (!witness.list_lives()) {
                    break;
                }
            }
        }
    } catch (const std::bad_alloc &) {
        object_error(table, "out of memory");
    }
    linklist_chuck(sorted);
}

const char *hashtab_check(Hashtab *table) noexcept {
    if (!is_usable(table)) {
        return nullptr;
    }
    for (uint32_t slot = 0; slot < static_cast<uint32_t>(table->slot_count); ++slot) {
        Linklist *list = slot_list(table, slot);
        if (!list) {
            continue;
        }
        if (const char *fault = linklist_check(list)) {
            return fault;
        }
        const ListLock lock(list, Access::read);
        for (LinklistElement *element = list->head; element; element = element->next) {
            const auto *entry = static_cast<EntryRecord *>(element->item);
            if (entry && (entry->element != element || entry->owner != table ||
                          slot_number(table, entry->key) != slot)) {
                return "an entry is not where it says";
            }
        }
        if (const char *fault = index_check(slot_index(table, slot), list)) {
            return fault;
        }
    }
    return nullptr;
}

}  // namespace kiv

using namespace kiv;

int32_t hashtab_getsize(Hashtab *table) noexcept {
    int32_t size = 0;
    if (is_usable(table)) {
        any_list(table, [&](Linklist *list) {
            size += linklist_getsize(list);
            return false;
        });
    }
    return size;
}

ErrorCode hashtab_getkeys(Hashtab *table, int32_t *count, Symbol ***keys) noexcept {
    if (!count || !keys) {
        return ErrorGeneric;
    }
    if (!is_usable(table)) {
        *count = 0;
        *keys = nullptr;
        return ErrorGeneric;
    }
    const bool allocate = *count <= 0 || !*keys;
    const int32_t total = hashtab_getsize(table);
    const int32_t room = allocate ? total : *count;
    Symbol **out = allocate ? nullptr : *keys;
    if (allocate && total > 0) {
        const int64_t bytes = total * static_cast<int64_t>(sizeof(Symbol *));
        out = static_cast<Symbol **>(sysmem_newptr(bytes));
    }
    int32_t stored = 0;
    if (out && total > 0) {
        any_entry_locked(table, [&](const EntryRecord *entry) {
            if (stored < room) {
                out[stored++] = static_cast<Symbol *>(entry->key);
            }
            return stored == room;
        });
    }
    if (stored == 0) {
        if (allocate) {
            sysmem_freeptr(out);
        }
        out = nullptr;
    }
    *count = stored;
    *keys = out;
    return ErrorNone;
}

int32_t hashtab_funall(Hashtab *table, HashtabFunction function, void *arg) noexcept {
    if (!is_usable(table) || !function) {
        return 0;
    }
    struct Call {
        HashtabFunction function;
        void *arg;
    } call{function, arg};
    walk_entries(
        table,
        [](void *item, void *context) noexcept {
            const auto *c = static_cast<const Call *>(context);
            return c->function(static_cast<HashtabEntry *>(item), c->arg);
        },
        &call);
    return 0;
}

int32_t hashtab_objfunall(Hashtab *table, HashtabValueFunction function, void *arg) noexcept {
    if (is_usable(table) && function) {
        ValueCall call{function, arg};
        walk_entries(table, call_with_value, &call);
    }
    return 0;
}

void hashtab_methodall_imp(Hashtab *table, Symbol *selector, void *p1, void *p2, void *p3, void *p4,
                           void *p5, void *p6, void *p7, void *p8) noexcept {
    if (is_usable(table)) {
        Message message{selector, {p1, p2, p3, p4, p5, p6, p7, p8}};
        walk_entries(table, send_message, &message);
    }
}

void(hashtab_methodall)(Hashtab *table, Symbol *selector, ...) noexcept {
    Message message{selector, {}};
    va_list arguments;
    va_start(arguments, selector);
    for (void *&argument : message.p) {
        argument = va_arg(arguments, void *);
    }
    va_end(arguments);
    if (is_usable(table)) {
        walk_entries(table, send_message, &message);
    }
}

ErrorCode hashtab_findfirst(Hashtab *table, void **value, HashtabTest test, void *arg) noexcept {
    if (value) {
        *value = nullptr;
    }
    if (!is_usable(table) || !test) {
        return ErrorGeneric;
    }
    const bool found = any_entry_locked(table, [=](const EntryRecord *entry) {
        if (!test(entry->value, arg)) {
            return false;
        }
        if (value) {
            *value = entry->value;
        }
        return true;
    });
    return found ? ErrorNone : ErrorGeneric;
}

void hashtab_print(Hashtab *table) noexcept {
    if (!is_usable(table)) {
        return;
    }
    int32_t total = 0;
    int32_t used = 0;
    int32_t longest = 0;
    for (int32_t slot = 0; slot < table->slot_count; ++slot) {
        const int32_t count = linklist_getsize(slot_list(table, static_cast<uint32_t>(slot)));
        if (count > 0) {
            object_post(table, "slot[%d] contains %d entries", slot, count);
            total += count;
            longest = std::max(longest, count);
            ++used;
        }
    }
    object_post(table, "total size is %d entries", total);
    object_post(table, "using %d out of %d slots", used, table->slot_count);
    object_post(table, "average entries per non-empty slot is %f",
                used ? static_cast<double>(total) / used : 0.0);
    object_post(table, "maximum entries in a slot is %d", longest);
}
