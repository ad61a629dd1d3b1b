// Critical sections and events.
#include <algorithm>
#include <cmath>
#include <new>

#include "platform/platform.h"
#include "platform/win32/win32.h"

namespace kiv::platform {

namespace {

constexpr DWORD spin_count = 200;

CRITICAL_SECTION *section(std::byte *storage) {
    return std::launder(reinterpret_cast<CRITICAL_SECTION *>(storage));
}

HANDLE &event_handle(std::byte *storage) {
    return *std::launder(reinterpret_cast<HANDLE *>(storage));
}

// The system waits whole milliseconds: rather a little longer than not long enough.
DWORD timeout(double ms) {
    constexpr double longest_ms = 1e9;
    return ms < 0.0 ? INFINITE : static_cast<DWORD>(std::ceil(std::min(ms, longest_ms)));
}

}  // namespace

CriticalSection::CriticalSection() noexcept {
    static_assert(sizeof(CRITICAL_SECTION) <= sizeof storage_);
    InitializeCriticalSectionAndSpinCount(new (storage_) CRITICAL_SECTION, spin_count);
}

CriticalSection::~CriticalSection() {
    DeleteCriticalSection(section(storage_));
}

void CriticalSection::enter() noexcept {
    EnterCriticalSection(section(storage_));
}

void CriticalSection::exit() noexcept {
    LeaveCriticalSection(section(storage_));
}

bool CriticalSection::try_enter() noexcept {
    return TryEnterCriticalSection(section(storage_)) != 0;
}

Event::Event(bool manual_reset) noexcept {
    new (storage_) HANDLE(CreateEventW(nullptr, manual_reset, FALSE, nullptr));
}

Event::~Event() {
    CloseHandle(event_handle(storage_));
}

void Event::set() noexcept {
    SetEvent(event_handle(storage_));
}

void Event::reset() noexcept {
    ResetEvent(event_handle(storage_));
}

bool Event::wait(double ms) noexcept {
    return WaitForSingleObject(event_handle(storage_), timeout(ms)) == WAIT_OBJECT_0;
}

int Event::wait_either(Event &first, Event &second, double ms) noexcept {
    const HANDLE handles[] = {event_handle(first.storage_), event_handle(second.storage_)};
    const DWORD result = WaitForMultipleObjects(2, handles, FALSE, timeout(ms));
    return result == WAIT_OBJECT_0 ? 0 : result == WAIT_OBJECT_0 + 1 ? 1 : -1;
}

}  // namespace kiv::platform
