// The entries that wait to be displayed: a ring of records of various lengths in one fixed block,
// so that posting never allocates and waiting entries never take more than that block.
//
// When the block is full the queue overflows: it refuses entries, counting them for each source,
// until everything before them has been taken and the counts have been reported. So the report
// stands where the refused entries would have stood.
//
// Not locked: the console store guards it.
#pragma once

#include <cstddef>
#include <string_view>

#include "console/internal.h"

namespace kiv {

inline constexpr size_t console_text_size = 2048;  // with the terminator

// An entry with its text, as the display gets it.
struct TakenEntry {
    ConsoleEntry entry;
    char text[console_text_size];  // entry.text points here
};

class PendingEntries {
  public:
    // Copies an entry and its text, and gives the entry its stamp; false when it is refused.
    bool push(ConsoleEntry entry, std::string_view text) noexcept;
    // Counts an entry that was refused for good.
    void drop(const ConsoleEntry &entry) noexcept;
    // Takes the oldest entry, unless it is younger than `limit`; false when there is none.
    bool take(int64_t limit, TakenEntry *out) noexcept;
    // Takes the report on one source of refused entries, once no entry waits; false when none.
    bool take_report(TakenEntry *out) noexcept;
    int64_t stamp() const noexcept { return stamp_; }  // of the youngest entry

  private:
    struct Record {
        size_t size;  // of the whole record; 0: the rest of the block is not used
        size_t length;
        ConsoleEntry entry;
        char *text() noexcept { return reinterpret_cast<char *>(this + 1); }
    };
    struct Dropped {
        Object *source;
        ConsoleOrigin origin;
        int64_t count;
    };
    static constexpr size_t capacity = size_t{4} << 20;
    static constexpr int dropped_sources = 8;  // the last slot also counts all further sources

    Record *record_at(size_t offset) noexcept;
    Record *room_for(size_t size) noexcept;

    alignas(16) std::byte block_[capacity]{};
    size_t head_ = 0;  // the oldest record
    size_t tail_ = 0;  // where the next one goes
    size_t used_ = 0;  // bytes between them
    int64_t stamp_ = 0;
    Dropped dropped_[dropped_sources]{};
    int dropped_count_ = 0;
};

}  // namespace kiv
