#include "console/pending.h"

#include <kiv/symbol.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <new>

namespace kiv {

PendingEntries::Record *PendingEntries::record_at(size_t offset) noexcept {
    return std::launder(reinterpret_cast<Record *>(block_ + offset));
}

// Advances the tail over `size` bytes in one piece, or null when there are none.
PendingEntries::Record *PendingEntries::room_for(size_t size) noexcept {
    if (used_ == 0) {
        head_ = tail_ = 0;
    }
    if (used_ == 0 || tail_ > head_) {
        const size_t rest = capacity - tail_;
        if (size > rest) {
            if (size > head_) {
                return nullptr;
            }
            if (rest > 0) {
                *reinterpret_cast<size_t *>(block_ + tail_) = 0;
            }
            used_ += rest;
            tail_ = 0;
        }
    } else if (size > head_ - tail_) {
        return nullptr;
    }
    auto *record = reinterpret_cast<Record *>(block_ + tail_);
    tail_ += size;
    used_ += size;
    return record;
}

void PendingEntries::drop(const ConsoleEntry &entry) noexcept {
    ++stamp_;  // the gap shows in the numbers of the entries around it
    int slot = 0;
    while (slot < dropped_count_ && dropped_[slot].source != entry.source) {
        ++slot;
    }
    if (slot == dropped_count_ && dropped_count_ < dropped_sources) {
        dropped_[dropped_count_++] = {entry.source, entry.origin, 0};
    } else if (slot == dropped_count_) {
        slot = dropped_sources - 1;
        dropped_[slot].source = nullptr;
        dropped_[slot].origin = {""_sym, ""_sym, ""_sym};
    }
    ++dropped_[slot].count;
}

bool PendingEntries::push(ConsoleEntry entry, std::string_view text) noexcept {
    constexpr size_t alignment = alignof(Record);
    const size_t size = (sizeof(Record) + text.size() + 1 + alignment - 1) & ~(alignment - 1);
    Record *place = dropped_count_ == 0 ? room_for(size) : nullptr;
    if (!place) {
        return false;
    }
    entry.stamp = ++stamp_;
    auto *record = new (place) Record{size, text.size(), entry};
    std::memcpy(record->text(), text.data(), text.size());
    record->text()[text.size()] = '\0';
    return true;
}

bool PendingEntries::take(int64_t limit, TakenEntry *out) noexcept {
    if (used_ == 0) {
        return false;
    }
    if (head_ == capacity || *reinterpret_cast<size_t *>(block_ + head_) == 0) {
        used_ -= capacity - head_;
        head_ = 0;
    }
    Record *record = record_at(head_);
    if (record->entry.stamp > limit) {
        return false;
    }
    out->entry = record->entry;
    std::memcpy(out->text, record->text(), record->length + 1);
    out->entry.text = out->text;
    head_ += record->size;
    used_ -= record->size;
    return true;
}

bool PendingEntries::take_report(TakenEntry *out) noexcept {
    if (used_ != 0 || dropped_count_ == 0) {
        return false;
    }
    const Dropped report = dropped_[0];
    std::copy(dropped_ + 1, dropped_ + dropped_count_, dropped_);
    --dropped_count_;
    std::snprintf(out->text, sizeof out->text, "console overflow: %" PRId64 " messages dropped",
                  report.count);
    out->entry = {report.source, PostWarning, 7, out->text, 0, ++stamp_, report.origin};
    return true;
}

}  // namespace kiv
