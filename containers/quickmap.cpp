// Quick maps: a two-way map between pointer keys, made of two tables.
//
// Thread safety: that of the tables (hashtab.cpp); an addition changes both, one after the other.
#include <kiv/class.h>
#include <kiv/hashtab.h>
#include <kiv/object.h>
#include <kiv/quickmap.h>

#include "containers/families.h"

struct Quickmap {
    Object ob;
    Hashtab *first;   // key1 to key2
    Hashtab *second;  // key2 to key1
};

namespace kiv {

namespace {

struct {
    Class *map_class = nullptr;
} state;

void destroy(Quickmap *map) noexcept {
    object_free(map->first);
    object_free(map->second);
    map->first = map->second = nullptr;
}

Symbol *key(void *pointer) noexcept {
    return static_cast<Symbol *>(pointer);
}

}  // namespace

void quickmaps_start() noexcept {
    static const DirectMethod methods[] = {
        {"add", method(quickmap_add)},
        {"lookup_key1", method(quickmap_lookup_key1)},
        {"lookup_key2", method(quickmap_lookup_key2)},
        {"drop", method(quickmap_drop)},
        {"readonly", method(quickmap_readonly)},
    };
    Class *c = class_new("quickmap", nullptr, method(destroy),
                         static_cast<int32_t>(sizeof(Quickmap)), nullptr, 0);
    add_direct_methods(c, methods);
    class_register(nullptr, c);
    state.map_class = c;
}

}  // namespace kiv

using namespace kiv;

Quickmap *quickmap_new(void) noexcept {
    auto *map = static_cast<Quickmap *>(object_alloc(state.map_class));
    if (!map) {
        return nullptr;
    }
    map->first = hashtab_new(0);
    map->second = hashtab_new(0);
    if (!map->first || !map->second) {
        object_free(map);
        return nullptr;
    }
    hashtab_flags(map->first, ContainerData);
    hashtab_flags(map->second, ContainerData);
    return map;
}

ErrorCode quickmap_add(Quickmap *map, void *key1, void *key2) noexcept {
    if (!map) {
        return ErrorGeneric;
    }
    const ErrorCode result = hashtab_store(map->first, key(key1), key2);
    return result == ErrorNone ? hashtab_store(map->second, key(key2), key1) : result;
}

ErrorCode quickmap_lookup_key1(Quickmap *map, void *key1, void **key2) noexcept {
    return map ? hashtab_lookup(map->first, key(key1), key2) : ErrorGeneric;
}

ErrorCode quickmap_lookup_key2(Quickmap *map, void *key2, void **key1) noexcept {
    return map ? hashtab_lookup(map->second, key(key2), key1) : ErrorGeneric;
}

void quickmap_drop(Quickmap *map) noexcept {
    object_free(map);
}

void quickmap_readonly(Quickmap *map, int32_t on) noexcept {
    if (map) {
        hashtab_readonly(map->first, on);
        hashtab_readonly(map->second, on);
    }
}
