// The records of the objects that hold values (strings, atom arrays, dictionaries) and what the
// dictionary and JSON files share about them. Private to this folder.
#pragma once

#include <kiv/atomarray.h>
#include <kiv/critical.h>
#include <kiv/dictionary.h>
#include <kiv/hashtab.h>
#include <kiv/linklist.h>
#include <kiv/string.h>

#include <kiv/object.h>

#include <cstring>

#include "containers/internal.h"
#include "kernel/internal.h"
#include "sched/internal.h"

struct String {
    Object ob;
    char *text;        // owned; null until the first text
    int32_t capacity;  // bytes of the block, terminator included
    void *obex;
};

struct Atomarray {
    Object ob;
    int32_t count;
    Atom *atoms;  // owned, exactly count of them; null when empty
    int32_t flags;
    void *obex;
};

// Everything but the header is made when it is first needed (dictionary_index.cpp).
struct Dictionary {
    Object ob;
    Hashtab *table;           // key to entry; refers to the entries without owning them
    Linklist *order;          // the same entries in insertion order; owns them
    CriticalRef transaction;  // owned; all ones: the global region
    void *obex;
    int64_t packed;  // pairs behind the record, which a small dictionary begins with that was read
};

struct DictionaryEntry {
    Object ob;
    Symbol *key;
    Atom value;
    int32_t flags;
    LinklistElement *element;  // its place in the order, so that removing needs no search
};

namespace kiv {

// Bit of an atom array's flags: the destructor frees the object atoms.
inline constexpr int32_t atomarray_owns = AtomarrayOwns;
// Flag of the dictionary's appenders: object values are cloned before they are stored.
inline constexpr int32_t append_clones = DictionaryClones;
// Texts of this length and more do not fit in a symbol and stay string objects.
inline constexpr size_t longest_symbol = 32766;

inline bool is_of_class(const void *x, Symbol *name) noexcept {
    return object_valid(x) && class_of(x)->name == name;
}
inline bool is_dictionary(const void *x) noexcept {
    return is_of_class(x, "dictionary"_sym);
}
inline bool is_atomarray(const void *x) noexcept {
    return is_of_class(x, "atomarray"_sym);
}
inline bool is_string(const void *x) noexcept {
    return is_of_class(x, "string"_sym);
}

inline Atom atom_of(int64_t value) noexcept {
    return {TypeLong, {.i = value}};
}
inline Atom atom_of(double value) noexcept {
    return {TypeFloat, {.f = value}};
}
inline Atom atom_of(Symbol *value) noexcept {
    return {TypeSymbol, {.sym = value}};
}
inline Atom atom_of_object(void *value) noexcept {
    return {TypeObject, {.obj = value}};
}

// A string object of text that need not end in a zero byte; null on no memory.
String *string_from(const char *text, size_t length) noexcept;
inline const char *text_of(const String *string) noexcept {
    return string->text ? string->text : "";
}

// Makes an owning array of atoms whose objects become its own; null on no memory, when they stay
// the caller's.
Atomarray *atomarray_adopt(int32_t count, const Atom *atoms) noexcept;

// --- Dictionary entries (dictionary.cpp) ---------------------------------------------------------

void dictionary_add_methods(Class *c) noexcept;  // dictionary_class.cpp
// A new dictionary with room for `extra` bytes behind its record; null on no memory.
Dictionary *dictionary_make(int64_t extra) noexcept;
// Stores as every appender does; the value is the caller's again when this fails.
ErrorCode dictionary_store(Dictionary *dictionary, Symbol *key, Atom value, int32_t flags) noexcept;

// --- The index (dictionary_index.cpp) ------------------------------------------------------------

// A pair of a dictionary that is read as a whole, and what a walk sees of an entry.
struct KeyValue {
    Symbol *key;
    Atom value;
};
struct EntryView : KeyValue {
    int32_t flags;
};
// Most entries that look-ups walk through.
inline constexpr int32_t most_walked = 16;

// A new dictionary of at most `most_walked` pairs of different keys, whose objects become its own.
// Null on no memory.
Dictionary *dictionary_pack(int32_t count, const KeyValue *pairs) noexcept;
// Gives each entry its record, without which nothing can be changed. False on no memory.
bool dictionary_unpack(Dictionary *dictionary) noexcept;
// Takes everything out and frees it.
void dictionary_empty(Dictionary *dictionary) noexcept;

// The record of an entry, for changing it; the dictionary is unpacked.
DictionaryEntry *dictionary_entry(const Dictionary *dictionary, Symbol *key) noexcept;
// The value under a key, for reading: string values were turned into symbols. Null when there is
// none.
Atom *dictionary_value(const Dictionary *dictionary, Symbol *key) noexcept;
bool dictionary_has(const Dictionary *dictionary, const Symbol *key) noexcept;
// Appends an entry; false on no memory. The dictionary frees it from then on.
bool dictionary_link(Dictionary *dictionary, DictionaryEntry *entry) noexcept;
// Takes an entry out, for the caller to free.
void dictionary_unlink(Dictionary *dictionary, DictionaryEntry *entry) noexcept;
// Appends the entries in their order at this moment; throws std::bad_alloc.
void dictionary_list(const Dictionary *dictionary, Vector<EntryView> &out);
// Turns a string value into the symbol of its text where a symbol can hold it.
void string_to_symbol(DictionaryEntry *entry) noexcept;

// --- Walks over nested values --------------------------------------------------------------------

// A deep copy of a dictionary, an atom array, a string or any object that can be cloned. True with
// *copy null when the object cannot be; false on no memory and for what is nested too deeply
// (posted).
bool clone_value_object(const void *x, void **copy) noexcept;
// Clones the object atoms in place, keeping those that cannot be. On failure the clones made so far
// are freed, and the atoms are worthless.
bool clone_object_atoms(int32_t count, Atom *atoms) noexcept;
// Reports that an object atom cannot be cloned. The result is the object with one more reference,
// so that both owners may free it; null when it counts none.
void *kept_object(void *x) noexcept;

// A record that belongs to no dictionary yet; null on no memory.
DictionaryEntry *dictionary_entry_new(Symbol *key, Atom value, int32_t flags) noexcept;
// Frees a record alone; its value stays with the caller.
void dictionary_entry_discard(DictionaryEntry *entry) noexcept;
// Frees what an entry owns, if anything, and leaves it without a value.
void free_entry_value(DictionaryEntry *entry) noexcept;

}  // namespace kiv
