#include "sched/clock_tree.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>

#include "platform/platform.h"
#include "sched/scheduler.h"

namespace kiv {

namespace {

constexpr int32_t node_places = 32;
constexpr int32_t fewest_entries = node_places / 4;
constexpr int32_t most_merged = node_places * 3 / 4;
constexpr int32_t stride = 8;  // of a search in a node
constexpr double after_all = std::numeric_limits<double>::infinity();

// Of a leaf: a clock and its time. Of an inner node: a child, and a time that no key before it goes
// above and none in it goes below; the first child's says nothing.
struct Entry {
    double time;
    void *item;
};

}  // namespace

// The entries stand in order, from place `begin` on: a node whose first entry goes moves nothing.
// The places behind them have the time `after_all`.
struct ClockNode {
    int32_t begin;
    int32_t count;
    uint64_t sequence;  // none in the node that has the time of its entry in the parent goes below
    Entry places[node_places + stride];

    Entry *entries() noexcept { return places + begin; }
    const Entry *entries() const noexcept { return places + begin; }
    ClockNode *child(int32_t index) const noexcept {
        return static_cast<ClockNode *>(entries()[index].item);
    }
    Clock *clock(int32_t index) const noexcept {
        return static_cast<Clock *>(entries()[index].item);
    }
};

namespace {

// --- Spare nodes ---------------------------------------------------------------------------------

struct Spares {
    platform::CriticalSection lock;
    ClockNode *free = nullptr;  // linked by the items of their first places
    int64_t nodes = 0;          // spare and in trees
    int64_t clocks = 0;
    int64_t schedulers = 0;

