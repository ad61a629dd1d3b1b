#ifndef KIV_LOAD_H
#define KIV_LOAD_H

#include <kiv/dictionary.h>
#include <kiv/types.h>

KIV_BEGIN

KIV_EXPORT void *jpatcher_load(const char *file_name, int16_t path, int32_t argc,
                               Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void *jpatcher_load_namespace(const char *file_name, int16_t path, int32_t argc,
                                         Atom *argv, Symbol *name_space) KIV_NOEXCEPT;
KIV_EXPORT void *jpatcher_load_frombuffer(const char *file_name, int16_t path, const char *text,
                                          int64_t length, int32_t argc, Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void *jpatcher_load_frombuffer_namespace(const char *file_name, int16_t path,
                                                    const char *text, int64_t length, int32_t argc,
                                                    Atom *argv, Symbol *name_space) KIV_NOEXCEPT;
KIV_EXPORT void *jpatcher_load_fromdictionary(const char *file_name, int16_t path,
                                              Dictionary *dictionary, int32_t argc,
                                              Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT void *jpatcher_load_fromdictionary_namespace(const char *file_name, int16_t path,
                                                        Dictionary *dictionary, int32_t argc,
                                                        Atom *argv,
                                                        Symbol *name_space) KIV_NOEXCEPT;
KIV_EXPORT void jpatcher_bulk_load_begin(void) KIV_NOEXCEPT;
KIV_EXPORT void jpatcher_bulk_load_end(void) KIV_NOEXCEPT;
KIV_EXPORT void *lowload_jpatcher_frombuffer(const char *text, int64_t length) KIV_NOEXCEPT;
KIV_EXPORT void *lowload_jpatcher_frombuffer_withobexprototype(const char *text, int64_t length,
                                                               Dictionary *prototype) KIV_NOEXCEPT;
KIV_EXPORT void *fileload(const char *name, int16_t path) KIV_NOEXCEPT;
KIV_EXPORT void *fileload_type(const char *name, int16_t path, uint32_t type) KIV_NOEXCEPT;
KIV_EXPORT void *fileload_extended(const char *name, int16_t path, uint32_t type, int32_t argc,
                                   Atom *argv, void **result) KIV_NOEXCEPT;
KIV_EXPORT void *intload(const char *name, int16_t path, uint32_t type, int32_t argc, Atom *argv,
                         int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT void *nameload(const char *name, int16_t path, uint32_t type,
                          int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT void *nameload_unique(const char *name, int16_t path, uint32_t type, int32_t flags,
                                 int32_t unique) KIV_NOEXCEPT;
KIV_EXPORT void *stringload(const char *name) KIV_NOEXCEPT;
KIV_EXPORT int32_t loadbang_suspend(void) KIV_NOEXCEPT;
KIV_EXPORT void loadbang_resume(void) KIV_NOEXCEPT;
KIV_EXPORT void loadbang_queueobject(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT void loadbang_dequeue(void) KIV_NOEXCEPT;
KIV_EXPORT int32_t noloadbangdisable_get(void) KIV_NOEXCEPT;
KIV_EXPORT void noloadbangdisable_set(int32_t on) KIV_NOEXCEPT;

KIV_END

#endif
