// The overflow state: what happens after a thread's stack ran into its limit in a send.
//
// 1. The thread unwinds: its overflow flag makes every send under way stop serving and every new
// one
//    refuse, until its outermost send ends.
// 2. Then the top-level patcher of the object whose send hit the limit goes into the overflow
// state:
//    a report stands for it in the list, and the outlets of its objects refuse to send while it
//    does. The report's queue element posts the error once, on the main thread.
// 3. The overflow count (watch::overflow) is the number of unwinding threads and reports, so that
//    the send path asks nothing while it is 0. An object without a patcher leaves nothing behind.
//
// Thread safety: the list of reports changes under one lock, held while nothing else is called. It
// is read without it, inside sections: a report taken out has no patcher, and its memory is
// retired.
#include <kiv/defer.h>

#include <utility>

#include "kernel/inlets.h"

struct OverflowReport {
    Object ob;
    std::atomic<OverflowReport *> next;
    std::atomic<Object *> patcher;  // null once cleared
    std::atomic<Object *> object;   // null once freed
    Qelem *post;
};

namespace kiv {

namespace {

using Report = OverflowReport;

constexpr char disabled_text[] =
    "stack overflow -- outlets are disabled until this message is cleared";
constexpr char involved_text[] = "this object was involved in a stack overflow";

// Asked for every object that is freed, so they stand apart from what start-up has to make.
constinit std::atomic<Report *> reports{nullptr};
constinit std::atomic<Object *> last_object{nullptr};

platform::CriticalSection &reports_lock() {
    static platform::CriticalSection lock;
    return lock;
}

// The alert sets the count to 0 whatever it was, so that a thread that ends later finds it so.
void count_down() {
    uint64_t now = watched.load();
    while ((now & watch::overflow_mask) != 0 &&
           !watched.compare_exchange_weak(now, now - watch::overflow)) {
    }
}

void report_post(Report *report) {
    Object *object = report->object;
    Object *patcher = report->patcher;
    if (patcher) {
        object_error(object_valid(object) ? object : patcher, disabled_text);
    }
}

void report_free(Report *report) {
    qelem_free(report->post);
}

Class *report_class() {
    static Class *const made = [] {
        Class *c = message_class_new("overflowreport", reinterpret_cast<Method>(report_free),
                                     sizeof(Report));
        class_register(nullptr, c);
        return c;
    }();
    return made;
}

Report *find_report(const Object *patcher) {
    Report *report = reports.load(std::memory_order_seq_cst);
    while (report && report->patcher.load(std::memory_order_seq_cst) != patcher) {
        report = report->next.load(std::memory_order_seq_cst);
    }
    return report;
}

Object *patcher_of(Object *x) {
    auto *const hook = kernel_hooks().patcher_of;
    return hook && object_valid(x) ? hook(x) : nullptr;
}

// Puts the patcher of an object into the overflow state, unless it is already.
void enter_state(Object *object) {
    Object *patcher = patcher_of(object);
    if (!patcher) {
        object_error(object, involved_text);
        return;
    }
    auto *report = static_cast<Report *>(object_alloc(report_class()));
    if (!report) {
        return;
    }
    report->patcher = patcher;
    report->object = object;
    report->post = qelem_new(report, reinterpret_cast<Method>(report_post));
    reports_lock().enter();
    const bool already = find_report(patcher) != nullptr;
    if (!already) {
        report->next = reports.load();
        reports = report;
        watched.fetch_add(watch::overflow);
    }
    reports_lock().exit();
    if (already) {
        freeobject(report);
    } else {
        qelem_set(report->post);
    }
}

// Takes out and frees the reports that match; the next send of their patchers goes through.
template <class Match>
void clear_reports(Match match) {
    for (;;) {
        Report *found = nullptr;
        reports_lock().enter();
        std::atomic<Report *> *link = &reports;
        while (Report *report = link->load()) {
            if (match(report->patcher.load())) {
                *link = report->next.load();
                report->patcher = nullptr;
                found = report;
                break;
            }
            link = &report->next;
        }
        reports_lock().exit();
        if (!found) {
            return;
        }
        count_down();
        freeobject(found);
    }
}

}  // namespace

bool overflow_refuses(const SendState &thread, Object *owner) noexcept {
    if (thread.overflow) {
        return true;
    }
    if (!owner || !reports.load(std::memory_order_relaxed)) {
        return false;
    }
    return overflow_in_force(patcher_of(owner));
}

void overflow_begin(SendState &thread, Object *owner) noexcept {
    // After an alert in the middle of its unwinding a thread may overflow again.
    const bool again = thread.overflow != NotUnwinding;
    thread.overflow_object = owner;
    thread.overflow = UnwindingNow;
    last_object = owner;
    watched.fetch_add(again ? watch::overflow : watch::overflow + watch::unwinding);
}

void overflow_unwind() noexcept {
    SendState *const thread = this_send_state;
    if (thread && thread->overflow == NotUnwinding &&
        position::sends(thread->position.load(std::memory_order_relaxed)) > 0) {
        overflow_begin(*thread, nullptr);
    }
}

void overflow_end(SendState &thread) noexcept {
    thread.overflow = UnwindingEnds;
    Object *object = std::exchange(thread.overflow_object, nullptr);
    if (object_valid(object)) {
        enter_state(object);
    }
    thread.overflow = NotUnwinding;
    watched.fetch_sub(watch::unwinding);
    count_down();
}

void overflow_forget(const Object *x) noexcept {
    if (Object *last = last_object.load(); last == x) {
        last_object.compare_exchange_strong(last, nullptr);
    }
    if (!reports.load()) {
        return;
    }
    clear_reports([x](const Object *patcher) { return patcher == x; });
    reports_lock().enter();
    for (Report *report = reports; report; report = report->next) {
        Object *gone = const_cast<Object *>(x);
        report->object.compare_exchange_strong(gone, nullptr);
    }
    reports_lock().exit();
}

void overflow_clear() noexcept {
    clear_reports([](const Object *) { return true; });
}

bool overflow_in_force(const Object *patcher) noexcept {
    SendState *mine = patcher ? send_state() : nullptr;
    if (!mine) {
        return false;
    }
    Section section(*mine);
    return find_report(patcher) != nullptr;
}

void overflow_alert() noexcept {
    Object *last = last_object.exchange(nullptr);
    if (object_valid(last)) {
        object_error(last, involved_text);
        advise_explain("Stack overflow.",
                       "Objects are probably connected in a loop. Choose Resume to restart the "
                       "scheduler.",
                       "OK", nullptr, nullptr);
    } else {
        platform::debug_output("Stack overflow. Choose Resume to restart the scheduler");
    }
    overflow_clear();
    watch_set(watch::overflow_mask, false);
}

}  // namespace kiv
