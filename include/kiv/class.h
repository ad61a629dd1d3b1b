/* Classes: what an object is, how it is made and freed, and the messages it answers.

   A module's set-up makes a class with class_new, adds its methods and attributes, and registers it
   under its name in a namespace: "box" for what can stand in a patcher, "nobox" for the rest.

   1. A class is built on the main thread before any instance exists. Once it is registered its
      tables are only read, so look-ups of methods need no lock; adding a method later works, on the
      main thread, while no other thread sends messages to its instances.
   2. A null class gives -2 (or null, 0); names are copied.
   3. A class is never freed by the runtime. What is handed to it (attributes, adornments, sticky
      attributes) belongs to it from then on.
   4. Argument-type lists are AtomType codes as `int`, ended by 0. */
#ifndef KIV_CLASS_H
#define KIV_CLASS_H

#include <kiv/types.h>

KIV_BEGIN

/* --- making and registering */

/* Makes a class whose instances have `instance_size` bytes, beginning with an `Object`.
   `constructor` is called by object_new with the caller's arguments and by object_new_typed with
   atoms converted to the types that follow `menu_function` (at most six; with TypeGimme alone it is
   called with the class name, the count and the atoms); it returns the instance that it got from
   object_alloc, or null. `destructor`, which may be null, is called with an instance before its
   memory is released. `menu_function` is kept and not used. Null when memory is exhausted, which is
   also posted, or for a null name. Not registered yet. */
KIV_EXPORT Class *class_new(const char *name, Method constructor, Method destructor,
                            int32_t instance_size, Method menu_function, ...) KIV_NOEXCEPT;
/* Frees a class and what it owns, and forgets its names. -1, with an error posted, while it has
   instances or classes derived from it, and for some of the kernel's own, which stay. */
KIV_EXPORT ErrorCode class_free(Class *c) KIV_NOEXCEPT;
/* Adds a method: messages with the selector `name` call `function` with the object and then the
   arguments, converted to the types that follow (at most seven). With TypeGimme alone it is called
   with (object, selector, count, atoms); with TypeGimmeBack also with an Atom to fill in; with
   TypeCant it is reached by direct calls only, whose arguments are passed on as they are. A method
   of the same name is replaced. -2 for a null argument, -4 when memory is exhausted. Reading the
   seventh type posts "class_addmethod: too many args!" and ends the list; the type is kept. */
KIV_EXPORT ErrorCode class_addmethod(Class *c, Method function, const char *name, ...) KIV_NOEXCEPT;
/* Makes the class known under its name in a namespace (null: "nobox"), and closes its tables. In
   "box" it also gets the method "sendbox" and, when it answers "getvalueof" and "setvalueof", takes
   part in the parameter system. -3 when the namespace has a class of that name, which stays; -1
   before the runtime has started. Registering one class in a second namespace is allowed, with a
   warning. */
KIV_EXPORT ErrorCode class_register(Symbol *name_space, Class *c) KIV_NOEXCEPT;
/* Adds a name under which the class is found, before or after it is registered; -3 when the name is
   taken. */
KIV_EXPORT ErrorCode class_alias(Class *c, Symbol *name) KIV_NOEXCEPT;
/* The class of a name in a namespace, null when there is none. A null namespace means "nobox", then
   "box". A class that is not known is looked for as a module, which is loaded; but never, in "box"
   or with no namespace, for "patcher" and the names of the built-in object boxes. Loading a module
   is for the main thread. */
KIV_EXPORT Class *class_findbyname(Symbol *name_space, Symbol *name) KIV_NOEXCEPT;
/* The same without regard to case (of the letters a to z); an exact match comes first. */
KIV_EXPORT Class *class_findbyname_casefree(Symbol *name_space, Symbol *name) KIV_NOEXCEPT;
/* As the two above, of classes already loaded. Any thread. */
KIV_EXPORT Class *class_getifloaded(Symbol *name_space, Symbol *name) KIV_NOEXCEPT;
KIV_EXPORT Class *class_getifloaded_casefree(Symbol *name_space, Symbol *name) KIV_NOEXCEPT;
/* For a class that is not called as its file: tells its name and the file's, the class having been
   made under either. It is the class made last, or else one that is registered. -1 when there is
   none, -3 when `name` is taken. */
KIV_EXPORT ErrorCode class_setname(const char *name, const char *file_name) KIV_NOEXCEPT;
/* The name the class was made with; null for null. */
KIV_EXPORT Symbol *class_nameget(const Class *c) KIV_NOEXCEPT;
/* The namespace it was registered in last; null while it is in none. */
KIV_EXPORT Symbol *class_namespace(const Class *c) KIV_NOEXCEPT;
/* The file that defines the class: its folder's path identifier, and its name in a buffer of
   KIV_FILENAME_SIZE bytes; either may be null. -1 when the file is not known. */
