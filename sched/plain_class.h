// The classes of records that are objects only in order to be freed like every other.
#pragma once

#include <kiv/kiv.h>

#include "kernel/internal.h"

namespace kiv {

// A registered class without messages or extension record, which stays; `release` is its free
// method.
template <class Record>
Class *make_plain_class(const char *name, void (*release)(Record *)) {
    Class *const made =
        class_new(name, nullptr, method(release), static_cast<int32_t>(sizeof(Record)), nullptr, 0);
    made->flags |= ClassPermanent;
    class_obexoffset_set(made, -1);
    class_register("nobox"_sym, made);
    return made;
}

}  // namespace kiv
