// Dynamic libraries, debug output, standard streams, the command line and requests to quit.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"

namespace kiv::platform {

const char path_list_separator = ':';

// --- Libraries -----------------------------------------------------------------------------------

Library *library_load(const char *path, int32_t *system_error) noexcept {
    void *library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!library && system_error) {
        // The loader gives a text only; a file that is there is one that it cannot use.
        *system_error = access(path, R_OK) != 0 ? errno : ENOEXEC;
        debug_output(dlerror());
        debug_output("\n");
    }
    return static_cast<Library *>(library);
}

void *library_symbol(Library *library, const char *name) noexcept {
    return dlsym(library, name);
}

void library_unload(Library *library) noexcept {
    dlclose(library);
}

// --- Debug output --------------------------------------------------------------------------------

void debug_output(const char *text) noexcept {
    if (!text) {
        return;
    }
    size_t left = std::strlen(text);
    while (left > 0) {
        const ssize_t written = write(STDERR_FILENO, text, left);
        if (written < 0 && errno != EINTR) {
            return;
        }
        if (written > 0) {
            text += written;
            left -= static_cast<size_t>(written);
        }
    }
}

// --- Standard streams and the command line -------------------------------------------------------

void standard_streams_start() noexcept {}

bool stderr_is_terminal() noexcept {
    return isatty(STDERR_FILENO) != 0;
}

char **command_line(int *, char **argv) noexcept {
    return argv;
}

std::string environment(const char *name) {
    const char *const value = std::getenv(name);
    return value ? value : "";
}

// --- Requests to quit ----------------------------------------------------------------------------

namespace {

// The signal handler only writes a byte; a thread of its own reads it and calls out, so that the
// handler that was registered may take locks and allocate.
struct QuitRequest {
    void (*handler)();
    int read_end, write_end;
};
QuitRequest quit;

void on_quit_signal(int) {
    const int saved = errno;
    const char byte = 0;
    static_cast<void>(!write(quit.write_end, &byte, 1));
    errno = saved;
}

void *quit_thread(void *) {
    char byte;
    ssize_t result;
    do {
        result = read(quit.read_end, &byte, 1);
    } while (result < 0 && errno == EINTR);
    if (result == 1) {
        quit.handler();
    }
    return nullptr;
}

}  // namespace

void on_quit_request(void (*handler)()) noexcept {
    int ends[2];
    if (quit.handler || pipe(ends) != 0) {
        return;
    }
    quit = {handler, ends[0], ends[1]};
    fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    fcntl(ends[1], F_SETFD, FD_CLOEXEC);
    pthread_t thread;
    if (pthread_create(&thread, nullptr, quit_thread, nullptr) != 0) {
        return;
    }
    pthread_detach(thread);
    // The second request finds the default action: a process that hangs can still be ended.
    struct sigaction action {};
    action.sa_handler = on_quit_signal;
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction present;
        sigaction(signal, nullptr, &present);
        if (present.sa_handler != SIG_IGN) {  // nohup and background jobs stay as they were
            sigaction(signal, &action, nullptr);
        }
    }
}

}  // namespace kiv::platform
