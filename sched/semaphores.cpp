// Named semaphores of the interface. A handle is the platform's.
#include <kiv/syssem.h>

#include "platform/platform.h"

namespace kiv {

namespace {

constexpr int32_t max_count = 32768;

platform::Semaphore *platform_of(SyssemRef semaphore) noexcept {
    return reinterpret_cast<platform::Semaphore *>(semaphore);
}

int32_t hand_over(SyssemRef *out, platform::Semaphore *semaphore) noexcept {
    *out = reinterpret_cast<SyssemRef>(semaphore);
    return semaphore ? 0 : -1;
}

}  // namespace

}  // namespace kiv

using namespace kiv;

int32_t syssem_create(SyssemRef *semaphore, const char *name, int32_t,
                      int32_t initial_count) noexcept {
    if (!semaphore || !name) {
        return -1;
    }
    return hand_over(semaphore, platform::semaphore_create(name, initial_count, max_count));
}

int32_t syssem_open(SyssemRef *semaphore, const char *name, int32_t) noexcept {
    if (!semaphore || !name) {
        return -1;
    }
    return hand_over(semaphore, platform::semaphore_open(name));
}

int32_t syssem_close(SyssemRef semaphore) noexcept {
    if (!semaphore) {
        return -1;
    }
    platform::semaphore_close(platform_of(semaphore));
    return 0;
}

int32_t syssem_post(SyssemRef semaphore) noexcept {
    return semaphore && platform::semaphore_post(platform_of(semaphore)) ? 0 : -1;
}

int32_t syssem_wait(SyssemRef semaphore) noexcept {
    return semaphore && platform::semaphore_wait(platform_of(semaphore), true) ? 0 : -1;
}

int32_t syssem_trywait(SyssemRef semaphore) noexcept {
    return semaphore && platform::semaphore_wait(platform_of(semaphore), false) ? 0 : -1;
}
