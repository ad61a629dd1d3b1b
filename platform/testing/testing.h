// What only tests ask of the system. Part of the test programs, not of the runtime.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace kiv::test {

// The debug output of the process between the two calls; captures do not nest.
void debug_capture_start();
std::string debug_capture_end();

// The processor time that the process has used, in ms.
double processor_ms();

// The memory that the process holds, in bytes; 0 where the system does not tell.
int64_t resident_memory();

// Memory of which the first half can be read and the second cannot.
class HalfReadable {
  public:
    explicit HalfReadable(size_t half);  // a multiple of 64 KB
    ~HalfReadable();
    HalfReadable(const HalfReadable &) = delete;
    HalfReadable &operator=(const HalfReadable &) = delete;
    char *begin() const { return begin_; }
    char *middle() const { return begin_ + half_; }

  private:
    char *begin_;
    size_t half_;
};

// Where the system runs fault handlers on a stack that a thread may choose: one for the calling
// thread, as long as this lives.
class FaultStack {
  public:
    FaultStack();
    ~FaultStack();
    FaultStack(const FaultStack &) = delete;
    FaultStack &operator=(const FaultStack &) = delete;
    bool in_place() const;

  private:
    std::string memory_;
};

// Sets a variable of the process's environment, which processes that it starts inherit.
void environment_set(const char *name, const std::string &value);

// Runs a function in a copy of the process that is killed at its n-th stop at a system call (there
// are two stops for each).
enum class Outcome { ended_well, ended_badly, killed, impossible };
Outcome run_killed(const std::function<bool()> &function, int n);

}  // namespace kiv::test
