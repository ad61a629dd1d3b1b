#include <kiv/quickmap.h>
#include <kiv/string.h>

#include "containers/values.h"
#include "containers/values_support.h"

namespace kiv::test {
namespace {

using OwnedString = std::unique_ptr<String, FreeObject>;

TEST(String, GrowsByTheRule) {
    const OwnedString string(string_new("12345"));
    EXPECT_EQ(string->capacity, 6);
    EXPECT_EQ(string_append(string.get(), "0123456789"), ErrorNone);
    EXPECT_EQ(string->capacity, 528);
    EXPECT_STREQ(string_getptr(string.get()), "123450123456789");
    EXPECT_EQ(string_append(string.get(), std::string(512, 'x').c_str()), ErrorNone);
    EXPECT_EQ(string->capacity, 528);  // 15 and 512 are still below it
    EXPECT_EQ(string_append(string.get(), "y"), ErrorNone);
    EXPECT_EQ(string->capacity, 1041);
    EXPECT_EQ(std::string(string_getptr(string.get())).size(), 528u);
}

TEST(String, AppendsPartOfItselfAcrossAMove) {
    const std::string text = std::string(2000, 'a') + "tail";
    const OwnedString string(string_new(text.c_str()));
    EXPECT_EQ(string_append(string.get(), string_getptr(string.get()) + 1999), ErrorNone);
    EXPECT_EQ(string_getptr(string.get()), text + "atail");
}

TEST(String, ChopsAtMostEverything) {
    const OwnedString string(string_new("hello"));
    EXPECT_EQ(string_chop(string.get(), 2), 3);
    EXPECT_EQ(string_chop(string.get(), -1), 3);
    EXPECT_STREQ(string_getptr(string.get()), "hel");
    EXPECT_EQ(string_chop(string.get(), INT32_MAX), 0);
    EXPECT_EQ(string_chop(string.get(), 1), 0);
    EXPECT_STREQ(string_getptr(string.get()), "");
    EXPECT_EQ(string->capacity, 6);
}

TEST(String, StartsWithoutStorage) {
    const OwnedString string(string_new(nullptr));
    EXPECT_EQ(string_getptr(string.get()), nullptr);
    EXPECT_EQ(string_chop(string.get(), 1), 0);
    EXPECT_EQ(string_reserve(string.get(), -1), ErrorNone);
    EXPECT_EQ(string_reserve(string.get(), 10), ErrorNone);
    EXPECT_STREQ(string_getptr(string.get()), "");
    EXPECT_EQ(string_append(string.get(), "x"), ErrorNone);
    EXPECT_EQ(string->capacity, 10);
    EXPECT_EQ(string_append(nullptr, "x"), ErrorGeneric);
}

TEST(String, FailedGrowthLosesNothing) {
    const OwnedString string(string_new("kept"));
    memory_fail_at(1);
    EXPECT_EQ(string_append(string.get(), "lost"), ErrorOutOfMemory);
    memory_fail_at(0);
    EXPECT_STREQ(string_getptr(string.get()), "kept");
}

TEST(Quickmap, ReplacesInOneDirectionOnly) {
    int a = 0;
    int b = 0;
    int c = 0;
    Quickmap *map = quickmap_new();
    void *found = &a;
    EXPECT_EQ(quickmap_lookup_key1(map, &a, &found), ErrorGeneric);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(quickmap_add(map, &a, &b), ErrorNone);
    EXPECT_EQ(quickmap_add(map, &a, &c), ErrorNone);
    EXPECT_EQ(quickmap_lookup_key1(map, &a, &found), ErrorNone);
    EXPECT_EQ(found, &c);
    EXPECT_EQ(quickmap_lookup_key2(map, &b, &found), ErrorNone);
    EXPECT_EQ(found, &a);
    quickmap_readonly(map, 1);
    EXPECT_EQ(quickmap_lookup_key2(map, &c, &found), ErrorNone);
    EXPECT_EQ(found, &a);
    quickmap_readonly(map, 0);
    // The values are no objects: neither replacing nor dropping may touch them.
    const int64_t before = memory_live_blocks();
    quickmap_drop(map);
    EXPECT_LT(memory_live_blocks(), before);
    EXPECT_TRUE(take_posts().empty());
}

}  // namespace
}  // namespace kiv::test
