#ifndef KIV_SYMBOL_H
#define KIV_SYMBOL_H

#include <kiv/types.h>

KIV_BEGIN

KIV_EXPORT Symbol *gensym(const char *text) KIV_NOEXCEPT;
KIV_EXPORT Symbol *gensym_tr(const char *text) KIV_NOEXCEPT;
KIV_EXPORT Symbol *symbol_tr(Symbol *symbol) KIV_NOEXCEPT;
KIV_EXPORT Symbol *symbol_unique(void) KIV_NOEXCEPT;
KIV_EXPORT ErrorCode symbolarray_sort(int32_t count, Symbol **symbols) KIV_NOEXCEPT;
KIV_EXPORT int32_t utils_usecontext(int32_t flag) KIV_NOEXCEPT;
KIV_EXPORT int32_t utils_contextinuse(void) KIV_NOEXCEPT;
KIV_EXPORT void utils_setcontext(void *owner, int32_t number) KIV_NOEXCEPT;
KIV_EXPORT int32_t utils_getcontextnumber(void) KIV_NOEXCEPT;
KIV_EXPORT void **common_symbols_gettable(void) KIV_NOEXCEPT;

KIV_END

#if defined(__cplusplus) && __cplusplus >= 202002L
/* "bang"_sym is gensym("bang"), interned once for each distinct text in a program. */
namespace kiv {

template <size_t size>
struct SymbolText {
    char text[size];
    constexpr SymbolText(const char (&literal)[size]) {
        for (size_t i = 0; i < size; ++i) {
            text[i] = literal[i];
        }
    }
};

inline namespace literals {

template <SymbolText name>
Symbol *operator""_sym() {
    static Symbol *const symbol = gensym(name.text);
    return symbol;
}

}  // namespace literals
}  // namespace kiv
#endif

#endif
