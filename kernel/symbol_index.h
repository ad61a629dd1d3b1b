// Finds any symbol by a hash of its whole name.
//
// The hash of the symbol table reads sixteen characters at most, one after the other, and its
// chains grow with the number of names. The index answers in the time of one comparison however
// many names there are and however much they have in common; so a look-up walks no chain.
//
// Hashes and records stand in two arrays, so that looking for a name that is new waits for the
// small one alone; the place in the other one is being fetched meanwhile.
//
// One writer at a time (the holder of the symbol table's lock), readers without a lock. A slot's
// record is written before its hash publishes it, a slot is never emptied, and an outgrown table
// stays readable for ever: readers may still be in it.
#pragma once

#include <kiv/symbol.h>

#include <atomic>
#include <cstdint>
#include <string_view>

namespace kiv {

class SymbolIndex {
  public:
    static uint32_t hash_of(std::string_view name) noexcept;  // never 0

    constexpr SymbolIndex() noexcept = default;
    // The newest record of a name, of which this is the hash, or null. Any thread.
    Symbol *find(std::string_view name, uint32_t hash) const noexcept;
    // Grows with each record added: what was not found is still missing while it stays the same.
    uint64_t count() const noexcept { return count_.load(std::memory_order_acquire); }
    // Makes room for one more record; false when there is no memory. Writer only.
    bool reserve() noexcept;
    // Adds a record after a successful reserve; it takes the place of an older one of its name.
    void add(Symbol *symbol, uint32_t hash) noexcept;

  private:
    struct Table {
        Table *outgrown;
        uint64_t mask;
        Symbol **symbols;
        uint32_t *hashes;  // 0: the slot is empty

        uint64_t home(uint32_t hash) const noexcept { return hash >> 1 & mask; }
        uint64_t next(uint64_t at) const noexcept { return (at + 1) & mask; }
    };
    static Table *make_table(uint64_t size) noexcept;
    static void move(const Table *from, Table *to) noexcept;

    std::atomic<Table *> table_{nullptr};
    std::atomic<uint64_t> count_{0};
};

}  // namespace kiv
