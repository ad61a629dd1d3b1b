// MIDI packets that wait for their time: the global scheduler's passes send them, before its
// clocks.
//
// An output stands for a device. There is no device yet: MidiMemoryOutput keeps what it is sent.
// Packets wait under the global scheduler's queue lock; an output's `send` runs in the pass, under
// the run lock alone, and may add packets.
#pragma once

#include <cstdint>
#include <span>

#include "sched/internal.h"

namespace kiv {

class MidiOutput {
  public:
    virtual ~MidiOutput() = default;
    // Takes a packet that is due. `time` is the scheduler time it stands for: its own, or when it
    // is more than 1,000 ms late, 1,000 ms ago. The bytes are the caller's.
    virtual void send(double time, std::span<const uint8_t> bytes) noexcept = 0;
};

class MidiMemoryOutput final : public MidiOutput {
  public:
    struct Packet {
        double time;
        Vector<uint8_t> bytes;
    };
    void send(double time, std::span<const uint8_t> bytes) noexcept override;
    const Vector<Packet> &sent() const noexcept { return sent_; }

  private:
    Vector<Packet> sent_;
};

// Copies a packet into the queue, behind those of the same time; false without memory. Any thread.
bool midi_queue_add(MidiOutput *output, double time, std::span<const uint8_t> bytes) noexcept;
// Drops what waits for an output, which nothing is sent to afterwards. Any thread.
void midi_queue_forget(MidiOutput *output) noexcept;

// For the passes. Whether any packet waits; the time of the first (the caller holds the global
// queue lock; infinite for none); and the sending of those that are due first, all of one time:
// false when none is.
bool midi_queue_waiting() noexcept;
double midi_queue_next() noexcept;
bool midi_queue_send(double now) noexcept;

}  // namespace kiv
