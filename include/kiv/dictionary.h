/* Dictionaries: ordered maps from symbols to values, of the kernel class "dictionary".

   1. A value is one atom: an integer, a float, a symbol, an object, or of type 0 for JSON's null.
      Texts, lists and nested dictionaries are objects: strings, atom arrays, dictionaries.
   2. A dictionary owns the objects stored in it and frees them, unless the flags of the storing say
      otherwise (ContainerReference, ContainerData, ContainerMemory). When storing fails, the object
      stays the caller's.
   3. Free a dictionary with object_free, unless a container took it.
   4. What a getter hands out (objects, atoms, texts of string objects) stays the dictionary's and
      is valid until its entry changes.
   5. A string value is turned into a symbol, in place, when it is read. Texts of 32767 bytes and
      more, which a symbol cannot hold, stay strings: getstring gives them whole.
   6. Single calls may come from any thread; a series that must not be interleaved with others is
      bracketed with the transaction lock.
   7. Results are 0; -1 when the key is absent, the value of another kind, a pointer null, or
      something failed; -4 for no memory. */
#ifndef KIV_DICTIONARY_H
#define KIV_DICTIONARY_H

#include <kiv/atomarray.h>
#include <kiv/binbuf.h>
#include <kiv/types.h>

KIV_BEGIN

typedef struct Dictionary Dictionary;
typedef struct DictionaryEntry DictionaryEntry;
/* Flags of the appenders, beside those of containers. */
enum {
    DictionaryClones = 8192 /* store clones of objects instead of the objects */
};

/* Room that a caller gives for the text of a reading error, in bytes. */
enum { KIV_JSON_ERROR_SIZE = 256 };

typedef void (*DictionaryFunction)(DictionaryEntry *entry, void *arg);

/* Makes an empty dictionary. Null on no memory. */
KIV_EXPORT Dictionary *dictionary_new(void) KIV_NOEXCEPT;
/* Removes every entry, freeing owned values. */
KIV_EXPORT ErrorCode dictionary_clear(Dictionary *dictionary) KIV_NOEXCEPT;
/* Stores a value under a key. A key that is there keeps its place and gets the new value, its
   old one being freed if it was owned; a new key goes to the end. The other appenders differ in
   the kind of value only. */
