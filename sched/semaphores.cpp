// Named semaphores of the interface. A handle is the platform's.
#include <kiv/syssem.h>

#include "platform/platform.h"

namespace kiv {

namespace {

constexpr int32_t max_count = 32768;

platform::Semaphore *platform_of(SyssemRef semaphore) noexcept {
    return reinterpret_cast<platform::Semaphore *>(semaphore);
}

template <class Open>
int32_t open_as(SyssemRef *semaphore, const char *name, Open open) noexcept {
    if (!semaphore) {
        return -1;
    }
    *semaphore = name ? reinterpret_cast<SyssemRef>(open(name)) : nullptr;
    return *semaphore ? 0 : -1;
}

}  // namespace

}  // namespace kiv

using namespace kiv;

int32_t syssem_create(SyssemRef *semaphore, const char *name, int32_t,
                      int32_t initial_count) noexcept {
    return open_as(semaphore, name, [initial_count](const char *n) {
        return platform::semaphore_create(n, initial_count, max_count);
    });
}

int32_t syssem_open(SyssemRef *semaphore, const char *name, int32_t) noexcept {
    return open_as(semaphore, name, platform::semaphore_open);
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
