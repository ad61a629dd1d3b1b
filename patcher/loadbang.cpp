// Loadbang: its queue, its suspension and its stages in a patcher.
//
// Invariants: a patcher stands in at most one of the two lists, the queue and the patchers being
// served, linked through its own slot; one that is freed is taken out of both. A stage walks the
// boxes with a BoxWalk, because what is called may add or free boxes, or free the patcher, which
// ends everything. A generation begins with every outermost load; a patcher serves each only once.
//
// Main thread.
#include <kiv/console.h>
#include <kiv/jpatcher.h>
#include <kiv/load.h>
#include <kiv/object.h>
#include <kiv/symbol.h>

#include "kernel/internal.h"
#include "patcher/creation.h"
#include "patcher/internal.h"
#include "patcher/records.h"

namespace kiv {

namespace {

struct State {
    Patcher *queue = nullptr;    // newest first
    Patcher *serving = nullptr;  // oldest first, while the queue is delivered
    int64_t generation = 1;
    int32_t suspended = 0;
    bool in_load = false;
    bool delivering = false;
    bool debug = false;
    uint8_t no_disable = 0;
};
State state;

void debug_post(const char *text) noexcept {
    if (state.debug) {
        post("%s", text);
    }
}

void clear_queue() noexcept {
    debug_post("loadbang_clearqueue");
    while (Patcher *patcher = state.queue) {
        state.queue = patcher->next_loadbang;
        patcher->next_loadbang = nullptr;
        patcher->in_loadbang_queue = false;
    }
}

void unlink_from(Patcher **head, Patcher *patcher) noexcept {
    for (Patcher **link = head; *link; link = &(*link)->next_loadbang) {
        if (*link == patcher) {
            *link = patcher->next_loadbang;
            patcher->next_loadbang = nullptr;
            return;
        }
    }
}

// Runs as a loadbang of the patcher for a scope.
class LoadbangContext {
  public:
    explicit LoadbangContext(Object *patcher) noexcept
        : context_{patcher, "loadbang"_sym, nullptr} {
        event_context_push(&context_);
    }
    ~LoadbangContext() { event_context_pop(); }
    LoadbangContext(const LoadbangContext &) = delete;
    LoadbangContext &operator=(const LoadbangContext &) = delete;

