// The compressed form of JSON documents.
#include <kiv/compression.h>
#include <kiv/sysmem.h>

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "containers/values_support.h"

namespace kiv::test {
namespace {

using Function = ErrorCode (*)(const char *, int64_t, char **, int64_t *);

ErrorCode run(Function function, const std::string &input, std::string *output) {
    char *out = nullptr;
    int64_t size = 0;
    const ErrorCode result =
        function(input.data(), static_cast<int64_t>(input.size()), &out, &size);
    EXPECT_EQ(result == ErrorNone, out != nullptr);
    if (out) {
        EXPECT_EQ(out[size], '\0');
        output->assign(out, static_cast<size_t>(size));
        sysmem_freeptr(out);
    }
    return result;
}

std::string compressed(const std::string &text) {
    std::string out;
    EXPECT_EQ(run(compression_compressjson_headless, text, &out), ErrorNone);
    return out;
}

TEST(Compression, GivesBackWhatItTook) {
    std::mt19937 random(1);
    std::string noise(100000, '\0');
    for (char &c : noise) {
        c = static_cast<char>(random());
    }
    for (const std::string &text : {std::string(), std::string("{}"), std::string(5000000, 'a'),
                                    std::string("a\0b", 3), noise}) {
        std::string again;
        EXPECT_EQ(run(compression_decompressjson_headless, compressed(text), &again), ErrorNone);
        EXPECT_TRUE(again == text) << text.size();
    }
    EXPECT_LT(compressed(std::string(5000000, 'a')).size(), 10000u);
}

TEST(Compression, RefusesWhatIsDamaged) {
    const std::string whole = compressed("{\"patcher\" : {\"boxes\" : [ 1, 2, 3 ]}}");
    std::string out;
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_EQ(run(compression_decompressjson_headless, whole.substr(0, size), &out), -1);
        std::string damaged = whole;
        damaged[size] = static_cast<char>(damaged[size] ^ 0x55);
        EXPECT_EQ(run(compression_decompressjson_headless, damaged, &out), -1) << size;
    }
    EXPECT_EQ(run(compression_decompressjson_headless, whole + "x", &out), -1);
    int64_t size = 7;
    EXPECT_EQ(compression_compressjson_headless("a", 1, nullptr, &size), -1);
    EXPECT_EQ(size, 0);
}

TEST(Compression, SurvivesFailingAllocations) {
    const std::string text(20000, 'x');
    const std::string packed = compressed(text);
    fail_each_allocation([&] {
        std::string out;
        return run(compression_compressjson_headless, text, &out) == ErrorNone;
    });
    fail_each_allocation([&] {
        std::string out;
        return run(compression_decompressjson_headless, packed, &out) == ErrorNone;
    });
}

}  // namespace
}  // namespace kiv::test
