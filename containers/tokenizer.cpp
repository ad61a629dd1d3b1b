// The tokenizers of message text.
//
// There are two, chosen by a setting of the whole runtime. Both know the same words: blanks part
// them, a backslash takes the next character as it is, double quotes hold blanks and separators,
// and a word is a number, a placeholder or a symbol. Number 0, the default, knows no exponents, so
// that 1e5 is a symbol; number 1 reads 1e5, 2.5e-3 and 1.E4 as floats, for texts that other
// programs wrote. Whatever either of them would take for a number is quoted when a symbol is
// written as text.
//
// Thread safety: the setting is atomic; a Tokenizer belongs to one thread.
#include "containers/tokenizer.h"

#include <kiv/binbuf.h>
#include <kiv/symbol.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <limits>

#include "containers/internal.h"

namespace kiv {

namespace {

struct {
    std::atomic<int32_t> tokenizer{0};
} state;

bool is_digit(char c) noexcept {
    return c >= '0' && c <= '9';
}

bool is_hex_digit(char c) noexcept {
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool is_separator(char c) noexcept {
    return c == ';' || c == ',';
}

Atom symbol_atom(const char *text) noexcept {
    return {TypeSymbol, {.sym = gensym(text)}};
}

// Numbers beyond 64 bits become the nearest there is.
int64_t decimal_value(std::string_view digits) noexcept {
    int64_t value = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (result.ec == std::errc::result_out_of_range) {
        return digits.front() == '-' ? std::numeric_limits<int64_t>::min()
                                     : std::numeric_limits<int64_t>::max();
    }
    return value;
}

int64_t hexadecimal_value(std::string_view digits) noexcept {
    uint64_t value = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    return result.ec == std::errc::result_out_of_range ? -1 : static_cast<int64_t>(value);
}

// Whether a float that is out of range is too large rather than too small.
bool is_huge(std::string_view mantissa, std::string_view exponent) noexcept {
    const size_t dot = std::min(mantissa.find('.'), mantissa.size());
    const size_t first = std::min(mantissa.find_first_of("123456789"), mantissa.size());
    const int64_t size = static_cast<int64_t>(dot) - static_cast<int64_t>(first);
    const int64_t scale = exponent.empty() ? 0 : decimal_value(exponent);
    return size + std::clamp<int64_t>(scale, -1000000, 1000000) > 0;
}

double float_value(std::string_view word, std::string_view mantissa,
                   std::string_view exponent) noexcept {
    double value = 0.0;
    const auto result = std::from_chars(word.data(), word.data() + word.size(), value);
    if (result.ec == std::errc::result_out_of_range) {
        value = is_huge(mantissa, exponent) ? std::numeric_limits<double>::infinity() : 0.0;
        return word.front() == '-' ? -value : value;
    }
    return value;
}

// The digits behind an "e", with their sign; empty when that is not what is there.
std::string_view exponent_digits(std::string_view text) noexcept {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
    }
    const std::string_view digits = text.starts_with('-') ? text.substr(1) : text;
    return !digits.empty() && std::ranges::all_of(digits, is_digit) ? text : std::string_view{};
}

bool read_hexadecimal(std::string_view word, Atom *number) noexcept {
    if (word.size() < 3 || !word.starts_with("0x") ||
        !std::ranges::all_of(word.substr(2), is_hex_digit)) {
        return false;
    }
    *number = {TypeLong, {.i = hexadecimal_value(word.substr(2))}};
    return true;
}

// What may stand anywhere in a word and means nothing there.
constexpr std::array<bool, 256> make_plain() {
    std::array<bool, 256> plain{};
    for (size_t i = 0; i < plain.size(); ++i) {
        plain[i] = std::string_view(" \t\n\v\f\r\0;,\"\\", 11).find(static_cast<char>(i)) ==
                   std::string_view::npos;
    }
    return plain;
}
constexpr std::array<bool, 256> is_plain = make_plain();

}  // namespace

// Characters of one word as they are collected.
struct Tokenizer::Word {
    char *text;
    size_t size = 0;
    bool quoted = false;
    bool cut = false;
    bool literal_start = false;  // one of the first two characters was escaped

