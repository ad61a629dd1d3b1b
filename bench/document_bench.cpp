// Whole documents, stage by stage: reading the text (the work of our JSON reader alone), creating
// the boxes, connecting them, loadbang, writing the text, freeing. Counters are milliseconds of
// processor time for one document; `ratio` compares reading, creating and connecting together with
// reading alone. Cost is to grow with the size of the document.
#include <benchmark/benchmark.h>
#include <kiv/kiv.h>

#include <ctime>
#include <filesystem>
#include <fstream>

#include "bench/patch_text.h"
#include "containers/internal.h"
#include "patcher/patchline.h"

namespace kiv {
namespace {

// Adds the processor time that a stage takes to its counter.
class Stage {
  public:
    Stage(benchmark::State &state, const char *name)
        : counter_(state.counters[name]), begin_(std::clock()) {
        counter_.flags = benchmark::Counter::kAvgIterations;
    }
    ~Stage() {
        counter_.value += 1000. * static_cast<double>(std::clock() - begin_) / CLOCKS_PER_SEC;
    }

  private:
    benchmark::Counter &counter_;
    std::clock_t begin_;
};

Dictionary *parsed(const std::string &text) {
    auto *reader = static_cast<Object *>(object_new("nobox"_sym, "jsonreader"_sym));
    Dictionary *document = nullptr;
    object_method(reader, "parse_len"_sym, text.c_str(), static_cast<int64_t>(text.size()),
                  &document);
    object_free(reader);
    return document;
}

void run_stages(benchmark::State &state, const std::string &text) {
    Dictionary *document = nullptr;
    {
        const Stage stage(state, "read");
        document = parsed(text);
    }
    Dictionary *content = nullptr;
    dictionary_getdictionary(document, "patcher"_sym, &content);
    Atom lines;
    int32_t count = 0;
    Atom *elements = nullptr;
    dictionary_getatom(content, "lines"_sym, &lines);
    dictionary_chuckentry(content, "lines"_sym);
    atomarray_getatoms(static_cast<Atomarray *>(lines.value.obj), &count, &elements);
    void *patcher = nullptr;
    {
        const Stage stage(state, "create");
        patcher = jpatcher_load_fromdictionary(nullptr, 0, document, 0, nullptr);
    }
    {
        const Stage stage(state, "connect");
        patcher_read_lines(as_patcher(patcher), count, elements);
    }
    {
        const Stage stage(state, "loadbang");
        object_method(patcher, "loadbang"_sym);
    }
    {
        const Stage stage(state, "write");
        Dictionary *written = dictionary_new();
        JsonText out;
        object_method(patcher, "appendtodictionary"_sym, written);
        json_from_dictionary(written, out);
        object_free(written);
    }
    {
        const Stage stage(state, "free");
        object_free(patcher);
    }
    object_free(lines.value.obj);
    object_free(document);
}

void Document(benchmark::State &state) {
    const auto boxes = static_cast<int>(state.range(0));
    const std::string text = bench::patch_text(boxes, boxes * 3 / 2);
    for (auto _ : state) {
        run_stages(state, text);
    }
    const auto spent = [&](const char *stage) { return state.counters[stage].value; };
    state.counters["ratio"] = (spent("read") + spent("create") + spent("connect")) / spent("read");
    state.SetItemsProcessed(state.iterations() * boxes);
}
BENCHMARK(Document)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// One file used a thousand times by one document: parsed once, made a thousand times.
void Abstractions(benchmark::State &state) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / "kiv_bench_document";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "part.kivpat") << bench::patch_text(10, 15);
    path_setdefault(path_frompathname(folder.string().c_str()), 0);
    std::string text = "{\"patcher\" : {\"boxes\" : [";
    for (int i = 0; i < 1000; ++i) {
        text += std::string(i ? "," : "") +
                "{\"box\" : {\"kivclass\" : \"newobj\", \"text\" : " + "\"part " +
                std::to_string(i) + "\"}}";
    }
    text += "]}}";
    for (auto _ : state) {
        void *const patcher =
            lowload_jpatcher_frombuffer(text.c_str(), static_cast<int64_t>(text.size()));
        object_free(patcher);
    }
    path_setdefault(0, 0);
    std::filesystem::remove_all(folder);
}
BENCHMARK(Abstractions)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kiv
