#include "containers/utf8.h"

#include <cstdint>
#include <cstring>

namespace kiv {

namespace {

bool is_continuation(char c) noexcept {
    return (c & 0xc0) == 0x80;
}

// The length of the valid character at the start of a text; 0 when there is none: overlong forms,
// surrogates and numbers beyond U+10FFFF are not valid.
size_t character_length(std::string_view text) noexcept {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) {
        return 1;
    }
    const size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < length) {
        return 0;
    }
    for (size_t i = 1; i < length; ++i) {
        if (!is_continuation(text[i])) {
            return 0;
        }
    }
    const auto second = static_cast<unsigned char>(text[1]);
    const bool valid = !(first == 0xe0 && second < 0xa0) && !(first == 0xed && second > 0x9f) &&
                       !(first == 0xf0 && second < 0x90) && !(first == 0xf4 && second > 0x8f);
    return valid ? length : 0;
}

}  // namespace

bool is_utf8(std::string_view text) noexcept {
    while (!text.empty()) {
        // Most text is ASCII, eight bytes at a time.
        constexpr uint64_t high_bits = 0x8080808080808080;
        uint64_t eight = high_bits;
        if (text.size() >= sizeof eight) {
            std::memcpy(&eight, text.data(), sizeof eight);
        }
        if ((eight & high_bits) == 0) {
            text.remove_prefix(sizeof eight);
            continue;
        }
        const size_t length = character_length(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

Text to_utf8(std::string_view text) {
    Text out;
    out.reserve(text.size() + text.size() / 8);
    while (!text.empty()) {
        const size_t length = character_length(text);
        if (length > 0) {
            out.append(text.substr(0, length));
            text.remove_prefix(length);
            continue;
        }
        const auto byte = static_cast<unsigned char>(text[0]);
        out.push_back(static_cast<char>(0xc0 | byte >> 6));
        out.push_back(static_cast<char>(0x80 | (byte & 0x3f)));
        text.remove_prefix(1);
    }
    return out;
}

}  // namespace kiv
