/* Patcher documents and loadbang.

   A document is JSON whose top-level key "patcher" holds the patcher dictionary. The jpatcher_load
   family makes a patcher from it and no more: who calls it owns the patcher, frees it with
   object_free and sends it "loadbang" when it is to start. The loaders by file (fileload, nameload
   and their relatives, lowload_...) also deliver loadbang when the outermost load has ended.

   File names come with a path identifier (see path.h), 0 being the default path for the loaders by
   file. A file that cannot be opened or parsed is reported in the console and gives null; one that
   holds no patcher (its first 256 bytes lack "patcher" in quotes) gives null without a word.
   `argc` and `argv` are the arguments that "#0" to "#9" stand for in the boxes' texts.

   Main thread only. Null arguments give null. */
#ifndef KIV_LOAD_H
#define KIV_LOAD_H

#include <kiv/dictionary.h>
#include <kiv/types.h>

KIV_BEGIN

/* --- patchers from files, text and dictionaries */
/* Makes a patcher from a file. While loads are under way a file is parsed only once. */
KIV_EXPORT void *jpatcher_load(const char *file_name, int16_t path, int32_t argc,
                               Atom *argv) KIV_NOEXCEPT;
/* The same with the namespace its box classes are looked up in; null or empty means "box". */
KIV_EXPORT void *jpatcher_load_namespace(const char *file_name, int16_t path, int32_t argc,
                                         Atom *argv, Symbol *name_space) KIV_NOEXCEPT;
/* Makes a patcher from `length` bytes of text; without text, an empty patcher. File name (may be
   null) and path say where the text came from. */
KIV_EXPORT void *jpatcher_load_frombuffer(const char *file_name, int16_t path, const char *text,
                                          int64_t length, int32_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void *jpatcher_load_frombuffer_namespace(const char *file_name, int16_t path,
                                                    const char *text, int64_t length, int32_t argc,
                                                    Atom *argv, Symbol *name_space) KIV_NOEXCEPT;
/* Makes a patcher from a document's dictionary, which stays the caller's and as it was. Without a
   "patcher" in it an error is posted. */
KIV_EXPORT void *jpatcher_load_fromdictionary(const char *file_name, int16_t path,
                                              Dictionary *dictionary, int32_t argc,
                                              Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void *jpatcher_load_fromdictionary_namespace(const char *file_name, int16_t path,
                                                        Dictionary *dictionary, int32_t argc,
                                                        Atom *argv,
                                                        Symbol *name_space) KIV_NOEXCEPT;
/* Between the two, several loads share what they parse: each file is parsed once, so a change of a
   file on disk is not seen. The calls nest. */
KIV_EXPORT void jpatcher_bulk_load_begin(void) KIV_NOEXCEPT;
KIV_EXPORT void jpatcher_bulk_load_end(void) KIV_NOEXCEPT;

/* --- documents with loadbang */
/* Loads a top-level patcher from text and delivers loadbang; null when loadbang freed it again. */
KIV_EXPORT void *lowload_jpatcher_frombuffer(const char *text, int64_t length) KIV_NOEXCEPT;
/* The same with a prototype dictionary for the new patcher (see jpatcher_setnextobexprototype). */
KIV_EXPORT void *lowload_jpatcher_frombuffer_withobexprototype(const char *text, int64_t length,
                                                               Dictionary *prototype) KIV_NOEXCEPT;
/* Opens a file by its type, as its extension tells or as given (not 0). Patcher documents load;
   other types give null. A file that is being loaded already is refused with an error. */
KIV_EXPORT void *fileload(const char *name, int16_t path) KIV_NOEXCEPT;
KIV_EXPORT void *fileload_type(const char *name, int16_t path, uint32_t type) KIV_NOEXCEPT;
/* The same with arguments and with the file's folder as the default path; *result (may be null) is
   cleared at the end. */
KIV_EXPORT void *fileload_extended(const char *name, int16_t path, uint32_t type, int32_t argc,
                                   Atom *argv, void **result) KIV_NOEXCEPT;
/* Loads a patcher file as the content of the box being made, with an abstraction's arguments. It
   gets loadbang with the patcher around it, or at once when none is being loaded. `flags` is
   reserved and ignored. */
KIV_EXPORT void *intload(const char *name, int16_t path, uint32_t type, int32_t argc, Atom *argv,
                         int32_t flags) KIV_NOEXCEPT;
/* Opens a document of its own; non-zero `flags` shows it. */
KIV_EXPORT void *nameload(const char *name, int16_t path, uint32_t type,
                          int32_t flags) KIV_NOEXCEPT;
/* The same; with `unique`, one that is open already is brought to the front and returned. */
KIV_EXPORT void *nameload_unique(const char *name, int16_t path, uint32_t type, int32_t flags,
                                 int32_t unique) KIV_NOEXCEPT;
/* Finds a patcher file along the search path, opens and shows it. */
KIV_EXPORT void *stringload(const char *name) KIV_NOEXCEPT;

/* --- loadbang */
/* Holds loadbang back; the first call drops what was queued before. Returns how many calls are now
   without their loadbang_resume. */
KIV_EXPORT int32_t loadbang_suspend(void) KIV_NOEXCEPT;
/* Ends one loadbang_suspend; the last one delivers the queue, unless a load is under way. */
KIV_EXPORT void loadbang_resume(void) KIV_NOEXCEPT;
/* Queues a patcher for loadbang; once, however often it is called. */
KIV_EXPORT void loadbang_queueobject(void *patcher) KIV_NOEXCEPT;
/* Sends every queued patcher "loadbang", then "clean", in the order in which they were queued. */
KIV_EXPORT void loadbang_dequeue(void) KIV_NOEXCEPT;
/* Lets every patcher serve loadbang once more, as the next outermost load does. Who sends
   "loadbang" to a running patcher because a person asked for it calls this first. */
KIV_EXPORT void loadbang_new_generation(void) KIV_NOEXCEPT;
/* Reads and writes an 8-bit flag that the runtime keeps for the user interface. */
KIV_EXPORT int32_t noloadbangdisable_get(void) KIV_NOEXCEPT;
KIV_EXPORT void noloadbangdisable_set(int32_t on) KIV_NOEXCEPT;

KIV_END

#endif
