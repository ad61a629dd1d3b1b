// Finds the symbols that lie deep in their chains.
//
// The stated hash reads sixteen characters, so names that differ only later share one chain, and
// walking it would make interning them quadratic. The index holds every record that lies deeper in
// its chain than `symbol_shallow` links, by a hash of its whole name; ordinary chains are shorter,
// so ordinary look-ups never come here.
//
// One writer at a time (the holder of the symbol table's lock), readers without a lock. A slot's
// hash is written before its record is published, a slot is never emptied, and an outgrown table
// stays readable for ever: readers may still be in it.
#pragma once

#include <kiv/symbol.h>

#include <atomic>
#include <cstdint>
#include <string_view>

namespace kiv {

inline constexpr int symbol_shallow = 8;

class SymbolIndex {
  public:
    constexpr SymbolIndex() noexcept = default;
    // The newest record of this name, or null. Any thread.
    Symbol *find(std::string_view name) const noexcept;
    // Makes room for one more record; false when there is no memory. Writer only.
    bool reserve() noexcept;
    // Adds a record after a successful reserve; it takes the place of an older one of its name.
    void add(Symbol *symbol) noexcept;

  private:
    struct Slot {
        std::atomic<uint64_t> hash;
        std::atomic<Symbol *> symbol;
    };
    struct Table {
        Table *outgrown;
        uint64_t mask;
        Slot slots[1];
    };
    static Table *make_table(uint64_t size) noexcept;
    static void put(Table *table, uint64_t hash, Symbol *symbol) noexcept;

    std::atomic<Table *> table_{nullptr};
    uint64_t count_ = 0;  // writer only
};

}  // namespace kiv
