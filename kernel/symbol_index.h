// Finds any symbol by a hash of its whole name.
//
// The hash of the symbol table reads sixteen characters at most, one after the other, and its
// chains grow with the number of names. The index answers in the time of one comparison however
// many names there are and however much they have in common; so a look-up walks no chain.
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

class SymbolIndex {
  public:
    static uint64_t hash_of(std::string_view name) noexcept;

    constexpr SymbolIndex() noexcept = default;
    // The newest record of a NUL-terminated name and its hash, or null. Any thread.
    Symbol *find(const char *name, uint64_t hash) const noexcept;
    // Grows with each record added: what was not found is still missing while it stays the same.
    uint64_t count() const noexcept { return count_.load(std::memory_order_acquire); }
    // Makes room for one more record; false when there is no memory. Writer only.
    bool reserve() noexcept;
    // Adds a record after a successful reserve; it takes the place of an older one of its name.
    void add(Symbol *symbol, uint64_t hash) noexcept;

  private:
    struct Slot {
        uint64_t hash;
        Symbol *symbol;  // published last
    };
    struct Table {
        Table *outgrown;
        uint64_t mask;
        Slot slots[1];
    };
    static Table *make_table(uint64_t size) noexcept;
    static void move(const Table *from, Table *to) noexcept;

    std::atomic<Table *> table_{nullptr};
    std::atomic<uint64_t> count_{0};
};

}  // namespace kiv
