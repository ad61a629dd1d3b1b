// What the registry's two files share: names in registry.cpp, attachments and notifications in
// registry_notify.cpp.
#pragma once

#include "kernel/object_private.h"

namespace kiv {

// The object registered under a name; null when there is none. Global region held.
Object *registry_find(Symbol *name_space, Symbol *name) noexcept;

// Attaches a client; false when the object cannot have a record or memory is exhausted. A client
// that is attached already stays attached once. Global region held.
bool client_attach(Object *client, Object *x) noexcept;
// Drops every client of an object. Global region held.
void clients_drop(ObexRecord *record) noexcept;
// Attaches the subscribers that wait for an object that has just been registered. Global region
// held.
void subscribers_attach(Object *x, const ObexRecord &record) noexcept;

}  // namespace kiv