KIV_EXPORT ErrorCode dictionary_appendlong(Dictionary *dictionary, Symbol *key,
                                           int64_t value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendfloat(Dictionary *dictionary, Symbol *key,
                                            double value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendsym(Dictionary *dictionary, Symbol *key,
                                          Symbol *value) KIV_NOEXCEPT;
/* Stores an atom as it is; the object of an object atom becomes the dictionary's. */
KIV_EXPORT ErrorCode dictionary_appendatom(Dictionary *dictionary, Symbol *key,
                                           const Atom *value) KIV_NOEXCEPT;
/* The same with flags: whose the object is, 0x100 for no notification of the replacement,
   DictionaryClones to store a clone. An object that cannot be cloned posts
   "dictionary_appendatom_flags: non-clonable object; class is %s" and is stored as a reference. */
KIV_EXPORT ErrorCode dictionary_appendatom_flags(Dictionary *dictionary, Symbol *key,
                                                 const Atom *value, int32_t flags) KIV_NOEXCEPT;
/* Stores a string object made of a copy of `text`. */
KIV_EXPORT ErrorCode dictionary_appendstring(Dictionary *dictionary, Symbol *key,
                                             const char *text) KIV_NOEXCEPT;
/* Store an object, which becomes the dictionary's unless the flags say otherwise. */
KIV_EXPORT ErrorCode dictionary_appendobject(Dictionary *dictionary, Symbol *key,
                                             void *x) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendobject_flags(Dictionary *dictionary, Symbol *key, void *x,
                                                   int32_t flags) KIV_NOEXCEPT;
/* Store an object of class "dictionary", or "atomarray"; -1 and nothing stored for any other. */
KIV_EXPORT ErrorCode dictionary_appenddictionary(Dictionary *dictionary, Symbol *key,
                                                 void *value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendatomarray(Dictionary *dictionary, Symbol *key,
                                                void *value) KIV_NOEXCEPT;
/* Stores an atom array made of a copy of the atoms, also of one or none. It owns the objects
   among them unless `flags` has ContainerReference or ContainerData; with DictionaryClones it
   owns clones. An object that cannot be cloned posts "cloneatoms: non-clonable object; class is
   %s" and is kept, with one more reference. */
KIV_EXPORT ErrorCode dictionary_appendatoms(Dictionary *dictionary, Symbol *key, int32_t argc,
                                            const Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_appendatoms_flags(Dictionary *dictionary, Symbol *key, int32_t argc,
                                                  const Atom *argv, int32_t flags) KIV_NOEXCEPT;
/* Stores the atoms of a message text buffer as an atom array. */
KIV_EXPORT ErrorCode dictionary_appendbinbuf(Dictionary *dictionary, Symbol *key,
                                             Binbuf *value) KIV_NOEXCEPT;
/* Stores the value of an attribute of `x`: one atom, or an atom array. A null or empty key means
   the attribute's name. Objects in it are stored as references. */
KIV_EXPORT ErrorCode dictionary_appendattribute(Dictionary *dictionary, Symbol *key,
                                                Symbol *attribute, void *x) KIV_NOEXCEPT;
/* Converts the value to an integer: a float is truncated (and kept within 64 bits), a symbol
   read as a decimal number. What is no number gives 0; a symbol that is none also posts "%s: bad
   number". When the result is not 0, *value is unchanged. */
KIV_EXPORT ErrorCode dictionary_getlong(const Dictionary *dictionary, Symbol *key,
                                        int64_t *value) KIV_NOEXCEPT;
/* Converts the value to a float, likewise. */
KIV_EXPORT ErrorCode dictionary_getfloat(const Dictionary *dictionary, Symbol *key,
                                         double *value) KIV_NOEXCEPT;
/* Gives a symbol; -1 and the empty symbol for anything else. */
KIV_EXPORT ErrorCode dictionary_getsym(const Dictionary *dictionary, Symbol *key,
                                       Symbol **value) KIV_NOEXCEPT;
/* Copies the atom that is stored. */
KIV_EXPORT ErrorCode dictionary_getatom(const Dictionary *dictionary, Symbol *key,
                                        Atom *value) KIV_NOEXCEPT;
/* Gives the text of a symbol or a string; -1 for anything else. */
KIV_EXPORT ErrorCode dictionary_getstring(const Dictionary *dictionary, Symbol *key,
                                          const char **value) KIV_NOEXCEPT;
/* Give an object: any, a dictionary, an atom array. *value is null when there is none (unchanged
   by getobject). */
KIV_EXPORT ErrorCode dictionary_getobject(const Dictionary *dictionary, Symbol *key,
                                          void **value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getdictionary(const Dictionary *dictionary, Symbol *key,
                                              Dictionary **value) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getatomarray(const Dictionary *dictionary, Symbol *key,
                                             Atomarray **value) KIV_NOEXCEPT;
/* Gives the atoms of an atom array, or the one stored atom: not a copy. */
KIV_EXPORT ErrorCode dictionary_getatoms(const Dictionary *dictionary, Symbol *key, int32_t *argc,
                                         Atom **argv) KIV_NOEXCEPT;
/* Gives a copy of them that the caller frees with sysmem_freeptr (null when there are none). */
KIV_EXPORT ErrorCode dictionary_copyatoms(const Dictionary *dictionary, Symbol *key, int32_t *argc,
                                          Atom **argv) KIV_NOEXCEPT;
/* Sets an attribute of `x` to the value; a null or empty key means the attribute's name. The
   result is that of setting it. */
KIV_EXPORT ErrorCode dictionary_getattribute(const Dictionary *dictionary, Symbol *key,
                                             Symbol *attribute, void *x) KIV_NOEXCEPT;
/* 1 when the key is there, else 0. */
KIV_EXPORT int32_t dictionary_hasentry(const Dictionary *dictionary, Symbol *key) KIV_NOEXCEPT;
KIV_EXPORT int32_t dictionary_getentrycount(const Dictionary *dictionary) KIV_NOEXCEPT;
/* 1 when the value is of that class, else 0. Since strings become symbols when read,
   dictionary_entryisstring is 1 only for texts that no symbol can hold. */
KIV_EXPORT int32_t dictionary_entryisdictionary(const Dictionary *dictionary,
                                                Symbol *key) KIV_NOEXCEPT;
KIV_EXPORT int32_t dictionary_entryisatomarray(const Dictionary *dictionary,
                                               Symbol *key) KIV_NOEXCEPT;
KIV_EXPORT int32_t dictionary_entryisstring(const Dictionary *dictionary, Symbol *key) KIV_NOEXCEPT;
/* The getters with a default: *value becomes `fallback` when the getter does not give 0, and its
   result is returned. */
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
/* As dictionary_copyatoms; for an absent key, a copy of the default. */
KIV_EXPORT ErrorCode dictionary_copydefatoms(const Dictionary *dictionary, Symbol *key,
                                             int32_t *argc, Atom **argv, int32_t fallback_count,
                                             const Atom *fallback) KIV_NOEXCEPT;
/* Give the keys in the table's order (by address), or in the order of storing. The caller frees
   the array with dictionary_freekeys; null when there are none. */
KIV_EXPORT ErrorCode dictionary_getkeys(const Dictionary *dictionary, int32_t *count,
                                        Symbol ***keys) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_getkeys_ordered(const Dictionary *dictionary, int32_t *count,
                                                Symbol ***keys) KIV_NOEXCEPT;
KIV_EXPORT void dictionary_freekeys(Dictionary *dictionary, int32_t count,
                                    Symbol **keys) KIV_NOEXCEPT;
/* Removes a key, freeing its value if it is owned. -1 when the key is absent. */
KIV_EXPORT ErrorCode dictionary_deleteentry(Dictionary *dictionary, Symbol *key) KIV_NOEXCEPT;
/* Removes a key without freeing its value. */
KIV_EXPORT ErrorCode dictionary_chuckentry(Dictionary *dictionary, Symbol *key) KIV_NOEXCEPT;
/* Makes a deep copy: owned objects are cloned, references copied as references. Null on no
   memory and for values nested deeper than 1000 containers (posted). */
KIV_EXPORT Dictionary *dictionary_clone(const Dictionary *dictionary) KIV_NOEXCEPT;
/* Makes `target` a deep copy of `source`; on failure it is unchanged. */
KIV_EXPORT ErrorCode dictionary_clone_to_existing(const Dictionary *source,
                                                  Dictionary *target) KIV_NOEXCEPT;
/* Copies the entries with the given keys (ended by a null pointer), replacing those of the
   target. Values are cloned. */
KIV_EXPORT ErrorCode dictionary_copyentries(const Dictionary *source, Dictionary *target,
                                            Symbol **keys) KIV_NOEXCEPT;
/* Copies the entries whose keys the target lacks. */
KIV_EXPORT ErrorCode dictionary_copyunique(Dictionary *target,
                                           const Dictionary *source) KIV_NOEXCEPT;
/* Copies all entries, replacing those of the target. */
KIV_EXPORT ErrorCode dictionary_merge_to_existing(const Dictionary *source,
                                                  Dictionary *target) KIV_NOEXCEPT;
/* Calls function(entry, arg) for every entry in order. The function may change, clear or free
   the dictionary. */
KIV_EXPORT void dictionary_funall(Dictionary *dictionary, DictionaryFunction function,
                                  void *arg) KIV_NOEXCEPT;
/* Posts a line for each entry, and with `recurse` for those of nested dictionaries: to the
   console, or to the system console when `console` is 0. Nesting beyond 1000 is an error. */
KIV_EXPORT ErrorCode dictionary_dump(const Dictionary *dictionary, int32_t recurse,
                                     int32_t console) KIV_NOEXCEPT;
/* Makes a dictionary from formatted text "@key value ...": each word that begins with "@" is a
   key, the words up to the next one are its value. Null on no memory. */
KIV_EXPORT Dictionary *dictionary_sprintf(const char *format, ...) KIV_NOEXCEPT KIV_PRINTF(1, 2);
/* The key of an entry; its stored atom; its atoms as dictionary_getatoms gives them. A null
   entry gives null, an atom of type 0, no atoms. */
KIV_EXPORT Symbol *dictionary_entry_getkey(DictionaryEntry *entry) KIV_NOEXCEPT;
KIV_EXPORT void dictionary_entry_getvalue(DictionaryEntry *entry, Atom *value) KIV_NOEXCEPT;
KIV_EXPORT void dictionary_entry_getvalues(DictionaryEntry *entry, int32_t *argc,
                                           Atom **argv) KIV_NOEXCEPT;
/* Makes a dictionary of the default values that the attributes of a class declare ("default").
   Null for a null class and on no memory. */
KIV_EXPORT Dictionary *dictionary_prototypefromclass(Class *c) KIV_NOEXCEPT;
/* Reads a JSON document from a file. On failure *dictionary is null and an error posted. */
KIV_EXPORT ErrorCode dictionary_read(const char *file_name, int16_t path,
                                     Dictionary **dictionary) KIV_NOEXCEPT;
/* Writes a JSON document so that a crash leaves the old file or the new one. An error is posted
   on failure, and the file is unchanged. */
KIV_EXPORT ErrorCode dictionary_write(const Dictionary *dictionary, const char *file_name,
                                      int16_t path) KIV_NOEXCEPT;
/* Enter and leave the dictionary's private lock, which a thread may enter again. */
KIV_EXPORT ErrorCode dictionary_transaction_lock(Dictionary *dictionary) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictionary_transaction_unlock(Dictionary *dictionary) KIV_NOEXCEPT;
/* --- named dictionaries */
/* Registers a dictionary under *name in the namespace "dictionary". For a null or empty *name a
   unique one is made and stored there. The result is the dictionary now registered under the
   name: if the name was taken, the one passed is freed and that one returned, or null when it is
   no dictionary. */
KIV_EXPORT Dictionary *dictobj_register(Dictionary *dictionary, Symbol **name) KIV_NOEXCEPT;
/* Takes a dictionary out of the registry; not 0 while it stays registered elsewhere. */
KIV_EXPORT ErrorCode dictobj_unregister(Dictionary *dictionary) KIV_NOEXCEPT;
/* The dictionary of a name, with one more reference that dictobj_release gives back; null when
   there is none. */
KIV_EXPORT Dictionary *dictobj_findregistered_retain(Symbol *name) KIV_NOEXCEPT;
/* An unregistered clone of the dictionary of a name, for the caller to free; null when there is
   none. */
KIV_EXPORT Dictionary *dictobj_findregistered_clone(Symbol *name) KIV_NOEXCEPT;
/* Gives back a reference. */
KIV_EXPORT ErrorCode dictobj_release(Dictionary *dictionary) KIV_NOEXCEPT;
/* The name a dictionary is registered under, or null. */
KIV_EXPORT Symbol *dictobj_namefromptr(Dictionary *dictionary) KIV_NOEXCEPT;
/* Reads a dictionary from JSON text (`is_json` not 0) or dictionary text into *dictionary,
   freeing what that held. On failure it is null and the result -1; an error of syntax is
   described in error_buffer (KIV_JSON_ERROR_SIZE bytes) or, when that is null, reported to the
   system console. */
KIV_EXPORT ErrorCode dictobj_dictionaryfromstring(Dictionary **dictionary, const char *text,
                                                  int32_t is_json, char *error_buffer) KIV_NOEXCEPT;
/* Turns dictionary text into JSON text: *json is the caller's to free with sysmem_freeptr, *size
   its length without the zero byte at its end. -1 for text that is wrong, with an error posted. */
KIV_EXPORT ErrorCode dictobj_jsonfromstring(int64_t *size, char **json,
                                            const char *text) KIV_NOEXCEPT;
/* Give a dictionary as a list of atoms (which the caller frees with sysmem_freeptr; texts too
   long for a symbol stay the dictionary's string objects in it) and make one from such a list.
   -1 with an error posted for atoms that form no dictionary and for values nested deeper than
   1000 containers. */
KIV_EXPORT ErrorCode dictobj_dictionarytoatoms(const Dictionary *dictionary, int32_t *argc,
                                               Atom **argv) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode dictobj_dictionaryfromatoms(Dictionary **dictionary, int32_t argc,
                                                 const Atom *argv) KIV_NOEXCEPT;
/* Sends atoms out of an outlet: a single dictionary as "dictionary" and its name (one it has
   only meanwhile if it is not registered), a single atom array as its atoms, anything else as
   the message or list that it forms, each object replaced as dictobj_atom_safety does. */
KIV_EXPORT void dictobj_outlet_atoms(Outlet *outlet, int32_t argc, Atom *argv) KIV_NOEXCEPT;
/* Replaces an object atom by a symbol that may go through a patch cord: a string by its text, a
   registered dictionary by its name, any other object by its class name. 1 when the atom was
   replaced, else 0. */
KIV_EXPORT int32_t dictobj_atom_safety(Atom *atom) KIV_NOEXCEPT;

KIV_END

#endif
