// What the operating system gives: the one seam between the runtime and the system below it.
//
// posix/ and win32/ hold one file of the same name for each block of this header. Nothing here
// names a type of either system, and nothing is offered that one of them cannot give. Functions
// report failure by their result; none throws, none allocates from the C++ heap on a hot path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kiv::platform {

// --- Locks ---------------------------------------------------------------------------------------

// A recursive lock that spins 200 times before it sleeps.
class CriticalSection {
  public:
    CriticalSection() noexcept;
    ~CriticalSection();
    CriticalSection(const CriticalSection &) = delete;
    CriticalSection &operator=(const CriticalSection &) = delete;
    void enter() noexcept;
    void exit() noexcept;
    bool try_enter() noexcept;

  private:
    alignas(8) std::byte storage_[64];
};

inline constexpr double wait_forever = -1.0;

// A flag that threads wait for. An automatic event resets itself when it releases one waiter. Waits
// are in milliseconds and as fine as the system's clock; a negative time waits without limit.
class Event {
  public:
    explicit Event(bool manual_reset) noexcept;
    ~Event();
    Event(const Event &) = delete;
    Event &operator=(const Event &) = delete;
    void set() noexcept;
    void reset() noexcept;
    bool wait(double ms) noexcept;  // false when the time ran out

    // Waits until either event is set: 0 or 1, or -1 when the time ran out.
    static int wait_either(Event &first, Event &second, double ms) noexcept;

  private:
    alignas(8) std::byte storage_[128];
};

// A named semaphore shared by processes, gone when the last handle on it is closed or its process
// ends. Creating one that exists opens it as it is. Null when it cannot be made or opened.
struct Semaphore;
Semaphore *semaphore_create(const char *name, int32_t initial_count, int32_t max_count) noexcept;
Semaphore *semaphore_open(const char *name) noexcept;
void semaphore_close(Semaphore *semaphore) noexcept;
bool semaphore_post(Semaphore *semaphore) noexcept;  // false when the count is at its maximum
bool semaphore_wait(Semaphore *semaphore, bool block) noexcept;

// --- Threads -------------------------------------------------------------------------------------

using ThreadEntry = uint32_t (*)(void *argument);  // the result is the exit code

// Starts a thread and forgets the system's handle; 0 and its identifier (never 0), or the system's
// error code.
uint32_t thread_start(ThreadEntry entry, void *argument, size_t stack_size, uint32_t *id) noexcept;
uint32_t thread_self() noexcept;
// Waits for a thread to end; the exit code of one that ended is kept until it is joined or
// detached. False for an identifier that stands for no such thread, and for the thread itself.
bool thread_join(uint32_t id, uint32_t *exit_code) noexcept;
bool thread_detach(uint32_t id) noexcept;
// Ends the calling thread where it stands, without unwinding; returns only on a thread that
// thread_start did not start.
void thread_exit(uint32_t status) noexcept;
// Ends another thread started by thread_start wherever it is, locks and all. A last resort.
bool thread_terminate(uint32_t id) noexcept;
void thread_sleep(double ms) noexcept;
// System priorities run from -15 to 15; a set value is read back even where the system ignores it.
void thread_set_priority(uint32_t id, int32_t priority) noexcept;
int32_t thread_priority(uint32_t id) noexcept;
void thread_flush_denormals() noexcept;  // of the calling thread
uint32_t processor_count() noexcept;
// The lowest address of the calling thread's stack, or null when it cannot be found.
void *stack_base() noexcept;

struct ThreadSlot;
ThreadSlot *slot_create(void (*destructor)(void *value)) noexcept;
void slot_delete(ThreadSlot *slot) noexcept;
void *slot_get(ThreadSlot *slot) noexcept;
bool slot_set(ThreadSlot *slot, void *value) noexcept;

// --- Time ----------------------------------------------------------------------------------------

// Milliseconds on a monotonic clock of high resolution.
double time_ms() noexcept;
// Asks the system to end the calling thread's timed waits as punctually as it can.
void time_punctual() noexcept;

// --- Memory and faults ---------------------------------------------------------------------------

// True when the 32 bytes at an address can be read. Two loads: never a system call, and a fault
// inside it is survived on any thread once probe_start has run.
bool readable_32(const void *address) noexcept;
void probe_start() noexcept;

// Asks for large pages under a block of many megabytes that will be touched all over the place, so
// that finding its pages costs less. Right after the block was allocated; a wish, no promise.
void prefer_large_pages(void *block, size_t size) noexcept;
// Gives the pages of a block back to the system. Its content is lost; it can be read and written as
// before.
void memory_discard(void *block, size_t size) noexcept;

// Orders the memory accesses of all threads: whatever a thread of the process did before the call
// is seen by the caller afterwards, and what the caller did before is seen by all. A system call,
// for the rare side of a protocol whose other side is too frequent for a barrier of its own. False
// where the system has none: then that other side needs one.
bool barrier_everywhere() noexcept;

// --- Libraries, debug output, the process --------------------------------------------------------

struct Library;
Library *library_load(const char *path, int32_t *system_error) noexcept;
void *library_symbol(Library *library, const char *name) noexcept;
void library_unload(Library *library) noexcept;

void debug_output(const char *text) noexcept;

// Calls handler once, on any thread, when the user or the system asks the process to end.
void on_quit_request(void (*handler)()) noexcept;

// Before anything is read or printed: the standard streams pass bytes on as they are, and a
// terminal takes them as UTF-8.
void standard_streams_start() noexcept;
bool stderr_is_terminal() noexcept;  // one that understands colours
// The arguments of main in UTF-8: `argv` itself, or a copy that lives as long as the process.
char **command_line(int *argc, char **argv) noexcept;
std::string environment(const char *name);  // a variable in UTF-8; empty when it is not set
extern const char path_list_separator;      // between the folders of an environment variable

// --- Files: UTF-8 names --------------------------------------------------------------------------

// Names that are given out have '/' between folders; names that are taken may have whatever the
// system takes.
const char *last_separator(const char *path) noexcept;  // null when there is none
bool path_is_absolute(const char *path) noexcept;

struct FileInfo {
    bool exists;
    bool folder;
    int64_t size;
    int64_t modified;  // in the system's own unit: only equality means anything
};
FileInfo file_info(const char *path) noexcept;

struct File;
enum class FileMode { read, write };  // write: creates the file or empties it
File *file_open(const char *path, FileMode mode, int32_t *system_error) noexcept;
int64_t file_read(File *file, void *buffer, int64_t size) noexcept;    // bytes read, -1 on failure
bool file_write(File *file, const void *data, int64_t size) noexcept;  // all of it
bool file_sync(File *file) noexcept;
bool file_close(File *file) noexcept;
bool file_replace(const char *from, const char *to) noexcept;  // atomically, then syncs the folder
bool file_remove(const char *path) noexcept;

// Calls visit for every entry of a folder but "." and "..", in no particular order; false when the
// folder cannot be read.
bool folder_visit(const char *path, void (*visit)(const char *name, bool folder, void *argument),
                  void *argument) noexcept;
// The absolute, normalised form of a path, in a buffer of `size` bytes; false when it does not
// exist or does not fit.
bool path_absolute(const char *path, char *out, size_t size) noexcept;

}  // namespace kiv::platform
