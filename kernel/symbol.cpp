// The symbol table.
//
// 1. The static table and the predefined records are complete before any code runs and never
//    change, but for the `thing` of a record, which belongs to whoever binds the name.
// 2. A dynamic record is complete before it is pushed at its chain's head with release order, and
//    its name and link never change afterwards: readers take no lock.
// 3. Insertion holds the symbol-table lock and looks again inside it.
// 4. A record that lies deeper in its chain than `symbol_shallow` is in the index before the head
//    that pushed it down is published; so "shallow links, then index" finds every record.
// 5. Records and names live until the process ends.
#include <kiv/symbol.h>
#include <kiv/sysmem.h>

#include <array>
#include <atomic>
#include <cstring>
#include <new>
#include <string_view>

#include "kernel/internal.h"
#include "kernel/symbol_index.h"
#include "kernel/symbol_parts.h"
#include "sched/internal.h"

namespace kiv {

namespace {

constexpr uint32_t chain_modulus = 32749;  // the largest prime below chain_slots
constexpr size_t chain_slots = 32768;
constexpr int hashed_characters = 16;
constexpr size_t text_block_size = 32768;
constexpr size_t longest_name = text_block_size - 1;
constexpr size_t records_per_block = 160;

// A symbol made at run time.
struct DynamicSymbol {
    Symbol symbol;
    DynamicSymbol *next;
};

constinit Symbol predefined[] = {
#define KIV_PREDEFINED(name) {name, nullptr},
#include "kernel/predefined_symbols.inc"
#undef KIV_PREDEFINED
};
constexpr size_t predefined_count = std::size(predefined);
static_assert(predefined_count == 533);

constexpr uint32_t hash_name(const char *name, size_t length) {
    if (length > hashed_characters && std::string_view(name, length).starts_with("obj:")) {
        name += length - hashed_characters;
    }
    uint32_t hash = 1;
    for (int i = 0; i < hashed_characters && name[i] != '\0'; ++i) {
        const auto character = static_cast<uint32_t>(static_cast<signed char>(name[i]));
        hash = (hash + character) * character;
    }
    return hash;
}

using StaticTable = std::array<Symbol *, symbol_static_slots>;

constexpr StaticTable fill_static_table() {
    constexpr const char *names[] = {
#define KIV_PREDEFINED(name) name,
#include "kernel/predefined_symbols.inc"
#undef KIV_PREDEFINED
    };
    StaticTable table{};
    for (size_t i = 0; i < predefined_count; ++i) {
        const std::string_view name = names[i];
        size_t slot = hash_name(name.data(), name.size()) % table.size();
        while (table[slot]) {
            slot = (slot + 1) % table.size();
        }
        table[slot] = &predefined[i];
    }
    return table;
}

constexpr StaticTable static_table = fill_static_table();

struct SymbolTable {
    std::array<std::atomic<DynamicSymbol *>, chain_slots> chains{};
    SymbolIndex index;

    // Guarded by the lock; null (the global region) until start-up has made it.
    CriticalRef lock = nullptr;
    char *text = nullptr;  // free text of the current block
    size_t text_left = 0;
    DynamicSymbol *records = nullptr;  // free records of the current block
    size_t records_left = 0;
};
constinit SymbolTable symbols;

Symbol *find_static(const char *name, uint32_t hash) noexcept {
    for (size_t slot = hash % static_table.size(); static_table[slot];
         slot = slot + 1 == static_table.size() ? 0 : slot + 1) {
        if (std::strcmp(static_table[slot]->name, name) == 0) {
            return static_table[slot];
        }
    }
    return nullptr;
}

Symbol *find_dynamic(std::string_view name, uint32_t chain) noexcept {
    DynamicSymbol *record = symbols.chains[chain].load(std::memory_order_acquire);
    for (int depth = 0; record; ++depth, record = record->next) {
        if (depth == symbol_shallow) {
            return symbols.index.find(name);
        }
        if (std::strcmp(record->symbol.name, name.data()) == 0) {
            return &record->symbol;
        }
    }
    return nullptr;
}

// The record that one more push moves below the shallow part of its chain, or null.
DynamicSymbol *sinking_record(uint32_t chain) noexcept {
    DynamicSymbol *record = symbols.chains[chain].load(std::memory_order_relaxed);
    for (int depth = 1; record && depth < symbol_shallow; ++depth) {
        record = record->next;
    }
    return record;
}

bool reserve_record() noexcept {
    if (symbols.records_left > 0) {
        return true;
    }
    void *block = sysmem_newptr(records_per_block * sizeof(DynamicSymbol));
    if (!block) {
        return false;
    }
    symbols.records = static_cast<DynamicSymbol *>(block);
    symbols.records_left = records_per_block;
    return true;
}

// Makes room for a name with its terminator. What is left of an outgrown block is abandoned.
bool reserve_text(size_t size) noexcept {
    if (symbols.text_left >= size) {
        return true;
    }
    void *block = sysmem_newptrclear(text_block_size);
    if (!block) {
        return false;
    }
    symbols.text = static_cast<char *>(block);
    symbols.text_left = text_block_size;
    return true;
}

// The caller holds the lock and has not found the name.
Symbol *insert(std::string_view name, uint32_t chain) noexcept {
    name = name.substr(0, longest_name);
    DynamicSymbol *const sinking = sinking_record(chain);
    if (!reserve_record() || !reserve_text(name.size() + 1) ||
        (sinking && !symbols.index.reserve())) {
        return nullptr;
    }
    char *const text = symbols.text;
    std::memcpy(text, name.data(), name.size());
    text[name.size()] = '\0';
    symbols.text += name.size() + 1;
    symbols.text_left -= name.size() + 1;

    std::atomic<DynamicSymbol *> &head = symbols.chains[chain];
    auto *record =
        new (symbols.records) DynamicSymbol{{text, nullptr}, head.load(std::memory_order_relaxed)};
    ++symbols.records;
    --symbols.records_left;
    if (sinking) {
        symbols.index.add(&sinking->symbol);
    }
    head.store(record, std::memory_order_release);
    return &record->symbol;
}

}  // namespace

void symbols_start() noexcept {
    critical_new(&symbols.lock);
    unique_names_start();
    common_symbols_gettable();
}

int64_t symbols_count_dynamic() noexcept {
    int64_t count = 0;
    for (const std::atomic<DynamicSymbol *> &head : symbols.chains) {
        for (const DynamicSymbol *record = head.load(std::memory_order_acquire); record;
             record = record->next) {
            ++count;
        }
    }
    return count;
}

}  // namespace kiv

Symbol *gensym(const char *text) noexcept {
    using namespace kiv;
    if (!text) {
        return &predefined[predefined_count - 1];
    }
    text = context_prefixed(text);
    const std::string_view name = text;
    const uint32_t hash = hash_name(text, name.size());
    if (Symbol *symbol = find_static(text, hash)) {
        return symbol;
    }
    const uint32_t chain = hash % chain_modulus;
    if (Symbol *symbol = find_dynamic(name, chain)) {
        return symbol;
    }
    const Guard guard(symbols.lock);
    if (Symbol *symbol = find_dynamic(name, chain)) {
        return symbol;
    }
    return insert(name, chain);
}
