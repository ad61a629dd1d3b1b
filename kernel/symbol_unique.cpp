// Unique names, sorting and translation of symbols.
//
// Released unique names wait in a pool, first come first served, under a lock of its own that is
// never held together with the symbol table's.
#include <kiv/console.h>
#include <kiv/symbol.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <deque>
#include <new>
#include <set>

#include "kernel/internal.h"
#include "kernel/symbol_parts.h"
#include "sched/internal.h"

namespace kiv {

namespace {

constexpr size_t pool_reserve = 10000;  // names are reused only beyond this many

struct UniquePool {
    std::deque<Symbol *, SysAllocator<Symbol *>> names;  // oldest first
    std::set<Symbol *, std::less<>, SysAllocator<Symbol *>> present;
};

struct UniqueNames {
    CriticalRef lock = nullptr;
    std::atomic<UniquePool *> pool{nullptr};  // made by the first release, kept for ever
    std::atomic<uint32_t> counter{0};
};
constinit UniqueNames unique_names;

std::atomic<Hashtab *> translation{nullptr};

bool has_unique_form(const char *name) noexcept {
    return name[0] == 'u' && std::strlen(name) == 10 &&
           std::all_of(name + 1, name + 10, [](char c) { return c >= '0' && c <= '9'; });
}

Symbol *take_released() noexcept {
    UniquePool *pool = unique_names.pool.load(std::memory_order_acquire);
    if (!pool) {
        return nullptr;
    }
    const Guard guard(unique_names.lock);
    if (pool->names.size() <= pool_reserve) {
        return nullptr;
    }
    Symbol *name = pool->names.front();
    pool->names.pop_front();
    pool->present.erase(name);
    return name;
}

void release_into_pool(Symbol *name) {
    const Guard guard(unique_names.lock);
    UniquePool *pool = unique_names.pool.load(std::memory_order_relaxed);
    if (!pool) {
        void *block = sysmem_newptr(sizeof(UniquePool));
        if (!block) {
            return;
        }
        pool = new (block) UniquePool;
        unique_names.pool.store(pool, std::memory_order_release);
    }
    if (pool->present.insert(name).second) {
        try {
            pool->names.push_back(name);
        } catch (const std::bad_alloc &) {
            pool->present.erase(name);
        }
    }
}

}  // namespace

void unique_names_start() noexcept {
    critical_new(&unique_names.lock);
}

void symbol_unique_release(Symbol *name) noexcept {
    if (!name || !has_unique_form(name->name)) {
        return;
    }
    try {
        release_into_pool(name);
    } catch (const std::bad_alloc &) {
        // The name is lost to the pool: a fresh one serves as well.
    }
}

void translation_set(Hashtab *table) noexcept {
    translation.store(table, std::memory_order_release);
}

}  // namespace kiv

Symbol *symbol_unique() noexcept {
    using namespace kiv;
    if (Symbol *name = take_released()) {
        if (verbose_get()) {
            post("symbol_unique: reusing %s", name->name);
        }
        return name;
    }
    const uint32_t number = unique_names.counter.fetch_add(1, std::memory_order_relaxed) + 1;
    char name[24];
    std::snprintf(name, sizeof name, "u%03u%06u", kernel_random() % 1000, number);
    return gensym(name);
}

ErrorCode symbolarray_sort(int32_t count, Symbol **symbols) noexcept {
    if (!symbols && count > 0) {
        return ErrorGeneric;
    }
    const auto key = [](const Symbol *symbol) { return symbol ? symbol->name : ""; };
    if (count > 1) {
        std::sort(symbols, symbols + count, [key](const Symbol *a, const Symbol *b) {
            return std::strcmp(key(a), key(b)) < 0;
        });
    }
    return ErrorNone;
}

Symbol *symbol_tr(Symbol *symbol) noexcept {
    Hashtab *table = kiv::translation.load(std::memory_order_acquire);
    Symbol *translated = nullptr;
    if (symbol && table && hashtab_lookupsym(table, symbol, &translated) == ErrorNone &&
        translated) {
        return translated;
    }
    return symbol;
}

Symbol *gensym_tr(const char *text) noexcept {
    return symbol_tr(gensym(text));
}
