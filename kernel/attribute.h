// What the files of the attributes share: the record and the stored types. No other folder includes
// this.
#pragma once

#include <kiv/atom.h>
#include <kiv/attr.h>

#include <atomic>

#include "kernel/dispatch_call.h"
#include "kernel/internal.h"
#include "sched/internal.h"

namespace kiv {

// How a value of an attribute's type is stored.
enum class Stored : uint8_t {
    nothing,  // any type not known: reads as integer 0, cannot be written
    unsigned8,
    signed16,
    signed32,
    signed64,
    float32,
    float64,
    symbol,
    pointer,
    atom
};

// Flag bits beyond those of <kiv/attr.h>.
enum AttrMark : uint32_t {
    AttrStyled = 0x00100000,  // takes part in the styles
    AttrFill = 0x00200000     // its colour may be a gradient
};

struct Filter {
    Filter *next;
    Method proc;  // or null: scale and clip
    double scale;
    double min;
    double max;
    bool use_min;
    bool use_max;
};

// Of the three chains of an attribute: what is applied both ways, on the way out, on the way in.
enum FilterChain { FilterBoth, FilterGet, FilterSet, filter_chains };

struct Attribute {
    MethodRecord *methods;
    uintptr_t magic;
    Symbol *name;
    Symbol *type;
    uint32_t flags;  // the touched mark is set atomically
    Method get;
    Method set;
    Filter *filters[filter_chains];
    int32_t offset;
    // of an array
    int32_t size;
    int32_t count_offset;
    // of a held value, guarded by the lock
    void *value;
    int32_t count;
    CriticalRef lock;
    // ours
    void *obex;
    Stored stored;
};

Stored stored_type(const Symbol *type) noexcept;
int32_t stored_size(Stored stored) noexcept;
void stored_read(Stored stored, const void *place, Atom *atom) noexcept;
void stored_write(Stored stored, void *place, const Atom *atom) noexcept;

// The flags, which the touched mark may be joining on another thread.
inline uint32_t flags_of(const Attribute *a) noexcept {
    return std::atomic_ref(const_cast<Attribute *>(a)->flags).load(std::memory_order_relaxed);
}

// The accessors used when none is given.
ErrorCode offset_get(void *x, void *attribute, int32_t *argc, Atom **argv) noexcept;
ErrorCode offset_set(void *x, void *attribute, int32_t argc, Atom *argv) noexcept;
ErrorCode array_get(void *x, void *attribute, int32_t *argc, Atom **argv) noexcept;
ErrorCode array_set(void *x, void *attribute, int32_t argc, Atom *argv) noexcept;
ErrorCode held_get(void *x, void *attribute, int32_t *argc, Atom **argv) noexcept;
ErrorCode held_set(void *x, void *attribute, int32_t argc, Atom *argv) noexcept;
// Accessors of attributes whose values are kept in each object's extension record, under the
// attribute's name.
ErrorCode kept_get(void *x, void *attribute, int32_t *argc, Atom **argv) noexcept;
ErrorCode kept_set(void *x, void *attribute, int32_t argc, Atom *argv) noexcept;

// An attribute of this folder's own classes, or null.
Attribute *as_attribute(void *attribute) noexcept;
bool answers(void *x, Symbol *question) noexcept;  // sends it; true for a non-zero answer
// The attributes an object has of its own, or null.
Hashtab *own_attributes(void *x) noexcept;

// Changes the atoms in place; the result of the first filter that refuses, else 0.
ErrorCode filters_set(const Attribute *attribute, void *x, int32_t argc, Atom *argv) noexcept;
ErrorCode filters_get(const Attribute *attribute, void *x, int32_t argc, Atom *argv) noexcept;
bool has_filters(const Attribute *attribute, FilterChain direction) noexcept;
void filters_free(Attribute *attribute) noexcept;
bool filters_copy(const Attribute *from, Attribute *to) noexcept;  // false without memory

// A whole value, in an array that the getter makes.
class Value {
  public:
    Value(void *x, Symbol *name) noexcept
        : error_(object_attr_getvalueof(x, name, &count_, &atoms_)) {}
    ~Value() { sysmem_freeptr(atoms_); }
    Value(const Value &) = delete;
    Value &operator=(const Value &) = delete;
    ErrorCode error() const noexcept { return error_; }
    int32_t count() const noexcept { return error_ == ErrorNone && atoms_ ? count_ : 0; }
    Atom *atoms() noexcept { return atoms_; }
    const Atom *first() const noexcept { return count() > 0 ? atoms_ : nullptr; }

  private:
    int32_t count_ = 0;
    Atom *atoms_ = nullptr;
    ErrorCode error_;
};

}  // namespace kiv
