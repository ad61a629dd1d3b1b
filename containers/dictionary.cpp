// Dictionaries: making, storing, removing, freeing.
//
// Thread safety: single operations are as safe as those of the order list and the table
// (dictionary_index.cpp); a series of them is made atomic by the callers' bracketing it with the
// transaction lock. Clearing and freeing are for when no other thread uses the dictionary.
#include <kiv/class.h>
#include <kiv/console.h>
#include <kiv/object.h>

#include <atomic>
#include <utility>

#include "containers/families.h"
#include "containers/free_nested.h"
#include "containers/values.h"

namespace kiv {

namespace {

struct {
    Class *dictionary_class = nullptr;
    Class *entry_class = nullptr;
} state;

// Stands for the kernel's global region where no lock could be made.
const auto global_marker = reinterpret_cast<CriticalRef>(~uintptr_t{0});

void destroy_entry(DictionaryEntry *entry) noexcept {
    free_entry_value(entry);
}

void destroy(Dictionary *dictionary) noexcept {
    dictionary_empty(dictionary);
    const CriticalRef region = std::exchange(dictionary->transaction, nullptr);
    if (region && region != global_marker) {
        critical_free(region);
    }
}

ErrorCode append_entry(Dictionary *dictionary, Symbol *key, Atom value, int32_t flags) noexcept {
    DictionaryEntry *entry = dictionary_entry_new(key, value, flags);
    if (!entry) {
        return ErrorGeneric;
    }
    if (!dictionary_link(dictionary, entry)) {
        dictionary_entry_discard(entry);
        return ErrorGeneric;
    }
    return ErrorNone;
}

void replace_value(Dictionary *dictionary, DictionaryEntry *entry, Atom value,
                   int32_t flags) noexcept {
    // The old value's destructor may read the dictionary, so it goes when the new one is in place.
    DictionaryEntry old{};
    old.value = entry->value;
    old.flags = entry->flags;
    entry->value = value;
    entry->flags = flags;
    const bool same = old.value.type == TypeObject && value.type == TypeObject &&
                      old.value.value.obj == value.value.obj;
    Symbol *const key = entry->key;
    Hashtab *const table = dictionary->table;
    if (!same) {
        free_entry_value(&old);
    }
    if (table && !(flags & ContainerNoNotify)) {
        object_notify(table, "hashtab_entry_new"_sym, key);
    }
}

}  // namespace

void dictionaries_start() noexcept {
    Class *c = class_new("dictionary_entry", nullptr, method(destroy_entry),
                         static_cast<int32_t>(sizeof(DictionaryEntry)), nullptr, 0);
    // As of a table, entries are many: nothing is attached to one, and freeing one asks nobody.
    c->lightweight = 1;
    class_obexoffset_set(c, -1);
    class_register(nullptr, c);
    state.entry_class = c;
    c = class_new("dictionary", nullptr, method(destroy), static_cast<int32_t>(sizeof(Dictionary)),
                  nullptr, 0);
    class_obexoffset_set(c, static_cast<int32_t>(offsetof(Dictionary, obex)));
    dictionary_add_methods(c);
    class_register(nullptr, c);
    state.dictionary_class = c;
}

Dictionary *dictionary_make(int64_t extra) noexcept {
    return reinterpret_cast<Dictionary *>(object_alloc_extra(state.dictionary_class, extra));
}

DictionaryEntry *dictionary_entry_new(Symbol *key, Atom value, int32_t flags) noexcept {
    auto *entry = static_cast<DictionaryEntry *>(object_alloc(state.entry_class));
    if (entry) {
        entry->key = key;
        entry->value = value;
        entry->flags = flags;
    }
    return entry;
}

void dictionary_entry_discard(DictionaryEntry *entry) noexcept {
    entry->value = {};
    object_free(entry);
}

void free_entry_value(DictionaryEntry *entry) noexcept {
    const Atom value = std::exchange(entry->value, {});
    if (value.type != TypeObject || !value.value.obj ||
        (entry->flags & (ContainerReference | ContainerData))) {
        return;
    }
    if (entry->flags & ContainerMemory) {
        sysmem_freeptr(value.value.obj);
    } else {
        free_nested(value.value.obj);
    }
}

void string_to_symbol(DictionaryEntry *entry) noexcept {
    if (entry->value.type != TypeObject || !is_string(entry->value.value.obj)) {
        return;
    }
    const char *text = text_of(static_cast<String *>(entry->value.value.obj));
    Symbol *symbol = std::strlen(text) <= longest_symbol ? gensym(text) : nullptr;
    if (symbol) {
        free_entry_value(entry);
        entry->value = atom_of(symbol);
    }
}

ErrorCode dictionary_store(Dictionary *dictionary, Symbol *key, Atom value,
                           int32_t flags) noexcept {
    if (!dictionary || !key) {
        return ErrorGeneric;
    }
    if (!dictionary_unpack(dictionary)) {
        return ErrorOutOfMemory;
    }
    void *clone = nullptr;
    if (flags & append_clones) {
        flags &= ~append_clones;
        if (value.type == TypeObject) {
            if (!clone_value_object(value.value.obj, &clone)) {
                return ErrorOutOfMemory;
            }
            if (clone) {
                value.value.obj = clone;
            } else {
                Symbol *name = object_classname(value.value.obj);
                error("dictionary_appendatom_flags: non-clonable object; class is %s",
                      name ? name->name : "");
                flags = ContainerReference;
            }
        }
    }
    if (DictionaryEntry *entry = dictionary_entry(dictionary, key)) {
        replace_value(dictionary, entry, value, flags);
        return ErrorNone;
    }
    const ErrorCode result = append_entry(dictionary, key, value, flags);
    if (result != ErrorNone && clone) {
        object_free(clone);
    }
    return result;
}

}  // namespace kiv

