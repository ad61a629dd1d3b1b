// Hooks between kernel/ and the rest of the runtime that no module may see.
#pragma once

#include <kiv/class.h>
#include <kiv/hashtab.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include <cstdarg>
#include <cstring>
#include <string_view>

#include "platform/platform.h"

namespace kiv {

// --- Start-up, in this order ---------------------------------------------------------------------

void symbols_start() noexcept;     // predefined names, then the common-symbols table
void classes_start() noexcept;     // method objects, the class registry
void objects_start() noexcept;     // the object registry
void attributes_start() noexcept;  // the attribute classes
void inlets_start() noexcept;      // the proxy class and its thread slots

// --- The class record ----------------------------------------------------------------------------

enum ClassFlag : uint32_t {
    ClassBox = 1,                   // registered in "box"
    ClassNoInlet = 2,               // its leftmost inlet is not shown (class_noinlet)
    ClassBoxDictionary = 4,         // a box class made from its box dictionary
    ClassNoMethodList = 8,          // methods go to the method index only
    ClassUi = 16,                   // its name typed into an object box becomes a box of its own
    ClassTakesLists = 0x20,         // lists go to its "list" method, never spread over inlets
    ClassContainer = 0x100,         // a kernel container
    ClassNoAttrMessages = 0x10000,  // unknown selectors are not tried as attributes
    ClassParameter = 0x40000,       // takes part in the parameter system
    ClassOwnMethods = 0x100000,     // instances carry their own methods
    ClassUsesProxies = 0x400000,    // set by the first proxy of an instance
    ClassRetired = 0x800000,        // freeobject gives the memory to memory_retire
    ClassReceives = 0x1000000,      // an instance has been connected to an outlet
    ClassPermanent = 0x2000000      // is never freed: its instances are not counted
};

}  // namespace kiv

// Global, as its name is in the public headers. Fields in the order of the record.
struct Class {
    Symbol *name;
    void *reserved;
    Method free_function;
    int32_t instance_size;
    int16_t lightweight;  // non-zero: instances have no outlet and inlet fields
    Symbol *second_name;
    MethodRecord constructor;
    Method menu_function;
    uint32_t flags;
    int32_t method_count;       // with the header entry and the terminator
    MethodRecord *method_list;  // header entry first; grows while the class is built
    Hashtab *attributes;        // null until the first class_addattr
    Hashtab *extra;             // class_extra_store and what rests on it
    Hashtab *method_index;      // set by class_register
    Class *super;
    Symbol *name_space;    // of its registration, or null
    int32_t obex_offset;   // > 0: field of the instance; 0: kernel-wide table; < 0: none
    void *attr_get;        // method "attr_get", cached: null not looked up, all ones none
    void *attr_gettarget;  // likewise
    Symbol *file_name;     // file that defines it, or null
    int16_t path;
    int32_t method_capacity;  // entries that method_list has room for
    int32_t instantiated;     // once set, a method list that is outgrown is kept, not freed
    int64_t users;            // live instances and derived classes; changed atomically
    uint64_t value_keys;      // of values instances keep: a bit for each key; changed atomically
    Class *copied_from;       // the class whose constructor and free function a copy uses, or null
};

