/* Linked list: an ordered container of pointer-sized items, itself an object of class "linklist".

   A list frees its items as its flags say (ContainerOwns and the others): when they are deleted,
   when it is cleared, and when it is freed with object_free. Every function takes the list's own
   lock for its work, so any thread may use a list; only linklist_readonly suspends that.

   During an iteration (funall, funall_break, methodall, prune) the lock is free while a callback
   runs, and the callback may change the list, clear it or free it. An element it deletes, other
   than the one being visited, stays linked until the last iteration ends: still counted, its item
   null. Tests and comparisons run under the lock and leave the list alone.

   A null list is accepted everywhere and gives -1, 0 or null. Indices count from 0. Class messages
   without a function of their own: "objptrflags" (item, flags) and "getobjptrflags" (item), the
   flags of one item, of which bits 1 and 2 keep the list from freeing it; "isiterating", how many
   iterations run. */
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

/* A new empty list that owns its items; null on no memory. */
KIV_EXPORT Linklist *linklist_new(void) KIV_NOEXCEPT;
/* Frees the list without freeing any item. */
KIV_EXPORT void linklist_chuck(Linklist *list) KIV_NOEXCEPT;
/* Removes every element, freeing the items as the flags say. */
KIV_EXPORT void linklist_clear(Linklist *list) KIV_NOEXCEPT;
/* Adds an item at the end. Returns the new count, -1 on no memory. */
KIV_EXPORT int32_t linklist_append(Linklist *list, void *item) KIV_NOEXCEPT;
/* Adds an item at an index, cut to the list's ends. Returns the index of the item; but when it was
   appended to a list that was not empty, the index of the element before it. -1 on no memory. */
KIV_EXPORT int32_t linklist_insertindex(Linklist *list, void *item, int32_t index) KIV_NOEXCEPT;
/* Adds an item before the first one for which compare(item, that one) is not 0, else at the end.
   Returns its index, -1 on failure. */
KIV_EXPORT int32_t linklist_insert_sorted(Linklist *list, void *item,
                                          LinklistCompare compare) KIV_NOEXCEPT;
/* Add an item beside the first element that holds `existing`. Return the new element, or null when
   there is no such element, or on no memory. */
KIV_EXPORT LinklistElement *linklist_insertbeforeobjptr(Linklist *list, void *item,
                                                        void *existing) KIV_NOEXCEPT;
KIV_EXPORT LinklistElement *linklist_insertafterobjptr(Linklist *list, void *item,
                                                       void *existing) KIV_NOEXCEPT;
/* Move the first element that holds `item` beside the one that holds `existing`. Return it, or null
   when either is absent. */
KIV_EXPORT LinklistElement *linklist_movebeforeobjptr(Linklist *list, void *item,
                                                      void *existing) KIV_NOEXCEPT;
KIV_EXPORT LinklistElement *linklist_moveafterobjptr(Linklist *list, void *item,
                                                     void *existing) KIV_NOEXCEPT;
/* How many elements there are. */
KIV_EXPORT int32_t linklist_getsize(Linklist *list) KIV_NOEXCEPT;
/* The item at an index, null when out of range. A walk from the nearer end. */
KIV_EXPORT void *linklist_getindex(Linklist *list, int32_t index) KIV_NOEXCEPT;
/* The index of the first element that holds an item, -1 when absent or null. */
KIV_EXPORT int32_t linklist_objptr2index(Linklist *list, void *item) KIV_NOEXCEPT;
/* Set `*out` to the item after, or before, the first element that holds `item`, null when there is
   none. The list remembers where they were, so that walking with them is linear. Return 0. */
KIV_EXPORT int32_t linklist_next(Linklist *list, void *item, void **out) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_prev(Linklist *list, void *item, void **out) KIV_NOEXCEPT;
/* Sets `*out` to the last item, null when the list is empty. Returns 0. */
KIV_EXPORT int32_t linklist_last(Linklist *list, void **out) KIV_NOEXCEPT;
/* Copies at most `limit` items in order into the caller's array. Returns how many, -1 for a null
   list. */
KIV_EXPORT int32_t linklist_makearray(Linklist *list, void **array, int32_t limit) KIV_NOEXCEPT;
/* Sets, and reads, the ownership flags of all items. */
KIV_EXPORT void linklist_flags(Linklist *list, int64_t flags) KIV_NOEXCEPT;
KIV_EXPORT int64_t linklist_getflags(Linklist *list) KIV_NOEXCEPT;
/* With `on`, takes the list's lock and keeps it: until the same thread calls with 0, no operation
   locks, and the list must not be changed. For lists that are only read from then on. */
KIV_EXPORT void linklist_readonly(Linklist *list, int32_t on) KIV_NOEXCEPT;
/* Removes the element at an index and frees its item as the flags say. Returns the index; -1 when
   out of range, or when an iteration postpones the removal. */
KIV_EXPORT int32_t linklist_deleteindex(Linklist *list, int32_t index) KIV_NOEXCEPT;
/* As linklist_deleteindex, but never frees the item. */
KIV_EXPORT int32_t linklist_chuckindex(Linklist *list, int32_t index) KIV_NOEXCEPT;
/* Remove the first element that holds an item, freeing the item as the flags say, or never. Return
   0, -1 when absent. */
