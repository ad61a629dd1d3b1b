// The JSON reader's tables: the class of every byte, and for each state what a byte of each class
// leads to. Whatever a state does not name is an error in that state.
#include <initializer_list>

#include "containers/json.h"

namespace kiv {

namespace {

using Classes = std::initializer_list<JsonClass>;

constexpr Classes blanks = {ClassBlank, ClassNewline};
constexpr Classes digits = {ClassZero, ClassDigit};
constexpr Classes hex_digits = {ClassZero, ClassDigit, ClassA, ClassB,        ClassC,
                                ClassD,    ClassE,     ClassF, ClassHexUpper, ClassUpperE};
constexpr Classes escapes = {ClassQuote, ClassBackslash, ClassSlash, ClassB,
                             ClassF,     ClassN,         ClassR,     ClassT};

using ClassRow = std::array<uint8_t, JsonClassCount>;

struct Builder {
    std::array<ClassRow, JsonStateCount> rows{};

    constexpr void on(int state, Classes classes, int next) {
        for (const JsonClass c : classes) {
            rows[static_cast<size_t>(state)][c] = static_cast<uint8_t>(next);
        }
    }
    // What may begin a value.
    constexpr void value_starts(int state) {
        on(state, {ClassQuote}, JsonString);
        on(state, {ClassLeftBrace}, JsonOpenObject);
        on(state, {ClassLeftBracket}, JsonOpenArray);
        on(state, {ClassMinus}, JsonMinus);
        on(state, {ClassZero}, JsonZero);
        on(state, {ClassDigit}, JsonInteger);
        on(state, {ClassT}, JsonTrue1);
        on(state, {ClassF}, JsonFalse1);
        on(state, {ClassN}, JsonNull1);
    }
    // What may follow a value, also directly after a number.
    constexpr void value_ends(int state) {
        on(state, blanks, JsonAfterValue);
        on(state, {ClassRightBrace}, JsonCloseObject);
        on(state, {ClassRightBracket}, JsonCloseArray);
        on(state, {ClassComma}, JsonComma);
    }
    constexpr void word(int state, Classes letters) {
        for (const JsonClass c : letters) {
            on(state, {c}, state + 1);
            ++state;
        }
        on(state, {ClassE}, JsonAfterValue);
    }
};

constexpr std::array<ClassRow, JsonStateCount> class_transitions() {
    Builder b;
    for (ClassRow &row : b.rows) {
        row.fill(JsonSyntaxError);
    }
    for (const int state : {JsonStart, JsonObject, JsonArray, JsonAfterKey, JsonValue, JsonKey}) {
        b.on(state, blanks, state);
    }
    b.on(JsonStart, {ClassLeftBrace}, JsonOpenObject);
    b.on(JsonStart, {ClassLeftBracket}, JsonOpenArray);
    b.on(JsonObject, {ClassRightBrace}, JsonCloseEmpty);
    b.on(JsonObject, {ClassQuote}, JsonString);
    b.on(JsonKey, {ClassQuote}, JsonString);
    b.on(JsonAfterKey, {ClassColon}, JsonColon);
    b.value_starts(JsonArray);
    b.on(JsonArray, {ClassRightBracket}, JsonCloseArray);
    b.value_starts(JsonValue);
    b.value_ends(JsonAfterValue);

    b.rows[JsonString].fill(JsonString);
    b.on(JsonString, {ClassNewline}, JsonSyntaxError);
    b.on(JsonString, {ClassQuote}, JsonQuote);
    b.on(JsonString, {ClassBackslash}, JsonEscape);
    b.on(JsonEscape, escapes, JsonString);
    b.on(JsonEscape, {ClassU}, JsonHex1);
    b.on(JsonHex1, hex_digits, JsonHex2);
    b.on(JsonHex2, hex_digits, JsonHex3);
    b.on(JsonHex3, hex_digits, JsonHex4);
    b.on(JsonHex4, hex_digits, JsonString);

    b.word(JsonTrue1, {ClassR, ClassU});
    b.word(JsonFalse1, {ClassA, ClassL, ClassS});
    b.on(JsonNull1, {ClassU}, JsonNull2);
    b.on(JsonNull2, {ClassL}, JsonNull3);
    b.on(JsonNull3, {ClassL}, JsonAfterValue);

    b.on(JsonMinus, {ClassZero}, JsonZero);
    b.on(JsonMinus, {ClassDigit}, JsonInteger);
    for (const int state : {JsonZero, JsonInteger, JsonFraction, JsonExponentDigits}) {
        b.value_ends(state);
    }
    for (const int state : {JsonZero, JsonInteger}) {
        b.on(state, {ClassPoint}, JsonFraction);
    }
    for (const int state : {JsonZero, JsonInteger, JsonFraction}) {
        b.on(state, {ClassE, ClassUpperE}, JsonExponent);
    }
    b.on(JsonInteger, digits, JsonInteger);
    b.on(JsonFraction, digits, JsonFraction);
    b.on(JsonExponent, {ClassPlus, ClassMinus}, JsonExponentSign);
    for (const int state : {JsonExponent, JsonExponentSign, JsonExponentDigits}) {
        b.on(state, digits, JsonExponentDigits);
    }
    return b.rows;
}

constexpr std::array<uint8_t, 256> make_classes() {
    std::array<uint8_t, 256> classes{};
    classes.fill(ClassOther);
    const auto set = [&classes](const char *bytes, JsonClass first, bool consecutive) {
        for (int i = 0; bytes[i]; ++i) {
            classes[static_cast<unsigned char>(bytes[i])] =
                static_cast<uint8_t>(first + (consecutive ? i : 0));
        }
    };
    set(" \t", ClassBlank, false);
    set("\r\n", ClassNewline, false);
    set("{}[]:,\"\\/+-.0", ClassLeftBrace, true);
    set("123456789", ClassDigit, false);
    set("abcdeflnrstu", ClassA, true);
    set("ABCDF", ClassHexUpper, false);
    set("E", ClassUpperE, false);
    return classes;
}

constexpr std::array<JsonRow, JsonStateCount> make_transitions() {
    const auto classes = make_classes();
    const auto rows = class_transitions();
    std::array<JsonRow, JsonStateCount> transitions{};
    for (size_t state = 0; state < rows.size(); ++state) {
        for (size_t byte = 0; byte < classes.size(); ++byte) {
            transitions[state][byte] = rows[state][classes[byte]];
        }
    }
    transitions[JsonString][0] = JsonSyntaxError;  // no text can hold a zero byte
    return transitions;
}

}  // namespace

constinit const std::array<JsonRow, JsonStateCount> json_transitions = make_transitions();

}  // namespace kiv
