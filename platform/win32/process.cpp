// Dynamic libraries, debug output, requests to quit, standard streams and the command line.
#include <fcntl.h>
#include <io.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "platform/platform.h"
#include "platform/win32/win32.h"

namespace kiv::platform {

const char path_list_separator = ';';

// --- Text ----------------------------------------------------------------------------------------

std::wstring to_wide(const char *text) {
    const int length = MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0);
    std::wstring wide(length > 0 ? static_cast<size_t>(length) - 1 : 0, L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text, -1, wide.data(), length);
    return wide;
}

std::string to_utf8(const wchar_t *text) {
    const int length = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string utf8(length > 0 ? static_cast<size_t>(length) - 1 : 0, '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), length, nullptr, nullptr);
    return utf8;
}

// --- Libraries -----------------------------------------------------------------------------------

Library *library_load(const char *path, int32_t *system_error) noexcept {
    try {
        DWORD old_mode = 0;
        SetThreadErrorMode(SEM_FAILCRITICALERRORS, &old_mode);  // no dialogue for a missing library
        HMODULE module = LoadLibraryW(to_system_path(path).c_str());
        if (!module && system_error) {
            *system_error = static_cast<int32_t>(GetLastError());
        }
        SetThreadErrorMode(old_mode, nullptr);
        return reinterpret_cast<Library *>(module);
    } catch (const std::bad_alloc &) {
        if (system_error) {
            *system_error = ERROR_NOT_ENOUGH_MEMORY;
        }
        return nullptr;
    }
}

void *library_symbol(Library *library, const char *name) noexcept {
    return reinterpret_cast<void *>(GetProcAddress(reinterpret_cast<HMODULE>(library), name));
}

void library_unload(Library *library) noexcept {
    FreeLibrary(reinterpret_cast<HMODULE>(library));
}

// --- Debug output --------------------------------------------------------------------------------

void debug_output(const char *text) noexcept {
    if (text) {
        OutputDebugStringA(text);
    }
}

// --- Requests to quit ----------------------------------------------------------------------------

namespace {

std::atomic<void (*)()> quit_handler{nullptr};

// Runs on a thread of the system's. The second request finds the default action: a process that
// hangs can still be ended. When the console closes, the process ends as soon as this returns, so
// it gives the main thread what time the system allows.
BOOL WINAPI on_control(DWORD event) {
    void (*const handler)() = quit_handler.exchange(nullptr);
    if (!handler) {
        return FALSE;
    }
    handler();
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
        Sleep(INFINITE);
    }
    return TRUE;
}

}  // namespace

void on_quit_request(void (*handler)()) noexcept {
    void (*none)() = nullptr;
    if (quit_handler.compare_exchange_strong(none, handler)) {
        SetConsoleCtrlHandler(on_control, TRUE);
    }
}

// --- Standard streams and the command line -------------------------------------------------------

bool stderr_is_terminal() noexcept {
    HANDLE stream = GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode;
    return GetConsoleMode(stream, &mode) &&
           SetConsoleMode(stream, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

void standard_streams_start() noexcept {
    for (FILE *stream : {stdin, stdout, stderr}) {
        _setmode(_fileno(stream), _O_BINARY);
    }
    SetConsoleOutputCP(CP_UTF8);
    SetConsoleCP(CP_UTF8);
}

char **command_line(int *argc, char **argv) noexcept {
    try {
        int count = 0;
        wchar_t **const wide = CommandLineToArgvW(GetCommandLineW(), &count);
        if (!wide) {
            return argv;
        }
        static std::vector<std::string> texts;
        static std::vector<char *> arguments;
        for (int i = 0; i < count; ++i) {
            texts.push_back(to_utf8(wide[i]));
        }
        LocalFree(wide);
        for (std::string &text : texts) {
            arguments.push_back(text.data());
        }
        arguments.push_back(nullptr);
        *argc = count;
        return arguments.data();
    } catch (const std::bad_alloc &) {
        return argv;
    }
}

std::string environment(const char *name) {
    const wchar_t *const value = _wgetenv(to_wide(name).c_str());
    return value ? to_utf8(value) : "";
}

}  // namespace kiv::platform
