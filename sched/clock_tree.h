// The waiting clocks of one queue by their times: a B-tree, whose nodes hold their keys packed, so
// that a place among a million clocks is found in a few cache lines.
//
// A key is a sort time and, where these are equal, a sequence; a clock keeps its key while it is in
// a tree. All nodes are at least a quarter full, but for the root and the first of each level. So
// all trees together never need more nodes than clock_nodes_reserve() put by when the clocks and
// schedulers were made, and putting a clock in asks for no memory.
// Thread safety: a queue's lock guards its tree. The spare nodes have a lock of their own, inside
// which nothing else is locked.
#pragma once

#include <cstdint>
#include <span>

struct Clock;

namespace kiv {

struct ClockArrival;
struct ClockNode;

class ClockTree {
  public:
    // Puts clocks in, one after the other, and notes for each the one that is before it then, or
    // null.
    void insert(std::span<const ClockArrival> arrivals, Clock **previous) noexcept;
    // Takes a clock out. The result is the one before it, or null.
    Clock *remove(const Clock *clock) noexcept;
    void remove_first() noexcept;
    void clear() noexcept;
    // The clock `places` behind the first one, or null when it is not near.
    Clock *near_first(int32_t places) const noexcept;
    // Names what is broken in a tree that should hold a chain of clocks, or answers null. Tests
    // only.
    const char *check(const Clock *chain) const noexcept;

  private:
    // A way from a leaf (level 0) to the root: at each level a node, and an index in it.
    struct Step {
        ClockNode *node;
        int32_t index;
    };
    static constexpr int32_t most_levels = 16;
    using Way = Step[most_levels];

    bool append(const ClockArrival &arrival, Clock **previous) noexcept;
    void find_leaf(double time, uint64_t sequence, Way &way) const noexcept;
    Clock *before(const Way &way) const noexcept;
    void put_in_at(Way &way, double time, Clock *clock) noexcept;
    void take_out(Way &way) noexcept;

    ClockNode *root_ = nullptr;   // null: no clocks
    int32_t top_ = 0;             // the level of the root
    ClockNode *first_ = nullptr;  // leaf
    ClockNode *last_ = nullptr;   // leaf
};

// Counts clocks and schedulers made (or freed, when negative) and keeps the nodes these may need.
// False, and nothing counted, when there is no memory for them.
bool clock_nodes_reserve(int32_t clocks, int32_t schedulers) noexcept;

}  // namespace kiv
