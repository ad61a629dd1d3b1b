#ifndef KIV_LINKLIST_H
#define KIV_LINKLIST_H

#include <kiv/types.h>

KIV_BEGIN

typedef struct LinklistElement LinklistElement;
typedef struct Linklist Linklist;

/* Tests and comparisons answer non-zero for yes; a comparison, for "a may stay before b". */
typedef int32_t (*LinklistTest)(void *item, void *arg);
typedef int32_t (*LinklistCompare)(void *a, void *b);
/* Return value: see linklist_funall_break. */
typedef void *(*LinklistFunction)(void *item, void *arg);

KIV_EXPORT Linklist *linklist_new(void) KIV_NOEXCEPT;
KIV_EXPORT void linklist_chuck(Linklist *list) KIV_NOEXCEPT;
KIV_EXPORT void linklist_clear(Linklist *list) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_append(Linklist *list, void *item) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_insertindex(Linklist *list, void *item, int32_t index) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_insert_sorted(Linklist *list, void *item,
                                          LinklistCompare compare) KIV_NOEXCEPT;
KIV_EXPORT LinklistElement *linklist_insertbeforeobjptr(Linklist *list, void *item,
                                                        void *existing) KIV_NOEXCEPT;
KIV_EXPORT LinklistElement *linklist_insertafterobjptr(Linklist *list, void *item,
                                                       void *existing) KIV_NOEXCEPT;
KIV_EXPORT LinklistElement *linklist_movebeforeobjptr(Linklist *list, void *item,
                                                      void *existing) KIV_NOEXCEPT;
KIV_EXPORT LinklistElement *linklist_moveafterobjptr(Linklist *list, void *item,
                                                     void *existing) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_getsize(Linklist *list) KIV_NOEXCEPT;
KIV_EXPORT void *linklist_getindex(Linklist *list, int32_t index) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_objptr2index(Linklist *list, void *item) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_next(Linklist *list, void *item, void **out) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_prev(Linklist *list, void *item, void **out) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_last(Linklist *list, void **out) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_makearray(Linklist *list, void **array, int32_t limit) KIV_NOEXCEPT;
KIV_EXPORT void linklist_flags(Linklist *list, int64_t flags) KIV_NOEXCEPT;
KIV_EXPORT int64_t linklist_getflags(Linklist *list) KIV_NOEXCEPT;
KIV_EXPORT void linklist_readonly(Linklist *list, int32_t on) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_deleteindex(Linklist *list, int32_t index) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_chuckindex(Linklist *list, int32_t index) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_deleteobject(Linklist *list, void *item) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_chuckobject(Linklist *list, void *item) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_chuckptr(Linklist *list, LinklistElement *element) KIV_NOEXCEPT;
KIV_EXPORT void linklist_prune(Linklist *list, LinklistTest test, void *arg,
                               int32_t mode) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_match(void *a, void *b) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_findfirst(Linklist *list, void **out, LinklistTest test,
                                      void *arg) KIV_NOEXCEPT;
KIV_EXPORT void linklist_findall(Linklist *list, Linklist **out, LinklistTest test,
                                 void *arg) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_funall(Linklist *list, LinklistFunction function,
                                   void *arg) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_funall_break(Linklist *list, LinklistFunction function,
                                         void *arg) KIV_NOEXCEPT;
KIV_EXPORT void *linklist_funindex(Linklist *list, int32_t index, LinklistFunction function,
                                   void *arg) KIV_NOEXCEPT;
KIV_EXPORT void linklist_methodall(Linklist *list, Symbol *selector, ...) KIV_NOEXCEPT;
KIV_EXPORT void linklist_methodall_imp(Linklist *list, Symbol *selector, void *p1, void *p2,
                                       void *p3, void *p4, void *p5, void *p6, void *p7,
                                       void *p8) KIV_NOEXCEPT;
KIV_EXPORT void *linklist_methodindex(Linklist *list, int32_t index, Symbol *selector,
                                      ...) KIV_NOEXCEPT;
KIV_EXPORT void *linklist_methodindex_imp(Linklist *list, int32_t index, Symbol *selector, void *p1,
                                          void *p2, void *p3, void *p4, void *p5, void *p6,
                                          void *p7, void *p8) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_substitute(Linklist *list, int32_t index, void *item) KIV_NOEXCEPT;
KIV_EXPORT void linklist_swap(Linklist *list, int32_t a, int32_t b) KIV_NOEXCEPT;
KIV_EXPORT void linklist_reverse(Linklist *list) KIV_NOEXCEPT;
KIV_EXPORT void linklist_rotate(Linklist *list, int32_t n) KIV_NOEXCEPT;
KIV_EXPORT void linklist_shuffle(Linklist *list) KIV_NOEXCEPT;
KIV_EXPORT void linklist_sort(Linklist *list, LinklistCompare compare) KIV_NOEXCEPT;

#define linklist_methodall(...) \
    KIV_PASS_8(linklist_methodall_imp, __VA_ARGS__, 0, 0, 0, 0, 0, 0, 0, 0, 0)
#define linklist_methodindex(...) \
    KIV_PASS_8_AFTER_3(linklist_methodindex_imp, __VA_ARGS__, 0, 0, 0, 0, 0, 0, 0, 0, 0)

KIV_END

#endif
