// What the files that write documents share.
#pragma once

#include <memory>

#include "patcher/records.h"

namespace kiv {

struct ObjectFree {
    void operator()(void *x) const noexcept { object_free(x); }
};
template <class T>
using Owned = std::unique_ptr<T, ObjectFree>;

// The dictionary that an atom holds, or null when it holds anything else.
Dictionary *dictionary_of(const Atom &atom) noexcept;

// An array of a document under construction: objects in it are owned until the array is stored.
class Elements {
  public:
    Elements() noexcept = default;
    ~Elements();
    Elements(const Elements &) = delete;
    Elements &operator=(const Elements &) = delete;
    // Each answers false without memory, and frees what it was given.
    bool add(Owned<Dictionary> element) noexcept;
    bool add_copies(const Atomarray *array) noexcept;
    bool store(Dictionary *dictionary, Symbol *key) noexcept;

  private:
    Vector<Atom> atoms_;
};

// "dependency_cache": the files the patcher needs. False when memory ran out.
bool patcher_write_dependencies(Patcher *patcher, Dictionary *dictionary) noexcept;
// {"key": content}, or null without memory.
Owned<Dictionary> wrapped(Symbol *key, Owned<Dictionary> content) noexcept;
// Stores one value as itself and several as a list; objects are copied. False without memory.
bool append_copies(Dictionary *dictionary, Symbol *key, int32_t argc, const Atom *argv) noexcept;
// Appends a deep copy of an atom to an array, which is made when it is not there yet.
bool keep_element(Atomarray **target, const Atom &element) noexcept;
// Adds copies of the entries of `source` that `target` does not have; null does nothing.
bool add_missing(const Dictionary *source, Dictionary *target) noexcept;

}  // namespace kiv
