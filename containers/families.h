// The families of this folder: what containers_start starts, in its order, and what they share to
// set up their classes.
#pragma once

#include <kiv/class.h>

#include "containers/internal.h"

namespace kiv {

// A function of any signature as a method of a class.
template <class Function>
Method method(Function *function) noexcept {
    return reinterpret_cast<Method>(reinterpret_cast<void (*)()>(function));
}

// A message and the function that answers it by direct call.
struct DirectMethod {
    const char *name;
    Method function;
};
template <size_t count>
void add_direct_methods(Class *c, const DirectMethod (&methods)[count]) noexcept {
    for (const DirectMethod &entry : methods) {
        class_addmethod(c, entry.function, entry.name, TypeCant, 0);
    }
}

// The classes of lists, tables and entries are made first, all three, since adding a method to any
// class stores it into a table; only then do they get their own methods.
void linklists_make_class() noexcept;
void hashtabs_make_classes() noexcept;
void linklists_start() noexcept;
void hashtabs_start() noexcept;

void atomarrays_start() noexcept;
void strings_start() noexcept;
void dictionaries_start() noexcept;
void quickmaps_start() noexcept;
void json_start() noexcept;
void binbufs_start() noexcept;
void receivers_start() noexcept;

}  // namespace kiv
