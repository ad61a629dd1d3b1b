// The paths every message takes. Each loop measures one call with warm caches: the figures compare
// designs; they do not tell how long a message takes in a patcher whose objects are cold.
#include <benchmark/benchmark.h>
#include <kiv/kiv.h>

#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "kernel/internal.h"
#include "kernel/startup.h"

namespace kiv {
namespace {

struct Sink {
    Object ob;
    int64_t sum;
};

void sink_int(Sink *x, int64_t value) {
    x->sum += value;
}

Class *sink_class() {
    static Class *const c = [] {
        Class *made = class_new("bench_sink", nullptr, nullptr, sizeof(Sink), nullptr, 0);
        class_addmethod(made, method(sink_int), "int", TypeLong, 0);
        class_register("nobox"_sym, made);
        return made;
    }();
    return c;
}

void OutletSendTyped(benchmark::State &state) {
    auto *sender = static_cast<Sink *>(object_alloc(sink_class()));
    Outlet *const out = intout(sender);
    std::vector<void *> receivers;
    for (int64_t i = 0; i < state.range(0); ++i) {
        receivers.push_back(object_alloc(sink_class()));
        outlet_add(out, receivers.back());
    }
    for (auto _ : state) {
        outlet_int(out, 1);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    object_free(sender);
    for (void *receiver : receivers) {
        object_free(receiver);
    }
}
BENCHMARK(OutletSendTyped)->Arg(1)->Arg(10);

struct VirtualSink {
    virtual ~VirtualSink() = default;
    virtual void receive(int64_t value) { sum += value; }
    int64_t sum = 0;
};

// The peer: a list of receivers reached through a virtual function.
void VirtualFanOut(benchmark::State &state) {
    std::vector<std::unique_ptr<VirtualSink>> receivers;
    for (int64_t i = 0; i < state.range(0); ++i) {
        receivers.push_back(std::make_unique<VirtualSink>());
    }
    for (auto _ : state) {
        for (auto &receiver : receivers) {
            receiver->receive(1);
        }
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(VirtualFanOut)->Arg(1)->Arg(10);

void TypedDispatch(benchmark::State &state) {
    void *const sink = object_alloc(sink_class());
    Atom one;
    atom_setlong(&one, 1);
    for (auto _ : state) {
        typedmess(sink, "int"_sym, 1, &one);
    }
    object_free(sink);
}
BENCHMARK(TypedDispatch);

void ValidityTest(benchmark::State &state) {
    void *const sink = object_alloc(sink_class());
    for (auto _ : state) {
        benchmark::DoNotOptimize(object_valid(sink));
    }
    object_free(sink);
}
BENCHMARK(ValidityTest);

const char *const names[] = {"bang", "int", "frequency", "a name that is longer than most are"};

void GensymHit(benchmark::State &state) {
    const char *const name = names[state.range(0)];
    gensym(name);
    for (auto _ : state) {
        benchmark::DoNotOptimize(gensym(name));
    }
    state.SetLabel(name);
}
BENCHMARK(GensymHit)->DenseRange(0, 3);

// The peer: a set of strings, as a program without interning would keep.
void UnorderedSetHit(benchmark::State &state) {
    std::unordered_set<std::string> set;
    for (int i = 0; i < 2000; ++i) {
        set.insert("name" + std::to_string(i));
    }
    const std::string name = names[state.range(0)];
    set.insert(name);
    for (auto _ : state) {
        benchmark::DoNotOptimize(set.find(name));
    }
    state.SetLabel(name);
}
BENCHMARK(UnorderedSetHit)->DenseRange(0, 3);

}  // namespace
}  // namespace kiv

int main(int argc, char **argv) {
    kiv::startup();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
