// Named semaphores: the system's own, in the names of this session. A Semaphore is its handle.
#include <algorithm>

#include "platform/platform.h"
#include "platform/win32/win32.h"

namespace kiv::platform {

namespace {

constexpr size_t max_name = 250;

// A prefix and the given name; '\\' would name another session's objects.
std::wstring object_name(const char *name) {
    std::wstring result = L"kiv-" + to_wide(name);
    std::replace(result.begin(), result.end(), L'\\', L'/');
    return result;
}

}  // namespace

Semaphore *semaphore_create(const char *name, int32_t initial_count, int32_t max_count) noexcept {
    try {
        const std::wstring wide = object_name(name);
        if (wide.size() > max_name) {
            return nullptr;
        }
        // Values out of range are refused by the system.
        return static_cast<Semaphore *>(
            static_cast<void *>(CreateSemaphoreW(nullptr, initial_count, max_count, wide.c_str())));
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

Semaphore *semaphore_open(const char *name) noexcept {
    try {
        const std::wstring wide = object_name(name);
        return static_cast<Semaphore *>(static_cast<void *>(
            OpenSemaphoreW(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, wide.c_str())));
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

void semaphore_close(Semaphore *semaphore) noexcept {
    CloseHandle(semaphore);
}

bool semaphore_post(Semaphore *semaphore) noexcept {
    return ReleaseSemaphore(semaphore, 1, nullptr) != 0;
}

bool semaphore_wait(Semaphore *semaphore, bool block) noexcept {
    return WaitForSingleObject(semaphore, block ? INFINITE : 0) == WAIT_OBJECT_0;
}

}  // namespace kiv::platform
