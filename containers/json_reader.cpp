// The JSON reader.
//
// A table (json_table.cpp) decides, byte by byte, what follows what; runs of plain string bytes,
// blanks and digits are taken at once. Open containers are a stack on the heap, not recursion.
//
// Values wait on one shared stack of atoms: a dictionary's value until the "," or "}" after it,
// when it joins the dictionary's pairs on another stack, an array's until its "]". What is neither
// finished nor stored when an error occurs is freed with the parser. Line and character of an error
// are counted only once it has occurred.
//
// Decisions about values: true and false are the integers 1 and 0; null is an atom of type 0;
// integers beyond 64 bits become the nearest there is; strings too long for a symbol stay string
// objects; of keys that occur twice the last value stands, in the place of the first; half a
// surrogate pair is U+FFFD.
#include <kiv/class.h>
#include <kiv/console.h>
#include <kiv/object.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <span>
#include <string_view>
#include <utility>

#include "containers/families.h"
#include "containers/json.h"
#include "containers/values.h"

namespace kiv {

namespace {

// One open container.
struct StackEntry {
    Object ob;
    bool is_dictionary;      // or else an array
    Dictionary *dictionary;  // made once there are too many pairs to be packed, stored as they come
    Symbol *key;             // of the value that comes next, or null
    size_t first;            // where its waiting values begin
    size_t first_pair;       // where its waiting pairs begin
    uint64_t key_bits;       // of the keys of those pairs
    StackEntry *below;
};

struct {
    Class *reader_class = nullptr;
    Class *entry_class = nullptr;
} state;

class Parser {
  public:
    explicit Parser(std::string_view text) noexcept
        : text_(text), at_(text.data()), end_(text.data() + text.size()) {}
    ~Parser();
    Parser(const Parser &) = delete;
    Parser &operator=(const Parser &) = delete;

    // The finished value, which is the caller's; null after a failure.
    Object *run();
    bool fail(int error_state) noexcept;
    bool fail(const char *message) noexcept;
    JsonFailure failure() const noexcept;

  private:
    uint8_t take_run() noexcept;
    bool step(uint8_t next);
    bool finish();

    bool open(bool dictionary);
    bool close(bool dictionary, bool empty);
    bool store_value();
    bool store_pairs();
    bool add(Atom atom);

    void begin_string() noexcept;
    bool end_string();
    Symbol *key_symbol(std::string_view name) noexcept;
    void flush_run();
    void append_escape(char c);
    void add_hex_digit(char c) noexcept;
    void end_unicode();
    void append_utf8(uint32_t code);
    bool end_number();

    size_t waiting() const noexcept { return values_.size() - (top_ ? top_->first : 0); }

    const std::string_view text_;
    const char *at_;
    const char *const end_;
    int state_ = JsonStart;
    StackEntry *top_ = nullptr;
    StackEntry *spare_ = nullptr;  // closed entries, for reuse
    int32_t depth_ = 0;
    Vector<Atom> values_;
    Vector<KeyValue> pairs_;  // of open dictionaries

    const char *token_ = nullptr;  // start of the current number, or of a string's current run
    Text string_;                  // the string so far
    std::array<Symbol *, 64> known_keys_{};  // those met last, by a hash of their own
    uint32_t code_ = 0;                      // of the \u escape being read
    uint32_t high_ = 0;      // first half of a surrogate pair, waiting for the second
    bool key_next_ = false;  // the next string is a key

