/* Hash table: from keys, in practice symbols compared by address, to pointer-sized values; itself
   an object of class "hashtab".

   The number of slots is fixed; each slot is a list, and walking a table goes slot by slot, then by
   age. Finding a key takes constant time however many there are. A table frees its values as its
   flags and those of the entry say (ContainerOwns and the others): when they are replaced, deleted,
   or the table is cleared or freed with object_free. Objects that are no longer live are never
   freed or called. Removed entries with bit 1 or 2 in their hashtab_keyflags are not freed either.

   Each slot has its list's lock, so any thread may use a table; only clearing it, freeing it and
   hashtab_readonly are for when no other thread does. Callbacks of the walking functions may change
   the table, clear it or free it, as those of a list; hashtab_findfirst's test may not.

   Clients attached to a table are notified "hashtab_entry_new" (data: the key) after a store,
   "hashtab_entry_free" before a removal, and "hashtab_free" when it is cleared or freed, unless the
   flags of the table or the entry have ContainerNoNotify.

   A null table is accepted everywhere and gives -1, 0 or null. Class messages without a function of
   their own: "funall_sorted" (function, arg, compare over entries), "tolinklist" (a new list that
   refers to the entries), "class_hashtab" (true). */
#ifndef KIV_HASHTAB_H
#define KIV_HASHTAB_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct Hashtab Hashtab;

/* One stored pair; handed to the functions that walk a table. */
typedef struct HashtabEntry {
    Object ob;
    void *key; /* a Symbol in practice; compared by address */
    void *value;
    int32_t flags;
    Hashtab *owner;
} HashtabEntry;

typedef void *(*HashtabFunction)(HashtabEntry *entry, void *arg);
typedef void *(*HashtabValueFunction)(void *value, void *arg);
typedef int32_t (*HashtabTest)(void *value, void *arg);

/* A new table; a slot count below 1 means 59, an even one is raised by 1. Null on no memory. */
KIV_EXPORT Hashtab *hashtab_new(int32_t slot_count) KIV_NOEXCEPT;
/* Stores an object that the table owns; see hashtab_storeflags. */
KIV_EXPORT ErrorCode hashtab_store(Hashtab *table, Symbol *key, void *value) KIV_NOEXCEPT;
/* Stores a value under a key. A value that the key had is replaced, and freed as the old flags say,
   unless `flags` has ContainerDuplicate, which adds a second entry behind the first. Returns 0; -1
   for a null table, or when there is no memory for the entry. Without memory for the slot's list
   nothing is stored although the result is 0. */
KIV_EXPORT ErrorCode hashtab_storeflags(Hashtab *table, Symbol *key, void *value,
                                        int32_t flags) KIV_NOEXCEPT;
