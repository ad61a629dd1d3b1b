/* Symbols: every name of the system, interned.

   Equal texts give the same Symbol, so names are compared by address. Symbols are never freed and
   never move; whoever holds one may keep it. The predefined empty symbol, gensym(""), means "no
   name". `thing` is the value bound to a name: whoever binds it stores into it and clears it again.
   Functions may be called from any thread, except that context-prefixed names (utils_usecontext)
   are interned from one thread at a time. */
#ifndef KIV_SYMBOL_H
#define KIV_SYMBOL_H

#include <kiv/types.h>

KIV_BEGIN

/* Returns the one symbol with this NUL-terminated text, making it when needed. The text is copied,
   cut to its first 32767 characters; a longer text therefore gives a fresh symbol on every call.
   Null text gives the empty symbol. Null only when there is no memory for a new symbol. While the
   context prefix is in use, "---name" stands for the context number followed by "name". */
KIV_EXPORT Symbol *gensym(const char *text) KIV_NOEXCEPT;

/* Returns symbol_tr(gensym(text)): for texts that the user reads. */
KIV_EXPORT Symbol *gensym_tr(const char *text) KIV_NOEXCEPT;

/* Returns the translation of a symbol, or the symbol itself when no translation other than English
   is active or it has no entry there. Null for null. */
KIV_EXPORT Symbol *symbol_tr(Symbol *symbol) KIV_NOEXCEPT;

/* Returns a symbol that names nothing else: "u" and nine digits. Names of objects that are gone are
   used again, oldest first, once more than 10000 of them wait. */
KIV_EXPORT Symbol *symbol_unique(void) KIV_NOEXCEPT;

/* Sorts an array of symbols in place by their names, ascending by unsigned bytes, a prefix first.
   Null entries sort as the empty name. Returns 0, or -1 for a null array with a positive count. */
KIV_EXPORT ErrorCode symbolarray_sort(int32_t count, Symbol **symbols) KIV_NOEXCEPT;

/* Switches the context prefix on (non-zero) or off. Returns the previous state, 0 or 1. */
KIV_EXPORT int32_t utils_usecontext(int32_t flag) KIV_NOEXCEPT;

/* Returns 1 while the context prefix is in use, else 0. */
KIV_EXPORT int32_t utils_contextinuse(void) KIV_NOEXCEPT;

/* Sets the context number to the last three decimal digits of `number`; `owner` is not used. */
KIV_EXPORT void utils_setcontext(void *owner, int32_t number) KIV_NOEXCEPT;

/* Returns the context number, 0 to 999. */
KIV_EXPORT int32_t utils_getcontextnumber(void) KIV_NOEXCEPT;

/* Returns the table of common symbols: word 0 holds the integer 500, words 1 to 1454 a Symbol each,
   in an order that does not change between releases. The kernel owns the table: read it only. */
KIV_EXPORT void **common_symbols_gettable(void) KIV_NOEXCEPT;

KIV_END

#if defined(__cplusplus) && __cplusplus >= 202002L
#include <atomic>

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
    static constinit std::atomic<Symbol *> known{nullptr};
    Symbol *symbol = known.load(std::memory_order_acquire);
    if (!symbol) { /* the first time, and as long as there is no memory for it */
        symbol = gensym(name.text);
        known.store(symbol, std::memory_order_release);
    }
    return symbol;
}

}  // namespace literals
}  // namespace kiv
#endif

#endif
