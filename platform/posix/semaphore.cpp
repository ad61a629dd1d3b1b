// Named semaphores: an unnamed process-shared semaphore in a shared-memory object of the name.
//
// Every handle holds a shared file lock on its object. Who can take the exclusive lock is alone
// with it: on opening that one makes the semaphore new (what a crashed process left does not
// count), on closing it takes the name away. `permits` is the count as posting sees it: never below
// the semaphore's own value, so that the maximum cannot be passed.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <fcntl.h>
#include <semaphore.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "platform/platform.h"

namespace kiv::platform {

namespace {

struct SharedCount {
    sem_t available;
    std::atomic<int32_t> permits;
    int32_t max_count;
};
static_assert(std::atomic<int32_t>::is_always_lock_free);

constexpr size_t max_name = 250;

// The object's name: a prefix, the user, and the given name with every odd byte as %XX.
bool object_name(const char *name, char (&out)[max_name + 1]) {
    auto length = static_cast<size_t>(
        std::snprintf(out, sizeof out, "/kiv-%lu-", static_cast<unsigned long>(getuid())));
    for (const char *p = name; *p; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        const bool plain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
                           (c >= 'A' && c <= 'Z') || c == '_' || c == '-';
        if (length + 3 > max_name) {
            return false;
        }
        length += static_cast<size_t>(
            std::snprintf(out + length, sizeof out - length, plain ? "%c" : "%%%02X", c));
    }
    return true;
}

bool lock_file(int file, int operation) {
    int result;
    do {
        result = flock(file, operation);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool unlinked(int file) {
    struct stat status;
    return fstat(file, &status) != 0 || status.st_nlink == 0;
}

enum class Found { fresh, shared, gone, failed };

// Takes part in the object behind `file`, also when the caller holds it locked. That lock is let go
// first, and whoever comes between is alone with the object too, and may take it away.
Found share(int file) {
    if (!lock_file(file, LOCK_SH)) {
        return Found::failed;
    }
    return unlinked(file) ? Found::gone : Found::shared;
}

// The same; fresh: the caller is alone with the object and holds it locked.
Found take_part(int file) {
    if (lock_file(file, LOCK_EX | LOCK_NB)) {
        return unlinked(file) ? Found::gone : Found::fresh;
    }
    return share(file);
}

}  // namespace

struct Semaphore {
    int file;
    SharedCount *shared;
    char name[max_name + 1];
};

namespace {

SharedCount *map_count(int file) {
    void *memory = mmap(nullptr, sizeof(SharedCount), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<SharedCount *>(memory);
}

bool make_count(Semaphore &semaphore, int32_t initial_count, int32_t max_count) {
    if (ftruncate(semaphore.file, sizeof(SharedCount)) != 0 ||
        !(semaphore.shared = map_count(semaphore.file))) {
        return false;
    }
    auto *shared = new (semaphore.shared) SharedCount;
    shared->permits.store(initial_count);
    shared->max_count = max_count;
    return sem_init(&shared->available, 1, static_cast<unsigned>(initial_count)) == 0;
}

void give_up(Semaphore &semaphore) {
    if (semaphore.shared) {
        munmap(semaphore.shared, sizeof(SharedCount));
        semaphore.shared = nullptr;
    }
    close(semaphore.file);
}

// One try; `gone` asks for another, since the object was taken away between its opening and its
// locking. Without a maximum an object that nobody holds does not count as there.
Found try_open(Semaphore &semaphore, int32_t initial_count, int32_t max_count) {
    const bool create = max_count > 0;
    semaphore.file = shm_open(semaphore.name, create ? O_RDWR | O_CREAT : O_RDWR, 0600);
    if (semaphore.file < 0) {
        return Found::failed;
    }
    Found found = take_part(semaphore.file);
    if (found == Found::fresh) {
        if (create && make_count(semaphore, initial_count, max_count)) {
            found = share(semaphore.file);
        } else {
            shm_unlink(semaphore.name);
            found = Found::failed;
        }
    } else if (found == Found::shared && !(semaphore.shared = map_count(semaphore.file))) {
        found = Found::failed;
    }
    if (found != Found::shared) {
        give_up(semaphore);
    }
    return found;
}

Semaphore *open_named(const char *name, int32_t initial_count, int32_t max_count) noexcept {
    auto *semaphore = static_cast<Semaphore *>(std::calloc(1, sizeof(Semaphore)));
    if (!semaphore) {
        return nullptr;
    }
    Found found = Found::failed;
    if (object_name(name, semaphore->name)) {
        do {
            found = try_open(*semaphore, initial_count, max_count);
        } while (found == Found::gone);
    }
    if (found == Found::failed) {
        std::free(semaphore);
        return nullptr;
    }
    return semaphore;
}

}  // namespace

Semaphore *semaphore_create(const char *name, int32_t initial_count, int32_t max_count) noexcept {
    if (initial_count < 0 || max_count < 1 || initial_count > max_count) {
        return nullptr;
    }
    return open_named(name, initial_count, max_count);
}

Semaphore *semaphore_open(const char *name) noexcept {
    return open_named(name, 0, 0);
}

void semaphore_close(Semaphore *semaphore) noexcept {
    if (lock_file(semaphore->file, LOCK_EX | LOCK_NB)) {
        sem_destroy(&semaphore->shared->available);
        shm_unlink(semaphore->name);
    }
    give_up(*semaphore);
    std::free(semaphore);
}

bool semaphore_post(Semaphore *semaphore) noexcept {
    SharedCount &shared = *semaphore->shared;
    int32_t permits = shared.permits.load();
    do {
        if (permits >= shared.max_count) {
            return false;
        }
    } while (!shared.permits.compare_exchange_weak(permits, permits + 1));
    return sem_post(&shared.available) == 0;
}

bool semaphore_wait(Semaphore *semaphore, bool block) noexcept {
    SharedCount &shared = *semaphore->shared;
    int result;
    do {
        result = block ? sem_wait(&shared.available) : sem_trywait(&shared.available);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        return false;
    }
    shared.permits.fetch_sub(1);
    return true;
}

}  // namespace kiv::platform
