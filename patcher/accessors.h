// Reading and writing attributes by name, as the exported accessors do.
#pragma once

#include <kiv/attr.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

namespace kiv::accessors {

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
