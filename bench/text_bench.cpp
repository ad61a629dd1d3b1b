// Message text: reading it into atoms, writing it, and evaluating it. The peers read the same text
// into the same kinds of values: a stream word by word, and GLib's scanner.
#include <benchmark/benchmark.h>
#include <kiv/kiv.h>

#include <charconv>
#include <sstream>
#include <string>
#include <unordered_set>
#include <vector>
#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace kiv {
namespace {

// Some 400 KB of messages as people write them: names, numbers, placeholders.
const std::string &text() {
    static const std::string made = [] {
        std::string lines;
        for (int i = 0; i < 10000; ++i) {
            lines += "set value-" + std::to_string(i % 100) + " " + std::to_string(i * 37) + " " +
                     std::to_string(i % 1000 * 0.125) + ", line $1 12;\n";
        }
        return lines;
    }();
    return made;
}

void add_rate(benchmark::State &state) {
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text().size()));
}

void ReadKiv(benchmark::State &state) {
    Binbuf *buf = binbuf_new();
    for (auto _ : state) {
        char *start = const_cast<char *>(text().c_str());
        binbuf_text(buf, &start, static_cast<int64_t>(text().size()));
    }
    add_rate(state);
    object_free(buf);
}
BENCHMARK(ReadKiv);

struct Value {
    const std::string *name;
    double number;
};

void ReadStream(benchmark::State &state) {
    std::unordered_set<std::string> names;
    for (auto _ : state) {
        std::istringstream stream(text());
        std::vector<Value> values;
        std::string word;
        while (stream >> word) {
            double number = 0;
            const auto result = std::from_chars(word.data(), word.data() + word.size(), number);
            const bool is_number =
                result.ec == std::errc() && result.ptr == word.data() + word.size();
            values.push_back({is_number ? nullptr : &*names.insert(word).first, number});
        }
        benchmark::DoNotOptimize(values.data());
    }
    add_rate(state);
}
BENCHMARK(ReadStream);

#ifdef HAVE_GLIB
void ReadGlibScanner(benchmark::State &state) {
    for (auto _ : state) {
        GScanner *scanner = g_scanner_new(nullptr);
        scanner->config->cset_identifier_nth =
            const_cast<char *>(G_CSET_a_2_z G_CSET_A_2_Z G_CSET_DIGITS "_-");
        g_scanner_input_text(scanner, text().c_str(), static_cast<guint>(text().size()));
        std::vector<Value> values;
        while (g_scanner_get_next_token(scanner) != G_TOKEN_EOF) {
            values.push_back({nullptr, static_cast<double>(scanner->value.v_int64)});
        }
        benchmark::DoNotOptimize(values.data());
        g_scanner_destroy(scanner);
    }
    add_rate(state);
}
BENCHMARK(ReadGlibScanner);
#endif

void WriteKiv(benchmark::State &state) {
    Binbuf *buf = binbuf_new();
    char *start = const_cast<char *>(text().c_str());
    binbuf_text(buf, &start, static_cast<int64_t>(text().size()));
    for (auto _ : state) {
        char *out = nullptr;
        int64_t size = 0;
        binbuf_totext(buf, &out, &size);
        sysmem_freeptr(out);
    }
    add_rate(state);
    object_free(buf);
}
BENCHMARK(WriteKiv);

void take_list(void *, Symbol *, int32_t argc, Atom *) {
    benchmark::DoNotOptimize(argc);
}

// Sending what was read to an object, message by message.
void EvaluateKiv(benchmark::State &state) {
    Class *c = class_new("bench_taker", nullptr, nullptr, 128, nullptr, 0);
    class_addmethod(c, reinterpret_cast<Method>(reinterpret_cast<void (*)()>(take_list)), "set",
                    TypeGimme, 0);
    class_addmethod(c, reinterpret_cast<Method>(reinterpret_cast<void (*)()>(take_list)), "line",
                    TypeGimme, 0);
    class_register(nullptr, c);
    void *receiver = object_alloc(c);
    std::string lines;
    for (int i = 0; i < 1000; ++i) {
        lines += "set value-" + std::to_string(i % 100) + " 12 0.5, line $1 12, ";
    }
    Binbuf *buf = binbuf_new();
    char *start = lines.data();
    binbuf_text(buf, &start, static_cast<int64_t>(lines.size()));
    Atom argument = {TypeLong, {.i = 5}};
    for (auto _ : state) {
        binbuf_eval(buf, 1, &argument, receiver);
    }
    state.SetItemsProcessed(state.iterations() * 2000);
    object_free(buf);
    object_free(receiver);
}
BENCHMARK(EvaluateKiv);

}  // namespace
}  // namespace kiv
