// Typed calls.
//
// A converted argument is a 64-bit integer (pointers included) or a double. So a call has one of
// 255 shapes: how many arguments (up to seven), and which of them are doubles. A table made by
// templates holds, for each shape, a function that casts the method to exactly that type and calls
// it: correct under every calling convention, without a line of assembler.
//
// Thread safety: nothing here is written to. No lock, no allocation.
#include "kernel/dispatch_call.h"

#include <kiv/atom.h>
#include <kiv/console.h>

#include <array>
#include <cstring>
#include <exception>
#include <type_traits>
#include <utility>

namespace kiv {

namespace {

// --- The table of shapes -------------------------------------------------------------------------

template <bool is_double>
using ArgumentType = std::conditional_t<is_double, double, int64_t>;

template <bool is_double>
ArgumentType<is_double> argument(const Word &word) {
    if constexpr (is_double) {
        return word.f;
    } else {
        return word.i;
    }
}

// Argument n of a shape, counted from the first, is a double.
constexpr bool is_double_in(size_t shape, size_t arity, size_t n) {
    return (shape >> (arity - 1 - n) & 1) != 0;
}

template <size_t shape, size_t... n>
KIV_CALLS_ANY_TYPE void *call_with_object(Method function, void *x, [[maybe_unused]] const Word *w,
                                          std::index_sequence<n...>) {
    using Type = void *(*)(void *, ArgumentType<is_double_in(shape, sizeof...(n), n)>...);
    return reinterpret_cast<Type>(function)(
        x, argument<is_double_in(shape, sizeof...(n), n)>(w[n])...);
}

template <size_t shape, size_t... n>
KIV_CALLS_ANY_TYPE void *call_without(Method function, [[maybe_unused]] const Word *w,
                                      std::index_sequence<n...>) {
    using Type = void *(*)(ArgumentType<is_double_in(shape, sizeof...(n), n)>...);
    return reinterpret_cast<Type>(function)(
        argument<is_double_in(shape, sizeof...(n), n)>(w[n])...);
}

// Shapes are numbered by a leading one and then a bit for each argument: count 0 is 1, count 1 is
// 2 and 3, count 2 is 4 to 7, and so on.
constexpr size_t shape_total = size_t{2} << most_arguments;

constexpr size_t arity_of(size_t shape) {
    size_t arity = 0;
    while ((shape >> (arity + 1)) != 0) {
        ++arity;
    }
    return arity;
}

template <size_t shape>
void *call(Method function, void *x, const Word *words) {
    constexpr size_t arity = arity_of(shape);
    const auto numbers = std::make_index_sequence<arity>{};
    return x ? call_with_object<shape>(function, x, words, numbers)
             : call_without<shape>(function, words, numbers);
}

using Caller = void *(*)(Method function, void *x, const Word *words);

template <size_t... shape>
constexpr std::array<Caller, shape_total> make_table(std::index_sequence<shape...>) {
    // There is no shape 0; its place repeats shape 1.
    return {&call<(shape == 0 ? 1 : shape)>...};
}

constexpr std::array<Caller, shape_total> table =
    make_table(std::make_index_sequence<shape_total>{});

// --- Conversion ----------------------------------------------------------------------------------

bool is_placeholder(const Atom &atom) {
    return atom.type == TypeSymbol && atom.value.sym && atom.value.sym->name[0] == '#';
}

bool is_number(const Atom &atom) {
    return atom.type == TypeLong || atom.type == TypeFloat;
}

bool object_argument(Object *x, const Atom &atom, Word *out) {
    if (atom.type == TypeObject) {
        out->p = atom.value.obj;
        return true;
    }
    if (atom.type != TypeSymbol || !atom.value.sym) {
        return false;
    }
    void *const bound = atom.value.sym->thing;
    if (!bound) {
        object_error(x, "%s: no such object", atom.value.sym->name);
    } else if (!object_valid(bound)) {
        object_error(x, "%s: garbage object", atom.value.sym->name);
    } else {
        out->p = bound;
        return true;
    }
    return false;
}

bool convert(Object *x, uint8_t type, const Atom &atom, Word *out) {
    switch (type) {
        case TypeLong:
        case TypeDefLong:
            out->i = is_number(atom) ? atom_getlong(&atom) : 0;
            return is_number(atom) || is_placeholder(atom);
        case TypeFloat:
        case TypeDefFloat:
            out->f = is_number(atom) ? atom_getfloat(&atom) : 0.0;
            return is_number(atom) || is_placeholder(atom);
        case TypeSymbol:
        case TypeDefSymbol:
            out->p = atom.value.sym;
            return atom.type == TypeSymbol && atom.value.sym;
        case TypeObject:
            return object_argument(x, atom, out);
        default:
            object_error(x, "unknown message argument type");
            return false;
    }
}

enum class Default { given, missing, not_callable };

Default default_argument(uint8_t type, Word *out) {
    switch (type) {
        case TypeDefLong:
            out->i = 0;
            return Default::given;
        case TypeDefFloat:
            out->f = 0.0;
            return Default::given;
        case TypeDefSymbol:
            out->p = ""_sym;
            return Default::given;
        case TypeLong:
        case TypeFloat:
        case TypeSymbol:
        case TypeObject:
            return Default::missing;
        default:
            return Default::not_callable;
    }
}

bool is_double(uint8_t type) {
    return type == TypeFloat || type == TypeDefFloat;
}

bool refuse(Object *x, Symbol *message) {
    object_error(x, "bad arguments for message \"%s\"", message->name);
    return false;
}

void report_extra(Object *x, Symbol *message) {
    const Symbol *const name = x ? object_classname(x) : nullptr;
    object_error(x, "%s: extra arguments for message \"%s\"", name ? name->name : "(null)",
                 message->name);
}

using AtomsFunction = void *(*)(Symbol *selector, int32_t argc, Atom *argv);
using WordsFunction = void *(*)(void *, void *, void *, void *, void *, void *, void *, void *);

KIV_CALLS_ANY_TYPE void *call_atoms(Method function, Symbol *selector, int32_t argc, Atom *argv) {
    return reinterpret_cast<AtomsFunction>(function)(selector, argc, argv);
}

KIV_CALLS_ANY_TYPE void *call_words(Method function, void *const w[8]) {
    return reinterpret_cast<WordsFunction>(function)(w[0], w[1], w[2], w[3], w[4], w[5], w[6],
                                                     w[7]);
}

}  // namespace

void *call_shape(Method function, void *x, const Arguments &arguments) {
    return table[arguments.shape](function, x, arguments.words);
}

bool convert_arguments(Object *x, Symbol *message, const uint8_t *types, int32_t argc,
                       const Atom *argv, Arguments *out) noexcept {
    out->shape = 1;
    int32_t n = 0;
    for (; n < most_arguments && types[n] != TypeNothing; ++n) {
        if (n < argc) {
            if (!convert(x, types[n], argv[n], &out->words[n])) {
                return refuse(x, message);
            }
        } else {
            switch (default_argument(types[n], &out->words[n])) {
                case Default::given:
                    break;
                case Default::missing:
                    object_error(x, "missing arguments for message \"%s\"", message->name);
                    return false;
                case Default::not_callable:
                    return refuse(x, message);
            }
        }
        out->add_to_shape(is_double(types[n]));
    }
    if (argc > n) {
        report_extra(x, message);
    }
    return true;
}

void *construct_typed(const MethodRecord &constructor, Symbol *name, int32_t argc,
                      Atom *argv) noexcept {
    const Method function = constructor.function;
    if (constructor.types[0] == TypeGimme || constructor.types[0] == TypeGimmeBack) {
        return call_guarded(name, [&] { return call_atoms(function, name, argc, argv); });
    }
    Arguments arguments;
    if (!take_arguments(constructor.types, argc, argv, &arguments) &&
        !convert_arguments(nullptr, name, constructor.types, argc, argv, &arguments)) {
        return nullptr;
    }
    return call_guarded(name, [&] { return call_shape(function, nullptr, arguments); });
}

void *construct_words(const MethodRecord &constructor, void *const words[8]) noexcept {
    return call_guarded(constructor.selector,
                        [&] { return call_words(constructor.function, words); });
}

void report_exception(const Symbol *message) noexcept {
    try {
        throw;
    } catch (const std::exception &failure) {
        error("\"%s\": exception: %s", message->name, failure.what());
    } catch (...) {
        error("\"%s\": exception", message->name);
    }
}

}  // namespace kiv