KIV_EXPORT ErrorCode class_getpath(Class *c, int16_t *path, char *file_name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_setpath(Class *c, int16_t path, const char *file_name) KIV_NOEXCEPT;
/* Whether it is registered in "box". */
KIV_EXPORT int32_t class_is_box(const Class *c) KIV_NOEXCEPT;
/* Whether its instances are boxes of their own, whichever way their name was typed. */
KIV_EXPORT int32_t class_is_ui(const Class *c) KIV_NOEXCEPT;
/* Hides the leftmost inlet that the object itself would be. */
KIV_EXPORT ErrorCode class_noinlet(Class *c) KIV_NOEXCEPT;
/* Where an instance's extension record is found (registry, notifications, attributes and values of
   its own rest on it): a positive offset is that of a pointer field of the instance, 0 (the
   default) a table of the kernel's, and a negative one says that instances have none. Before the
   first instance is made. */
KIV_EXPORT void class_obexoffset_set(Class *c, int32_t offset) KIV_NOEXCEPT;
KIV_EXPORT int32_t class_obexoffset_get(const Class *c) KIV_NOEXCEPT;

/* --- methods */

/* The function of a method of the class, of whatever argument types; null when it has none. */
KIV_EXPORT Method class_method(Class *c, Symbol *selector) KIV_NOEXCEPT;
/* The method with its types; owned by the class, good until a method is added. */
KIV_EXPORT MethodRecord *class_mess(Class *c, Symbol *selector) KIV_NOEXCEPT;
/* The object that stands for a method and can carry attributes; owned by the class, null when there
   is none. */
KIV_EXPORT void *class_getmethod_object(Class *c, Symbol *selector) KIV_NOEXCEPT;
/* class_addmethod for what the user can choose as a command: the method also stands in the table
   "commands" of the class's extra data. */
KIV_EXPORT ErrorCode class_addcommand(Class *c, Method function, const char *name,
                                      ...) KIV_NOEXCEPT;
/* Gives a method of type TypeCant or TypeGimmeBack a stand-in that typed messages call in its
   place; class_dumpout_wrap, with TypeGimme, is one. */
KIV_EXPORT ErrorCode class_addtypedwrapper(Class *c, Method function, const char *name,
                                           ...) KIV_NOEXCEPT;
/* That stand-in; owned by the class, null when there is none. */
KIV_EXPORT MethodRecord *class_typedwrapper_get(Class *c, Symbol *selector) KIV_NOEXCEPT;
/* A typed wrapper that calls the object's method of the name `selector` and sends what it gives
   back, as a message of that name, from the outlet kept in the object under "dumpout" (see
   object_obex_store); nothing without one. The method is of type TypeGimmeBack, or a getter
   (object, int32_t *argc, Atom **argv) that allocates the atoms. Always null. */
KIV_EXPORT void *class_dumpout_wrap(void *x, Symbol *selector, int32_t argc,
                                    Atom *argv) KIV_NOEXCEPT;

/* --- inheritance and copies */

/* class_new for a class whose instances begin as those of `super` do: it starts with the methods,
   attributes and settings of `super`, and its destructor is followed by those of the classes
   above. `super` should be complete. Null for a null `super`. */
KIV_EXPORT Class *class_subclass(Class *super, const char *name, Method constructor,
                                 Method destructor, int32_t instance_size, Method menu_function,
                                 ...) KIV_NOEXCEPT;
/* Called by a subclass's constructor with the instance it has allocated: runs the constructor of
   the class above with the arguments that follow, on that same instance (its object_alloc returns
   it). -2 for an invalid object, -1 when there is no class above or its constructor fails. */
KIV_EXPORT ErrorCode class_super_construct(void *x, ...) KIV_NOEXCEPT;
/* The same with all eight words, and with the class whose super class is meant (null: the one whose
   constructor is running). */
KIV_EXPORT ErrorCode class_super_construct_imp(void *x, Class *c, void *p1, void *p2, void *p3,
                                               void *p4, void *p5, void *p6, void *p7,
                                               void *p8) KIV_NOEXCEPT;
/* Registers a copy of a class under another name: with the same constructor, destructor, methods
   and attributes, but instances of its own. The source is looked up, and loaded, as by
   class_findbyname; -1 when it is not found, else the result of class_register. */
KIV_EXPORT ErrorCode class_copy(Symbol *source_space, Symbol *source_name, Symbol *space,
                                Symbol *name) KIV_NOEXCEPT;
/* Whether instances can be copied: the class answers "object_clone". */
KIV_EXPORT int32_t class_clonable(Class *c) KIV_NOEXCEPT;

/* --- extra data of a class */

/* Keeps a value under a key; it stays the caller's. */
KIV_EXPORT ErrorCode class_extra_store(Class *c, Symbol *key, void *value) KIV_NOEXCEPT;
/* The same with ownership flags as in the containers (ContainerOwns and so on). */
KIV_EXPORT ErrorCode class_extra_storeflags(Class *c, Symbol *key, void *value,
                                            int32_t flags) KIV_NOEXCEPT;
/* The value of a key; -1, and null in *value, when there is none. */
KIV_EXPORT ErrorCode class_extra_lookup(Class *c, Symbol *key, void **value) KIV_NOEXCEPT;
/* Gives every attribute added from now on (category "sticky_attr") or every method object
   ("sticky_method") a copy of the attribute `value` under the name `key`, until it is cleared. The
   class takes `value`. */
KIV_EXPORT ErrorCode class_sticky(Class *c, Symbol *category, Symbol *key,
                                  void *value) KIV_NOEXCEPT;
/* Ends one sticky setting, or with a null key all of the category; -1 when there is none. */
KIV_EXPORT ErrorCode class_sticky_clear(Class *c, Symbol *category, Symbol *key) KIV_NOEXCEPT;
/* Keeps an object that says more about the class (how it looks, how it is documented) under a name;
   the class takes it. */
KIV_EXPORT ErrorCode class_addadornment(Class *c, Symbol *name, void *adornment) KIV_NOEXCEPT;
/* An adornment, or with a key what it holds under that key: a table's value, a dictionary's object,
   any other object's attribute. Null when there is none; nothing is handed over. */
KIV_EXPORT void *class_adornment_get(Class *c, Symbol *name, Symbol *key) KIV_NOEXCEPT;
/* Keeps a named function with its argument types in the table "transforms" of the extra data, for
   whoever lists them. */
KIV_EXPORT ErrorCode class_addtransform(Class *c, Method function, const char *name,
                                        ...) KIV_NOEXCEPT;
/* Makes the dictionary of the attributes' default values (each under its attribute's name, as far
   as the attribute has a "default") and keeps it as the class's prototype in place of an earlier
   one. The class owns it; null when memory is exhausted. */
KIV_EXPORT void *class_buildprototype(Class *c) KIV_NOEXCEPT;
/* A copy of the prototype, built when there is none yet; the caller's to free. */
KIV_EXPORT void *class_cloneprototype(Class *c) KIV_NOEXCEPT;
/* Gives the class the attribute "parameter_enable", off at first, saved with documents; each
   object's extension record keeps its value. Returns 0, -2 for a null class, -1, -4. */
KIV_EXPORT ErrorCode class_parameter_init(Class *c) KIV_NOEXCEPT;

/* --- attributes of a class, added before it is registered */

/* Adds an attribute, which the class frees; one of the same name is replaced. The class's sticky
   settings ("sticky_attr") apply to it first. Returns 0, -2 when either is null or the attribute
   does not answer "getname", -1 when the class's table cannot be made, -4. */
KIV_EXPORT ErrorCode class_addattr(Class *c, void *attribute) KIV_NOEXCEPT;

/* Describe an attribute of the class by giving it an attribute `key` of its own ("label", "save",
   "default", "enumvals", "style", "category", "order" ...), of the named type, with the value of
   atoms; of values packed by the letters of atom_setformat; of text read as message text. Return
   0, -2 for a null class, name or key, -1 when the class has no such attribute, -4. */
KIV_EXPORT ErrorCode class_addattr_atoms(Class *c, const char *attribute, Symbol *key,
                                         const char *type, int32_t count, Atom *atoms) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_addattr_format(Class *c, const char *attribute, Symbol *key,
                                          const char *type, const char *format, ...) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_addattr_parse(Class *c, const char *attribute, Symbol *key,
                                         const char *type, const char *text) KIV_NOEXCEPT;

/* Adds an attribute as class_addattr does and marks it as one that styles may set. */
KIV_EXPORT ErrorCode class_addstyleattr(Class *c, void *attribute) KIV_NOEXCEPT;

/* Mark an attribute of the class as one that styles may set; as a colour that may be a gradient
   (`fill` 0 takes that mark away). Return 0, -2 for a null argument, -1 when there is none. */
KIV_EXPORT ErrorCode class_attr_setstyle(Class *c, const char *name) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode class_attr_setfill(Class *c, const char *name, int32_t fill) KIV_NOEXCEPT;

/* Adds an attribute for a time value (a number of ms, or a word of musical time), kept in each
   object's extension record as it was written; `label` may be null, `flags` are attribute flags.
   Returns as class_addattr. */
KIV_EXPORT ErrorCode class_time_addattr(Class *c, const char *name, const char *label,
                                        int64_t flags) KIV_NOEXCEPT;

KIV_END

#endif
