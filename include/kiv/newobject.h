#ifndef KIV_NEWOBJECT_H
#define KIV_NEWOBJECT_H

#include <kiv/dictionary.h>
#include <kiv/types.h>

KIV_BEGIN

KIV_EXPORT Object *newobject_fromboxtext(void *patcher, const char *text) KIV_NOEXCEPT;
KIV_EXPORT Object *newobject_fromdictionary(void *patcher, Dictionary *dictionary) KIV_NOEXCEPT;
KIV_EXPORT Object *newobject_sprintf(void *patcher, const char *format, ...) KIV_NOEXCEPT
    KIV_PRINTF(2, 3);
KIV_EXPORT void *newobject(Class *c) KIV_NOEXCEPT;
KIV_EXPORT Symbol *alias(const char *name) KIV_NOEXCEPT;
KIV_EXPORT int32_t isnewex(const void *x) KIV_NOEXCEPT;
KIV_EXPORT int32_t ispatcher(const void *x) KIV_NOEXCEPT;
KIV_EXPORT int32_t isbpatcher(const void *x) KIV_NOEXCEPT;
KIV_EXPORT int32_t newex_knows(void *maker, Symbol *name) KIV_NOEXCEPT;

KIV_END

#endif
