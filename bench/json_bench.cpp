// Reading and writing JSON beside other libraries' own trees. Three documents: a patcher of 5,000
// boxes, a megabyte of numbers, and deep nesting. The other libraries' trees answer neither
// messages nor other threads; freeing the tree is part of every reading.
#include <benchmark/benchmark.h>
#include <kiv/kiv.h>

#include <nlohmann/json.hpp>
#ifdef HAVE_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#endif
#ifdef HAVE_JANSSON
#include <jansson.h>
#endif

#include "bench/patch_text.h"
#include "containers/internal.h"

namespace kiv {
namespace {

std::string numbers_text() {
    std::string text = "{\"values\" : [";
    for (int64_t i = 0; i < 60000; ++i) {
        text += i ? ", " : "";
        text += i % 2 ? std::to_string(static_cast<double>(i * 7919 % 100003) / 128.0)
                      : std::to_string(i * 1000003);
    }
    return text + "]}";
}

// 20,000 containers, 202 deep.
std::string nested_text() {
    std::string text = "{\"all\" : [0";
    for (int i = 0; i < 100; ++i) {
        for (int depth = 0; depth < 100; ++depth) {
            text += depth ? "[1, {\"a\" : " : ", [1, {\"a\" : ";
        }
        text += "0";
        for (int depth = 0; depth < 100; ++depth) {
            text += "}]";
        }
    }
    return text + "]}";
}

struct Document {
    const char *name;
    std::string text;
};

// --- Each library: read and free a text; write a tree read before --------------------------------

struct Kiv {
    explicit Kiv(const std::string &text) {
        dictobj_dictionaryfromstring(&tree, text.c_str(), 1, nullptr);
    }
    ~Kiv() { object_free(tree); }
    bool good() const { return tree != nullptr; }
    size_t write() const {
        JsonText text;
        json_from_dictionary(tree, text);
        return text.size();
    }
    Dictionary *tree = nullptr;
};

struct Nlohmann {
    explicit Nlohmann(const std::string &text) : tree(nlohmann::ordered_json::parse(text)) {}
    bool good() const { return tree.is_object(); }
    size_t write() const { return tree.dump(1, '\t').size(); }
    nlohmann::ordered_json tree;
};

#ifdef HAVE_RAPIDJSON
struct Rapidjson {
    explicit Rapidjson(const std::string &text) { tree.Parse(text.c_str(), text.size()); }
    bool good() const { return !tree.HasParseError(); }
    size_t write() const {
        rapidjson::StringBuffer buffer;
        rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
        writer.SetIndent('\t', 1);
        tree.Accept(writer);
        return buffer.GetSize();
    }
    rapidjson::Document tree;
};
#endif

#ifdef HAVE_JANSSON
struct Jansson {
    explicit Jansson(const std::string &text) : tree(json_loads(text.c_str(), 0, nullptr)) {}
    ~Jansson() { json_decref(tree); }
    bool good() const { return tree != nullptr; }
    size_t write() const {
        char *text = json_dumps(tree, JSON_INDENT(1));
        const size_t size = std::string_view(text).size();
        std::free(text);
        return size;
    }
    json_t *tree;
};
#endif

template <class Library>
void read(benchmark::State &state, const Document *document) {
    for (auto _ : state) {
        const Library library(document->text);
        if (!library.good()) {
            state.SkipWithError("the document was not read");
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(document->text.size()));
}

// Counted in bytes of the document as it was read, since the layouts differ.
template <class Library>
void write(benchmark::State &state, const Document *document) {
    const Library library(document->text);
    for (auto _ : state) {
        benchmark::DoNotOptimize(library.write());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(document->text.size()));
}

template <class Library>
void add(const char *name, const Document *document) {
    const std::string of = std::string(document->name) + "/" + name;
    benchmark::RegisterBenchmark(("Read/" + of).c_str(), read<Library>, document)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("Write/" + of).c_str(), write<Library>, document)
        ->Unit(benchmark::kMillisecond);
}

void add_all(const Document *document) {
    add<Kiv>("kiv", document);
    add<Nlohmann>("nlohmann", document);
#ifdef HAVE_JANSSON
    add<Jansson>("jansson", document);
#endif
#ifdef HAVE_RAPIDJSON
    add<Rapidjson>("rapidjson", document);
#endif
}

// Registered before the main function looks for what there is to run.
const bool registered = [] {
    static const Document documents[] = {{"graph", bench::patch_text(5000, 7500)},
                                         {"numbers", numbers_text()},
                                         {"nested", nested_text()}};
    for (const Document &document : documents) {
        add_all(&document);
    }
    return true;
}();

}  // namespace
}  // namespace kiv
