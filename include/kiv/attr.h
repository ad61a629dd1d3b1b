/* Attributes: named, typed properties of a class or of one object.

   1. An attribute is an object. It belongs to the class or object it is added to, which frees it.
   2. Names are symbols; the type is one of "char", "long", "int32", "atom_long", "float32",
      "float64", "symbol", "object", "pointer", "atom", "filepath". A value of any other type reads
      as the integer 0.
   3. Values convert: numbers with truncation, stopping at the ends of the stored type ("char" 0 to
      255); a symbol gives the number it reads as; a number gives a symbol of its text; an object
      comes from an object or from a symbol bound to one. No atoms at all change nothing.
   4. A null object, or an object without the attribute, makes setters return -1 and getters their
      neutral value (0, 0.0, null, the empty symbol).
   5. An object box without the attribute stands for the object inside it.
   6. Functions may be called from any thread; a write and its notification run on the caller's.
      Attributes are made, filtered and added to a class while the class is built. */
#ifndef KIV_ATTR_H
#define KIV_ATTR_H

#include <kiv/types.h>

struct Dictionary;

KIV_BEGIN

/* Accessors of an attribute, called with the object that holds the value. A getter fills *argc and
 *argv (allocating the array when *argc is 0 or *argv null); a setter stores the atoms. */
typedef ErrorCode (*AttrGetter)(void *x, void *attribute, int32_t *argc, Atom **argv);
typedef ErrorCode (*AttrSetter)(void *x, void *attribute, int32_t argc, Atom *argv);

/* Attribute flags. */
enum {
    AttrGetOpaque = 0x1,       /* not readable from code */
    AttrSetOpaque = 0x2,       /* not writable from code */
    AttrGetOpaqueUser = 0x100, /* not readable by the user's messages */
    AttrSetOpaqueUser = 0x200, /* not writable by the user's messages */
    AttrTouched = 0x20000000   /* a value has been written */
};

/* --- making attributes */

/* Returns a new attribute that holds its own value, one zero of the type at first; a null type is
   "atom". Setting it to several atoms makes it hold as many. Null accessors are the default ones.
   Null for a null name or when memory is exhausted. Until it is added, free it with object_free. */
KIV_EXPORT void *attribute_new(const char *name, Symbol *type, int32_t flags, Method getter,
                               Method setter) KIV_NOEXCEPT;

/* Returns a new attribute for the value at byte position `offset` of the object. */
KIV_EXPORT void *attr_offset_new(const char *name, Symbol *type, int32_t flags, Method getter,
                                 Method setter, int32_t offset) KIV_NOEXCEPT;

/* Returns a new attribute for up to `size` values from byte position `offset` on. When
   `count_offset` is above 0, an int32_t at that position tells how many are in use, and a write
   changes it; otherwise all are. */
KIV_EXPORT void *attr_offset_array_new(const char *name, Symbol *type, int32_t size, int32_t flags,
                                       Method getter, Method setter, int32_t count_offset,
                                       int32_t offset) KIV_NOEXCEPT;

/* --- finding, reading and writing */

/* Returns the object's attribute of this name, borrowed, or null: its own, else its class's, else
   what its class's method "attr_get" answers. */
KIV_EXPORT void *object_attr_get(void *x, Symbol *name) KIV_NOEXCEPT;

/* Gives one object an attribute of its own, which goes before its class's. The object frees it.
   Returns 0; -2 when either is null or the attribute does not answer "getname"; -1 when the
   object's class keeps no extension record; -4. */
KIV_EXPORT ErrorCode object_addattr(void *x, void *attribute) KIV_NOEXCEPT;

/* Reads a value into *argv. With *argc 0 or *argv null the getter makes the array, which the caller
   frees with sysmem_freeptr; otherwise *argc is the room, and cut values fill it. Returns 0, -1
   when there is no such attribute or it is not readable from code, -4, or what the getter returns.
 */
KIV_EXPORT ErrorCode object_attr_getvalueof(void *x, Symbol *name, int32_t *argc,
                                            Atom **argv) KIV_NOEXCEPT;

/* Writes a value, marks the attribute as touched and notifies "attr_modified", with the attribute
   as data, to the object (to the box when it was reached through one) and to the object that holds
   the value. The atoms stay the caller's and are not changed. Returns 0, -1 when there is no such
   attribute or it must not be written, or what the setter returns. */
KIV_EXPORT ErrorCode object_attr_setvalueof(void *x, Symbol *name, int32_t argc,
                                            Atom *argv) KIV_NOEXCEPT;

