// Files and folders.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"

namespace kiv::platform {

namespace {

// A File is its descriptor, carried in the pointer one up so that none is null.
File *to_file(int descriptor) {
    return reinterpret_cast<File *>(static_cast<intptr_t>(descriptor) + 1);
}
int descriptor_of(File *file) {
    return static_cast<int>(reinterpret_cast<intptr_t>(file) - 1);
}

bool sync_folder_of(const char *path) {
    char folder[PATH_MAX];
    const char *slash = std::strrchr(path, '/');
    const size_t length = slash == path ? 1 : slash ? static_cast<size_t>(slash - path) : 0;
    if (length >= sizeof folder) {
        return false;
    }
    std::memcpy(folder, path, length);
    folder[length] = 0;
    const int descriptor = open(length ? folder : ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    // Some file systems cannot sync a folder and say so; the rename itself was done.
    const bool synced = fsync(descriptor) == 0 || errno == EINVAL;
    close(descriptor);
    return synced;
}

}  // namespace

const char *last_separator(const char *path) noexcept {
    return std::strrchr(path, '/');
}

bool path_is_absolute(const char *path) noexcept {
    return path[0] == '/';
}

FileInfo file_info(const char *path) noexcept {
    struct stat status;
    if (stat(path, &status) != 0) {
        return {};
    }
    const int64_t modified =
        static_cast<int64_t>(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec;
    return {true, S_ISDIR(status.st_mode), status.st_size, modified};
}

File *file_open(const char *path, FileMode mode, int32_t *system_error) noexcept {
    const int flags = mode == FileMode::write ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY;
    int descriptor;
    do {
        descriptor = open(path, flags | O_CLOEXEC, 0666);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0) {
        if (system_error) {
            *system_error = errno;
        }
        return nullptr;
    }
    return to_file(descriptor);
}

int64_t file_read(File *file, void *buffer, int64_t size) noexcept {
    auto *out = static_cast<char *>(buffer);
    int64_t total = 0;
    while (total < size) {
        const ssize_t got =
            read(descriptor_of(file), out + total, static_cast<size_t>(size - total));
        if (got == 0) {
            break;
        }
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return -1;
        }
        total += got;
    }
    return total;
}

bool file_write(File *file, const void *data, int64_t size) noexcept {
    const auto *from = static_cast<const char *>(data);
    while (size > 0) {
        const ssize_t written = write(descriptor_of(file), from, static_cast<size_t>(size));
        if (written < 0 && errno != EINTR) {
            return false;
        }
        if (written > 0) {
            from += written;
            size -= written;
        }
    }
    return true;
}

bool file_sync(File *file) noexcept {
    return fsync(descriptor_of(file)) == 0 || errno == EINVAL;
}

bool file_close(File *file) noexcept {
    return close(descriptor_of(file)) == 0;
}

bool file_replace(const char *from, const char *to) noexcept {
    return rename(from, to) == 0 && sync_folder_of(to);
}

bool file_remove(const char *path) noexcept {
    return unlink(path) == 0;
}

bool folder_visit(const char *path, void (*visit)(const char *name, bool folder, void *argument),
                  void *argument) noexcept {
    DIR *folder = opendir(path);
    if (!folder) {
        return false;
    }
    while (const dirent *entry = readdir(folder)) {
        const char *name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) {
            continue;
        }
        bool is_folder = entry->d_type == DT_DIR;
        if (entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN) {
            struct stat status;
            is_folder = fstatat(dirfd(folder), name, &status, 0) == 0 && S_ISDIR(status.st_mode);
        }
        visit(name, is_folder, argument);
    }
    closedir(folder);
    return true;
}

bool path_absolute(const char *path, char *out, size_t size) noexcept {
    char *absolute = realpath(path, nullptr);
    if (!absolute) {
        return false;
    }
    const size_t length = std::strlen(absolute);
    const bool fits = length < size;
    if (fits) {
        std::memcpy(out, absolute, length + 1);
    }
    std::free(absolute);
    return fits;
}

}  // namespace kiv::platform