  private:
    EventContext context_;
};

enum class Stage { presets, others, loadbangs };

Stage stage_of(Jbox *box) noexcept {
    const Symbol *name = object_classname(box_object(box));
    if (name == "preset"_sym) {
        return Stage::presets;
    }
    const bool loadbang =
        name == "loadbang"_sym || name == "loadmess"_sym || name == "patcherargs"_sym;
    return loadbang ? Stage::loadbangs : Stage::others;
}

void serve_box(Jbox *box) noexcept {
    Symbol *const loadbang = "loadbang"_sym;
    if (zgetfn(box, loadbang)) {
        object_method(box, loadbang);
        return;
    }
    Object *object = box_object(box);
    if (object != as_object(box) && zgetfn(object, loadbang)) {
        object_method(object, loadbang);
    }
}

void run_stage(Patcher *patcher, Stage stage) noexcept {
    BoxWalk walk(patcher);
    while (Jbox *box = walk.next()) {
        if (stage_of(box) == stage) {
            serve_box(box);
        }
    }
}

void after_restore(Patcher *patcher) noexcept {
    BoxWalk walk(patcher);
    while (Jbox *box = walk.next()) {
        Object *object = box_object(box);
        if (zgetfn(object, "aftersnapshotrestore"_sym)) {
            object_method(object, "aftersnapshotrestore"_sym);
        }
    }
}

struct Step {
    Symbol *message;
    bool has_stage;
    Stage stage;
};

void send_and_clean(Object *patcher) noexcept {
    {
        const LoadbangContext context(patcher);
        object_method(patcher, "loadbang"_sym);
    }
    if (as_patcher(patcher)) {
        object_method(patcher, "clean"_sym);
    }
}

}  // namespace

void patcher_loadbang(Object *x) noexcept {
    Patcher *patcher = as_patcher(x);
    if (!patcher || patcher->loadbang_generation == state.generation) {
        return;
    }
    patcher->loadbang_generation = state.generation;
    static const Step steps[] = {
        {"loadbang_start"_sym, false, {}},
        {"loadbang_parameter"_sym, false, {}},
        {"loadbang_pattr"_sym, true, Stage::presets},
        {"loadbang_internal"_sym, true, Stage::others},
        {"loadbang_loadbang"_sym, true, Stage::loadbangs},
        {"loadbang_end"_sym, false, {}},
    };
    const BoxWalk watch(patcher);
    for (const Step &step : steps) {
        object_notify(patcher, step.message, nullptr);
        if (watch.alive() && step.has_stage) {
            run_stage(patcher, step.stage);
        }
        if (!watch.alive()) {
            return;
        }
    }
    patcher_restore_snapshot(patcher);
    if (watch.alive()) {
        object_notify(patcher, "aftersnapshotrestore"_sym, nullptr);
    }
    if (watch.alive()) {
        after_restore(patcher);
    }
}

void patcher_postload(Object *subpatcher) noexcept {
    // Making its boxes is no change that a person made.
    object_method(subpatcher, "clean"_sym);
}

void loadbang_debug(bool on) noexcept {
    state.debug = on;
}

void loadbang_load_begins() noexcept {
    if (state.suspended == 0 && !state.delivering) {
        clear_queue();
    }
    state.in_load = true;
    loadbang_new_generation();
}

void loadbang_load_ends() noexcept {
    state.in_load = false;
}

void loadbang_deliver(Object *patcher) noexcept {
    if (state.suspended > 0) {
        loadbang_queueobject(patcher);
        return;
    }
    send_and_clean(patcher);
    if (!state.delivering && !state.in_load) {
        clear_queue();
    }
}

void loadbang_forget(Object *x) noexcept {
    auto *patcher = reinterpret_cast<Patcher *>(x);
    if (patcher->in_loadbang_queue) {
        unlink_from(&state.queue, patcher);
        unlink_from(&state.serving, patcher);
        patcher->in_loadbang_queue = false;
    }
}

}  // namespace kiv

using namespace kiv;

int32_t loadbang_suspend(void) noexcept {
    if (state.suspended == 0 && !state.delivering) {
        clear_queue();
    }
    return ++state.suspended;
}

void loadbang_resume(void) noexcept {
    if (state.suspended == 0) {
        return;
    }
    if (--state.suspended == 0 && !state.in_load) {
        loadbang_dequeue();
    }
}

void loadbang_queueobject(void *x) noexcept {
    Patcher *patcher = as_patcher(x);
    if (!patcher || patcher->in_loadbang_queue) {
        return;
    }
    patcher->next_loadbang = state.queue;
    patcher->in_loadbang_queue = true;
    state.queue = patcher;
}

void loadbang_dequeue(void) noexcept {
    if (state.delivering) {
        return;
    }
    debug_post("loadbang_dequeue...");
    state.delivering = true;
    loadbang_new_generation();  // being queued asks for it, whatever was served before
    while (Patcher *patcher = state.queue) {
        state.queue = patcher->next_loadbang;
        patcher->next_loadbang = state.serving;
        state.serving = patcher;
    }
    while (Patcher *patcher = state.serving) {
        state.serving = patcher->next_loadbang;
        patcher->next_loadbang = nullptr;
        patcher->in_loadbang_queue = false;
        send_and_clean(as_object(patcher));
    }
    state.delivering = false;
}

void loadbang_new_generation(void) noexcept {
    ++state.generation;
}

int32_t noloadbangdisable_get(void) noexcept {
    return state.no_disable;
}

void noloadbangdisable_set(int32_t on) noexcept {
    state.no_disable = static_cast<uint8_t>(on);
}