    void add(char c) noexcept {
        if (size < longest_word) {
            text[size++] = c;
        } else {
            cut = true;
        }
    }
    // Never leaves half a character at the end of a word that was cut.
    void end() noexcept {
        if (cut) {
            size_t start = size;
            while (start > 0 && (text[start - 1] & 0xc0) == 0x80) {
                --start;
            }
            if (start > 0 && (text[start - 1] & 0x80) != 0) {
                size = start - 1;
            }
        }
        text[size] = '\0';
    }
    Atom atom() const noexcept {
        Atom meaning;
        if (!quoted && !cut) {
            if (!literal_start && read_placeholder(text, '$', &meaning)) {
                return meaning;
            }
            if (read_number({text, size}, tokenizer_selected() == 1, &meaning)) {
                return meaning;
            }
        }
        return symbol_atom(text);
    }
};

// A zero byte inside a text parts words as a blank does.
bool is_blank(char c) noexcept {
    return c == ' ' || (c >= '\t' && c <= '\r') || c == '\0';
}

bool read_number(std::string_view word, bool exponents, Atom *number) noexcept {
    if (word.empty() || (!is_digit(word[0]) && word[0] != '-' && word[0] != '.')) {
        return false;
    }
    if (read_hexadecimal(word, number)) {
        return true;
    }
    const size_t start = word.starts_with('-') ? 1 : 0;
    size_t end = start;
    int dots = 0;
    int digits = 0;
    for (; end < word.size() && (is_digit(word[end]) || word[end] == '.'); ++end) {
        (word[end] == '.' ? dots : digits) += 1;
    }
    if (digits == 0 || dots > 1) {
        return false;
    }
    const std::string_view mantissa = word.substr(start, end - start);
    std::string_view exponent;
    if (end < word.size()) {
        if (!exponents || (word[end] != 'e' && word[end] != 'E')) {
            return false;
        }
        exponent = exponent_digits(word.substr(end + 1));
        if (exponent.empty()) {
            return false;
        }
    }
    if (dots == 0 && exponent.empty()) {
        *number = {TypeLong, {.i = decimal_value(word)}};
    } else {
        *number = {TypeFloat, {.f = float_value(word, mantissa, exponent)}};
    }
    return true;
}

bool read_placeholder(const char *text, char marker, Atom *placeholder) noexcept {
    if (text[0] != marker || !is_digit(text[1])) {
        return false;
    }
    if (text[2] == '\0') {
        *placeholder = {TypeDollar, {.i = text[1] - '0'}};
        return true;
    }
    if (text[2] >= '1' && text[2] <= '9') {
        return false;
    }
    *placeholder = {TypeDollarSymbol, {.sym = gensym(text + 1)}};
    return true;
}

void tokenizer_select(int32_t number) noexcept {
    state.tokenizer = number != 0;
}

int32_t tokenizer_selected() noexcept {
    return state.tokenizer.load(std::memory_order_relaxed);
}

// Collects the characters of one word, up to the blank or separator that ends it.
void Tokenizer::collect(Word &word) noexcept {
    // Most words are plain from end to end and are taken at once.
    const size_t start = position_;
    const size_t most = std::min(text_.size(), start + longest_word - word.size);
    while (position_ < most && is_plain[static_cast<unsigned char>(text_[position_])]) {
        ++position_;
    }
    std::copy_n(text_.data() + start, position_ - start, word.text + word.size);
    word.size += position_ - start;
    bool in_quotes = false;
    for (; position_ < text_.size(); ++position_) {
        const char c = text_[position_];
        if (c == '"') {
            in_quotes = !in_quotes;
            word.quoted = true;
        } else if (c == '\\') {
            if (position_ + 1 < text_.size() && text_[position_ + 1] != '\0') {
                word.literal_start = word.literal_start || word.size < 2;
                word.add(text_[++position_]);
            }
        } else if (!in_quotes && (is_blank(c) || is_separator(c))) {
            break;
        } else if (c != '\0') {
            word.add(c);
        }
    }
    word.end();
}

bool Tokenizer::next(char *buffer, Atom *atom) noexcept {
    Word word{buffer};
    // A backslash with nothing to escape makes no word.
    while (word.size == 0 && !word.quoted) {
        while (position_ < text_.size() && is_blank(text_[position_])) {
            ++position_;
        }
        if (position_ == text_.size()) {
            return false;
        }
        if (const char c = text_[position_]; is_separator(c)) {
            ++position_;
            word.add(c);
            word.end();
            *atom = {c == ';' ? AtomType{TypeSemicolon} : AtomType{TypeComma}, {.i = 0}};
            return true;
        }
        collect(word);
    }
    failed_ = failed_ || word.cut;
    *atom = word.atom();
    return true;
}

}  // namespace kiv

using namespace kiv;

int32_t readatom(char *out, char **text, int64_t *position, int64_t size, Atom *atom) noexcept {
    if (!out || !text || !*text || !position || !atom || size <= 0) {
        return 0;
    }
    const auto length = static_cast<size_t>(size);
    const size_t start = std::min(static_cast<size_t>(std::max<int64_t>(*position, 0)), length);
    Tokenizer tokenizer({*text, length}, start);
    const bool found = tokenizer.next(out, atom);
    *position = static_cast<int64_t>(tokenizer.position());
    return found;
}
