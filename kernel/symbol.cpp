// The symbol table.
//
// 1. The static table and the predefined records are complete before any code runs and never
//    change, but for the `thing` of a record, which belongs to whoever binds the name.
// 2. A dynamic record is complete before it is pushed at its chain's head with release order, and
//    its name and link never change afterwards: readers take no lock.
// 3. Insertion holds the symbol-table lock and looks again inside it, unless nothing was inserted
//    since the first look.
// 4. Every record is in the index, by a hash of its whole name, before anybody is given it; the
//    predefined ones are put there by start-up. So a look-up asks the index alone, and no chain is
//    walked, however long it has become.
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
constexpr size_t hashed_characters = 16;
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

constexpr uint32_t hash_name(std::string_view name) {
    if (name.size() > hashed_characters && name.starts_with("obj:")) {
        name.remove_prefix(name.size() - hashed_characters);
    }
    uint32_t hash = 1;
    for (const char c : name.substr(0, hashed_characters)) {
        const auto character = static_cast<uint32_t>(static_cast<signed char>(c));
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
        size_t slot = hash_name(names[i]) % table.size();
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
    std::atomic<bool> started{false};  // the predefined names are in the index

    // Guarded by the lock; null (the global region) until start-up has made it.
    CriticalRef lock = nullptr;
    char *text = nullptr;  // free text of the current block
    size_t text_left = 0;
    DynamicSymbol *records = nullptr;  // free records of the current block
    size_t records_left = 0;
};
constinit SymbolTable symbols;

Symbol *find_static(std::string_view name, uint32_t hash) noexcept {
    for (size_t slot = hash % static_table.size(); static_table[slot];
         slot = slot + 1 == static_table.size() ? 0 : slot + 1) {
        if (symbol_is(static_table[slot], name)) {
            return static_table[slot];
        }
    }
    return nullptr;
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
Symbol *insert(std::string_view name, uint32_t chain, uint32_t hash) noexcept {
    const bool cut = name.size() > longest_name;
    name = name.substr(0, longest_name);
    if (!reserve_record() || !reserve_text(name.size() + 1) || !symbols.index.reserve()) {
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
    head.store(record, std::memory_order_release);
    symbols.index.add(&record->symbol, cut ? SymbolIndex::hash_of(name) : hash);
    return &record->symbol;
}

// A name that the index does not hold, which held `seen` records then.
[[gnu::noinline]] Symbol *make(std::string_view name, uint32_t hash, uint64_t seen) noexcept {
    const uint32_t stated = hash_name(name);
    const uint32_t chain = stated % chain_modulus;
    __builtin_prefetch(&symbols.chains[chain], 1);
    if (!symbols.started.load(std::memory_order_acquire)) {
        if (Symbol *const symbol = find_static(name, stated)) {
            return symbol;
        }
    }
    const Guard guard(symbols.lock);
    if (symbols.index.count() != seen) {
        if (Symbol *const symbol = symbols.index.find(name, hash)) {
            return symbol;
        }
    }
    return insert(name, chain, hash);
}

Symbol *intern(std::string_view name) noexcept {
    const uint32_t hash = SymbolIndex::hash_of(name);
    const uint64_t seen = symbols.index.count();
    if (Symbol *const symbol = symbols.index.find(name, hash)) {
        return symbol;
    }
    return make(name, hash, seen);
}

}  // namespace

Symbol *symbol_named(std::string_view name) noexcept {
    if (!name.starts_with('-')) {
        return intern(name);
    }
    try {
        return gensym(Text(name).c_str());
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

void symbols_start() noexcept {
    critical_new(&symbols.lock);
    {
        const Guard guard(symbols.lock);
        bool whole = true;
        for (Symbol &symbol : predefined) {
            whole = whole && symbols.index.reserve();
            if (whole) {
                symbols.index.add(&symbol, SymbolIndex::hash_of(symbol.name));
            }
        }
        symbols.started.store(whole, std::memory_order_release);
    }
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
    return intern(*text == '-' ? context_prefixed(text) : text);
}
