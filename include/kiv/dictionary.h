#ifndef KIV_DICTIONARY_H
#define KIV_DICTIONARY_H

#include <kiv/atomarray.h>
#include <kiv/binbuf.h>
#include <kiv/types.h>

KIV_BEGIN

typedef struct Dictionary Dictionary;
typedef struct DictionaryEntry DictionaryEntry;
typedef void (*DictionaryFunction)(DictionaryEntry *entry, void *arg);

KIV_EXPORT Dictionary *dictionary_new(void) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_clear(Dictionary *dictionary) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendlong(Dictionary *dictionary, Symbol *key,
                                           int64_t value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendfloat(Dictionary *dictionary, Symbol *key,
                                            double value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendsym(Dictionary *dictionary, Symbol *key,
                                          Symbol *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendatom(Dictionary *dictionary, Symbol *key,
                                           const Atom *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendatom_flags(Dictionary *dictionary, Symbol *key,
                                                 const Atom *value, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendstring(Dictionary *dictionary, Symbol *key,
                                             const char *text) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendobject(Dictionary *dictionary, Symbol *key,
                                             void *x) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendobject_flags(Dictionary *dictionary, Symbol *key, void *x,
                                                   int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appenddictionary(Dictionary *dictionary, Symbol *key,
                                                 void *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendatomarray(Dictionary *dictionary, Symbol *key,
                                                void *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendatoms(Dictionary *dictionary, Symbol *key, int32_t argc,
                                            const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendatoms_flags(Dictionary *dictionary, Symbol *key, int32_t argc,
                                                  const Atom *argv, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendbinbuf(Dictionary *dictionary, Symbol *key,
                                             Binbuf *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendattribute(Dictionary *dictionary, Symbol *key,
                                                Symbol *attribute, void *x) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getlong(const Dictionary *dictionary, Symbol *key,
                                        int64_t *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getfloat(const Dictionary *dictionary, Symbol *key,
                                         double *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getsym(const Dictionary *dictionary, Symbol *key,
                                       Symbol **value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getatom(const Dictionary *dictionary, Symbol *key,
                                        Atom *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getstring(const Dictionary *dictionary, Symbol *key,
                                          const char **value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getobject(const Dictionary *dictionary, Symbol *key,
                                          void **value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getdictionary(const Dictionary *dictionary, Symbol *key,
                                              Dictionary **value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getatomarray(const Dictionary *dictionary, Symbol *key,
                                             Atomarray **value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getatoms(const Dictionary *dictionary, Symbol *key, int32_t *argc,
                                         Atom **argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_copyatoms(const Dictionary *dictionary, Symbol *key, int32_t *argc,
                                          Atom **argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getattribute(const Dictionary *dictionary, Symbol *key,
                                             Symbol *attribute, void *x) KIV_NOEXCEPT;
KIV_EXPORT int32_t dictionary_hasentry(const Dictionary *dictionary, Symbol *key) KIV_NOEXCEPT;
KIV_EXPORT int32_t dictionary_getentrycount(const Dictionary *dictionary) KIV_NOEXCEPT;
KIV_EXPORT int32_t dictionary_entryisdictionary(const Dictionary *dictionary,
                                                Symbol *key) KIV_NOEXCEPT;
KIV_EXPORT int32_t dictionary_entryisatomarray(const Dictionary *dictionary,
                                               Symbol *key) KIV_NOEXCEPT;
KIV_EXPORT int32_t dictionary_entryisstring(const Dictionary *dictionary, Symbol *key) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getdeflong(const Dictionary *dictionary, Symbol *key,
                                           int64_t *value, int64_t fallback) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getdeffloat(const Dictionary *dictionary, Symbol *key,
                                            double *value, double fallback) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getdefsym(const Dictionary *dictionary, Symbol *key, Symbol **value,
                                          Symbol *fallback) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getdefatom(const Dictionary *dictionary, Symbol *key, Atom *value,
                                           const Atom *fallback) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getdefstring(const Dictionary *dictionary, Symbol *key,
                                             const char **value, const char *fallback) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getdefatoms(const Dictionary *dictionary, Symbol *key,
                                            int32_t *argc, Atom **argv, int32_t fallback_count,
                                            Atom *fallback) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_copydefatoms(const Dictionary *dictionary, Symbol *key,
                                             int32_t *argc, Atom **argv, int32_t fallback_count,
                                             const Atom *fallback) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getkeys(const Dictionary *dictionary, int32_t *count,
                                        Symbol ***keys) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getkeys_ordered(const Dictionary *dictionary, int32_t *count,
                                                Symbol ***keys) KIV_NOEXCEPT;
KIV_EXPORT void dictionary_freekeys(Dictionary *dictionary, int32_t count,
                                    Symbol **keys) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_deleteentry(Dictionary *dictionary, Symbol *key) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_chuckentry(Dictionary *dictionary, Symbol *key) KIV_NOEXCEPT;
KIV_EXPORT Dictionary *dictionary_clone(const Dictionary *dictionary) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_clone_to_existing(const Dictionary *source,
                                                  Dictionary *target) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_copyentries(const Dictionary *source, Dictionary *target,
                                            Symbol **keys) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_copyunique(Dictionary *target,
                                           const Dictionary *source) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_merge_to_existing(const Dictionary *source,
                                                  Dictionary *target) KIV_NOEXCEPT;
KIV_EXPORT void dictionary_funall(Dictionary *dictionary, DictionaryFunction function,
                                  void *arg) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_dump(const Dictionary *dictionary, int32_t recurse,
                                     int32_t console) KIV_NOEXCEPT;
KIV_EXPORT Dictionary *dictionary_sprintf(const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(1, 2);
KIV_EXPORT Symbol *dictionary_entry_getkey(DictionaryEntry *entry) KIV_NOEXCEPT;
KIV_EXPORT void dictionary_entry_getvalue(DictionaryEntry *entry, Atom *value) KIV_NOEXCEPT;
KIV_EXPORT void dictionary_entry_getvalues(DictionaryEntry *entry, int32_t *argc,
                                           Atom **argv) KIV_NOEXCEPT;
KIV_EXPORT Dictionary *dictionary_prototypefromclass(Class *c) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_read(const char *file_name, int16_t path,
                                     Dictionary **dictionary) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_write(const Dictionary *dictionary, const char *file_name,
                                      int16_t path) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_transaction_lock(Dictionary *dictionary) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_transaction_unlock(Dictionary *dictionary) KIV_NOEXCEPT;
/* --- named dictionaries */
KIV_EXPORT Dictionary *dictobj_register(Dictionary *dictionary, Symbol **name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictobj_unregister(Dictionary *dictionary) KIV_NOEXCEPT;
KIV_EXPORT Dictionary *dictobj_findregistered_retain(Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT Dictionary *dictobj_findregistered_clone(Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictobj_release(Dictionary *dictionary) KIV_NOEXCEPT;
KIV_EXPORT Symbol *dictobj_namefromptr(Dictionary *dictionary) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictobj_dictionaryfromstring(Dictionary **dictionary, const char *text,
                                                  int32_t is_json, char *error_buffer) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictobj_jsonfromstring(int64_t *size, char **json,
                                            const char *text) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictobj_dictionarytoatoms(const Dictionary *dictionary, int32_t *argc,
                                               Atom **argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictobj_dictionaryfromatoms(Dictionary **dictionary, int32_t argc,
                                                 const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void dictobj_outlet_atoms(Outlet *outlet, int32_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT int32_t dictobj_atom_safety(Atom *atom) KIV_NOEXCEPT;

KIV_END

#endif