    void push(ClockNode *node) noexcept {
        node->places[0].item = free;
        free = node;
    }
    ClockNode *pop() noexcept {
        ClockNode *const node = free;
        free = static_cast<ClockNode *>(node->places[0].item);
        return node;
    }
};
Spares &spares() {
    return immortal<Spares>();
}

ClockNode *node_take() noexcept {
    Spares &s = spares();
    const Guard guard(s.lock);
    ClockNode *const node = s.pop();
    node->begin = node->count = 0;
    node->sequence = 0;
    std::fill(std::begin(node->places), std::end(node->places), Entry{after_all, nullptr});
    return node;
}

void node_give(ClockNode *node) noexcept {
    Spares &s = spares();
    const Guard guard(s.lock);
    s.push(node);
}

// Leaves, their parents and so on, each a quarter full; and for each tree a root, and a first node
// on each of its levels.
int64_t nodes_needed(int64_t clocks, int64_t schedulers) noexcept {
    const int64_t levels = 2 + std::bit_width(static_cast<uint64_t>(clocks)) / 3;
    static_assert(fewest_entries == 8);  // a level for each three bits of the count
    return clocks / (fewest_entries - 1) + schedulers * levels;
}

// --- Entries of nodes ----------------------------------------------------------------------------

void move(const Entry *from, Entry *to, int32_t count) noexcept {
    std::memmove(to, from, static_cast<size_t>(count) * sizeof(Entry));
}

// The node is not full.
void put_in(ClockNode *node, int32_t index, Entry made) noexcept {
    Entry *entries = node->entries();
    if (node->begin > 0 && (index < node->count / 2 || node->begin + node->count == node_places)) {
        move(entries, entries - 1, index);
        --node->begin;
        --entries;
    } else {
        move(entries + index, entries + index + 1, node->count - index);
    }
    ++node->count;
    entries[index] = made;
}

// Leaves out the last entries.
void cut(ClockNode *node, int32_t count) noexcept {
    node->count -= count;
    std::fill_n(node->entries() + node->count, count, Entry{after_all, nullptr});
}

void erase(ClockNode *node, int32_t index) noexcept {
    if (index == 0) {
        ++node->begin;
        --node->count;
    } else {
        Entry *const erased = node->entries() + index;
        move(erased + 1, erased, node->count - index - 1);
        cut(node, 1);
    }
}

// Moves the entries of a node to its first places.
void normalize(ClockNode *node) noexcept {
    move(node->entries(), node->places, node->count);
    std::fill_n(node->places + node->count, node->begin, Entry{after_all, nullptr});
    node->begin = 0;
}

// Moves entries from the begin of the right node to the end of the left, or back when negative.
// The result is the entry of the right node in the parent.
Entry shift_left(ClockNode *left, ClockNode *right, int32_t count, int32_t level) noexcept {
    normalize(left);
    normalize(right);
    if (count >= 0) {
        move(right->places, left->places + left->count, count);
        move(right->places + count, right->places, right->count - count);
        left->count += count;
        cut(right, count);
    } else {
        move(right->places, right->places - count, right->count);
        move(left->places + left->count + count, right->places, -count);
        right->count -= count;
        cut(left, -count);
    }
    if (right->count > 0) {
        right->sequence = level > 0 ? right->child(0)->sequence : right->clock(0)->sequence;
    }
    return {right->places[0].time, right};
}

// How many entries have times up to the given one. Looks at every eighth and then at eight, since
// looks that do not wait for each other are faster than fewer that do.
int32_t times_up_to(const Entry *entries, int32_t count, double time) noexcept {
    int32_t up_to = 0;
    for (int32_t i = stride - 1; i < count; i += stride) {
        up_to += entries[i].time <= time ? stride : 0;
    }
    const Entry *const few = entries + up_to;
    for (int32_t i = 0; i < stride; ++i) {
        up_to += few[i].time <= time ? 1 : 0;
    }
    return std::min(up_to, count);
}

// The last child whose keys begin no higher than the given one, or the first.
int32_t child_for(const ClockNode *node, double time, uint64_t sequence) noexcept {
    int32_t index = times_up_to(node->entries() + 1, node->count - 1, time);
    while (index > 0 && node->entries()[index].time == time &&
           node->child(index)->sequence > sequence) {
        --index;
    }
    return index;
}

// Where a clock goes in a leaf.
int32_t place_for(const ClockNode *leaf, double time, uint64_t sequence) noexcept {
    int32_t index = times_up_to(leaf->entries(), leaf->count, time);
    while (index > 0 && leaf->entries()[index - 1].time == time &&
           leaf->clock(index - 1)->sequence > sequence) {
        --index;
    }
    return index;
}

// A leaf that is about to be searched.
void prefetch(const ClockNode *node) noexcept {
    const auto *const bytes = reinterpret_cast<const char *>(node);
    for (size_t line = 0; line < offsetof(ClockNode, places[node_places]); line += 64) {
        __builtin_prefetch(bytes + line, 1);
    }
}

}  // namespace

bool clock_nodes_reserve(int32_t clocks, int32_t schedulers) noexcept {
    Spares &s = spares();
    const Guard guard(s.lock);
    const int64_t needed = nodes_needed(s.clocks + clocks, s.schedulers + schedulers);
    for (; s.nodes < needed; ++s.nodes) {
        auto *const made = static_cast<ClockNode *>(sysmem_newptr(sizeof(ClockNode)));
        if (!made) {
            return false;
        }
        s.push(made);
    }
    s.clocks += clocks;
    s.schedulers += schedulers;
    for (; s.nodes > needed; --s.nodes) {
        sysmem_freeptr(s.pop());
    }
    return true;
}

// --- Trees ---------------------------------------------------------------------------------------

// The way to the leaf of a key; without the index there.
void ClockTree::find_leaf(double time, uint64_t sequence, Way &way) const noexcept {
    ClockNode *node = root_;
    for (int32_t level = top_; level > 0; --level) {
        const int32_t index = child_for(node, time, sequence);
        way[level] = {node, index};
        node = node->child(index);
    }
    way[0] = {node, 0};
    prefetch(node);
}

// The clock before the entry that a way leads to.
Clock *ClockTree::before(const Way &way) const noexcept {
    int32_t level = 0;
    while (way[level].index == 0) {
        if (level == top_) {
            return nullptr;
        }
        ++level;
    }
    const ClockNode *node = way[level].node;
    int32_t index = way[level].index - 1;
    for (; level > 0; --level) {
        node = node->child(index);
        index = node->count - 1;
    }
    return node->clock(index);
}

// Puts a clock in where a way leads to.
void ClockTree::put_in_at(Way &way, double time, Clock *clock) noexcept {
    Entry made{time, clock};
    for (int32_t level = 0;; ++level) {
        const auto [node, index] = way[level];
        if (node->count < node_places) {
            put_in(node, index, made);
            return;
        }
        ClockNode *const right = node_take();
        last_ = node == last_ ? right : last_;
        // What goes to the end is likely to be followed by more.
        const int32_t moved = index == node_places ? fewest_entries : node_places / 2;
        const Entry parted = shift_left(node, right, -moved, level);
        if (index > node->count) {
            put_in(right, index - node->count, made);
        } else {
            put_in(node, index, made);
        }
        made = parted;
        if (level == top_) {
            root_ = node_take();
            put_in(root_, 0, {0.0, node});
            put_in(root_, 1, made);
            ++top_;
            return;
        }
        ++way[level + 1].index;
    }
}

// Puts a clock at the end if it belongs there and there is room.
bool ClockTree::append(const ClockArrival &arrival, Clock **previous) noexcept {
    if (!root_) {
        root_ = first_ = last_ = node_take();
    }
    *previous = last_->count > 0 ? last_->clock(last_->count - 1) : nullptr;
    if (last_->begin + last_->count == node_places ||
        (*previous && fires_before(arrival, **previous))) {
        return false;
    }
    last_->entries()[last_->count++] = {arrival.sort_time, arrival.clock};
    return true;
}

// Groups find their leaves first, so that these come into the cache side by side; a group ends
// where a node is parted, since the ways found may then be wrong.
void ClockTree::insert(std::span<const ClockArrival> arrivals, Clock **previous) noexcept {
    constexpr size_t group = 8;
    Way ways[group];
    for (size_t done = 0; done < arrivals.size();) {
        if (append(arrivals[done], previous + done)) {
            ++done;
            continue;
        }
        const size_t count = std::min(group, arrivals.size() - done);
        for (size_t i = 0; i < count; ++i) {
            find_leaf(arrivals[done + i].sort_time, arrivals[done + i].sequence, ways[i]);
        }
        bool parted = false;
        for (size_t i = 0; i < count && !parted; ++i, ++done) {
            const ClockArrival &arrival = arrivals[done];
            Step &leaf = ways[i][0];
            leaf.index = place_for(leaf.node, arrival.sort_time, arrival.sequence);
            previous[done] = before(ways[i]);
            parted = leaf.node->count == node_places;
            put_in_at(ways[i], arrival.sort_time, arrival.clock);
        }
    }
}

// Takes out the entry that a way leads to, and fills or takes out the nodes above it.
void ClockTree::take_out(Way &way) noexcept {
    int32_t turn = top_;  // from this level up, the way goes along the first nodes
    while (turn > 0 && way[turn].index == 0) {
        --turn;
    }
    bool end_gone = false;
    erase(way[0].node, way[0].index);
    for (int32_t level = 0; level < top_; ++level) {
        ClockNode *node = way[level].node;
        ClockNode *const parent = way[level + 1].node;
        int32_t index = way[level + 1].index;
        if (node->count >= (level < turn ? fewest_entries : 1)) {
            break;
        }
        if (level < turn) {
            index = std::max(index, 1);
            ClockNode *const left = parent->child(index - 1);
            node = parent->child(index);
            const int32_t both = left->count + node->count;
            if (both > most_merged) {
                parent->entries()[index] = shift_left(left, node, both / 2 - left->count, level);
                break;
            }
            shift_left(left, node, node->count, level);
        }
        erase(parent, index);
        end_gone = end_gone || node == first_ || node == last_;
        node_give(node);
    }
    while (top_ > 0 && root_->count == 1) {
        ClockNode *const child = root_->child(0);
        node_give(root_);
        root_ = child;
        --top_;
    }
    if (root_->count == 0) {
        node_give(root_);
        root_ = nullptr;
    } else if (end_gone) {
        first_ = last_ = root_;
        for (int32_t level = top_; level > 0; --level) {
            first_ = first_->child(0);
            last_ = last_->child(last_->count - 1);
        }
    }
}

Clock *ClockTree::remove(const Clock *clock) noexcept {
    Way way;
    find_leaf(clock->sort_time, clock->sequence, way);
    Step &leaf = way[0];
    leaf.index = times_up_to(leaf.node->entries(), leaf.node->count, clock->sort_time) - 1;
    while (leaf.node->clock(leaf.index) != clock) {
        --leaf.index;
    }
    Clock *const previous = before(way);
    take_out(way);
    return previous;
}

void ClockTree::remove_first() noexcept {
    if (first_->count > 1) {
        erase(first_, 0);
        return;
    }
    Way way;
    way[top_] = {root_, 0};
    for (int32_t level = top_; level > 0; --level) {
        way[level - 1] = {way[level].node->child(0), 0};
    }
    take_out(way);
}

void ClockTree::clear() noexcept {
    while (root_) {
        remove_first();
    }
}

Clock *ClockTree::near_first(int32_t places) const noexcept {
    return root_ && places < first_->count ? first_->clock(places) : nullptr;
}

// --- Check ---------------------------------------------------------------------------------------

namespace {

using Key = std::pair<double, uint64_t>;

// Walks a part of a tree, whose keys are to lie from `low` to below `high`, along the chain of
// clocks that it should hold.
const char *check_node(const ClockNode *node, int32_t level, bool first, Key low, Key high,
                       const Clock *&chain) {
    if (node->count < (first ? 1 : fewest_entries) || node->begin + node->count > node_places) {
        return "a node of the clocks' tree is filled wrong";
    }
    const auto key = [node](int32_t child) {
        return Key(node->entries()[child].time, node->child(child)->sequence);
    };
    for (int32_t i = 0; i < node->count; ++i) {
        if (level > 0) {
            if (const char *const broken =
                    check_node(node->child(i), level - 1, first && i == 0, i > 0 ? key(i) : low,
                               i + 1 < node->count ? key(i + 1) : high, chain)) {
                return broken;
            }
            continue;
        }
        if (node->clock(i) != chain || node->entries()[i].time != chain->sort_time) {
            return "the clocks' tree does not hold what waits";
        }
        const Key own(chain->sort_time, chain->sequence);
        if (own < low || !(own < high)) {
            return "a clock stands in the wrong node of the clocks' tree";
        }
        chain = chain->next;
    }
    return nullptr;
}

}  // namespace

const char *ClockTree::check(const Clock *chain) const noexcept {
    const Clock *rest = chain;
    if (root_) {
        if (const char *const broken = check_node(root_, top_, true, Key(-after_all, 0),
                                                  Key(after_all, UINT64_MAX), rest)) {
            return broken;
        }
    }
    return rest || (root_ && first_->clock(0) != chain)
               ? "the clocks' tree does not hold what waits"
               : nullptr;
}

}  // namespace kiv
