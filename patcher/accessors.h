// Reading and writing attributes by name, as the exported accessors do.
#pragma once

#include <kiv/attr.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

namespace kiv::accessors {

using SymbolPointer = Symbol *;

// Getters answer null, 0 or the empty symbol for a null object or one without the attribute.
inline Object *object_of(void *x, Symbol *name) noexcept {
    return x ? static_cast<Object *>(object_attr_getobj(x, name)) : nullptr;
}
inline int32_t integer(void *x, Symbol *name) noexcept {
    return x ? static_cast<int32_t>(object_attr_getlong(x, name)) : 0;
}
inline double number(void *x, Symbol *name) noexcept {
    return x ? object_attr_getfloat(x, name) : 0.;
}
inline Symbol *symbol(void *x, Symbol *name) noexcept {
    Symbol *value = x ? object_attr_getsym(x, name) : nullptr;
    return value ? value : gensym("");
}
// Fills `count` numbers, with 0 where the attribute has none.
ErrorCode numbers(void *x, Symbol *name, int32_t count, double *values) noexcept;

// Setters answer -1 for a null object.
inline ErrorCode set(void *x, Symbol *name, int64_t value) noexcept {
    return x ? object_attr_setlong(x, name, value) : ErrorGeneric;
}
inline ErrorCode set(void *x, Symbol *name, double value) noexcept {
    return x ? object_attr_setfloat(x, name, value) : ErrorGeneric;
}
inline ErrorCode set(void *x, Symbol *name, Symbol *value) noexcept {
    return x && value ? object_attr_setsym(x, name, value) : ErrorGeneric;
}
ErrorCode set(void *x, Symbol *name, int32_t count, const double *values) noexcept;

}  // namespace kiv::accessors

// Exported accessors that read or write one attribute, each a line.
#define KIV_GET(type, read, function, attribute) \
    type function(void *x) noexcept {            \
        return read(x, attribute##_sym);         \
    }
#define KIV_GET_OBJECT(function, attribute) KIV_GET(Object *, object_of, function, attribute)
#define KIV_GET_SYMBOL(function, attribute) KIV_GET(Symbol *, symbol, function, attribute)
#define KIV_GET_INTEGER(function, attribute) KIV_GET(int32_t, integer, function, attribute)
#define KIV_GET_NUMBER(function, attribute) KIV_GET(double, number, function, attribute)
#define KIV_GET_NUMBERS(function, attribute, count)        \
    ErrorCode function(void *x, double *values) noexcept { \
        return numbers(x, attribute##_sym, count, values); \
    }

#define KIV_SET(type, converted, function, attribute)     \
    ErrorCode function(void *x, type value) noexcept {    \
        return set(x, attribute##_sym, converted{value}); \
    }
#define KIV_SET_SYMBOL(function, attribute) KIV_SET(Symbol *, SymbolPointer, function, attribute)
#define KIV_SET_INTEGER(function, attribute) KIV_SET(int32_t, int64_t, function, attribute)
#define KIV_SET_NUMBER(function, attribute) KIV_SET(double, double, function, attribute)
#define KIV_SET_NUMBERS(function, attribute, count)              \
    ErrorCode function(void *x, const double *values) noexcept { \
        return set(x, attribute##_sym, count, values);           \
    }
