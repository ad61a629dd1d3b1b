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

KIV_EXPORT Hashtab *hashtab_new(int32_t slot_count) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_store(Hashtab *table, Symbol *key, void *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_storeflags(Hashtab *table, Symbol *key, void *value,
                                        int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_storesym(Hashtab *table, Symbol *key, Symbol *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_storelong(Hashtab *table, Symbol *key, int64_t value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_store_safe(Hashtab *table, Symbol *key, void *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_lookup(Hashtab *table, Symbol *key, void **value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_lookupsym(Hashtab *table, Symbol *key, Symbol **value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_lookuplong(Hashtab *table, Symbol *key, int64_t *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_lookupflags(Hashtab *table, Symbol *key, void **value,
                                         int32_t *flags) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_lookupentry(Hashtab *table, Symbol *key,
                                         HashtabEntry **entry) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_keyflags(Hashtab *table, Symbol *key, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT int32_t hashtab_getkeyflags(Hashtab *table, Symbol *key) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_delete(Hashtab *table, Symbol *key) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_chuckkey(Hashtab *table, Symbol *key) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_clear(Hashtab *table) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_chuck(Hashtab *table) KIV_NOEXCEPT;
KIV_EXPORT int32_t hashtab_getsize(Hashtab *table) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_getkeys(Hashtab *table, int32_t *count, Symbol ***keys) KIV_NOEXCEPT;
KIV_EXPORT int32_t hashtab_funall(Hashtab *table, HashtabFunction function, void *arg) KIV_NOEXCEPT;
KIV_EXPORT int32_t hashtab_objfunall(Hashtab *table, HashtabValueFunction function,
                                     void *arg) KIV_NOEXCEPT;
KIV_EXPORT void hashtab_methodall(Hashtab *table, Symbol *selector, ...) KIV_NOEXCEPT;
KIV_EXPORT void hashtab_methodall_imp(Hashtab *table, Symbol *selector, void *p1, void *p2,
                                      void *p3, void *p4, void *p5, void *p6, void *p7,
                                      void *p8) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode hashtab_findfirst(Hashtab *table, void **value, HashtabTest test,
                                       void *arg) KIV_NOEXCEPT;
KIV_EXPORT void hashtab_readonly(Hashtab *table, int32_t on) KIV_NOEXCEPT;
KIV_EXPORT void hashtab_flags(Hashtab *table, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT int32_t hashtab_getflags(Hashtab *table) KIV_NOEXCEPT;
KIV_EXPORT void hashtab_print(Hashtab *table) KIV_NOEXCEPT;

#define hashtab_methodall(...) \
    KIV_PASS_8(hashtab_methodall_imp, __VA_ARGS__, 0, 0, 0, 0, 0, 0, 0, 0, 0)

KIV_END

#endif
