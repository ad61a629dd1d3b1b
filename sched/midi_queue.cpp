#include "sched/midi_queue.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>

#include "sched/scheduler.h"

namespace kiv {

namespace {

constexpr double most_late_ms = 1000.0;

struct Packet {
    MidiOutput *output;
    Vector<uint8_t> bytes;
};
using Packets =
    std::multimap<double, Packet, std::less<>, SysAllocator<std::pair<const double, Packet>>>;

struct State {
    Packets packets;               // by time, equal times in the order of adding
    std::atomic<size_t> count{0};  // read without the lock
};
State &state() {
    return immortal<State>();
}

// Takes the first packet when its time is `time` or, when that is infinite, at `now` or before.
Packets::node_type take_first(double time, double now) {
    const Guard guard(scheduler_global()->queue_lock);
    Packets &packets = state().packets;
    if (packets.empty() || packets.begin()->first > now ||
        (!std::isinf(time) && packets.begin()->first != time)) {
        return {};
    }
    state().count.store(packets.size() - 1);
    return packets.extract(packets.begin());
}

}  // namespace

void MidiMemoryOutput::send(double time, std::span<const uint8_t> bytes) noexcept {
    try {
        sent_.push_back({time, {bytes.begin(), bytes.end()}});
    } catch (const std::bad_alloc &) {
        // The allocation has reported it; a device that fails loses the packet as well.
    }
}

bool midi_queue_add(MidiOutput *output, double time, std::span<const uint8_t> bytes) noexcept {
    const double due = std::isnan(time) ? 0.0 : time;
    try {
        Packet packet{output, {bytes.begin(), bytes.end()}};
        const Guard guard(scheduler_global()->queue_lock);
        state().packets.emplace(due, std::move(packet));
        state().count.store(state().packets.size());
    } catch (const std::bad_alloc &) {
        return false;
    }
    timer_clock_set(due);
    return true;
}

void midi_queue_forget(MidiOutput *output) noexcept {
    const Guard no_pass(scheduler_global()->run_lock);
    const Guard guard(scheduler_global()->queue_lock);
    std::erase_if(state().packets,
                  [output](const auto &entry) { return entry.second.output == output; });
    state().count.store(state().packets.size());
}

bool midi_queue_waiting() noexcept {
    return state().count.load(std::memory_order_relaxed) != 0;
}

double midi_queue_next() noexcept {
    return state().packets.empty() ? std::numeric_limits<double>::infinity()
                                   : state().packets.begin()->first;
}

bool midi_queue_send(double now) noexcept {
    double time = std::numeric_limits<double>::infinity();
    bool sent = false;
    while (const Packets::node_type first = take_first(time, now)) {
        time = first.key();
        first.mapped().output->send(std::max(time, now - most_late_ms), first.mapped().bytes);
        sent = true;
    }
    return sent;
}

}  // namespace kiv
