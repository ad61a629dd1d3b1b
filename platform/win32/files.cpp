// Files and folders.
#include <algorithm>
#include <cstring>
#include <limits>

#include "platform/platform.h"
#include "platform/win32/win32.h"

namespace kiv::platform {

// A File is its handle.
namespace {

// Another program (an indexer, a virus scanner) may hold a file for a moment.
constexpr int replace_tries = 20;
constexpr DWORD replace_pause_ms = 25;

constexpr DWORD longest_transfer = 1u << 30;

int64_t joined(DWORD high, DWORD low) {
    return static_cast<int64_t>((static_cast<uint64_t>(high) << 32) | low);
}

bool held_by_another(DWORD error) {
    return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION ||
           error == ERROR_ACCESS_DENIED;
}

constexpr std::wstring_view long_prefix = L"\\\\?\\";
constexpr std::wstring_view long_share_prefix = L"\\\\?\\UNC\\";

// The path behind a handle, as "C:/folder/file" or "//server/share/file".
std::string final_path(HANDLE handle) {
    std::wstring path(512, L'\0');
    DWORD length;
    while ((length = GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()),
                                               0)) > path.size()) {
        path.resize(length);
    }
    path.resize(length);
    if (path.starts_with(long_share_prefix)) {
        path.replace(0, long_share_prefix.size(), L"\\\\");
    } else if (path.starts_with(long_prefix)) {
        path.erase(0, long_prefix.size());
    }
    std::string text = to_utf8(path.c_str());
    std::replace(text.begin(), text.end(), '\\', '/');
    return text;
}

HANDLE open_to_look(const std::wstring &path) {
    return CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                       nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

}  // namespace

std::wstring to_system_path(const char *path) {
    std::wstring wide = to_wide(path);
    std::replace(wide.begin(), wide.end(), L'/', L'\\');
    // Twelve characters are kept for a file's name in a folder that is made.
    if (wide.size() < MAX_PATH - 12 || wide.starts_with(long_prefix)) {
        return wide;
    }
    const DWORD needed = GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr);
    std::wstring full(needed, L'\0');
    full.resize(GetFullPathNameW(wide.c_str(), needed, full.data(), nullptr));
    if (full.starts_with(L"\\\\")) {
        return std::wstring(long_share_prefix) + full.substr(2);
    }
    return std::wstring(long_prefix) + full;
}

const char *last_separator(const char *path) noexcept {
    const char *const last = std::strrchr(path, '/');
    const char *const other = std::strrchr(last ? last : path, '\\');
    return other ? other : last;
}

bool path_is_absolute(const char *path) noexcept {
    const char *const root = path[0] != '\0' && path[1] == ':' ? path + 2 : path;
    return *root == '/' || *root == '\\';
}

FileInfo file_info(const char *path) noexcept {
    WIN32_FILE_ATTRIBUTE_DATA data;
    try {
        if (!GetFileAttributesExW(to_system_path(path).c_str(), GetFileExInfoStandard, &data)) {
            return {};
        }
    } catch (const std::bad_alloc &) {
        return {};
    }
    const bool folder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return {true, folder, joined(data.nFileSizeHigh, data.nFileSizeLow),
            joined(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime)};
}

File *file_open(const char *path, FileMode mode, int32_t *system_error) noexcept {
    const bool write = mode == FileMode::write;
    HANDLE handle = INVALID_HANDLE_VALUE;
    DWORD error = ERROR_NOT_ENOUGH_MEMORY;
    try {
        handle = CreateFileW(to_system_path(path).c_str(), write ? GENERIC_WRITE : GENERIC_READ,
                             FILE_SHARE_READ | (write ? 0 : FILE_SHARE_WRITE | FILE_SHARE_DELETE),
                             nullptr, write ? CREATE_ALWAYS : OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                             nullptr);
        error = GetLastError();
    } catch (const std::bad_alloc &) {
    }
    if (handle == INVALID_HANDLE_VALUE) {
        if (system_error) {
            *system_error = static_cast<int32_t>(error);
        }
        return nullptr;
    }
    return static_cast<File *>(handle);
}

int64_t file_read(File *file, void *buffer, int64_t size) noexcept {
    auto *out = static_cast<char *>(buffer);
    int64_t total = 0;
    while (total < size) {
        DWORD got = 0;
        const auto wanted =
            static_cast<DWORD>(std::min<int64_t>(size - total, int64_t{longest_transfer}));
        if (!ReadFile(file, out + total, wanted, &got, nullptr)) {
            if (GetLastError() == ERROR_HANDLE_EOF || GetLastError() == ERROR_BROKEN_PIPE) {
                break;
            }
            return -1;
        }
        if (got == 0) {
            break;
        }
        total += got;
    }
    return total;
}

bool file_write(File *file, const void *data, int64_t size) noexcept {
    const auto *from = static_cast<const char *>(data);
    while (size > 0) {
        DWORD written = 0;
        const auto wanted = static_cast<DWORD>(std::min<int64_t>(size, int64_t{longest_transfer}));
        if (!WriteFile(file, from, wanted, &written, nullptr)) {
            return false;
        }
        from += written;
        size -= written;
    }
    return true;
}

bool file_sync(File *file) noexcept {
    return FlushFileBuffers(file) != 0;
}

bool file_close(File *file) noexcept {
    return CloseHandle(file) != 0;
}

bool file_replace(const char *from, const char *to) noexcept {
    try {
        const std::wstring source = to_system_path(from);
        const std::wstring target = to_system_path(to);
        for (int i = 0; i < replace_tries; ++i) {
            if (MoveFileExW(source.c_str(), target.c_str(),
                            MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
                return true;
            }
            if (!held_by_another(GetLastError())) {
                return false;
            }
            Sleep(replace_pause_ms);
        }
    } catch (const std::bad_alloc &) {
    }
    return false;
}

bool file_remove(const char *path) noexcept {
    try {
        return DeleteFileW(to_system_path(path).c_str()) != 0;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

bool folder_visit(const char *path, void (*visit)(const char *name, bool folder, void *argument),
                  void *argument) noexcept {
    try {
        const std::wstring pattern = to_system_path((std::string(path) + "/*").c_str());
        WIN32_FIND_DATAW entry;
        HANDLE search = FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &entry,
                                         FindExSearchNameMatch, nullptr, 0);
        if (search == INVALID_HANDLE_VALUE) {
            return false;
        }
        do {
            const std::string name = to_utf8(entry.cFileName);
            if (name != "." && name != "..") {
                visit(name.c_str(), (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0,
                      argument);
            }
        } while (FindNextFileW(search, &entry));
        FindClose(search);
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

bool path_absolute(const char *path, char *out, size_t size) noexcept {
    try {
        HANDLE handle = open_to_look(to_system_path(path));
        if (handle == INVALID_HANDLE_VALUE) {
            return false;
        }
        const std::string absolute = final_path(handle);
        CloseHandle(handle);
        if (absolute.empty() || absolute.size() >= size) {
            return false;
        }
        std::memcpy(out, absolute.c_str(), absolute.size() + 1);
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

}  // namespace kiv::platform
