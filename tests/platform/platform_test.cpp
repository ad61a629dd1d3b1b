#include "platform/platform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/testing/testing.h"

namespace kiv::platform {
namespace {

const void *at(uintptr_t address) {
    return reinterpret_cast<const void *>(address);
}

// --- The probe -----------------------------------------------------------------------------------

TEST(Probe, TellsReadableMemoryFromTheRest) {
    static const char in_data[32] = {};
    char on_stack[32] = {};
    EXPECT_TRUE(readable_32(in_data));
    EXPECT_TRUE(readable_32(on_stack));
    for (const uintptr_t address :
         {uintptr_t{8}, uintptr_t{4096}, uintptr_t{0xdeadbeefdeadbee8}, ~uintptr_t{7}}) {
        EXPECT_FALSE(readable_32(at(address))) << std::hex << address;
    }
}

TEST(Probe, SeesTheEndOfTheReadableMemoryInsideItsRange) {
    const test::HalfReadable memory(1 << 16);
    EXPECT_TRUE(readable_32(memory.middle() - 32));
    EXPECT_FALSE(readable_32(memory.middle() - 24));
    EXPECT_FALSE(readable_32(memory.middle()));
}

// A thread that has a stack for faults keeps it, and one that has none needs none.
TEST(Probe, SurvivesFaultsOnAnyThreadAtOnce) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&wrong, t] {
            std::optional<test::FaultStack> stack;
            if (t % 2 == 0) {
                stack.emplace();
            }
            for (int i = 0; i < 2000; ++i) {
                if (readable_32(at(8 * static_cast<uintptr_t>(i))) || !readable_32(&i)) {
                    ++wrong;
                }
            }
            if (stack && !stack->in_place()) {
                ++wrong;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST(ProbeDeathTest, LeavesOtherFaultsToTheirHandlers) {
    EXPECT_DEATH({ *reinterpret_cast<volatile int *>(uintptr_t{16}) = 1; }, "");
    EXPECT_DEATH({ std::raise(SIGSEGV); }, "");
}

// --- Events --------------------------------------------------------------------------------------

TEST(Events, ReleaseOneOrAllWaiters) {
    for (const bool manual : {false, true}) {
        Event event(manual);
        std::atomic<int> released{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&] {
                event.wait(wait_forever);
                ++released;
            });
        }
        for (int i = 1; i <= 3; ++i) {
            event.set();
            const int expected = manual ? 3 : i;
            while (released < expected) {
                std::this_thread::yield();
            }
            EXPECT_EQ(released, expected);
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        EXPECT_EQ(event.wait(0), manual);  // the automatic one has been used up
    }
}

TEST(Events, WaitForEither) {
    Event first(false), second(true);
    EXPECT_EQ(Event::wait_either(first, second, 1), -1);
    second.set();
    EXPECT_EQ(Event::wait_either(first, second, wait_forever), 1);
    first.set();
    EXPECT_EQ(Event::wait_either(first, second, wait_forever), 0);
    EXPECT_EQ(Event::wait_either(first, second, wait_forever), 1);  // the first was used up
    second.reset();
    EXPECT_EQ(Event::wait_either(first, second, 0), -1);
}

// Every set of an automatic event finds a waiter of its own: none is lost, none counts twice.
TEST(Events, PassBackAndForthWithoutLoss) {
    Event ping(false), pong(false);
    constexpr int rounds = 5000;
    int count = 0;
    std::thread other([&] {
        for (int i = 0; i < rounds; ++i) {
            ping.wait(wait_forever);
            ++count;
            pong.set();
        }
    });
    for (int i = 0; i < rounds; ++i) {
        ping.set();
        pong.wait(wait_forever);
        ASSERT_EQ(count, i + 1);
    }
    other.join();
}

// --- Threads -------------------------------------------------------------------------------------

uint32_t give_back(void *argument) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(argument));
}

