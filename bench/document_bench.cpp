// Loading whole documents from text: parsing, objects, cords, loadbang, and freeing it all again.
#include <benchmark/benchmark.h>
#include <kiv/kiv.h>

#include "bench/patch_text.h"
#include "kernel/startup.h"

namespace kiv {
namespace {

void DocumentLoad(benchmark::State &state) {
    const auto boxes = static_cast<int>(state.range(0));
    const std::string text = bench::patch_text(boxes, boxes * 3 / 2);
    for (auto _ : state) {
        void *const patcher =
            lowload_jpatcher_frombuffer(text.c_str(), static_cast<int64_t>(text.size()));
        if (!patcher) {
            state.SkipWithError("the document was not loaded");
        }
        object_free(patcher);
    }
    state.SetItemsProcessed(state.iterations() * boxes);
}
BENCHMARK(DocumentLoad)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kiv

int main(int argc, char **argv) {
    kiv::startup();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