/* Return 1 when the object has the attribute and its user may write it, read it; else 0. */
KIV_EXPORT int32_t object_attr_usercanset(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_attr_usercanget(void *x, Symbol *name) KIV_NOEXCEPT;

/* Marks the attribute as touched and notifies "attr_modified" without changing the value. Returns
   0, or -1 when the object has no such attribute. */
KIV_EXPORT ErrorCode object_attr_touch(void *x, Symbol *name) KIV_NOEXCEPT;

/* --- values as plain types: one value; setters return what object_attr_setvalueof returns */

KIV_EXPORT ErrorCode object_attr_setlong(void *x, Symbol *name, int64_t value) KIV_NOEXCEPT;
KIV_EXPORT int64_t object_attr_getlong(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setfloat(void *x, Symbol *name, double value) KIV_NOEXCEPT;
KIV_EXPORT double object_attr_getfloat(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setsym(void *x, Symbol *name, Symbol *value) KIV_NOEXCEPT;
KIV_EXPORT Symbol *object_attr_getsym(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setchar(void *x, Symbol *name, uint8_t value) KIV_NOEXCEPT;
KIV_EXPORT uint8_t object_attr_getchar(void *x, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setobj(void *x, Symbol *name, void *value) KIV_NOEXCEPT;
KIV_EXPORT void *object_attr_getobj(void *x, Symbol *name) KIV_NOEXCEPT;

/* --- several values. Setters write `count` of them (-2 for a null array); getters fill in at most
   `max` and return how many. */

KIV_EXPORT ErrorCode object_attr_setlong_array(void *x, Symbol *name, int32_t count,
                                               const int64_t *values) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_attr_getlong_array(void *x, Symbol *name, int32_t max,
                                             int64_t *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setfloat_array(void *x, Symbol *name, int32_t count,
                                                const float *values) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_attr_getfloat_array(void *x, Symbol *name, int32_t max,
                                              float *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setdouble_array(void *x, Symbol *name, int32_t count,
                                                 const double *values) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_attr_getdouble_array(void *x, Symbol *name, int32_t max,
                                               double *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setchar_array(void *x, Symbol *name, int32_t count,
                                               const uint8_t *values) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_attr_getchar_array(void *x, Symbol *name, int32_t max,
                                             uint8_t *values) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setsym_array(void *x, Symbol *name, int32_t count,
                                              Symbol *const *values) KIV_NOEXCEPT;
KIV_EXPORT int32_t object_attr_getsym_array(void *x, Symbol *name, int32_t max,
                                            Symbol **values) KIV_NOEXCEPT;

/* --- fixed groups of numbers: colours (red, green, blue, alpha from 0 to 1), points (x, y), sizes
   (width, height), rectangles (x, y, width, height). Getters return 0, -2 for a null array, and -1
   with zeros in place of what is missing. */

KIV_EXPORT ErrorCode object_attr_setcolor(void *x, Symbol *name, const double *rgba) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_getcolor(void *x, Symbol *name, double *rgba) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setpt(void *x, Symbol *name, const double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_getpt(void *x, Symbol *name, double *xy) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_setsize(void *x, Symbol *name, const double *size) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_getsize(void *x, Symbol *name, double *size) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_set_rect(void *x, Symbol *name, const double *rect) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode object_attr_get_rect(void *x, Symbol *name, double *rect) KIV_NOEXCEPT;

/* --- filters, applied around whatever accessors the attribute has, in the order of adding

   Numbers are multiplied by the scale, then clipped to the ends in use (a value that is not a
   number goes to such an end). `set` filters work on values on their way in, `get` filters on their
   way out; a filter of neither name clips both ways and divides by the scale on the way out. All
   return 0, -2 for a null attribute, -1 for an attribute of a module's own class, -4. */

KIV_EXPORT ErrorCode attr_addfilter_clip(void *attribute, double min, double max, int32_t use_min,
                                         int32_t use_max) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode attr_addfilter_clip_scale(void *attribute, double scale, double min,
                                               double max, int32_t use_min,
                                               int32_t use_max) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode attr_addfilterset_clip(void *attribute, double min, double max,
                                            int32_t use_min, int32_t use_max) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode attr_addfilterset_clip_scale(void *attribute, double scale, double min,
                                                  double max, int32_t use_min,
                                                  int32_t use_max) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode attr_addfilterget_clip(void *attribute, double min, double max,
                                            int32_t use_min, int32_t use_max) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode attr_addfilterget_clip_scale(void *attribute, double scale, double min,
                                                  double max, int32_t use_min,
                                                  int32_t use_max) KIV_NOEXCEPT;

/* The function is an AttrSetter that changes the atoms in place; a result other than 0 refuses the
   value and is returned to whoever wrote or read it. -2 for a null function. */
KIV_EXPORT ErrorCode attr_addfilterset_proc(void *attribute, Method proc) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode attr_addfilterget_proc(void *attribute, Method proc) KIV_NOEXCEPT;

/* --- "@name value ..." among the arguments of a new object */

/* Returns the index of the first symbol that begins with "@", or `count` when there is none. */
KIV_EXPORT int32_t attr_args_offset(int32_t count, const Atom *atoms) KIV_NOEXCEPT;

/* Sends the object each "@" argument as a message: its name without the "@", and the atoms up to
   the next one. A name that is no attribute the user may set posts
   "%s: \"%s\" is not a valid attribute argument"; the others are applied all the same. */
KIV_EXPORT void attr_args_process(void *x, int32_t count, Atom *atoms) KIV_NOEXCEPT;

/* Stores each "@" argument in a dictionary, under its name without the "@". */
KIV_EXPORT void attr_args_dictionary(struct Dictionary *dictionary, int32_t count,
                                     Atom *atoms) KIV_NOEXCEPT;

/* --- the state of one object's attribute. -1 when it has no such attribute. */

/* Marks a value as coming from a style rather than being the object's own; a write takes the mark
   away again. */
KIV_EXPORT ErrorCode object_attr_setinherited(void *x, Symbol *name,
                                              int32_t inherited) KIV_NOEXCEPT;

/* Refuses every write to one object's attribute, or allows them again. */
KIV_EXPORT ErrorCode object_attr_lock(void *x, Symbol *name, int32_t lock) KIV_NOEXCEPT;

/* Returns 1 when the value is the object's own and differs from the attribute's "default" (without
   one: when a value has ever been written), else 0. */
KIV_EXPORT int32_t object_attr_getdirty(void *x, Symbol *name) KIV_NOEXCEPT;

/* Sends the attribute's name and value out of the outlet kept in the object's extension record
   under "dumpout"; nothing without one. `name` may also be "get" and the name, so that this serves
   as a method; the arguments are not used. */
KIV_EXPORT void object_attr_getdump(void *x, Symbol *name, int32_t argc, Atom *argv) KIV_NOEXCEPT;

KIV_END

#endif
