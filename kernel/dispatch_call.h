// Calling functions whose signature is known only at run time.
#pragma once

#include <kiv/atom.h>

#include <array>
#include <cstring>

#include "kernel/internal.h"

namespace kiv {

// A converted argument: an integer or a pointer, or a double.
union Word {
    int64_t i;
    double f;
    void *p;
};

inline constexpr int32_t most_arguments = 7;

// Arguments in order, and their shape: a leading one, then a bit for each, set for a double.
struct Arguments {
    Word words[most_arguments];
    uint32_t shape = 1;

    void add_to_shape(bool is_double) noexcept { shape = shape << 1 | uint32_t{is_double}; }
};

// Calls `function` as exactly the type that `arguments` describe, after `x` when it is not null.
void *call_shape(Method function, void *x, const Arguments &arguments);

// For each declared type, the type of the atoms that are taken as they are; no atom has type 255.
inline constexpr auto exact_types = [] {
    std::array<uint8_t, 256> types;
    types.fill(255);
    types[TypeLong] = types[TypeDefLong] = TypeLong;
    types[TypeFloat] = types[TypeDefFloat] = TypeFloat;
    types[TypeSymbol] = types[TypeDefSymbol] = TypeSymbol;
    types[TypeObject] = TypeObject;
    return types;
}();

// Takes arguments that have all the declared types already, as most have. False when one has not,
// or when there are more or fewer.
inline bool take_arguments(const uint8_t *types, int32_t argc, const Atom *argv,
                           Arguments *out) noexcept {
    if (argc > most_arguments) {
        return false;
    }
    for (int32_t n = 0; n < argc; ++n) {
        const Atom &atom = argv[n];
        if (atom.type != exact_types[types[n]] || (!atom.value.sym && atom.type == TypeSymbol)) {
            return false;
        }
        std::memcpy(&out->words[n], &atom.value, sizeof out->words[n]);
        out->add_to_shape(atom.type == TypeFloat);
    }
    return argc == most_arguments || types[argc] == TypeNothing;
}

// Converts atoms to a method's declared types. What does not fit is posted against `x` (which may
// be null); false when the method must not be called.
bool convert_arguments(Object *x, Symbol *message, const uint8_t *types, int32_t argc,
                       const Atom *argv, Arguments *out) noexcept;

// Calls a constructor with atoms converted to its types; null when they do not fit.
void *construct_typed(const MethodRecord &constructor, Symbol *name, int32_t argc,
                      Atom *argv) noexcept;
// Calls a constructor, or any function without an object, with eight words.
void *construct_words(const MethodRecord &constructor, void *const words[8]) noexcept;

// Posts what a module's function threw; called while the exception is handled. The receiver may be
// gone by then, so the report names the message alone.
void report_exception(const Symbol *message) noexcept;

// Runs a call into a module; an exception is reported and gives null.
template <class Call>
void *call_guarded(Symbol *message, Call call) noexcept {
    try {
        return call();
    } catch (...) {
        report_exception(message);
        return nullptr;
    }
}

// Clang checks that a function called through a pointer has that pointer's type; here it never has,
// as a method's pointers are of its own types.
#if defined(__clang__)
#define KIV_CALLS_ANY_TYPE __attribute__((no_sanitize("function")))
#else
#define KIV_CALLS_ANY_TYPE
#endif

}  // namespace kiv
