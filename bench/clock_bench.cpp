// Setting and firing clocks on a scheduler run by hand, and setting one again among many, beside
// the timers of libuv, asio and GLib and a multimap of due times. All get the same due times, which
// are past when they are run, so that nobody waits. Ours take and leave their locks; the others
// have none to take, but GLib's. GLib keeps no order: it looks at all its timers and fires what is
// due as it finds it, which is the least work when, as here, all are due at once. What it cannot
// show: how punctual the timer's thread is (lateness.cpp).
#include <benchmark/benchmark.h>
#include <kiv/kiv.h>

#include <map>
#include <memory>
#include <random>
#include <vector>

#ifdef HAVE_LIBUV
#include <uv.h>
#endif
#ifdef HAVE_BOOST
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#endif
#ifdef HAVE_GLIB
#include <glib.h>
#endif

#include "sched/internal.h"

namespace kiv {
namespace {

constexpr int range_ms = 100000;

std::vector<int> due_times(size_t count) {
    std::mt19937 random(1);
    std::vector<int> made(count);
    for (int &time : made) {
        time = static_cast<int>(random() % range_ms);
    }
    return made;
}

int64_t fired;
void tick(void *) {
    ++fired;
}

// Each holds `count` timers and can set number i to fire at a time, and fire all.

class Clocks {
  public:
    explicit Clocks(size_t count) : scheduler_(scheduler_new()) {
        sched_setpollthrottle(0xfffffffe, &throttle_);
        for (size_t i = 0; i < count; ++i) {
            clocks_.push_back(clock_new_withscheduler(nullptr, method(tick), scheduler_));
        }
    }
    ~Clocks() {
        for (Clock *clock : clocks_) {
            object_free(clock);
        }
        object_free(scheduler_);
        sched_setpollthrottle(throttle_, nullptr);
    }
    Clocks(const Clocks &) = delete;
    Clocks &operator=(const Clocks &) = delete;
    void set(size_t i, int time) { clock_fset(clocks_[i], time); }
    void fire_all() { scheduler_run(scheduler_, 2.0 * range_ms); }

  private:
    Scheduler *scheduler_;
    uint32_t throttle_ = 0;
    std::vector<Clock *> clocks_;
};

class Multimap {
  public:
    explicit Multimap(size_t count) : places_(count, queue_.end()) {}
    void set(size_t i, int time) {
        if (places_[i] != queue_.end()) {
            queue_.erase(places_[i]);
        }
        places_[i] = queue_.emplace(time, Entry{tick, i});
    }
    void fire_all() {
        while (!queue_.empty()) {
            const Entry entry = queue_.begin()->second;
            queue_.erase(queue_.begin());
            places_[entry.number] = queue_.end();
            entry.function(nullptr);
        }
    }

  private:
    struct Entry {
        void (*function)(void *);
        size_t number;
    };
    std::multimap<double, Entry> queue_;
    std::vector<std::multimap<double, Entry>::iterator> places_;
};

#ifdef HAVE_LIBUV
class Libuv {
  public:
    explicit Libuv(size_t count) : timers_(count) {
        uv_loop_init(&loop_);
        for (uv_timer_t &timer : timers_) {
            uv_timer_init(&loop_, &timer);
        }
    }
    ~Libuv() {
        for (uv_timer_t &timer : timers_) {
            uv_close(reinterpret_cast<uv_handle_t *>(&timer), nullptr);
        }
        uv_run(&loop_, UV_RUN_DEFAULT);
        uv_loop_close(&loop_);
    }
    Libuv(const Libuv &) = delete;
    Libuv &operator=(const Libuv &) = delete;
    // The loop's own idea of the time is put back, so that what is set is due when it looks again.
    void set(size_t i, int time) {
        if (!past_) {
            loop_.time -= 2 * range_ms;
            past_ = true;
        }
        uv_timer_start(
            &timers_[i], [](uv_timer_t *) { tick(nullptr); }, static_cast<uint64_t>(time), 0);
    }
    void fire_all() {
        uv_run(&loop_, UV_RUN_NOWAIT);
        past_ = false;
    }

