// The context prefix: while it is in use, "---name" stands for the context number and "name".
//
// One buffer serves the whole process and is not guarded, so context-prefixed names are interned
// from one thread at a time.
#include "kernel/symbol_parts.h"

#include <kiv/symbol.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace kiv {

namespace {

constexpr size_t digits = 3;

struct ContextPrefix {
    std::atomic<int32_t> in_use{0};
    char name[32768] = {'0', '0', '0'};  // the context number, then the rest of the name
};
constinit ContextPrefix context;

}  // namespace

const char *context_prefixed(const char *text) noexcept {
    if (context.in_use.load(std::memory_order_relaxed) == 0 || std::strncmp(text, "---", 3) != 0 ||
        text[3] == '-') {
        return text;
    }
    const std::string_view rest = text + 3;
    const size_t length = std::min(rest.size(), sizeof(context.name) - digits - 1);
    std::memcpy(context.name + digits, rest.data(), length);
    context.name[digits + length] = '\0';
    return context.name;
}

}  // namespace kiv

int32_t utils_usecontext(int32_t flag) noexcept {
    return kiv::context.in_use.exchange(flag != 0 ? 1 : 0);
}

int32_t utils_contextinuse() noexcept {
    return kiv::context.in_use.load();
}

void utils_setcontext(void *, int32_t number) noexcept {
    const int64_t value = std::llabs(number);
    kiv::context.name[0] = static_cast<char>('0' + value / 100 % 10);
    kiv::context.name[1] = static_cast<char>('0' + value / 10 % 10);
    kiv::context.name[2] = static_cast<char>('0' + value % 10);
}

int32_t utils_getcontextnumber() noexcept {
    const char *number = kiv::context.name;
    return (number[0] - '0') * 100 + (number[1] - '0') * 10 + (number[2] - '0');
}
