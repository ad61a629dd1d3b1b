// The one file that knows every folder: it starts them in the order of the floors.
#include "kernel/startup.h"

#include "console/internal.h"
#include "containers/internal.h"
#include "files/internal.h"
#include "kernel/internal.h"
#include "objects/internal.h"
#include "patcher/internal.h"
#include "platform/platform.h"
#include "sched/internal.h"

namespace kiv {

void startup() noexcept {
    platform::probe_start();
    threads_start();
    symbols_start();
    classes_start();
    containers_start();
    objects_start();
    attributes_start();
    inlets_start();
    scheduler_start();
    deferred_start();
    console_start();
    files_start();
    patcher_start();
    objects_builtin_start();
}

void shutdown() noexcept {
    quittasks_run();
    background_tasks_end();
    scheduler_shutdown();
    console_drain();
}

}  // namespace kiv