TEST(Threads, KeepTheExitCodesOfTheLastThatNobodyJoined) {
    constexpr uint32_t count = 1100;
    std::vector<uint32_t> ids(count);
    for (uint32_t i = 0; i < count; ++i) {
        ASSERT_EQ(thread_start(give_back, reinterpret_cast<void *>(uintptr_t{i}), 0, &ids[i]), 0u);
        if (i % 50 == 0) {  // joined ones do not count
            uint32_t code = 0;
            ASSERT_TRUE(thread_join(ids[i], &code));
            ASSERT_EQ(code, i);
            ASSERT_FALSE(thread_join(ids[i], &code));
        }
    }
    uint32_t code = 0;
    EXPECT_TRUE(thread_join(ids[count - 1], &code));
    EXPECT_EQ(code, count - 1);
    int forgotten = 0;
    for (uint32_t i = 0; i < count - 1; ++i) {
        if (i % 50 == 0) {
            continue;
        }
        if (!thread_join(ids[i], &code)) {
            ++forgotten;
        } else {
            ASSERT_EQ(code, i);
        }
    }
    EXPECT_LE(forgotten, 60);
}

TEST(Threads, StackBaseIsBelowEverythingOnTheStack) {
    const auto check = [] {
        int local = 0;
        const auto here = reinterpret_cast<uintptr_t>(&local);
        const auto base = reinterpret_cast<uintptr_t>(stack_base());
        return base != 0 && base < here && here - base < (uintptr_t{1} << 32);
    };
    EXPECT_TRUE(check());
    bool on_thread = false;
    std::thread([&] { on_thread = check(); }).join();
    EXPECT_TRUE(on_thread);
}

// --- Files ---------------------------------------------------------------------------------------

TEST(Files, WriteReplaceVisitRemove) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("kiv-platform-" + std::to_string(std::rand()));
    std::filesystem::create_directories(folder / "sub");
    const std::string first = (folder / "a").generic_string(),
                      second = (folder / "b").generic_string();

    int32_t error = 0;
    EXPECT_EQ(file_open(first.c_str(), FileMode::read, &error), nullptr);
    EXPECT_EQ(error, ENOENT);
    for (const auto &[path, text] : {std::pair{first, "new text"}, {second, "old"}}) {
        File *file = file_open(path.c_str(), FileMode::write, nullptr);
        ASSERT_NE(file, nullptr);
        EXPECT_TRUE(file_write(file, text, static_cast<int64_t>(std::string(text).size())));
        EXPECT_TRUE(file_sync(file));
        EXPECT_TRUE(file_close(file));
    }
    EXPECT_TRUE(file_replace(first.c_str(), second.c_str()));
    EXPECT_FALSE(file_info(first.c_str()).exists);
    EXPECT_EQ(file_info(second.c_str()).size, 8);
    EXPECT_TRUE(file_info(folder.string().c_str()).folder);

    File *file = file_open(second.c_str(), FileMode::read, nullptr);
    ASSERT_NE(file, nullptr);
    char text[100];
    EXPECT_EQ(file_read(file, text, sizeof text), 8);
    EXPECT_EQ(file_read(file, text, sizeof text), 0);
    file_close(file);

    std::vector<std::string> seen;
    EXPECT_TRUE(folder_visit(
        folder.string().c_str(),
        [](const char *name, bool is_folder, void *list) {
            static_cast<std::vector<std::string> *>(list)->push_back(
                name + std::string(is_folder ? "/" : ""));
        },
        &seen));
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (std::vector<std::string>{"b", "sub/"}));

    char absolute[4096];
    const std::string odd = (folder / "sub" / ".." / "b").string();
    EXPECT_TRUE(path_absolute(odd.c_str(), absolute, sizeof absolute));
    EXPECT_EQ(absolute, std::filesystem::canonical(second).generic_string());
    EXPECT_FALSE(path_absolute(odd.c_str(), absolute, 5));
    EXPECT_TRUE(file_remove(second.c_str()));
    EXPECT_FALSE(file_remove(second.c_str()));
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace kiv::platform