  private:
    uv_loop_t loop_;
    std::vector<uv_timer_t> timers_;
    bool past_ = false;
};
#endif

#ifdef HAVE_BOOST
class Asio {
  public:
    explicit Asio(size_t count) {
        timers_.reserve(count);
        for (size_t i = 0; i < count; ++i) {
            timers_.emplace_back(context_);
        }
    }
    void set(size_t i, int time) {
        timers_[i].expires_at(start_ + std::chrono::milliseconds(time));
        timers_[i].async_wait([](const boost::system::error_code &failure) {
            if (!failure) {
                tick(nullptr);
            }
        });
    }
    void fire_all() {
        context_.restart();
        context_.poll();
    }

  private:
    boost::asio::io_context context_{1};
    std::chrono::steady_clock::time_point start_ =
        std::chrono::steady_clock::now() - std::chrono::milliseconds(2 * range_ms);
    std::vector<boost::asio::steady_timer> timers_;
};
#endif

#ifdef HAVE_GLIB
class Glib {
  public:
    explicit Glib(size_t count) : context_(g_main_context_new()) {
        for (size_t i = 0; i < count; ++i) {
            GSource *const source = g_source_new(&functions, sizeof(GSource));
            g_source_set_callback(source, nullptr, nullptr, nullptr);
            g_source_attach(source, context_);
            sources_.push_back(source);
        }
    }
    ~Glib() {
        for (GSource *source : sources_) {
            g_source_destroy(source);
            g_source_unref(source);
        }
        g_main_context_unref(context_);
    }
    Glib(const Glib &) = delete;
    Glib &operator=(const Glib &) = delete;
    void set(size_t i, int time) { g_source_set_ready_time(sources_[i], start_ + time * 1000); }
    void fire_all() { g_main_context_iteration(context_, FALSE); }

  private:
    static gboolean dispatch(GSource *source, GSourceFunc, gpointer) {
        g_source_set_ready_time(source, -1);
        tick(nullptr);
        return TRUE;
    }
    static inline GSourceFuncs functions{nullptr, nullptr, dispatch, nullptr, nullptr, nullptr};
    GMainContext *context_;
    gint64 start_ = g_get_monotonic_time() - 2000 * gint64{range_ms};
    std::vector<GSource *> sources_;
};
#endif

template <class Timers>
void SetAndFire(benchmark::State &state) {
    const std::vector<int> due = due_times(static_cast<size_t>(state.range(0)));
    Timers timers(due.size());
    fired = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < due.size(); ++i) {
            timers.set(i, due[i]);
        }
        timers.fire_all();
    }
    if (fired != state.iterations() * state.range(0)) {
        state.SkipWithError("not every timer fired once");
    }
    state.SetItemsProcessed(fired);
}

template <class Timers>
void SetOneAgain(benchmark::State &state) {
    const std::vector<int> due = due_times(static_cast<size_t>(state.range(0)));
    Timers timers(due.size());
    for (size_t i = 0; i < due.size(); ++i) {
        timers.set(i, due[i]);
    }
    size_t next = 0;
    for (auto _ : state) {
        timers.set(due.size() / 2, due[next]);
        next = (next + 7919) % due.size();
    }
    timers.fire_all();
}

template <class Timers>
void SetAnyAgain(benchmark::State &state) {
    const std::vector<int> due = due_times(static_cast<size_t>(state.range(0)));
    Timers timers(due.size());
    for (size_t i = 0; i < due.size(); ++i) {
        timers.set(i, due[i]);
    }
    size_t number = 0;
    size_t next = 0;
    for (auto _ : state) {
        timers.set(number, due[next]);
        number = (number + 7919) % due.size();
        next = (next + 104729) % due.size();
    }
    timers.fire_all();
}

#define KIV_TIMER_BENCH(timers)                                                      \
    BENCHMARK(SetAndFire<timers>)->Arg(100)->Arg(10000)->Arg(100000)->Arg(1000000);  \
    BENCHMARK(SetOneAgain<timers>)->Arg(100)->Arg(10000)->Arg(100000)->Arg(1000000); \
    BENCHMARK(SetAnyAgain<timers>)->Arg(100)->Arg(10000)->Arg(100000)->Arg(1000000)

KIV_TIMER_BENCH(Clocks);
KIV_TIMER_BENCH(Multimap);
#ifdef HAVE_LIBUV
KIV_TIMER_BENCH(Libuv);
#endif
#ifdef HAVE_BOOST
KIV_TIMER_BENCH(Asio);
#endif
#ifdef HAVE_GLIB
KIV_TIMER_BENCH(Glib);
#endif

}  // namespace
}  // namespace kiv
