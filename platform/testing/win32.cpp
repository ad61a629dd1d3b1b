#include <mutex>

#include "platform/testing/testing.h"
#include "platform/win32/win32.h"
// After windows.h, on which it rests.
#include <psapi.h>

namespace kiv::test {

// --- Debug output --------------------------------------------------------------------------------

namespace {

constexpr DWORD debug_print = 0x40010006;  // DBG_PRINTEXCEPTION_C: length with the end, text

std::mutex capture_lock;
std::string captured;
void *capture = nullptr;

// The debug stream reaches a debugger as an exception, which handlers of the process see first.
LONG CALLBACK on_debug_print(EXCEPTION_POINTERS *pointers) {
    const EXCEPTION_RECORD &record = *pointers->ExceptionRecord;
    if (record.ExceptionCode != debug_print || record.NumberParameters < 2) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    const std::lock_guard guard(capture_lock);
    captured += reinterpret_cast<const char *>(record.ExceptionInformation[1]);
    return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

void debug_capture_start() {
    const std::lock_guard guard(capture_lock);
    captured.clear();
    capture = AddVectoredExceptionHandler(1, on_debug_print);
}

std::string debug_capture_end() {
    RemoveVectoredExceptionHandler(capture);
    const std::lock_guard guard(capture_lock);
    return captured;
}

// --- Time ----------------------------------------------------------------------------------------

double processor_ms() {
    FILETIME created, ended, in_system, in_program;
    GetProcessTimes(GetCurrentProcess(), &created, &ended, &in_system, &in_program);
    constexpr double ms_per_unit = 1e-4;
    return ms_per_unit * (static_cast<double>(in_system.dwLowDateTime) +
                          static_cast<double>(in_program.dwLowDateTime));
}

// --- Memory --------------------------------------------------------------------------------------

int64_t resident_memory() {
    PROCESS_MEMORY_COUNTERS counters{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return static_cast<int64_t>(counters.WorkingSetSize);
}

HalfReadable::HalfReadable(size_t half) : half_(half) {
    begin_ = static_cast<char *>(
        VirtualAlloc(nullptr, 2 * half, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    DWORD before;
    VirtualProtect(middle(), half, PAGE_NOACCESS, &before);
}

HalfReadable::~HalfReadable() {
    VirtualFree(begin_, 0, MEM_RELEASE);
}

// Faults are handled on the stack of the thread itself.
FaultStack::FaultStack() = default;
FaultStack::~FaultStack() = default;
bool FaultStack::in_place() const {
    return true;
}

// --- Processes -----------------------------------------------------------------------------------

void environment_set(const char *name, const std::string &value) {
    SetEnvironmentVariableA(name, value.c_str());
}

// The system makes no copies of a process.
Outcome run_killed(const std::function<bool()> &, int) {
    return Outcome::impossible;
}

}  // namespace kiv::test
