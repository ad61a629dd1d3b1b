/* Types and conventions shared by every header of the interface.

   1. Functions are plain C, callable from C11 and C++, and never throw.
   2. Any object argument may be null; a function then does nothing and returns its neutral value
      (-1, 0, 0.0, null or the empty symbol), as each declaration says.
   3. An argument named `x` is any object: a pointer to a record that begins with `Object`.
   4. Counts and indices are signed 32-bit, integer values 64-bit, times milliseconds in a double.
   5. Memory handed to the caller comes from `sysmem_newptr` and is the caller's to free with
      `sysmem_freeptr`, unless the declaration says otherwise.
   6. A function may be called from any thread unless its declaration names one. */
#ifndef KIV_TYPES_H
#define KIV_TYPES_H

#include <stddef.h>
#include <stdint.h>

/* Marks what the executable offers to modules, and what a module offers to the executable. The
   runtime itself is built with KIV_BUILDING defined; modules are not. */
#if defined(__ELF__) || defined(__MACH__)
#define KIV_EXPORT __attribute__((visibility("default")))
#define KIV_MODULE_EXPORT __attribute__((visibility("default")))
#else
#ifdef KIV_BUILDING
#define KIV_EXPORT __declspec(dllexport)
#else
#define KIV_EXPORT __declspec(dllimport)
#endif
#define KIV_MODULE_EXPORT __declspec(dllexport)
#endif

#if defined(__clang__)
#define KIV_PRINTF(format_index, first_argument) \
    __attribute__((format(printf, format_index, first_argument)))
#elif defined(__GNUC__)
#define KIV_PRINTF(format_index, first_argument) \
    __attribute__((format(gnu_printf, format_index, first_argument)))
#else
#define KIV_PRINTF(format_index, first_argument)
#endif

#ifdef __cplusplus
#define KIV_BEGIN extern "C" {
#define KIV_END }
#define KIV_NOEXCEPT noexcept
#else
#define KIV_BEGIN
#define KIV_END
#define KIV_NOEXCEPT
#endif

KIV_BEGIN

/* Result of calls that can fail. */
typedef int32_t ErrorCode;
enum {
    ErrorNone = 0,
    ErrorGeneric = -1,        /* generic failure */
    ErrorInvalidPointer = -2, /* a pointer argument is null */
    ErrorDuplicate = -3,      /* the name is already registered */
    ErrorOutOfMemory = -4
};

/* Type tags of atoms (1 to 4 and 10 to 13) and of method arguments (0 to 9 and 14). */
typedef uint16_t AtomType;
enum {
    TypeNothing = 0,       /* no value; end of an argument-type list */
    TypeLong = 1,          /* 64-bit signed integer */
    TypeFloat = 2,         /* 64-bit IEEE double */
    TypeSymbol = 3,        /* Symbol pointer */
    TypeObject = 4,        /* object pointer */
    TypeDefLong = 5,       /* optional integer argument, 0 when absent */
    TypeDefFloat = 6,      /* optional float argument, 0.0 when absent */
    TypeDefSymbol = 7,     /* optional symbol argument, the empty symbol when absent */
    TypeGimme = 8,         /* the method takes the selector and all arguments as atoms */
    TypeCant = 9,          /* the method is reached by direct call only */
    TypeSemicolon = 10,    /* ";" in message text */
    TypeComma = 11,        /* "," in message text */
    TypeDollar = 12,       /* the placeholder "$n" in message text */
    TypeDollarSymbol = 13, /* a symbol holding a placeholder, without its leading "$" */
    TypeGimmeBack = 14     /* as TypeGimme, and the method also returns atoms */
};

/* An interned name: one record per distinct text, never freed and never moved, so that names are
   equal exactly when their addresses are. */
typedef struct Symbol {
    const char *name; /* NUL-terminated, owned by the symbol table */
    void *thing;      /* the bound value: the receiver of this name, or null */
} Symbol;

/* One typed value. Arrays of atoms are contiguous. */
typedef struct Atom {
    AtomType type;
    union {
        int64_t i;
        double f;
        Symbol *sym;
        void *obj;
    } value;
} Atom;

typedef struct Class Class;
typedef struct Outlet Outlet;
typedef struct Inlet Inlet;

/* A function of any signature; cast to it where a method or callback is handed over. */
typedef void (*Method)(void);

/* An entry of a class's method list. */
typedef struct MethodRecord {
    Symbol *selector; /* null in the terminating entry */
    Method function;
    uint8_t types[8]; /* AtomType codes, ended by 0 */
} MethodRecord;

/* The header of every object; a class's own fields follow it. */
typedef struct Object {
    MethodRecord *methods; /* into the class's method list, just past its header entry */
    uintptr_t magic;       /* KIV_OBJECT_MAGIC while the object lives, then 0 */
    Outlet *outlets;       /* head of the outlet list */
    Inlet *inlets;         /* head of the inlet list */
} Object;

#define KIV_OBJECT_MAGIC 0x68cebd9bu

/* Ownership flags of containers and of their items. */
enum {
    ContainerOwns = 0,              /* items are objects that the container frees */
    ContainerReference = 1,         /* items belong to somebody else */
    ContainerData = 2,              /* plain data: never freed, never sent messages */
    ContainerMemory = 4,            /* memory blocks, freed with sysmem_freeptr */
    ContainerNoNotify = 0x100,      /* a hash table sends no notifications */
    ContainerDuplicate = 0x20000000 /* a hash-table store adds even when the key is present */
};

/* Variadic calls below hand over up to eight pointer-sized arguments. The macros fill the missing
   ones with 0 and widen each one to a pointer, so that integers of any width pass whole. */
#define KIV_WORD(argument) ((void *)(intptr_t)(argument))
#define KIV_PASS_8(function, a, b, p1, p2, p3, p4, p5, p6, p7, p8, ...)                  \
    function(a, b, KIV_WORD(p1), KIV_WORD(p2), KIV_WORD(p3), KIV_WORD(p4), KIV_WORD(p5), \
             KIV_WORD(p6), KIV_WORD(p7), KIV_WORD(p8))
#define KIV_PASS_8_AFTER_3(function, a, b, c, p1, p2, p3, p4, p5, p6, p7, p8, ...)          \
    function(a, b, c, KIV_WORD(p1), KIV_WORD(p2), KIV_WORD(p3), KIV_WORD(p4), KIV_WORD(p5), \
             KIV_WORD(p6), KIV_WORD(p7), KIV_WORD(p8))

KIV_END

#ifdef __cplusplus
namespace kiv {
/* A function of any signature as a Method. */
template <class Result, class... Arguments>
Method method(Result (*function)(Arguments...)) {
    return reinterpret_cast<Method>(function);
}
} /* namespace kiv */
#endif

#endif