    int error_state_ = -1;
    const char *error_message_ = nullptr;  // instead of the message of a state
};

Parser::~Parser() {
    for (const Atom &atom : values_) {
        if (atom.type == TypeObject) {
            object_free(atom.value.obj);
        }
    }
    for (const KeyValue &pair : pairs_) {
        if (pair.value.type == TypeObject) {
            object_free(pair.value.value.obj);
        }
    }
    for (StackEntry *entry = top_; entry;) {
        StackEntry *below = entry->below;
        object_free(entry->dictionary);
        object_free(entry);
        entry = below;
    }
    for (StackEntry *entry = spare_; entry;) {
        StackEntry *below = entry->below;
        object_free(entry);
        entry = below;
    }
}

bool Parser::fail(int error_state) noexcept {
    error_state_ = error_state;
    return false;
}

bool Parser::fail(const char *message) noexcept {
    error_message_ = message;
    return fail(JsonStateCount);
}

JsonFailure Parser::failure() const noexcept {
    JsonFailure failure{};
    failure.state = error_state_;
    failure.message = error_message_;
    failure.parser_state = state_;
    failure.key_next = key_next_;
    failure.in_dictionary = top_ && top_->is_dictionary;
    failure.in_array = top_ && !top_->is_dictionary;
    failure.key = failure.in_dictionary && top_->key ? top_->key->name : "";
    failure.text = text_;
    failure.position = static_cast<size_t>(at_ - text_.data());
    return failure;
}

Object *Parser::run() {
    while (at_ < end_) {
        const uint8_t next = take_run();
        if (at_ == end_) {
            break;
        }
        const bool number_ends = json_is_number(state_) && !json_is_number(next);
        if ((number_ends && !end_number()) || !step(next)) {
            return nullptr;
        }
        ++at_;
    }
    return finish() ? static_cast<Object *>(std::exchange(values_[0].value.obj, nullptr)) : nullptr;
}

// The first byte that is below a blank, a quote or a backslash, or one of the last seven of the
// text: eight at once.
const char *skip_plain(const char *at, const char *end) noexcept {
    static_assert(std::endian::native == std::endian::little);
    for (; end - at >= 8; at += 8) {
        if (const uint64_t found = json_specials(at)) {
            return at + std::countr_zero(found) / 8;
        }
    }
    return at;
}

// Skips what keeps the state as it is; answers what the byte behind leads to.
uint8_t Parser::take_run() noexcept {
    const auto same = static_cast<uint8_t>(state_);
    const JsonRow &row = json_transitions[same];
    const char *at = same == JsonString ? skip_plain(at_, end_) : at_;
    uint8_t next = same;
    while (at < end_ && (next = row[static_cast<unsigned char>(*at)]) == same) {
        ++at;
    }
    at_ = at;
    return next;
}

// Takes one byte that leads to another state, or asks for an action.
bool Parser::step(uint8_t next) {
    switch (next) {
        case JsonOpenObject:
        case JsonOpenArray:
            return open(next == JsonOpenObject);
        case JsonCloseEmpty:
        case JsonCloseObject:
            return top_ && top_->is_dictionary ? close(true, next == JsonCloseEmpty) : fail(next);
        case JsonCloseArray:
            return top_ && !top_->is_dictionary ? close(false, waiting() == 0) : fail(next);
        case JsonQuote:
            return end_string();
        case JsonComma:
            if (!top_) {
                return fail(next);
            }
            key_next_ = top_->is_dictionary;
            state_ = key_next_ ? JsonKey : JsonValue;
            return !key_next_ || store_value();
        case JsonColon:
            state_ = JsonValue;
            return true;
        case JsonSyntaxError: {
            const char c = *at_;
            const bool never_json =
                static_cast<unsigned char>(c) < ' ' || c == '\x7f' || (c & 0x80);
            return fail(never_json && !json_is_string(state_) ? JsonSyntaxError : state_);
        }
        case JsonString:
            token_ = at_ + 1;
            if (state_ == JsonEscape) {
                append_escape(*at_);
            } else if (state_ == JsonHex4) {
                add_hex_digit(*at_);
                end_unicode();
                if (code_ == 0) {
                    return fail(JsonHex4);  // no text can hold it
                }
            } else {
                begin_string();
            }
            break;
        case JsonEscape:
            flush_run();
            break;
        case JsonHex1:
            code_ = 0;
            break;
        case JsonHex2:
        case JsonHex3:
        case JsonHex4:
            add_hex_digit(*at_);
            break;
        case JsonMinus:
        case JsonZero:
        case JsonInteger:
            token_ = json_is_number(state_) ? token_ : at_;
            break;
        case JsonAfterValue: {
            const bool word_ends =
                state_ == JsonTrue3 || state_ == JsonFalse4 || state_ == JsonNull3;
            if (word_ends &&
                !add(state_ == JsonNull3 ? Atom{} : atom_of(int64_t{state_ == JsonTrue3}))) {
                return false;
            }
            break;
        }
        default:
            break;
    }
    state_ = next;
    return true;
}

bool Parser::open(bool dictionary) {
    if (depth_ >= max_nesting) {
        return fail("containers nested too deeply");
    }
    StackEntry *entry = spare_;
    if (entry) {
        spare_ = entry->below;
    } else {
        entry = static_cast<StackEntry *>(object_alloc(state.entry_class));
        if (!entry) {
            return fail("out of memory");
        }
    }
    entry->is_dictionary = dictionary;
    entry->dictionary = nullptr;
    entry->key = nullptr;
    entry->first = values_.size();
    entry->first_pair = pairs_.size();
    entry->key_bits = 0;
    entry->below = top_;
    top_ = entry;
    ++depth_;
    key_next_ = dictionary;
    state_ = dictionary ? JsonObject : JsonArray;
    return true;
}

// Ends the innermost container and makes it a value of the one around it.
bool Parser::close(bool dictionary, bool empty) {
    Atom atom;
    if (dictionary) {
        if (!empty && !store_value()) {
            return false;
        }
        const size_t first = top_->first_pair;
        Dictionary *made = std::exchange(top_->dictionary, nullptr);
        made = made ? made
                    : dictionary_pack(static_cast<int32_t>(pairs_.size() - first),
                                      pairs_.data() + first);
        if (!made) {
            return fail("out of memory");
        }
        pairs_.resize(first);
        atom = atom_of_object(made);
    } else {
        const size_t count = waiting();
        Atomarray *array = count <= INT32_MAX ? atomarray_adopt(static_cast<int32_t>(count),
                                                                values_.data() + top_->first)
                                              : nullptr;
        if (!array) {
            return fail("out of memory");
        }
        values_.resize(top_->first);
        atom = atom_of_object(array);
    }
    StackEntry *closed = std::exchange(top_, top_->below);
    closed->below = spare_;
    spare_ = closed;
    --depth_;
    key_next_ = false;
    state_ = JsonAfterValue;
    return add(atom);
}

// One of 64 bits, so that most keys are known to be new without a look at those before.
uint64_t key_bit(const Symbol *key) noexcept {
    return uint64_t{1} << (reinterpret_cast<uintptr_t>(key) * 0x9e3779b97f4a7c15u >> 58);
}

// Moves a dictionary's waiting value under its key: among its pairs, or into the dictionary once it
// has more of them than can be packed.
bool Parser::store_value() {
    if (waiting() != 1) {
        error("jsonreader_pop: MODE_DICTIONARY: argc not 1!");
        return fail(JsonSyntaxError);
    }
    if (!top_->is_dictionary) {
        error("jsonreader_pop: MODE_OBJECT: e1 is not an obj!");
        return fail(JsonSyntaxError);
    }
    const KeyValue pair{top_->key, values_.back()};
    const uint64_t bit = key_bit(pair.key);
    const std::span present = std::span(pairs_).subspan(top_->first_pair);
    for (KeyValue &before : top_->key_bits &bit ? present : std::span<KeyValue>()) {
        if (before.key == pair.key) {
            const Atom old = std::exchange(before.value, pair.value);
            values_.pop_back();
            if (old.type == TypeObject) {
                object_free(old.value.obj);
            }
            return true;
        }
    }
    top_->key_bits |= bit;
    pairs_.push_back(pair);
    values_.pop_back();
    const bool many = present.size() >= static_cast<size_t>(most_walked);
    return (!many && !top_->dictionary) || store_pairs();
}

bool Parser::store_pairs() {
    if (!top_->dictionary && !(top_->dictionary = dictionary_new())) {
        return fail("out of memory");
    }
    size_t i = top_->first_pair;
    for (; i < pairs_.size(); ++i) {
        const KeyValue &pair = pairs_[i];
        if (dictionary_store(top_->dictionary, pair.key, pair.value, 0) != ErrorNone) {
            break;
        }
    }
    // What is stored is the dictionary's; what is left goes with the parser.
    pairs_.erase(pairs_.begin() + static_cast<ptrdiff_t>(top_->first_pair),
                 pairs_.begin() + static_cast<ptrdiff_t>(i));
    return pairs_.size() == top_->first_pair || fail("out of memory");
}

bool Parser::add(Atom atom) {
    try {
        values_.push_back(atom);
    } catch (...) {
        if (atom.type == TypeObject) {
            object_free(atom.value.obj);
        }
        throw;
    }
    return true;
}

bool Parser::finish() {
    const bool whole_number = state_ == JsonZero || state_ == JsonInteger ||
                              state_ == JsonFraction || state_ == JsonExponentDigits;
    if (whole_number) {
        return fail(JsonAfterValue);  // numbers stand inside a container, which is still open
    }
    if (top_ || state_ != JsonAfterValue) {
        return fail(state_);
    }
    if (values_.size() != 1) {
        error("jsonreader_parse: done but e->s_argc != 1");
        return fail(JsonSyntaxError);
    }
    return true;
}

// --- Strings -------------------------------------------------------------------------------------

void Parser::begin_string() noexcept {
    string_.clear();
    high_ = 0;
}

// Takes over the plain bytes since the last escape.
void Parser::flush_run() {
    if (high_ && at_ > token_) {
        append_utf8(std::exchange(high_, 0));
    }
    string_.append(token_, at_);
}

// The symbol of a key. Documents repeat few keys very often: the last ones are remembered.
Symbol *Parser::key_symbol(std::string_view name) noexcept {
    const size_t hash = name.empty()
                            ? 0
                            : name.size() * 31 + static_cast<unsigned char>(name.front()) * 7 +
                                  static_cast<unsigned char>(name.back());
    Symbol *&known = known_keys_[hash % known_keys_.size()];
    if (!known || !symbol_is(known, name)) {
        known = symbol_named(name);
    }
    return known;
}

bool Parser::end_string() {
    std::string_view text(token_, static_cast<size_t>(at_ - token_));
    if (!string_.empty() || high_) {  // there were escapes
        flush_run();
        if (high_) {
            append_utf8(std::exchange(high_, 0));
        }
        text = string_;
    }
    const bool fits = text.size() <= longest_symbol;
    if (key_next_) {
        if (!fits) {
            return fail("key too long");
        }
        top_->key = key_symbol(text);
        key_next_ = false;
        state_ = JsonAfterKey;
        return top_->key || fail("out of memory");
    }
    Symbol *symbol = fits ? symbol_named(text) : nullptr;
    String *string = fits ? nullptr : string_from(text.data(), text.size());
    if (!symbol && !string) {
        return fail("out of memory");
    }
    state_ = JsonAfterValue;
    return add(symbol ? atom_of(symbol) : atom_of_object(string));
}

void Parser::append_escape(char c) {
    if (high_) {
        append_utf8(std::exchange(high_, 0));
    }
    switch (c) {
        case 'b':
            c = '\b';
            break;
        case 'f':
            c = '\f';
            break;
        case 'n':
            c = '\n';
            break;
        case 'r':
            c = '\r';
            break;
        case 't':
            c = '\t';
            break;
        default:
            break;
    }
    string_.push_back(c);
}

void Parser::add_hex_digit(char c) noexcept {
    const int digit = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
    code_ = code_ << 4 | static_cast<uint32_t>(digit);
}

void Parser::end_unicode() {
    const bool low = code_ >= 0xdc00 && code_ <= 0xdfff;
    if (high_ && low) {
        append_utf8(0x10000 + ((high_ - 0xd800) << 10) + (code_ - 0xdc00));
        high_ = 0;
        return;
    }
    if (high_) {
        append_utf8(std::exchange(high_, 0));
    }
    if (code_ >= 0xd800 && code_ <= 0xdbff) {
        high_ = code_;
    } else {
        append_utf8(code_);
    }
}

void Parser::append_utf8(uint32_t code) {
    if (code >= 0xd800 && code <= 0xdfff) {
        code = 0xfffd;
    }
    const auto put = [this](uint32_t byte) { string_.push_back(static_cast<char>(byte)); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xc0 | code >> 6);
        put(0x80 | (code & 0x3f));
    } else if (code < 0x10000) {
        put(0xe0 | code >> 12);
        put(0x80 | (code >> 6 & 0x3f));
        put(0x80 | (code & 0x3f));
    } else {
        put(0xf0 | code >> 18);
        put(0x80 | (code >> 12 & 0x3f));
        put(0x80 | (code >> 6 & 0x3f));
        put(0x80 | (code & 0x3f));
    }
}

// --- Numbers -------------------------------------------------------------------------------------

// A number out of a double's range: the infinity of its sign, or 0, whichever is nearer.
double beyond_range(std::string_view text) noexcept {
    const bool negative = text.front() == '-';
    const size_t mantissa_end = std::min(text.find_first_of("eE"), text.size());
    const size_t point = std::min(text.find('.'), mantissa_end);
    const size_t first = text.find_first_of("123456789");
    int64_t exponent = 0;
    if (mantissa_end < text.size()) {
        const char *begin = text.data() + mantissa_end + 1;
        begin += *begin == '+' ? 1 : 0;
        const char *end = text.data() + text.size();
        if (std::from_chars(begin, end, exponent).ec == std::errc::result_out_of_range) {
            exponent = *begin == '-' ? INT32_MIN : INT32_MAX;
        }
        exponent = std::clamp<int64_t>(exponent, INT32_MIN, INT32_MAX);
    }
    exponent += static_cast<int64_t>(point) - static_cast<int64_t>(first);
    const double size = exponent > 0 ? std::numeric_limits<double>::infinity() : 0.0;
    return negative ? -size : size;
}

// A decimal fraction of few digits: the digits and the power of ten are whole numbers that a double
// holds, so that their quotient is rounded once. False for a longer one.
bool short_decimal(const char *at, const char *end, double *value) noexcept {
    static constexpr double powers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                        1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    const bool negative = *at == '-';
    at += negative ? 1 : 0;
    if (end - at > static_cast<ptrdiff_t>(std::size(powers))) {
        return false;
    }
    int64_t digits = 0;
    const char *point = end;
    for (; at < end; ++at) {
        if (*at == '.') {
            point = at + 1;
        } else {
            digits = digits * 10 + (*at - '0');
        }
    }
    const double size = static_cast<double>(digits) / powers[end - point];
    *value = negative ? -size : size;
    return true;
}

bool Parser::end_number() {
    if (state_ == JsonZero || state_ == JsonInteger) {
        int64_t value = 0;
        if (std::from_chars(token_, at_, value).ec == std::errc::result_out_of_range) {
            value = *token_ == '-' ? INT64_MIN : INT64_MAX;
        }
        return add(atom_of(value));
    }
    double value = 0.0;
    if (state_ == JsonFraction && short_decimal(token_, at_, &value)) {
        return add(atom_of(value));
    }
    if (std::from_chars(token_, at_, value).ec == std::errc::result_out_of_range) {
        value = beyond_range({token_, static_cast<size_t>(at_ - token_)});
    }
    return add(atom_of(value));
}

}  // namespace

