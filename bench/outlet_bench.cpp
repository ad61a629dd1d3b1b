// Sending an integer to 1, 4 and 16 receivers and along a chain, beside signal libraries and a loop
// over function pointers. Caches are warm: the figures compare designs; they do not tell how long a
// message takes in a patcher whose objects are cold.
#include <benchmark/benchmark.h>
#include <functional>
#include <memory>

#include "bench/kernel_bench.h"

#ifdef HAVE_SIGCXX
#include <sigc++/sigc++.h>
#endif
#ifdef HAVE_BOOST
#include <boost/signals2.hpp>
#endif
#ifdef HAVE_QT
#include "bench/qt_peer.h"
#endif

namespace kiv::bench {
namespace {

Class *receiver_class() {
    static Class *const c = sink_class("bench_receiver", 5);
    return c;
}

// A sender with so many receivers.
class Fan {
  public:
    Fan(int64_t count, const char *type)
        : sender_(sink_new(receiver_class())), out(outlet_new(sender_, type)) {
        for (int64_t i = 0; i < count; ++i) {
            receivers_.push_back(sink_new(receiver_class()));
            outlet_add(out, receivers_.back());
        }
    }
    ~Fan() {
        object_free(sender_);
        for (Sink *receiver : receivers_) {
            object_free(receiver);
        }
    }

  private:
    Sink *sender_;
    std::vector<Sink *> receivers_;

  public:
    Outlet *const out;
};

void send(benchmark::State &state, const char *type) {
    const Fan fan(state.range(0), type);
    for (auto _ : state) {
        outlet_int(fan.out, 1);
    }
}
void SendTyped(benchmark::State &state) {
    send(state, "int");
}
BENCHMARK(SendTyped)->Arg(1)->Arg(4)->Arg(16);

void SendUntyped(benchmark::State &state) {
    send(state, nullptr);
}
BENCHMARK(SendUntyped)->Arg(1)->Arg(4)->Arg(16);

struct FunctionReceiver {
    void (*function)(FunctionReceiver *, int64_t);
    int64_t sum;
};

[[gnu::noinline]] void function_receive(FunctionReceiver *x, int64_t value) {
    x->sum += value;
}
[[gnu::noinline]] void send_to_functions(std::vector<FunctionReceiver *> &receivers,
                                         int64_t value) {
    for (FunctionReceiver *x : receivers) {
        x->function(x, value);
    }
}

void SendFunctionPointers(benchmark::State &state) {
    std::vector<FunctionReceiver *> receivers;
    for (int64_t i = 0; i < state.range(0); ++i) {
        receivers.push_back(new FunctionReceiver{function_receive, 0});
    }
    for (auto _ : state) {
        send_to_functions(receivers, 1);
    }
    for (const FunctionReceiver *x : receivers) {
        delete x;
    }
}
BENCHMARK(SendFunctionPointers)->Arg(1)->Arg(4)->Arg(16);

struct Receiver {
    int64_t sum = 0;
    void receive(int64_t value) { sum += value; }
};

#ifdef HAVE_SIGCXX
void SendSigcxx(benchmark::State &state) {
    sigc::signal<void(int64_t)> sent;
    std::vector<Receiver> receivers(static_cast<size_t>(state.range(0)));
    for (Receiver &x : receivers) {
        sent.connect([&x](int64_t value) { x.receive(value); });
    }
    for (auto _ : state) {
        sent.emit(1);
    }
}
BENCHMARK(SendSigcxx)->Arg(1)->Arg(4)->Arg(16);
#endif

#ifdef HAVE_BOOST
void SendBoostSignals(benchmark::State &state) {
    boost::signals2::signal<void(int64_t)> sent;
    std::vector<Receiver> receivers(static_cast<size_t>(state.range(0)));
    for (Receiver &x : receivers) {
        sent.connect([&x](int64_t value) { x.receive(value); });
    }
    for (auto _ : state) {
        sent(1);
    }
}
BENCHMARK(SendBoostSignals)->Arg(1)->Arg(4)->Arg(16);
#endif

#ifdef HAVE_QT
void SendQt(benchmark::State &state) {
    QtPeer sender;
    std::vector<std::unique_ptr<QtPeer>> receivers;
    for (int64_t i = 0; i < state.range(0); ++i) {
        receivers.push_back(std::make_unique<QtPeer>());
        QObject::connect(&sender, &QtPeer::sent, receivers.back().get(), &QtPeer::receive,
                         Qt::DirectConnection);
    }
    for (auto _ : state) {
        sender.send(1);
    }
}
BENCHMARK(SendQt)->Arg(1)->Arg(4)->Arg(16);
#endif

// A hundred objects that each hand on what they get.
void SendChain(benchmark::State &state) {
    Class *const c = class_new("bench_link", nullptr, nullptr, sizeof(Sink), nullptr, 0);
    class_addmethod(c, method(sink_pass), "int", TypeLong, 0);
    std::vector<Sink *> links;
    for (int64_t i = 0; i < state.range(0); ++i) {
        links.push_back(sink_new(c));
        links.back()->out = intout(links.back());
        if (i > 0) {
            outlet_add(links[links.size() - 2]->out, links.back());
        }
    }
    for (auto _ : state) {
        outlet_int(links.front()->out, 1);
    }
    for (Sink *link : links) {
        object_free(link);
    }
    class_free(c);
}
BENCHMARK(SendChain)->Arg(100);

void ChainStdFunction(benchmark::State &state) {
    std::vector<std::function<void(int64_t)>> links(static_cast<size_t>(state.range(0)));
    for (size_t i = 0; i < links.size(); ++i) {
        links[i] = [&links, i](int64_t value) {
            if (i + 1 < links.size()) {
                links[i + 1](value);
            }
        };
    }
    for (auto _ : state) {
        links.front()(1);
    }
}
BENCHMARK(ChainStdFunction)->Arg(100);

}  // namespace
}  // namespace kiv::bench
