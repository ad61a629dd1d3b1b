#include "kernel/symbol_index.h"

#include <kiv/sysmem.h>

#include <cstddef>
#include <cstring>

namespace kiv {

namespace {

constexpr uint64_t first_size = 4096;  // holds the predefined and the common names

constexpr uint64_t factor_a = 0x9e3779b97f4a7c15u;
constexpr uint64_t factor_b = 0xd6e8feb86659fd93u;

// Both halves of a product, so that every bit of the words moves every bit of the result.
uint64_t mix(uint64_t a, uint64_t b) noexcept {
    __extension__ using Product = unsigned __int128;
    const Product product = static_cast<Product>(a) * b;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

template <class T>
uint64_t load(const char *at) noexcept {
    T word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// The last eight bytes of a text, or what there is.
uint64_t tail_of(std::string_view text) noexcept {
    const char *const begin = text.data();
    const size_t size = text.size();
    if (size >= 8) {
        return load<uint64_t>(begin + size - 8);
    }
    if (size >= 4) {
        return load<uint32_t>(begin) << 32 | load<uint32_t>(begin + size - 4);
    }
    if (size == 0) {
        return 0;
    }
    const auto byte = [begin](size_t at) {
        return static_cast<uint64_t>(static_cast<unsigned char>(begin[at]));
    };
    return byte(0) << 16 | byte(size / 2) << 8 | byte(size - 1);
}

}  // namespace

uint64_t SymbolIndex::hash_of(std::string_view name) noexcept {
    uint64_t hash = factor_a ^ name.size();
    size_t at = 0;
    for (; at + 16 < name.size(); at += 16) {
        hash = mix(load<uint64_t>(name.data() + at) ^ hash,
                   load<uint64_t>(name.data() + at + 8) ^ factor_b);
    }
    const uint64_t next = at + 8 < name.size() ? load<uint64_t>(name.data() + at) : 0;
    return mix(tail_of(name.substr(at)) ^ hash, next ^ factor_b);
}

SymbolIndex::Table *SymbolIndex::make_table(uint64_t size) noexcept {
    const size_t bytes = offsetof(Table, slots) + size * sizeof(Slot);
    auto *const table = static_cast<Table *>(sysmem_newptrclear(static_cast<int64_t>(bytes)));
    if (table) {
        table->mask = size - 1;
    }
    return table;
}

Symbol *SymbolIndex::find(const char *name, uint64_t hash) const noexcept {
    Table *const table = table_.load(std::memory_order_acquire);
    if (!table) {
        return nullptr;
    }
    for (uint64_t at = hash & table->mask;; at = (at + 1) & table->mask) {
        Slot &slot = table->slots[at];
        Symbol *const symbol = std::atomic_ref(slot.symbol).load(std::memory_order_acquire);
        if (!symbol) {
            return nullptr;
        }
        if (std::atomic_ref(slot.hash).load(std::memory_order_relaxed) == hash &&
            std::strcmp(symbol->name, name) == 0) {
            return symbol;
        }
    }
}

// Every record of an outgrown table into one that nobody reads yet.
void SymbolIndex::move(const Table *from, Table *to) noexcept {
    for (uint64_t i = 0; from && i <= from->mask; ++i) {
        const Slot &slot = from->slots[i];
        if (slot.symbol) {
            uint64_t at = slot.hash & to->mask;
            while (to->slots[at].symbol) {
                at = (at + 1) & to->mask;
            }
            to->slots[at] = slot;
        }
    }
}

bool SymbolIndex::reserve() noexcept {
    Table *const table = table_.load(std::memory_order_relaxed);
    if (table && count_.load(std::memory_order_relaxed) < (table->mask + 1) / 2) {
        return true;
    }
    Table *const larger = make_table(table ? (table->mask + 1) * 2 : first_size);
    if (!larger) {
        return false;
    }
    larger->outgrown = table;
    move(table, larger);
    table_.store(larger, std::memory_order_release);
    return true;
}

void SymbolIndex::add(Symbol *symbol, uint64_t hash) noexcept {
    Table *const table = table_.load(std::memory_order_relaxed);
    for (uint64_t at = hash & table->mask;; at = (at + 1) & table->mask) {
        Slot &slot = table->slots[at];
        if (slot.symbol && (slot.hash != hash || std::strcmp(slot.symbol->name, symbol->name))) {
            continue;
        }
        std::atomic_ref(slot.hash).store(hash, std::memory_order_relaxed);
        std::atomic_ref(slot.symbol).store(symbol, std::memory_order_release);
        break;
    }
    count_.fetch_add(1, std::memory_order_release);
}

}  // namespace kiv
