// Queue elements, calls deferred from another thread, and rings, beside what people would otherwise
// use. The deferring threads send as fast as they can; the receiver, who is the main thread, is
// timed until all calls have run.
#include <benchmark/benchmark.h>
#include <kiv/kiv.h>

#include <atomic>
#include <functional>
#include <thread>

#ifdef HAVE_BOOST
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/lockfree/spsc_queue.hpp>
#endif
#ifdef HAVE_GLIB
#include <glib.h>
#endif
#ifdef HAVE_QT
#include <QCoreApplication>
#include <QMetaObject>
#endif

#include "sched/internal.h"

namespace kiv {
namespace {

// --- Elements ------------------------------------------------------------------------------------

void nothing(void *) {}

void QelemSetAgain(benchmark::State &state) {
    Qelem *const element = qelem_new(nullptr, method(nothing));
    qelem_set(element);
    for (auto _ : state) {
        qelem_set(element);
    }
    qelem_free(element);
}
BENCHMARK(QelemSetAgain);

void AtomicFlagSetAgain(benchmark::State &state) {
    std::atomic_flag flag = ATOMIC_FLAG_INIT;
    for (auto _ : state) {
        benchmark::DoNotOptimize(flag.test_and_set());
    }
}
BENCHMARK(AtomicFlagSetAgain);

void QelemSetAndRun(benchmark::State &state) {
    Qelem *const element = qelem_new(nullptr, method(nothing));
    for (auto _ : state) {
        qelem_set(element);
        main_queues_pass();
    }
    qelem_free(element);
}
BENCHMARK(QelemSetAndRun);

// --- Deferring from another thread ---------------------------------------------------------------

constexpr int64_t batch = 20000;
int64_t ran;

// Sends a batch from another thread by send(), and calls receive() here until all have run.
template <class Send, class Receive>
void defer_batches(benchmark::State &state, Send send, Receive receive) {
    for (auto _ : state) {
        ran = 0;
        std::thread sender([&send] {
            for (int64_t i = 0; i < batch; ++i) {
                send();
            }
        });
        while (ran < batch) {
            receive();
        }
        sender.join();
    }
    state.SetItemsProcessed(state.iterations() * batch);
}

void DeferFromThread(benchmark::State &state) {
    Symbol *const selector = gensym("call");
    defer_batches(
        state,
        [selector] {
            defer(nullptr, method(+[](void *, Symbol *, int32_t, Atom *) { ++ran; }), selector, 0,
                  nullptr);
        },
        [] {
            if (main_queues_pass() < 0.0) {
                main_wait(1.0);
            }
        });
}
BENCHMARK(DeferFromThread)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

#ifdef HAVE_BOOST
void AsioPostFromThread(benchmark::State &state) {
    boost::asio::io_context context;
    const auto work = boost::asio::make_work_guard(context);
    defer_batches(
        state, [&context] { boost::asio::post(context, [] { ++ran; }); },
        [&context] { context.run_one(); });
}
BENCHMARK(AsioPostFromThread)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
#endif

#ifdef HAVE_GLIB
void GlibIdleFromThread(benchmark::State &state) {
    defer_batches(
        state,
        [] {
            g_idle_add(
                [](gpointer) -> gboolean {
                    ++ran;
                    return FALSE;
                },
                nullptr);
        },
        [] { g_main_context_iteration(nullptr, TRUE); });
}
BENCHMARK(GlibIdleFromThread)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
#endif

#ifdef HAVE_QT
void QtInvokeFromThread(benchmark::State &state) {
    int argc = 0;
    QCoreApplication application(argc, nullptr);
    QObject receiver;
    defer_batches(
        state,
        [&receiver] {
            QMetaObject::invokeMethod(
                &receiver, [] { ++ran; }, Qt::QueuedConnection);
        },
        [] { QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents); });
}
BENCHMARK(QtInvokeFromThread)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
#endif

// --- Rings ---------------------------------------------------------------------------------------

void RingPushPop(benchmark::State &state) {
    LockfreeQueue *const ring = lockfreequeue_new(256, sizeof(int64_t));
    int64_t value = 0;
    for (auto _ : state) {
        lockfreequeue_push(ring, &value);
        lockfreequeue_pop(ring, &value);
        benchmark::DoNotOptimize(value);
    }
    lockfreequeue_free(ring);
}
BENCHMARK(RingPushPop);

#ifdef HAVE_BOOST
void BoostSpscPushPop(benchmark::State &state) {
    boost::lockfree::spsc_queue<int64_t> ring(256);
    int64_t value = 0;
    for (auto _ : state) {
        ring.push(value);
        ring.pop(value);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BoostSpscPushPop);
#endif

// A batch of values from one thread to another; push and pop answer whether they did.
template <class Push, class Pop>
void pass_batches(benchmark::State &state, Push push, Pop pop) {
    constexpr int64_t count = 200000;
    for (auto _ : state) {
        std::thread writer([&push] {
            for (int64_t i = 0; i < count;) {
                if (push(i)) {
                    ++i;
                } else {
                    std::this_thread::yield();
                }
            }
        });
        int64_t value = 0;
        for (int64_t i = 0; i < count;) {
            if (pop(value)) {
                ++i;
            } else {
                std::this_thread::yield();
            }
        }
        writer.join();
    }
    state.SetItemsProcessed(state.iterations() * count);
}

void RingBetweenThreads(benchmark::State &state) {
    LockfreeQueue *const ring = lockfreequeue_new(256, sizeof(int64_t));
    pass_batches(
        state, [ring](int64_t value) { return lockfreequeue_push(ring, &value) == 0; },
        [ring](int64_t &value) { return lockfreequeue_pop(ring, &value) == 0; });
    lockfreequeue_free(ring);
}
BENCHMARK(RingBetweenThreads)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

#ifdef HAVE_BOOST
void BoostSpscBetweenThreads(benchmark::State &state) {
    boost::lockfree::spsc_queue<int64_t> ring(256);
    pass_batches(
        state, [&ring](int64_t value) { return ring.push(value); },
        [&ring](int64_t &value) { return ring.pop(value); });
}
BENCHMARK(BoostSpscBetweenThreads)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
#endif

}  // namespace
}  // namespace kiv
