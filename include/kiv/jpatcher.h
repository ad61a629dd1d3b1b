#ifndef KIV_JPATCHER_H
#define KIV_JPATCHER_H

#include <kiv/dictionary.h>
#include <kiv/types.h>

KIV_BEGIN

/* Flags of jpatcher_resolvebox_ex. */
enum {
    JPATCHER_RESOLVE_OUTWARD = 1 /* also in the enclosing patchers, innermost first */
};

/* Flags of the messages "iterate" and "traverse". */
enum {
    JPATCHER_ITERATE_BOXES = 1, /* hand over boxes rather than the objects they show */
    JPATCHER_ITERATE_DEEP = 2   /* also those of subpatchers, each before the boxes after it */
};
/* What "iterate" and "traverse" call with their argument and an object; non-zero stops the walk. */
typedef int32_t (*JpatcherFunction)(void *arg, Object *x);

KIV_EXPORT int32_t jpatcher_is_patcher(const void *x) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_get_firstobject(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_get_lastobject(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_get_firstline(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_get_firstview(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatcher_get_count(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_get_box(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_get_parentpatcher(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_get_toppatcher(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT Symbol *jpatcher_get_name(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT Symbol *jpatcher_get_title(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT Symbol *jpatcher_get_filename(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT Symbol *jpatcher_get_filepath(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatcher_get_dirty(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatcher_get_bglocked(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatcher_get_bgcolor(void *patcher, double *rgba) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatcher_get_gridsize(void *patcher, double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatcher_get_rect(void *patcher, double *rect) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatcher_get_presentation(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatcher_get_noedit(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_get_controller(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT Symbol *jpatcher_get_kivclass(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT Symbol *jpatcher_get_parentclass(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatcher_get_fileversion(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatcher_get_currentfileversion(void) KIV_NOEXCEPT;
KIV_EXPORT void *jpatcher_getboxfont(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_get_hubholder(void *patcher) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatcher_set_locked(void *patcher, int32_t on) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatcher_set_dirty(void *patcher, int32_t on) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatcher_set_title(void *patcher, Symbol *title) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatcher_set_rect(void *patcher, const double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatcher_set_bgcolor(void *patcher, const double *rgba) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatcher_set_gridsize(void *patcher, const double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatcher_deleteobj(void *patcher, void *box) KIV_NOEXCEPT;
KIV_EXPORT Symbol *jpatcher_uniqueboxname(void *patcher, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_resolvebox(void *patcher, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_resolvebox_ex(void *patcher, Symbol *name, int32_t flags) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_resolvebox_boxpath(void *patcher, Symbol *box_path) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_resolveobj(void *patcher, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_resolveobj_boxpath(void *patcher, Symbol *box_path) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatcher_resolvepatcher(void *patcher, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatcher_addboxlistener(void *patcher, void *listener) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatcher_removeboxlistener(void *patcher, void *listener) KIV_NOEXCEPT;
KIV_EXPORT void jpatcher_error_obtrusive(void *patcher, void *box, const char *text) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatcher_inc_kivsendcontext(void) KIV_NOEXCEPT;
KIV_EXPORT void jpatcher_setnextobexprototype(Dictionary *prototype) KIV_NOEXCEPT;
KIV_EXPORT Dictionary *jpatcher_getnextobexprototype(void) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatcher_dictionary_version(void) KIV_NOEXCEPT;
KIV_EXPORT int32_t jpatcher_dictionary_modernui(Dictionary *dictionary) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatchercontroller_createobject(void *controller, Symbol *selector, int32_t argc,
                                                   Atom *argv) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatchercontroller_connectobjects(void *controller, void *box1, int32_t outlet,
                                                     void *box2, int32_t inlet) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatchercontroller_pastefileat(void *controller, const char *file_name,
                                                  int16_t path, double x, double y) KIV_NOEXCEPT;
KIV_EXPORT Object *jpatchercontroller_pastefileintoobject(void *controller, void *box,
                                                          const char *file_name,
                                                          int16_t path) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode jpatchercontroller_setpatcherview(void *controller, void *view) KIV_NOEXCEPT;

KIV_END

#endif