namespace kiv {

// --- Symbols -------------------------------------------------------------------------------------

// What gensym gives for a name that need not end in a zero byte, and holds none. Null on no memory.
Symbol *symbol_named(std::string_view name) noexcept;
inline bool symbol_is(const Symbol *symbol, std::string_view name) noexcept {
    return std::strncmp(symbol->name, name.data(), name.size()) == 0 &&
           symbol->name[name.size()] == '\0';
}

// --- The validity test ---------------------------------------------------------------------------

// The test is meant to read memory that may have been freed, which a sanitizer would report.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__clang__)
#define KIV_READS_STALE __attribute__((no_sanitize("address", "thread")))
#else
#define KIV_READS_STALE
#endif
KIV_READS_STALE inline uintptr_t object_magic(const void *x) noexcept {
    return static_cast<const Object *>(x)->magic;
}
// The test before any object pointer that came from outside is trusted.
inline bool object_valid(const void *x) noexcept {
    return x != nullptr && (reinterpret_cast<uintptr_t>(x) & 7) == 0 && platform::readable_32(x) &&
           object_magic(x) == KIV_OBJECT_MAGIC;
}
// A new instance with room for `extra` bytes behind it, which are not cleared; null on no memory.
Object *object_alloc_extra(Class *c, int64_t extra) noexcept;
// Makes an instance out of memory that has room for it, cleared, which the caller keeps: it is not
// counted, and its end is the caller's too.
Object *object_begin(void *memory, const Class *c) noexcept;
// The class of a live object.
inline Class *class_of(const void *x) noexcept {
    return reinterpret_cast<Class *>((static_cast<const Object *>(x)->methods - 1)->selector);
}
// The typed look-up that dispatch and outlets share: null when nothing answers `selector`
// (attributes, "obj:" names and "anything" included). No report.
const MethodRecord *typed_method(Object *x, Symbol *selector) noexcept;
// Calls a method found by typed_method with converted arguments, reporting what does not fit. The
// receiver may be gone when it returns.
void *typed_call(Object *x, const MethodRecord *method, Symbol *selector, int32_t argc,
                 Atom *argv) noexcept;
// The look-up of a class alone, of any argument types: no attributes, no "anything". Null when the
// class has no such method.
const MethodRecord *class_find_method(const Class *c, const Symbol *selector) noexcept;
// The same in the class of `x`, or in its own methods when it carries them.
const MethodRecord *object_find_method(const Object *x, const Symbol *selector) noexcept;

// What the attributes give to dispatch. attribute_message: the built-in method (type 8, its
// selector null) that sets or gets an attribute when `selector` is such a message and the user may
// send it, else null. attribute_direct: answers a direct call that no method answers by calling the
// getter or setter of the attribute with the object, the attribute's name and the words; false when
// `selector` names no attribute of `x`.
const MethodRecord *attribute_message(Object *x, Symbol *selector) noexcept;
bool attribute_direct(Object *x, Symbol *selector, void *const words[8], void **result) noexcept;
// Stores a value in a table that takes it over; false when memory is exhausted. A table that cannot
// make a slot leaves the value out without an error.
bool table_keep(Hashtab *table, Symbol *key, void *value) noexcept;
// Gives a new attribute or method object its own copy of every attribute the class keeps as sticky
// under `category` ("sticky_attr", "sticky_method").
void class_sticky_apply(Class *c, Symbol *category, void *target) noexcept;

// --- Inlets and outlets --------------------------------------------------------------------------

// Frees a block once no send that is under way on any thread can still hold it. freeobject calls it
// instead of sysmem_freeptr for instances of classes with the flag ClassRetired.
void memory_retire(void *block) noexcept;
// Frees all inlets (and the proxies left behind them), then all outlets, and breaks every
// connection to the object. freeobject calls it for every object that is not lightweight.
void object_free_inlets_outlets(Object *x) noexcept;
// An inlet's or outlet's owner, and an outlet's type, for the patcher.
Object *inlet_owner(const Inlet *inlet) noexcept;
Object *outlet_owner(const Outlet *outlet) noexcept;
Symbol *outlet_type(const Outlet *outlet) noexcept;  // null for an untyped one
// Walks an outlet's whole connection list: null, or what is broken in it. Tests call it.
const char *outlet_check(Outlet *outlet) noexcept;
// Silences an outlet or lets it speak again; a silenced outlet's sends return 0.
void outlet_silence(Outlet *outlet, bool on) noexcept;
// Makes a new outlet pass its connections on: to the outlets connected to the recording inlet
// `link`, or to the outlet `link`.
void outlet_set_link(Outlet *outlet, void *link) noexcept;
// Makes a new inlet keep a list of the outlets connected to it.
void inlet_set_recording(Inlet *inlet) noexcept;
// A list as it arrives along a cord: to the "list" method, else spread over the inlets.
void list_deliver(Object *x, int32_t argc, Atom *argv) noexcept;

// --- Overflow state (overflow.cpp) ---------------------------------------------------------------

// Takes every patcher out of the overflow state: its console message was cleared.
void overflow_clear() noexcept;
bool overflow_in_force(const Object *patcher) noexcept;
// The stack is nearly used up where no send can tell: the sends under way on this thread unwind, or
// each of them would go on to its next receiver and meet the end of the stack again.
void overflow_unwind() noexcept;
// The alert of the application: tells of the last overflow in a dialog, then clears everything.
void overflow_alert() noexcept;

// --- Message debugging (message_stack.cpp) -------------------------------------------------------

// A send that is under way on a debugged thread. The entries of a thread form a stack; each is good
// until its send ends.
struct MessageEntry {
    Object *sender;  // the outlet's owner
    Symbol *selector;
    int32_t argc;
    Atom *argv;
    bool breakpoint;            // the debugger stopped here
    const MessageEntry *outer;  // the send during which this one was made, or null
};
// Asked before each delivery; true stops the send, which serves no more connections. What it sends
// itself is not asked about.
using MessageDebugger = bool (*)(const MessageEntry *entry, Object *receiver, void *argument);
// Switches message debugging on, or with null off. While the scheduler's passes run on the main
// thread every thread is debugged, otherwise the main thread alone. Main thread.
void message_debugging_set(MessageDebugger debugger, void *argument) noexcept;
const MessageEntry *message_stack() noexcept;  // of the calling thread, innermost first; or null
// An entry as a dictionary with "classsym" (the receiver's class), "messagesym", "patchersym" (the
// sender's patcher), "senderclasssym" and "breakpoint", for whoever shows it; the caller's to free.
// Null when memory is exhausted.
void *message_entry_dictionary(const MessageEntry *entry, Object *receiver) noexcept;

// --- Event context -------------------------------------------------------------------------------

// On whose behalf the calling thread runs: a stack of owners, pushed around clocks, deferred calls
// and loadbang.
struct EventContext {
    void *owner;
    Symbol *kind;  // null, or "loadbang"
    EventContext *outer;
};
EventContext *event_context() noexcept;  // the innermost, or null
void event_context_push(EventContext *context) noexcept;
void event_context_pop() noexcept;

// --- Hooks that higher floors register -----------------------------------------------------------

struct KernelHooks {
    // Cancels the clocks of an object that is being freed (flag bits of its extension tell whether
    // it has any). Registered by the scheduler.
    void (*cancel_clocks)(Object *x);
    // Loads the module that defines a class; true when one was loaded. Registered by patcher/.
    bool (*load_class_module)(Symbol *name_space, Symbol *name);
    // Names that are never searched for as files. Registered by patcher/.
    bool (*maker_knows)(Symbol *name);
    // The top-level patcher of an object, for the overflow state. Registered by patcher/.
    Object *(*patcher_of)(Object *x);
    // The object inside an object box, or null when `box` is none. Registered by patcher/.
    Object *(*inner_object)(Object *box);
};
KernelHooks &kernel_hooks() noexcept;

// --- The extension record ------------------------------------------------------------------------

// Flag bits of an object's extension record.
enum ObexFlag : uint32_t {
    ObexSelfNotify = 1,
    ObexAttached = 4,
    ObexHasClocks = 16,
    ObexHasDeferred = 32,
    ObexSubscribes = 64  // waits for names, or has done so
};
uint32_t obex_flags(const Object *x) noexcept;  // 0 without a record
// Adds bits, making the record where the class allows one; false without memory for it.
bool obex_flags_set(Object *x, uint32_t bits) noexcept;
// The box that holds an object, or null; set when the box takes the object.
Object *object_box(const Object *x) noexcept;
void object_box_set(Object *x, Object *box) noexcept;

// atom_setformat with the values as a list, for the callers that have variable arguments
// themselves.
ErrorCode atom_setformat_list(int32_t *count, Atom **atoms, const char *format,
                              std::va_list *values) noexcept;

// --- Kernel utilities ----------------------------------------------------------------------------

uint32_t kernel_random() noexcept;  // uniform; any thread
// Starts the generator's sequence again, so that a run can be repeated exactly.
void kernel_random_seed(uint64_t seed) noexcept;
bool verbose_get() noexcept;  // the kernel's verbose switch
void verbose_set(bool on) noexcept;
// Gives a released unique name ("u" and nine digits) back to symbol_unique.
void symbol_unique_release(Symbol *name) noexcept;
// The translation that symbol_tr looks in: a table of symbols by symbol, or null for none. It must
// not change once it is set. Called by whoever reads the user's preferences.
void translation_set(Hashtab *table) noexcept;
// Slots of the static symbol table; the report on "size" counts them as the static symbols.
inline constexpr int64_t symbol_static_slots = 1973;
int64_t symbols_count_dynamic() noexcept;  // walks every chain

}  // namespace kiv