/* Store a symbol, or a number, that is never freed. */
KIV_EXPORT ErrorCode hashtab_storesym(Hashtab *table, Symbol *key, Symbol *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_storelong(Hashtab *table, Symbol *key, int64_t value) KIV_NOEXCEPT;
/* As hashtab_store, but a value that the key had is not freed, and the entry keeps its flags. */
KIV_EXPORT ErrorCode hashtab_store_safe(Hashtab *table, Symbol *key, void *value) KIV_NOEXCEPT;
/* Find the value of a key. Return 0; -1 with the value null (0) when the key is absent, or when the
   pointer for it is null. Of several entries with the key, the oldest is found. */
KIV_EXPORT ErrorCode hashtab_lookup(Hashtab *table, Symbol *key, void **value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_lookupsym(Hashtab *table, Symbol *key, Symbol **value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_lookuplong(Hashtab *table, Symbol *key, int64_t *value) KIV_NOEXCEPT;
/* As hashtab_lookup, also giving the entry's flags (`flags` may be null). */
KIV_EXPORT ErrorCode hashtab_lookupflags(Hashtab *table, Symbol *key, void **value,
                                         int32_t *flags) KIV_NOEXCEPT;
/* Finds the entry itself, which stays the table's. Returns as hashtab_lookup. */
KIV_EXPORT ErrorCode hashtab_lookupentry(Hashtab *table, Symbol *key,
                                         HashtabEntry **entry) KIV_NOEXCEPT;
/* Sets the flags of a key's entry. Returns 0, -1 when the key is absent. */
KIV_EXPORT ErrorCode hashtab_keyflags(Hashtab *table, Symbol *key, int32_t flags) KIV_NOEXCEPT;
/* The flags of a key's entry, 0 when the key is absent. */
KIV_EXPORT int32_t hashtab_getkeyflags(Hashtab *table, Symbol *key) KIV_NOEXCEPT;
/* Removes a key; its value is freed unless the flags have bit 1 or 2. Returns 0, -1 when absent. */
KIV_EXPORT ErrorCode hashtab_delete(Hashtab *table, Symbol *key) KIV_NOEXCEPT;
/* Removes a key without freeing its value. Returns 0, -1 when absent. */
KIV_EXPORT ErrorCode hashtab_chuckkey(Hashtab *table, Symbol *key) KIV_NOEXCEPT;
/* Removes every key, freeing the values as the flags say. Returns 0, -1 for a null table. */
KIV_EXPORT ErrorCode hashtab_clear(Hashtab *table) KIV_NOEXCEPT;
/* Frees the table without freeing any value. Returns 0, -1 for a null table. */
KIV_EXPORT ErrorCode hashtab_chuck(Hashtab *table) KIV_NOEXCEPT;
/* How many entries there are. */
KIV_EXPORT int32_t hashtab_getsize(Hashtab *table) KIV_NOEXCEPT;
/* Gives the keys in walking order: into the caller's array `*keys` of `*count` places, or, when
   either is 0, into a new one, which the caller frees with sysmem_freeptr. `*count` becomes the
   number of keys given; with none, `*keys` becomes null. Returns 0, -1 for a null argument. */
KIV_EXPORT ErrorCode hashtab_getkeys(Hashtab *table, int32_t *count, Symbol ***keys) KIV_NOEXCEPT;
/* Calls function(entry, arg) for every entry. Returns 0. */
KIV_EXPORT int32_t hashtab_funall(Hashtab *table, HashtabFunction function, void *arg) KIV_NOEXCEPT;
/* Calls function(value, arg) for every value that is a live object. Returns 0. */
KIV_EXPORT int32_t hashtab_objfunall(Hashtab *table, HashtabValueFunction function,
                                     void *arg) KIV_NOEXCEPT;
/* Send a message by object_method to every value that is a live object and neither plain data nor a
   memory block. */
KIV_EXPORT void hashtab_methodall(Hashtab *table, Symbol *selector, ...) KIV_NOEXCEPT;
KIV_EXPORT void hashtab_methodall_imp(Hashtab *table, Symbol *selector, void *p1, void *p2,
                                      void *p3, void *p4, void *p5, void *p6, void *p7,
                                      void *p8) KIV_NOEXCEPT;
/* Finds the first value for which test(value, arg) is not 0. Returns 0; -1 with `*value` null when
   there is none. */
KIV_EXPORT ErrorCode hashtab_findfirst(Hashtab *table, void **value, HashtabTest test,
                                       void *arg) KIV_NOEXCEPT;
/* Makes all slots' lists read-only, or not; see linklist_readonly. */
KIV_EXPORT void hashtab_readonly(Hashtab *table, int32_t on) KIV_NOEXCEPT;
/* Sets, and reads, the flags that hold for all entries. */
KIV_EXPORT void hashtab_flags(Hashtab *table, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT int32_t hashtab_getflags(Hashtab *table) KIV_NOEXCEPT;
/* Posts how the entries are spread over the slots. */
KIV_EXPORT void hashtab_print(Hashtab *table) KIV_NOEXCEPT;

#define hashtab_methodall(...) \
    KIV_PASS_8(hashtab_methodall_imp, __VA_ARGS__, 0, 0, 0, 0, 0, 0, 0, 0, 0)

KIV_END

#endif
