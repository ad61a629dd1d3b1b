// The texts of the JSON reader's errors: a message by the state at the failing byte, then its line
// and character, counted from 1, and the text just before it.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "containers/json.h"

namespace kiv {

namespace {

constexpr size_t longest_key = 60;
constexpr size_t longest_text = 32;

bool continues(char c) noexcept {
    return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

// A text cut to `limit` bytes, between characters.
std::string_view cut(std::string_view text, size_t limit) noexcept {
    if (text.size() > limit) {
        while (limit > 0 && continues(text[limit])) {
            --limit;
        }
    }
    return text.substr(0, limit);
}

// The word for where the parser is.
const char *context_word(const JsonFailure &failure) noexcept {
    constexpr const char *words[] = {"unknown",   "done",  "dictionary", "key",    "string",
                                     "dictvalue", "value", "number",     "string", "array"};
    enum { Unknown, Done, InDictionary, Key, KeyString, DictValue, Value, Number, String, Array };
    const int s = failure.parser_state;
    int context = Unknown;
    if (json_is_string(s)) {
        context = failure.key_next ? KeyString : String;
    } else if (json_is_number(s)) {
        context = Number;
    } else if (failure.in_array) {
        context = Array;
    } else if (failure.in_dictionary) {
        context = s == JsonObject                     ? InDictionary
                  : s == JsonKey || s == JsonAfterKey ? Key
                                                      : DictValue;
    } else if (s == JsonAfterValue) {
        context = Done;
    }
    return words[context];
}

// The message of a state, with "%.*s" where the key belongs.
const char *message_of(const JsonFailure &failure) noexcept {
    static constexpr const char *actions[] = {
        "'}' character unexpected (empty)", "'{' character unexpected", "'}' character unexpected",
        "'[' character unexpected",         "']' character unexpected", "'\"' character unexpected",
        "',' character unexpected",         "':' character unexpected"};
    const int s = failure.state;
    if (s >= 0 && s < JsonSyntaxError) {
        return actions[s];
    }
    switch (s) {
        case JsonStart:
            return "parsing object, possible missing initial '{' character";
        case JsonObject:
            return "parsing object";
        case JsonArray:
            return "parsing array";
        case JsonString:
        case JsonEscape:
            return failure.key_next ? "parsing key, possible missing quote"
                                    : "parsing string, possible missing quote";
        case JsonHex1:
        case JsonHex2:
        case JsonHex3:
        case JsonHex4:
            return "parsing unicode escape";
        case JsonAfterValue:
            return failure.in_dictionary
                       ? "',' or '}' character expected after value for key '%.*s'"
                   : failure.in_array ? "',' or ']' character expected in array"
                                      : "',' or ']' or '}' character expected";
        case JsonAfterKey:
            return failure.in_dictionary ? "':' character expected after key"
                                         : "':' character expected";
        case JsonValue:
            return failure.in_dictionary ? "value expected for key '%.*s'"
                   : failure.in_array
                       ? "value expected in array, possible extra comma or missing ']'"
                       : "value expected, possible extra comma";
        case JsonKey:
            return "key expected, possible extra comma or missing '}'";
        default:
            return s >= JsonTrue1 && s <= JsonFalse4  ? "parsing boolean"
                   : s >= JsonNull1 && s <= JsonNull3 ? "parsing null"
                   : json_is_number(s)                ? "parsing number"
                                                      : nullptr;
    }
}

void write_message(const JsonFailure &failure, char *out, size_t size) noexcept {
    const std::string_view key = cut(failure.key, longest_key);
    const auto key_size = static_cast<int>(key.size());
    if (failure.message) {
        std::snprintf(out, size, "%s", failure.message);
    } else if (failure.state == JsonSyntaxError) {
        const char *word = context_word(failure);
        if (std::strcmp(word, "dictvalue") == 0) {
            std::snprintf(out, size, "syntax error in value for key '%.*s'", key_size, key.data());
        } else {
            std::snprintf(out, size, "syntax error in %s", word);
        }
    } else if (const char *message = message_of(failure)) {
        std::snprintf(out, size, message, key_size, key.data());
    } else {
        std::snprintf(out, size, "state=%d", failure.state);
    }
}

}  // namespace

void json_describe(const JsonFailure &failure, char *out) noexcept {
    char message[128];
    write_message(failure, message, sizeof message);

    const std::string_view before = failure.text.substr(0, failure.position);
    int64_t line = 1;
    size_t line_start = 0;
    for (size_t i = 0; i < before.size(); ++i) {
        // A carriage return ends a line unless a line feed follows and does.
        const bool pair =
            before[i] == '\r' && i + 1 < failure.text.size() && failure.text[i + 1] == '\n';
        if (before[i] == '\n' || (before[i] == '\r' && !pair)) {
            ++line;
            line_start = i + 1;
        }
    }
    const std::string_view in_line = before.substr(line_start);
    const int64_t character = 1 + static_cast<int64_t>(in_line.size()) -
                              std::count_if(in_line.begin(), in_line.end(), continues);

    char text[longest_text + 1];
    std::string_view tail = before.substr(before.size() - std::min(before.size(), longest_text));
    while (!tail.empty() && continues(tail.front())) {
        tail.remove_prefix(1);
    }
    const auto size =
        std::transform(tail.begin(), tail.end(), text,
                       [](char c) { return static_cast<unsigned char>(c) < ' ' ? ' ' : c; }) -
        text;
    std::snprintf(out, json_error_size, "%s: line=%" PRId64 ", char=%" PRId64 ", text='...%.*s'",
                  message, line, character, static_cast<int>(size), text);
}

}  // namespace kiv
