// Dictionaries: the record, its entries, storing and removing.
//
// Invariants: the table and the order hold the same entries. An entry belongs to the order list,
// and remembers its element there, so that it is removed without a search. The table is always
// emptied with chuck semantics and never frees an entry.
//
// Thread safety: single operations are as safe as the table's and the list's own; a series of them
// is made atomic by the callers' bracketing it with the transaction lock.
#include <kiv/class.h>
#include <kiv/console.h>
#include <kiv/object.h>

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

void destroy_entry(DictionaryEntry *entry) noexcept {
    free_entry_value(entry);
}

void destroy(Dictionary *dictionary) noexcept {
    hashtab_chuck(dictionary->table);
    object_free(dictionary->order);
    if (dictionary->transaction) {
        critical_free(dictionary->transaction);
    }
    dictionary->table = nullptr;
    dictionary->order = nullptr;
    dictionary->transaction = nullptr;
}

// Frees the entry alone; its value stays with the caller.
void discard(DictionaryEntry *entry) noexcept {
    entry->value = {};
    object_free(entry);
}

ErrorCode append_entry(Dictionary *dictionary, Symbol *key, Atom value, int32_t flags) noexcept {
    auto *entry = static_cast<DictionaryEntry *>(object_alloc(state.entry_class));
    if (!entry) {
        return ErrorGeneric;
    }
    entry->key = key;
    entry->value = value;
    entry->flags = flags;
    entry->element = linklist_append_element(dictionary->order, entry);
    if (!entry->element) {
        discard(entry);
        return ErrorGeneric;
    }
    // A store that finds no memory for its slot reports success: only a look-up tells.
    void *found = nullptr;
    if (hashtab_storeflags(dictionary->table, key, entry, 0) != ErrorNone ||
        hashtab_lookup(dictionary->table, key, &found) != ErrorNone) {
        linklist_chuckptr(dictionary->order, entry->element);
        discard(entry);
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
    if (!same) {
        free_entry_value(&old);
    }
    if (!(flags & ContainerNoNotify)) {
        object_notify(dictionary->table, "hashtab_entry_new"_sym, key);
    }
}

// Takes the entry out of table and order; the caller frees it.
void unlink_entry(Dictionary *dictionary, DictionaryEntry *entry) noexcept {
    hashtab_chuckkey(dictionary->table, entry->key);
    linklist_chuckptr(dictionary->order, entry->element);
}

}  // namespace

void dictionaries_start() noexcept {
    Class *c = class_new("dictionary_entry", nullptr, method(destroy_entry),
                         static_cast<int32_t>(sizeof(DictionaryEntry)), nullptr, 0);
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

DictionaryEntry *dictionary_entry(const Dictionary *dictionary, Symbol *key) noexcept {
    void *entry = nullptr;
    if (dictionary) {
        hashtab_lookup(dictionary->table, key, &entry);
    }
    return static_cast<DictionaryEntry *>(entry);
}

Vector<DictionaryEntry *> dictionary_entries(const Dictionary *dictionary) {
    Vector<DictionaryEntry *> entries(
        static_cast<size_t>(dictionary ? linklist_getsize(dictionary->order) : 0));
    const int32_t count = dictionary ? linklist_makearray(dictionary->order,
                                                          reinterpret_cast<void **>(entries.data()),
                                                          static_cast<int32_t>(entries.size()))
                                     : 0;
    entries.resize(static_cast<size_t>(count));
    std::erase(entries, nullptr);  // items whose removal waits for the end of an iteration
    return entries;
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
        return ErrorInvalidPointer;
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
    auto *dictionary = static_cast<Dictionary *>(object_alloc(state.dictionary_class));
    if (!dictionary) {
        return nullptr;
    }
    dictionary->table = hashtab_new(0);
    dictionary->order = linklist_new();
    critical_new(&dictionary->transaction);
    if (!dictionary->table || !dictionary->order) {
        object_free(dictionary);
        return nullptr;
    }
    return dictionary;
}

ErrorCode dictionary_clear(Dictionary *dictionary) noexcept {
    if (!dictionary) {
        return ErrorInvalidPointer;
    }
    Hashtab *table = hashtab_new(0);
    Linklist *order = linklist_new();
    if (!table || !order) {
        object_free(table);
        object_free(order);
        return ErrorOutOfMemory;
    }
    hashtab_chuck(std::exchange(dictionary->table, table));
    object_free(std::exchange(dictionary->order, order));
    return ErrorNone;
}

ErrorCode dictionary_deleteentry(Dictionary *dictionary, Symbol *key) noexcept {
    DictionaryEntry *entry = dictionary_entry(dictionary, key);
    if (!entry) {
        return ErrorGeneric;
    }
    unlink_entry(dictionary, entry);
    object_free(entry);
    return ErrorNone;
}

ErrorCode dictionary_chuckentry(Dictionary *dictionary, Symbol *key) noexcept {
    DictionaryEntry *entry = dictionary_entry(dictionary, key);
    if (!entry) {
        return ErrorGeneric;
    }
    unlink_entry(dictionary, entry);
    discard(entry);
    return ErrorNone;
}

ErrorCode dictionary_transaction_lock(Dictionary *dictionary) noexcept {
    if (!dictionary) {
        return ErrorInvalidPointer;
    }
    critical_enter(dictionary->transaction);
    return ErrorNone;
}

ErrorCode dictionary_transaction_unlock(Dictionary *dictionary) noexcept {
    if (!dictionary) {
        return ErrorInvalidPointer;
    }
    critical_exit(dictionary->transaction);
    return ErrorNone;
}
