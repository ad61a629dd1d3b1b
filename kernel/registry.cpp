// The registry: which object a name in a namespace means.
//
// 1. An object has at most one name. The index from name to object and the record of the object
//    (name, namespace, how often it was registered) change together.
// 2. The extension record also serves as the map from object to entry, so there is no second table.
//
// Thread safety: everything is guarded by the kernel's global critical region. The notification
// "free" is sent while it is held (it is re-entrant), the one of a new registration afterwards. An
// object that has to go because its name is taken is freed afterwards too.
#include <kiv/console.h>
#include <kiv/sysmem.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "kernel/immortal.h"
#include "kernel/registry_private.h"

namespace kiv {

namespace {

template <class K, class V>
using Index =
    std::unordered_map<K, V, std::hash<K>, std::equal_to<K>, SysAllocator<std::pair<const K, V>>>;

using Names = Index<Symbol *, Object *>;

struct State {
    bool ready = false;
    Index<Symbol *, Names> spaces;
};
Immortal<State> state;

Symbol *space_or_default(Symbol *name_space) {
    return name_space ? name_space : "nobox"_sym;
}

bool is_no_name(const Symbol *name) {
    return !name || name->name[0] == '\0';
}

bool name_take(Symbol *name_space, Symbol *name, Object *x) noexcept {
    try {
        state->spaces[name_space].insert_or_assign(name, x);
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

void name_drop(const ObexRecord &record) {
    const auto space = state->spaces.find(record.name_space);
    if (space != state->spaces.end()) {
        space->second.erase(record.name.load());
    }
}

enum class Outcome { refused, registered, again, other };

// What became of a request, to be followed up once the region has been left.
struct Registration {
    Outcome outcome;
    Object *holder;
};

void add_registration(ObexRecord &record) {
    record.references.fetch_add(1);
    ++record.registrations;
}

Registration name_taken(Object *x, Object *holder) {
    ObexRecord *const record = obex_find(holder);
    if (class_of(x)->name != class_of(holder)->name || !record) {
        return {Outcome::other, nullptr};
    }
    add_registration(*record);
    return {Outcome::other, holder};
}

// An object that is registered already: once more under its name, or under a new one.
Registration register_again(Object *x, ObexRecord &record, Symbol *name_space, Symbol *name) {
    if (record.name_space != name_space) {
        error("object_register: object already registered in %s, cannot reregister in %s",
              record.name_space->name, name_space->name);
        return {Outcome::refused, nullptr};
    }
    if (record.name == name) {
        add_registration(record);
        return {Outcome::again, x};
    }
    if (Object *const holder = registry_find(name_space, name)) {
        return name_taken(x, holder);
    }
    if (!name_take(name_space, name, x)) {
        return {Outcome::refused, nullptr};
    }
    name_drop(record);
    symbol_unique_release(record.name.exchange(name));
    subscribers_attach(x, record);
    return {Outcome::registered, x};
}

Registration register_locked(Object *x, ObexRecord &record, Symbol *name_space, Symbol *name) {
    if (record.name) {
        return register_again(x, record, name_space, name);
    }
    if (Object *const holder = registry_find(name_space, name)) {
        return name_taken(x, holder);
    }
    if (!name_take(name_space, name, x)) {
        error("object_register: could not create pointer map object for %s", name->name);
        return {Outcome::refused, nullptr};
    }
    record.name = name;
    record.name_space = name_space;
    record.registrations = 1;
    subscribers_attach(x, record);
    return {Outcome::registered, x};
}

}  // namespace

void objects_start() noexcept {
    state->ready = true;
}

Object *registry_find(Symbol *name_space, Symbol *name) noexcept {
    const auto space = state->spaces.find(name_space);
    if (space == state->spaces.end()) {
        return nullptr;
    }
    const auto found = space->second.find(name);
    return found == space->second.end() ? nullptr : found->second;
}

Object *registry_find_anywhere(Symbol *name) noexcept {
    const Guard guard(global_region);
    Object *found = registry_find("nobox"_sym, name);
    for (auto space = state->spaces.begin(); !found && space != state->spaces.end(); ++space) {
        const auto entry = space->second.find(name);
        found = entry == space->second.end() ? nullptr : entry->second;
    }
    return found;
}

bool registry_unregister(Object *x) noexcept {
    const Guard guard(global_region);
    const ObexPin record(x);
    if (!record || !record->name) {
        return false;
    }
    if (--record->registrations > 0) {
        return true;
    }
    if (verbose_get()) {
        post("unregistering: %s in %p. ref count now %d", record->name.load()->name,
             static_cast<void *>(record->name_space), record->registrations);
    }
    object_notify(x, "free"_sym, nullptr);
    // A client may have unregistered the object in turn.
    if (record->name) {
        clients_drop(record.get());
        name_drop(*record.get());
        symbol_unique_release(record->name.exchange(nullptr));
        record->name_space = nullptr;
        record->registrations = 0;
    }
    return false;
}

}  // namespace kiv

using namespace kiv;

void *object_register(Symbol *name_space, Symbol *name, void *x) noexcept {
    if (!x || !state->ready) {
        return nullptr;
    }
    auto *const object = static_cast<Object *>(x);
    ObexRecord *const record = object_valid(x) ? obex_enforce(object) : nullptr;
    if (!record) {
        cpost("trying to register object, but no obex pointer\n");
        return nullptr;
    }
    if (is_no_name(name)) {
        object_unregister(x);
        return nullptr;
    }
    Symbol *const space = space_or_default(name_space);
    if (verbose_get()) {
        post("registering: %s in %p", name->name, static_cast<void *>(space));
    }
    if (std::strncmp(name->name, "obj:", 4) == 0) {
        error(
            "object_register: trying to register object using single symbol registered object "
            "syntax %s",
            name->name);
        return nullptr;
    }
    Registration result;
    {
        const Guard guard(global_region);
        result = register_locked(object, *record, space, name);
    }
    if (result.outcome == Outcome::registered) {
        object_notify(x, "registered"_sym, nullptr);
    } else if (result.outcome == Outcome::other) {
        object_free(x);
    }
    return result.holder;
}

ErrorCode object_unregister(void *x) noexcept {
    if (!object_valid(x)) {
        return ErrorInvalidPointer;
    }
    return registry_unregister(static_cast<Object *>(x)) ? ErrorGeneric : ErrorNone;
}

void *object_findregistered(Symbol *name_space, Symbol *name) noexcept {
    if (is_no_name(name)) {
        return nullptr;
    }
    const Guard guard(global_region);
    return registry_find(space_or_default(name_space), name);
}

ErrorCode object_findregisteredbyptr(Symbol **name_space, Symbol **name, void *x) noexcept {
    if (!object_valid(x)) {
        return ErrorInvalidPointer;
    }
    const Guard guard(global_region);
    const ObexRecord *const record = obex_find(static_cast<Object *>(x));
    if (!record || !record->name) {
        return ErrorGeneric;
    }
    if (name_space) {
        *name_space = record->name_space;
    }
    if (name) {
        *name = record->name;
    }
    return ErrorNone;
}

ErrorCode object_register_getnames(Symbol *name_space, int32_t *count, Symbol ***names) noexcept {
    if (!count || !names) {
        return ErrorGeneric;
    }
    const Guard guard(global_region);
    const auto space = state->spaces.find(space_or_default(name_space));
    if (space == state->spaces.end()) {
        return ErrorGeneric;
    }
    const auto total = static_cast<int32_t>(space->second.size());
    if (*count <= 0 || !*names) {
        *count = 0;
        *names = total > 0 ? static_cast<Symbol **>(
                                 sysmem_newptr(total * static_cast<int64_t>(sizeof(Symbol *))))
                           : nullptr;
        if (!*names) {
            return total > 0 ? ErrorOutOfMemory : ErrorNone;
        }
        *count = total;
    }
    int32_t stored = 0;
    for (const auto &entry : space->second) {
        if (stored == *count) {
            break;
        }
        (*names)[stored++] = entry.first;
    }
    *count = stored;
    return ErrorNone;
}
