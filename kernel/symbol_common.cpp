// The common-symbols table: names that the kernel and modules reach by index. Built once, by
// start-up or by whoever asks earlier; read-only afterwards.
#include <kiv/symbol.h>

#include <iterator>

namespace kiv {

namespace {

constexpr const char *names[] = {
#define KIV_COMMON(name) name,
#include "kernel/common_symbols.inc"
#undef KIV_COMMON
};
static_assert(std::size(names) == 1454);

constexpr intptr_t table_mark = 500;  // word 0

struct CommonTable {
    void *words[1 + std::size(names)];
    CommonTable() noexcept {
        words[0] = reinterpret_cast<void *>(table_mark);
        for (size_t i = 0; i < std::size(names); ++i) {
            words[1 + i] = gensym(names[i]);
        }
    }
};

}  // namespace

}  // namespace kiv

void **common_symbols_gettable() noexcept {
    static kiv::CommonTable table;
    return table.words;
}
