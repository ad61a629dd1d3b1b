// The words of message text: how text becomes atoms, and what a word means.
#pragma once

#include <kiv/types.h>

#include <cstddef>
#include <string_view>

namespace kiv {

inline constexpr size_t longest_word = 32767;

// Reads a text word by word.
class Tokenizer {
  public:
    explicit Tokenizer(std::string_view text, size_t position = 0) noexcept
        : text_(text), position_(position) {}

    // The next word's atom; `word`, of longest_word + 1 bytes, receives its characters. False at
    // the end of the text. A word that is too long is cut and raises the flag `failed`.
    bool next(char *word, Atom *atom) noexcept;
    size_t position() const noexcept { return position_; }
    bool failed() const noexcept { return failed_; }

  private:
    struct Word;
    void collect(Word &word) noexcept;

    std::string_view text_;
    size_t position_;
    bool failed_ = false;
};

// Reads a word as a number; true when it is one. With `exponents` 1e5 is one, too.
bool read_number(std::string_view word, bool exponents, Atom *number) noexcept;

// Reads "marker digit" and "marker digit text" ("$1", "#0-x") as a placeholder atom, or a
// placeholder symbol of what follows the marker. False for any other text, "$12" among them.
bool read_placeholder(const char *text, char marker, Atom *placeholder) noexcept;

bool is_blank(char c) noexcept;

}  // namespace kiv