using namespace kiv;

Dictionary *dictionary_new(void) noexcept {
    return dictionary_make(0);
}

ErrorCode dictionary_clear(Dictionary *dictionary) noexcept {
    if (!dictionary) {
        return ErrorGeneric;
    }
    dictionary_empty(dictionary);
    return ErrorNone;
}

ErrorCode dictionary_deleteentry(Dictionary *dictionary, Symbol *key) noexcept {
    DictionaryEntry *entry = dictionary_entry(dictionary, key);
    if (!entry) {
        return ErrorGeneric;
    }
    dictionary_unlink(dictionary, entry);
    object_free(entry);
    return ErrorNone;
}

ErrorCode dictionary_chuckentry(Dictionary *dictionary, Symbol *key) noexcept {
    DictionaryEntry *entry = dictionary_entry(dictionary, key);
    if (!entry) {
        return ErrorGeneric;
    }
    dictionary_unlink(dictionary, entry);
    dictionary_entry_discard(entry);
    return ErrorNone;
}

ErrorCode dictionary_transaction_lock(Dictionary *dictionary) noexcept {
    if (!dictionary) {
        return ErrorGeneric;
    }
    std::atomic_ref field(dictionary->transaction);
    CriticalRef region = field.load(std::memory_order_acquire);
    if (!region) {
        CriticalRef made = nullptr;
        critical_new(&made);
        CriticalRef wanted = made ? made : global_marker;
        if (field.compare_exchange_strong(region, wanted, std::memory_order_acq_rel)) {
            region = wanted;
        } else if (made) {
            critical_free(made);
        }
    }
    critical_enter(region);
    return ErrorNone;
}

ErrorCode dictionary_transaction_unlock(Dictionary *dictionary) noexcept {
    if (!dictionary) {
        return ErrorGeneric;
    }
    const CriticalRef region =
        std::atomic_ref(dictionary->transaction).load(std::memory_order_acquire);
    if (!region) {
        return ErrorGeneric;  // it was never locked
    }
    critical_exit(region);
    return ErrorNone;
}
