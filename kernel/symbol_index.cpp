#include "kernel/symbol_index.h"

#include <kiv/sysmem.h>

#include <cstddef>
#include <cstring>
#include <new>

namespace kiv {

namespace {

constexpr uint64_t first_size = 256;

// Multiplicative hash over all of a name, eight bytes at a step.
uint64_t whole_hash(std::string_view name) noexcept {
    constexpr uint64_t factor = 0x9e3779b97f4a7c15u;
    uint64_t hash = name.size() * factor;
    size_t at = 0;
    for (; at + 8 <= name.size(); at += 8) {
        uint64_t word;
        std::memcpy(&word, name.data() + at, 8);
        hash = (hash ^ word) * factor;
        hash ^= hash >> 32;
    }
    uint64_t word = 0;
    if (at < name.size()) {
        std::memcpy(&word, name.data() + at, name.size() - at);
    }
    hash = (hash ^ word) * factor;
    return hash ^ (hash >> 29);
}

}  // namespace

SymbolIndex::Table *SymbolIndex::make_table(uint64_t size) noexcept {
    const size_t bytes = offsetof(Table, slots) + size * sizeof(Slot);
    void *block = sysmem_newptrclear(static_cast<int64_t>(bytes));
    if (!block) {
        return nullptr;
    }
    auto *table = static_cast<Table *>(block);
    for (uint64_t i = 0; i < size; ++i) {
        new (&table->slots[i]) Slot{};
    }
    table->mask = size - 1;
    return table;
}

Symbol *SymbolIndex::find(std::string_view name) const noexcept {
    const Table *table = table_.load(std::memory_order_acquire);
    if (!table) {
        return nullptr;
    }
    const uint64_t hash = whole_hash(name);
    for (uint64_t at = hash & table->mask;; at = (at + 1) & table->mask) {
        const Slot &slot = table->slots[at];
        Symbol *symbol = slot.symbol.load(std::memory_order_acquire);
        if (!symbol) {
            return nullptr;
        }
        if (slot.hash.load(std::memory_order_relaxed) == hash && name == symbol->name) {
            return symbol;
        }
    }
}

void SymbolIndex::put(Table *table, uint64_t hash, Symbol *symbol) noexcept {
    for (uint64_t at = hash & table->mask;; at = (at + 1) & table->mask) {
        Slot &slot = table->slots[at];
        const Symbol *present = slot.symbol.load(std::memory_order_relaxed);
        if (present && (slot.hash.load(std::memory_order_relaxed) != hash ||
                        std::strcmp(present->name, symbol->name) != 0)) {
            continue;
        }
        slot.hash.store(hash, std::memory_order_relaxed);
        slot.symbol.store(symbol, std::memory_order_release);
        return;
    }
}

bool SymbolIndex::reserve() noexcept {
    Table *table = table_.load(std::memory_order_relaxed);
    if (table && count_ < (table->mask + 1) / 2) {
        return true;
    }
    Table *larger = make_table(table ? (table->mask + 1) * 2 : first_size);
    if (!larger) {
        return false;
    }
    larger->outgrown = table;
    for (uint64_t i = 0; table && i <= table->mask; ++i) {
        if (Symbol *symbol = table->slots[i].symbol.load(std::memory_order_relaxed)) {
            put(larger, table->slots[i].hash.load(std::memory_order_relaxed), symbol);
        }
    }
    table_.store(larger, std::memory_order_release);
    return true;
}

void SymbolIndex::add(Symbol *symbol) noexcept {
    put(table_.load(std::memory_order_relaxed), whole_hash(symbol->name), symbol);
    ++count_;
}

}  // namespace kiv
