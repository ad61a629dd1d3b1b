// The JSON reader and writer as the files of this folder use them.
#pragma once

#include <kiv/types.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "containers/internal.h"

namespace kiv {

// Longest error text of the reader, terminator included.
inline constexpr int32_t json_error_size = KIV_JSON_ERROR_SIZE;

// Reads a document: ErrorNone and a dictionary or an atom array that the caller frees, or else null
// and what is wrong in `message` (json_error_size bytes).
ErrorCode json_parse(const char *text, int64_t length, Object **result, char *message) noexcept;

// Appends one atom, as the writer lays it out at the outermost level. False on no memory or when
// values are nested too deeply (posted).
bool json_append_atom(const Atom &atom, JsonText &out);

void json_writer_start() noexcept;

// --- The reader's state machine (json_table.cpp) -------------------------------------------------

// States up to 7 are actions that a character asks for; they become the state of an error when the
// action does not fit. The numbers decide what the error says.
enum JsonState : uint8_t {
    JsonCloseEmpty = 0,
    JsonOpenObject = 1,
    JsonCloseObject = 2,
    JsonOpenArray = 3,
    JsonCloseArray = 4,
    JsonQuote = 5,
    JsonComma = 6,
    JsonColon = 7,
    JsonSyntaxError = 8,
    JsonStart = 9,
    JsonObject = 10,  // after "{"
    JsonArray = 11,   // after "["
    JsonString = 12,
    JsonEscape = 13,
    JsonHex1 = 14,
    JsonHex2,
    JsonHex3,
    JsonHex4,
    JsonAfterValue = 18,
    JsonTrue1 = 19,
    JsonTrue2,
    JsonTrue3,
    JsonFalse1 = 22,
    JsonFalse2,
    JsonFalse3,
    JsonFalse4,
    JsonNull1 = 26,
    JsonNull2,
    JsonNull3,
    JsonMinus = 29,
    JsonZero = 30,
    JsonInteger = 31,
    JsonFraction = 32,  // after the point, which needs no digit to follow
    JsonExponent = 33,
    JsonExponentSign = 34,
    JsonExponentDigits = 35,
    JsonAfterKey = 36,
    JsonValue = 37,  // after ":" and, in an array, after ","
    JsonKey = 38,    // after "," in an object
    JsonStateCount = 39
};

enum JsonClass : uint8_t {
    ClassBlank,    // space and tab
    ClassNewline,  // the blanks that end a line
    ClassLeftBrace,
    ClassRightBrace,
    ClassLeftBracket,
    ClassRightBracket,
    ClassColon,
    ClassComma,
    ClassQuote,
    ClassBackslash,
    ClassSlash,
    ClassPlus,
    ClassMinus,
    ClassPoint,
    ClassZero,
    ClassDigit,  // 1 to 9
    ClassA,
    ClassB,
    ClassC,
    ClassD,
    ClassE,
    ClassF,
    ClassL,
    ClassN,
    ClassR,
    ClassS,
    ClassT,
    ClassU,
    ClassHexUpper,  // A, B, C, D, F
    ClassUpperE,
    ClassOther,
    JsonClassCount
};
static_assert(JsonClassCount == 31);

constexpr bool json_is_number(int state) {
    return state >= JsonMinus && state <= JsonExponentDigits;
}
constexpr bool json_is_string(int state) {
    return state >= JsonString && state <= JsonHex4;
}

// What each byte leads to in each state.
using JsonRow = std::array<uint8_t, 256>;
extern const std::array<JsonRow, JsonStateCount> json_transitions;

// Among eight bytes of a string, the highest bit of each that is below a blank, a quote or a
// backslash; perhaps also of some behind the first of them.
inline uint64_t json_specials(const char *at) noexcept {
    constexpr uint64_t ones = 0x0101010101010101u;
    const auto below = [](uint64_t bytes, uint64_t limit) {
        return (bytes - ones * limit) & ~bytes & ones << 7;
    };
    uint64_t bytes;
    std::memcpy(&bytes, at, sizeof bytes);
    return below(bytes, ' ') | below(bytes ^ ones * '"', 1) | below(bytes ^ ones * '\\', 1);
}

// --- The reader's errors (json_error.cpp) --------------------------------------------------------

// Where and in what state a parse failed.
struct JsonFailure {
    int state;            // decides the message
    const char *message;  // or this does, when it is not null
    int parser_state;     // the state the parser was in
    bool key_next;        // the string being read is a key
    bool in_dictionary;   // what the innermost open container is
    bool in_array;
    const char *key;  // of the value being read in a dictionary
    std::string_view text;
    size_t position;  // of the failing byte
};
// Puts the message and the position together, in json_error_size bytes.
void json_describe(const JsonFailure &failure, char *out) noexcept;

}  // namespace kiv
