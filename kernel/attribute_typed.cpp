// The typed calls: reading and writing an attribute's value as plain numbers, symbols and objects.
//
// Every one goes through object_attr_getvalueof or object_attr_setvalueof. A getter that finds
// nothing gives zeros, null or the empty symbol.
#include <algorithm>

#include "kernel/attribute.h"

namespace kiv {

namespace {

void put(Atom *atom, int64_t value) {
    atom_setlong(atom, value);
}
void put(Atom *atom, uint8_t value) {
    atom_setlong(atom, value);
}
void put(Atom *atom, double value) {
    atom_setfloat(atom, value);
}
void put(Atom *atom, float value) {
    atom_setfloat(atom, double{value});
}
void put(Atom *atom, Symbol *value) {
    atom_setsym(atom, value);
}
void put(Atom *atom, void *value) {
    atom_setobj(atom, value);
}

void take(const Atom *atom, int64_t *value) {
    *value = atom_getlong(atom);
}
void take(const Atom *atom, uint8_t *value) {
    *value = static_cast<uint8_t>(std::clamp<int64_t>(atom_getlong(atom), 0, 255));
}
void take(const Atom *atom, double *value) {
    *value = atom_getfloat(atom);
}
void take(const Atom *atom, float *value) {
    *value = static_cast<float>(atom_getfloat(atom));
}
void take(const Atom *atom, Symbol **value) {
    *value = atom_getsym(atom);
}
void take(const Atom *atom, void **value) {
    *value = atom_getobj(atom);
}

template <class T>
ErrorCode set_one(void *x, Symbol *name, T value) {
    Atom atom;
    put(&atom, value);
    return object_attr_setvalueof(x, name, 1, &atom);
}

template <class T>
T get_one(void *x, Symbol *name, T neutral) {
    const Value value(x, name);
    if (const Atom *first = value.first()) {
        take(first, &neutral);
    }
    return neutral;
}

template <class T>
ErrorCode set_many(void *x, Symbol *name, int32_t count, const T *values) {
    if (!x || (!values && count > 0)) {
        return x ? ErrorInvalidPointer : ErrorGeneric;
    }
    Atom local[16];
    Atom *atoms = atom_dynamic_start(local, 16, count);
    if (!atoms) {
        return ErrorOutOfMemory;
    }
    for (int32_t i = 0; i < count; ++i) {
        put(&atoms[i], values[i]);
    }
    const ErrorCode result = object_attr_setvalueof(x, name, count, atoms);
    atom_dynamic_end(local, atoms);
    return result;
}

template <class T>
int32_t get_many(void *x, Symbol *name, int32_t max, T *values) {
    if (!values) {
        return 0;
    }
    Value value(x, name);
    const int32_t count = std::clamp(value.count(), 0, std::max(max, 0));
    for (int32_t i = 0; i < count; ++i) {
        take(&value.atoms()[i], &values[i]);
    }
    return count;
}

// A value of exactly so many numbers: what is missing is 0.
ErrorCode get_numbers(void *x, Symbol *name, int32_t count, double *values) {
    if (!values) {
        return ErrorInvalidPointer;
    }
    std::fill_n(values, count, 0.0);
    return get_many(x, name, count, values) == count ? ErrorNone : ErrorGeneric;
}

constexpr int32_t color_numbers = 4;
constexpr int32_t pair_numbers = 2;
constexpr int32_t rect_numbers = 4;

}  // namespace

}  // namespace kiv

using namespace kiv;

ErrorCode object_attr_setlong(void *x, Symbol *name, int64_t value) noexcept {
    return set_one(x, name, value);
}

int64_t object_attr_getlong(void *x, Symbol *name) noexcept {
    return get_one(x, name, int64_t{0});
}

ErrorCode object_attr_setfloat(void *x, Symbol *name, double value) noexcept {
    return set_one(x, name, value);
}

double object_attr_getfloat(void *x, Symbol *name) noexcept {
    return get_one(x, name, 0.0);
}

ErrorCode object_attr_setsym(void *x, Symbol *name, Symbol *value) noexcept {
    return set_one(x, name, value);
}

Symbol *object_attr_getsym(void *x, Symbol *name) noexcept {
    return get_one(x, name, gensym(""));
}

ErrorCode object_attr_setchar(void *x, Symbol *name, uint8_t value) noexcept {
    return set_one(x, name, value);
}

uint8_t object_attr_getchar(void *x, Symbol *name) noexcept {
    return get_one(x, name, uint8_t{0});
}

ErrorCode object_attr_setobj(void *x, Symbol *name, void *value) noexcept {
    return set_one(x, name, value);
}

void *object_attr_getobj(void *x, Symbol *name) noexcept {
    return get_one(x, name, static_cast<void *>(nullptr));
}

ErrorCode object_attr_setlong_array(void *x, Symbol *name, int32_t count,
                                    const int64_t *values) noexcept {
    return set_many(x, name, count, values);
}

int32_t object_attr_getlong_array(void *x, Symbol *name, int32_t max, int64_t *values) noexcept {
    return get_many(x, name, max, values);
}

ErrorCode object_attr_setfloat_array(void *x, Symbol *name, int32_t count,
                                     const float *values) noexcept {
    return set_many(x, name, count, values);
}

int32_t object_attr_getfloat_array(void *x, Symbol *name, int32_t max, float *values) noexcept {
    return get_many(x, name, max, values);
}

ErrorCode object_attr_setdouble_array(void *x, Symbol *name, int32_t count,
                                      const double *values) noexcept {
    return set_many(x, name, count, values);
}

int32_t object_attr_getdouble_array(void *x, Symbol *name, int32_t max, double *values) noexcept {
    return get_many(x, name, max, values);
}

ErrorCode object_attr_setchar_array(void *x, Symbol *name, int32_t count,
                                    const uint8_t *values) noexcept {
    return set_many(x, name, count, values);
}

int32_t object_attr_getchar_array(void *x, Symbol *name, int32_t max, uint8_t *values) noexcept {
    return get_many(x, name, max, values);
}

ErrorCode object_attr_setsym_array(void *x, Symbol *name, int32_t count,
                                   Symbol *const *values) noexcept {
    return set_many(x, name, count, values);
}

int32_t object_attr_getsym_array(void *x, Symbol *name, int32_t max, Symbol **values) noexcept {
    return get_many(x, name, max, values);
}

ErrorCode object_attr_setcolor(void *x, Symbol *name, const double *rgba) noexcept {
    return set_many(x, name, color_numbers, rgba);
}

ErrorCode object_attr_getcolor(void *x, Symbol *name, double *rgba) noexcept {
    return get_numbers(x, name, color_numbers, rgba);
}

ErrorCode object_attr_setpt(void *x, Symbol *name, const double *xy) noexcept {
    return set_many(x, name, pair_numbers, xy);
}

ErrorCode object_attr_getpt(void *x, Symbol *name, double *xy) noexcept {
    return get_numbers(x, name, pair_numbers, xy);
}

ErrorCode object_attr_setsize(void *x, Symbol *name, const double *size) noexcept {
    return set_many(x, name, pair_numbers, size);
}

ErrorCode object_attr_getsize(void *x, Symbol *name, double *size) noexcept {
    return get_numbers(x, name, pair_numbers, size);
}

ErrorCode object_attr_set_rect(void *x, Symbol *name, const double *rect) noexcept {
    return set_many(x, name, rect_numbers, rect);
}

ErrorCode object_attr_get_rect(void *x, Symbol *name, double *rect) noexcept {
    return get_numbers(x, name, rect_numbers, rect);
}