// --- The interface -------------------------------------------------------------------------------

ErrorCode json_parse(const char *text, int64_t length, Object **result, char *message) noexcept {
    *result = nullptr;
    std::snprintf(message, json_error_size, "error: none");
    std::string_view document(text, static_cast<size_t>(std::max<int64_t>(length, 0)));
    if (document.starts_with("\xef\xbb\xbf")) {
        document.remove_prefix(3);  // a byte order mark
    }
    while (document.ends_with('\0')) {
        document.remove_suffix(1);
    }
    Parser parser(document);
    try {
        *result = parser.run();
    } catch (const std::bad_alloc &) {
        parser.fail("out of memory");
    }
    if (!*result) {
        json_describe(parser.failure(), message);
    }
    return *result ? ErrorNone : ErrorGeneric;
}

namespace {

struct Reader {
    Object ob;
    char message[json_error_size];  // of the last parse
};

Reader *reader_new() noexcept {
    auto *reader = static_cast<Reader *>(object_alloc(state.reader_class));
    if (reader) {
        std::snprintf(reader->message, sizeof reader->message, "error: none");
    }
    return reader;
}

ErrorCode reader_parse_len(Reader *reader, const char *text, int64_t length,
                           Object **result) noexcept {
    if (!text || !result) {
        return ErrorGeneric;
    }
    return json_parse(text, length, result, reader->message);
}

ErrorCode reader_parse(Reader *reader, const char *text, Object **result) noexcept {
    return reader_parse_len(reader, text, text ? static_cast<int64_t>(std::strlen(text)) : 0,
                            result);
}

// The text of the last error, also copied to `out` (json_error_size bytes) when that is given.
const char *reader_errorstring(Reader *reader, char *out) noexcept {
    if (out) {
        std::memcpy(out, reader->message, sizeof reader->message);
    }
    return reader->message;
}

}  // namespace

void json_start() noexcept {
    static const DirectMethod methods[] = {
        {"parse_len", method(reader_parse_len)},
        {"parse", method(reader_parse)},
        {"errorstring", method(reader_errorstring)},
    };
    Class *c = class_new("jsonreader_stack_entry", nullptr, nullptr,
                         static_cast<int32_t>(sizeof(StackEntry)), nullptr, 0);
    class_obexoffset_set(c, -1);
    class_register(nullptr, c);
    state.entry_class = c;
    c = class_new("jsonreader", method(reader_new), nullptr, static_cast<int32_t>(sizeof(Reader)),
                  nullptr, 0);
    add_direct_methods(c, methods);
    class_register(nullptr, c);
    state.reader_class = c;
    json_writer_start();
}

}  // namespace kiv
