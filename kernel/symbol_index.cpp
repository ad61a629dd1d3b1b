#include "kernel/symbol_index.h"

#include <kiv/sysmem.h>

#include <cstring>

#include "kernel/internal.h"

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

uint32_t SymbolIndex::hash_of(std::string_view name) noexcept {
    uint64_t hash = factor_a ^ name.size();
    size_t at = 0;
    for (; at + 16 < name.size(); at += 16) {
        hash = mix(load<uint64_t>(name.data() + at) ^ hash,
                   load<uint64_t>(name.data() + at + 8) ^ factor_b);
    }
    const uint64_t next = at + 8 < name.size() ? load<uint64_t>(name.data() + at) : 0;
    return static_cast<uint32_t>(mix(tail_of(name.substr(at)) ^ hash, next ^ factor_b)) | 1;
}

SymbolIndex::Table *SymbolIndex::make_table(uint64_t size) noexcept {
    constexpr uint64_t largest_size = uint64_t{1} << 31;  // the hash has no more bits
    const uint64_t bytes = sizeof(Table) + size * (sizeof(Symbol *) + sizeof(uint32_t));
    void *const block = size <= largest_size ? sysmem_newptr(static_cast<int64_t>(bytes)) : nullptr;
    auto *const table = static_cast<Table *>(block);
    if (table) {
        platform::prefer_large_pages(block, bytes);
        *table = Table{};
        table->mask = size - 1;
        table->symbols = reinterpret_cast<Symbol **>(table + 1);
        table->hashes = reinterpret_cast<uint32_t *>(table->symbols + size);
        std::memset(table->hashes, 0, size * sizeof(uint32_t));
    }
    return table;
}

Symbol *SymbolIndex::find(std::string_view name, uint32_t hash) const noexcept {
    const Table *const table = table_.load(std::memory_order_acquire);
    if (!table) {
        return nullptr;
    }
    __builtin_prefetch(&table->symbols[table->home(hash)]);  // whether found or new
    for (uint64_t at = table->home(hash);; at = table->next(at)) {
        const uint32_t present = std::atomic_ref(table->hashes[at]).load(std::memory_order_acquire);
        if (present == 0) {
            return nullptr;
        }
        if (present == hash) {
            Symbol *const symbol =
                std::atomic_ref(table->symbols[at]).load(std::memory_order_acquire);
            if (symbol_is(symbol, name)) {
                return symbol;
            }
        }
    }
}

// Every record of an outgrown table into one that nobody reads yet.
void SymbolIndex::move(const Table *from, Table *to) noexcept {
    for (uint64_t i = 0; from && i <= from->mask; ++i) {
        if (const uint32_t hash = from->hashes[i]) {
            uint64_t at = to->home(hash);
            while (to->hashes[at]) {
                at = to->next(at);
            }
            to->hashes[at] = hash;
            to->symbols[at] = from->symbols[i];
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

void SymbolIndex::add(Symbol *symbol, uint32_t hash) noexcept {
    const Table *const table = table_.load(std::memory_order_relaxed);
    uint64_t at = table->home(hash);
    while (table->hashes[at] && (table->hashes[at] != hash ||
                                 std::strcmp(table->symbols[at]->name, symbol->name) != 0)) {
        at = table->next(at);
    }
    std::atomic_ref(table->symbols[at]).store(symbol, std::memory_order_release);
    std::atomic_ref(table->hashes[at]).store(hash, std::memory_order_release);
    count_.store(count_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

}  // namespace kiv