KIV_EXPORT int32_t linklist_deleteobject(Linklist *list, void *item) KIV_NOEXCEPT;
KIV_EXPORT int32_t linklist_chuckobject(Linklist *list, void *item) KIV_NOEXCEPT;
/* Removes an element, as the inserting functions return it, without freeing its item. Returns 0; -1
   when the element is not in the list, or when an iteration postpones the removal. */
KIV_EXPORT int32_t linklist_chuckptr(Linklist *list, LinklistElement *element) KIV_NOEXCEPT;
/* Removes every item for which test(item, arg) is not 0, freeing it as the flags say, or never when
   bit 1 of `mode` is set. */
KIV_EXPORT void linklist_prune(Linklist *list, LinklistTest test, void *arg,
                               int32_t mode) KIV_NOEXCEPT;
/* The test for one certain item: whether its arguments are the same pointer. */
KIV_EXPORT int32_t linklist_match(void *a, void *b) KIV_NOEXCEPT;
/* Finds the first item for which test(item, arg) is not 0. Returns its index, -1 when there is none
   and `*out` is null. */
KIV_EXPORT int32_t linklist_findfirst(Linklist *list, void **out, LinklistTest test,
                                      void *arg) KIV_NOEXCEPT;
/* Sets `*out` to a new list of all items for which test(item, arg) is not 0, null when there are
   none. Both lists hold the items then: free the new one with linklist_chuck. */
KIV_EXPORT void linklist_findall(Linklist *list, Linklist **out, LinklistTest test,
                                 void *arg) KIV_NOEXCEPT;
/* Calls function(item, arg) for every item in order. Returns 0. */
KIV_EXPORT int32_t linklist_funall(Linklist *list, LinklistFunction function,
                                   void *arg) KIV_NOEXCEPT;
/* As linklist_funall, up to the first call whose result is not 0 (in its low 32 bits). Returns
   whether there was one. */
KIV_EXPORT int32_t linklist_funall_break(Linklist *list, LinklistFunction function,
                                         void *arg) KIV_NOEXCEPT;
/* Calls function(item, arg) for the item at an index. Returns its result, null when there is none.
 */
KIV_EXPORT void *linklist_funindex(Linklist *list, int32_t index, LinklistFunction function,
                                   void *arg) KIV_NOEXCEPT;
/* Send a message by object_method to every item, with up to eight pointer-sized arguments. Do
   nothing when the items are plain data or memory blocks. */
KIV_EXPORT void linklist_methodall(Linklist *list, Symbol *selector, ...) KIV_NOEXCEPT;
KIV_EXPORT void linklist_methodall_imp(Linklist *list, Symbol *selector, void *p1, void *p2,
                                       void *p3, void *p4, void *p5, void *p6, void *p7,
                                       void *p8) KIV_NOEXCEPT;
/* Send a message by object_method to the item at an index. Return its result, null when there is no
   such item or the items take no messages. */
KIV_EXPORT void *linklist_methodindex(Linklist *list, int32_t index, Symbol *selector,
                                      ...) KIV_NOEXCEPT;
KIV_EXPORT void *linklist_methodindex_imp(Linklist *list, int32_t index, Symbol *selector, void *p1,
                                          void *p2, void *p3, void *p4, void *p5, void *p6,
                                          void *p7, void *p8) KIV_NOEXCEPT;
/* Replaces the item at an index without freeing the old one. Returns 0. */
KIV_EXPORT int32_t linklist_substitute(Linklist *list, int32_t index, void *item) KIV_NOEXCEPT;
/* Exchanges two items; does nothing when either index is out of range. */
KIV_EXPORT void linklist_swap(Linklist *list, int32_t a, int32_t b) KIV_NOEXCEPT;
/* Reverses the order. */
KIV_EXPORT void linklist_reverse(Linklist *list) KIV_NOEXCEPT;
/* Moves the last item to the front `n` times, or the first to the end when `n` is negative. */
KIV_EXPORT void linklist_rotate(Linklist *list, int32_t n) KIV_NOEXCEPT;
/* Puts the items in random order. */
KIV_EXPORT void linklist_shuffle(Linklist *list) KIV_NOEXCEPT;
/* Sorts by merging, without allocating. compare(a, b) not 0 means that `a` may stay before `b`: a
   test for "less or equal" keeps equal items in order, one for "less" reverses them. */
KIV_EXPORT void linklist_sort(Linklist *list, LinklistCompare compare) KIV_NOEXCEPT;

#define linklist_methodall(...) \
    KIV_PASS_8(linklist_methodall_imp, __VA_ARGS__, 0, 0, 0, 0, 0, 0, 0, 0, 0)
#define linklist_methodindex(...) \
    KIV_PASS_8_AFTER_3(linklist_methodindex_imp, __VA_ARGS__, 0, 0, 0, 0, 0, 0, 0, 0, 0)

KIV_END

#endif
