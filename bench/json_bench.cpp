// Reading a patcher document of 10,000 boxes into a dictionary, beside two JSON libraries' own
// trees.
#include <benchmark/benchmark.h>
#include <kiv/kiv.h>

#include <nlohmann/json.hpp>
#ifdef HAVE_RAPIDJSON
#include <rapidjson/document.h>
#endif

#include "bench/patch_text.h"
#include "kernel/startup.h"

namespace kiv {
namespace {

const std::string &text() {
    static const std::string made = bench::patch_text(10000, 15000);
    return made;
}

void KivParse(benchmark::State &state) {
    for (auto _ : state) {
        Dictionary *dictionary = nullptr;
        if (dictobj_dictionaryfromstring(&dictionary, text().c_str(), 1, nullptr) != ErrorNone) {
            state.SkipWithError("the document was not read");
        }
        object_free(dictionary);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text().size()));
}
BENCHMARK(KivParse)->Unit(benchmark::kMillisecond);

void NlohmannParse(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(nlohmann::ordered_json::parse(text()));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text().size()));
}
BENCHMARK(NlohmannParse)->Unit(benchmark::kMillisecond);

#ifdef HAVE_RAPIDJSON
void RapidjsonParse(benchmark::State &state) {
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse(text().c_str(), text().size());
        benchmark::DoNotOptimize(document.HasParseError());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text().size()));
}
BENCHMARK(RapidjsonParse)->Unit(benchmark::kMillisecond);
#endif

}  // namespace
}  // namespace kiv

int main(int argc, char **argv) {
    kiv::startup();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
