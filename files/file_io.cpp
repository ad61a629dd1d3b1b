// Whole files in and out.
//
// Writing never touches the old file: the data goes to a temporary file beside it, which is synced
// and then takes its name. So at every moment the name leads to all of the old or all of the new
// contents. Thread safety: the fault counter is for tests on one thread; all else has no state.
#include <cstdio>
#include <cstring>

#include "files/folders.h"
#include "kernel/internal.h"
#include "platform/platform.h"

namespace kiv {

namespace {

struct State {
    int64_t steps_to_fault = 0;
    FileFault fault = FileFault::fail;
    bool stopped = false;
};
State state;

enum class Step { go, fail, stop };

Step next_step() noexcept {
    if (state.stopped) {
        return Step::stop;
    }
    if (state.steps_to_fault == 0 || --state.steps_to_fault > 0) {
        return Step::go;
    }
    state.stopped = state.fault == FileFault::stop;
    return state.stopped ? Step::stop : Step::fail;
}

class OpenFile {
  public:
    OpenFile(const char *path, platform::FileMode mode, int32_t *system_error) noexcept
        : file_(platform::file_open(path, mode, system_error)) {}
    ~OpenFile() {
        if (file_) {
            platform::file_close(file_);
        }
    }
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;
    platform::File *get() const noexcept { return file_; }
    bool close() noexcept {
        platform::File *file = file_;
        file_ = nullptr;
        return platform::file_close(file);
    }

  private:
    platform::File *file_;
};

int32_t error_or_generic(int32_t system_error) noexcept {
    return system_error != 0 ? system_error : ErrorGeneric;
}

// Writes and syncs the temporary file.
int32_t write_temporary(const char *path, const char *data, int64_t size) noexcept {
    if (next_step() != Step::go) {
        return ErrorGeneric;
    }
    int32_t system_error = 0;
    OpenFile file(path, platform::FileMode::write, &system_error);
    if (!file.get()) {
        return error_or_generic(system_error);
    }
    const Step step = next_step();
    if (step != Step::go) {
        // A process that dies here, or a full disk, leaves part of the data.
        platform::file_write(file.get(), data, size / 2);
        return ErrorGeneric;
    }
    if (!platform::file_write(file.get(), data, size) || next_step() != Step::go ||
        !platform::file_sync(file.get()) || !file.close()) {
        return ErrorGeneric;
    }
    return 0;
}

// The file to be replaced: what a link leads to, so that saving keeps the link.
bool target_of(const char *file_name, int16_t path, char *out) noexcept {
    char given[KIV_PATH_SIZE];
    if (path_topathname(path, file_name, given) != ErrorNone || given[0] == '\0') {
        return false;
    }
    if (!platform::path_absolute(given, out, KIV_PATH_SIZE)) {
        std::memcpy(out, given, std::strlen(given) + 1);
    }
    return true;
}

}  // namespace

void files_fault_at(int64_t n, FileFault fault) noexcept {
    state.steps_to_fault = n;
    state.fault = fault;
    state.stopped = false;
}

int32_t file_read_all(const char *file_name, int16_t path, Text &out) noexcept {
    char full[KIV_PATH_SIZE];
    if (!file_name || path_topathname(path, file_name, full) != ErrorNone) {
        return ErrorGeneric;
    }
    int32_t system_error = 0;
    OpenFile file(full, platform::FileMode::read, &system_error);
    if (!file.get()) {
        return error_or_generic(system_error);
    }
    try {
        // The size is only a first guess: the file may grow, and some files have none.
        size_t length = 0;
        out.resize(static_cast<size_t>(platform::file_info(full).size) + 1);
        for (;;) {
            const int64_t count = platform::file_read(file.get(), out.data() + length,
                                                      static_cast<int64_t>(out.size() - length));
            if (count < 0) {
                out.clear();
                return ErrorGeneric;
            }
            length += static_cast<size_t>(count);
            if (count == 0) {
                out.resize(length);
                return 0;
            }
            if (length == out.size()) {
                out.resize(length + length / 2 + 4096);
            }
        }
    } catch (const std::bad_alloc &) {
        out.clear();
        return ErrorOutOfMemory;
    }
}

int32_t file_read_head(const char *file_name, int16_t path, char *buffer, int64_t size,
                       int64_t *count) noexcept {
    *count = 0;
    char full[KIV_PATH_SIZE];
    if (!file_name || path_topathname(path, file_name, full) != ErrorNone) {
        return ErrorGeneric;
    }
    int32_t system_error = 0;
    OpenFile file(full, platform::FileMode::read, &system_error);
    if (!file.get()) {
        return error_or_generic(system_error);
    }
    while (*count < size) {
        const int64_t part = platform::file_read(file.get(), buffer + *count, size - *count);
        if (part < 0) {
            return ErrorGeneric;
        }
        if (part == 0) {
            break;
        }
        *count += part;
    }
    return 0;
}

int32_t file_write_all(const char *file_name, int16_t path, const char *data,
                       int64_t size) noexcept {
    char target[KIV_PATH_SIZE];
    char temporary[KIV_PATH_SIZE];
    if (!file_name || !target_of(file_name, path, target)) {
        return ErrorGeneric;
    }
    const int length = std::snprintf(temporary, sizeof temporary, "%s.%08x.tmp", target,
                                     static_cast<unsigned>(kernel_random()));
    if (length < 0 || length >= KIV_PATH_SIZE) {
        return ErrorGeneric;
    }
    int32_t result = write_temporary(temporary, data, size);
    if (result == 0 && (next_step() != Step::go || !platform::file_replace(temporary, target))) {
        result = ErrorGeneric;
    }
    if (result != 0 && !state.stopped) {
        platform::file_remove(temporary);
    }
    return result;
}

FileStamp file_stamp(const char *file_name, int16_t path) noexcept {
    char full[KIV_PATH_SIZE];
    if (!file_name || path_topathname(path, file_name, full) != ErrorNone) {
        return {false, 0, 0};
    }
    const platform::FileInfo info = platform::file_info(full);
    return {info.exists && !info.folder, info.size, info.modified};
}

}  // namespace kiv
