// Dictionary text into JSON: one pass that writes each value as it is read.
//
// Whether a key has one value or a list shows only at its end. So a blank is kept in front of the
// first value, which becomes "[" when a second one comes.
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "containers/dictobj.h"
#include "containers/json.h"

namespace kiv {

namespace {

constexpr std::string_view blanks = " \t\r\n\v\f";
constexpr std::string_view word_ends = " \t\r\n\v\f{}[]\"";

class Converter {
  public:
    Converter(const char *text, JsonText &out, char *message) noexcept
        : text_(text), out_(out), message_(message) {}

    bool run() {
        open_.push_back({'}'});
        out_.put('{');
        while ((at_ = text_.find_first_not_of(blanks, at_)) != text_.npos) {
            if (!token()) {
                return false;
            }
        }
        at_ = text_.size();
        if (open_.size() > 1) {
            return fail(open_.back().closing == '}' ? "'}' expected" : "']' expected");
        }
        return close('}');
    }

  private:
    struct Open {
        char closing;
        size_t items = 0;       // in a list; in a dictionary: of the current key
        size_t list_begin = 0;  // where the "[" of the current key's value would stand
        bool has_key = false;
        size_t keys = 0;
    };

    bool fail(const char *what) noexcept {
        size_t line = 1;
        size_t line_start = 0;
        for (size_t i = 0; i < at_; ++i) {
            if (text_[i] == '\n') {
                ++line;
                line_start = i + 1;
            }
        }
        std::snprintf(message_, json_error_size, "%s: line=%zu, char=%zu", what, line,
                      at_ - line_start + 1);
        return false;
    }

    bool token() {
        const char c = text_[at_];
        if (c == '{' || c == '[') {
            return open(c == '{' ? '}' : ']');
        }
        if (c == '}' || c == ']') {
            if (open_.size() == 1 || open_.back().closing != c) {
                return fail(c == '}' ? "'}' unexpected" : "']' unexpected");
            }
            ++at_;
            return close(c);
        }
        return c == '"' ? quoted() : word();
    }

    bool quoted() {
        const size_t begin = at_++;
        Text text;
        for (; at_ < text_.size() && text_[at_] != '"'; ++at_) {
            at_ += text_[at_] == '\\' && at_ + 1 < text_.size() ? 1 : 0;
            text += text_[at_];
        }
        if (at_ == text_.size()) {
            at_ = begin;
            return fail("closing '\"' missing");
        }
        ++at_;
        if (at_ < text_.size() && text_[at_] == ':') {
            ++at_;
            return key(text);
        }
        return begin_item() && string(text);
    }

    bool word() {
        Text text;
        bool literal = false;  // something was taken literally: no number, no null
        bool colon_ends = false;
        for (; at_ < text_.size() && word_ends.find(text_[at_]) == word_ends.npos; ++at_) {
            const bool escaped = text_[at_] == '\\' && at_ + 1 < text_.size();
            at_ += escaped ? 1 : 0;
            literal |= escaped;
            colon_ends = !escaped && text_[at_] == ':';
            text += text_[at_];
        }
        if (colon_ends) {
            text.pop_back();
            return key(text);
        }
        if (!begin_item()) {
            return false;
        }
        if (!literal && text == "null") {
            out_.put(text);
            return true;
        }
        return (!literal && number(text)) || string(text);
    }

    bool string(const Text &text) {
        out_.put_quoted(text);
        return true;
    }

    // Writes the text as a number if it is one, in a form that JSON knows.
    bool number(const Text &text) {
        const char *begin = text.data() + (text[0] == '+' ? 1 : 0);
        const char *end = text.data() + text.size();
        const char *first = begin + (*begin == '-' ? 1 : 0);
        if (std::strspn(first, "0123456789.") == 0) {
            return false;
        }
        char buffer[32];
        int64_t integer = 0;
        double value = 0.0;
        std::to_chars_result written{};
        bool whole = false;
        if (const auto read = std::from_chars(begin, end, integer);
            read.ec == std::errc() && read.ptr == end) {
            written = std::to_chars(buffer, buffer + sizeof buffer, integer);
            whole = true;
        } else if (const auto read_float = std::from_chars(begin, end, value);
                   read_float.ec == std::errc() && read_float.ptr == end) {
            written = std::to_chars(buffer, buffer + sizeof buffer, value);
        } else {
            return false;
        }
        const std::string_view digits(buffer, static_cast<size_t>(written.ptr - buffer));
        out_.put(digits);
        if (!whole && digits.find_first_of(".e") == digits.npos) {
            out_.put(".0");  // it stays a float
        }
        return true;
    }

    bool key(const Text &name) {
        Open &top = open_.back();
        if (top.closing != '}') {
            return fail("key in a list");
        }
        end_value(top);
        out_.put(top.keys++ ? "," : "");
        out_.put_quoted(name);
        out_.put(": ");
        top.list_begin = out_.size() - 1;
        top.has_key = true;
        top.items = 0;
        return true;
    }

    // Before a value is written.
    bool begin_item() {
        Open &top = open_.back();
        if (top.closing == '}' && !top.has_key) {
            return fail("value without a key");
        }
        out_.put(top.items++ ? "," : "");
        return true;
    }

    void end_value(const Open &top) {
        if (!top.has_key || top.items == 1) {
            return;
        }
        out_.data()[top.list_begin] = '[';
        out_.put(']');
    }

    bool open(char closing) {
        if (!begin_item()) {
            return false;
        }
        if (open_.size() >= static_cast<size_t>(max_nesting)) {
            return fail("containers nested too deeply");
        }
        open_.push_back({closing});
        out_.put(text_[at_++]);
        return true;
    }

    bool close(char closing) {
        if (closing == '}') {
            end_value(open_.back());
        }
        out_.put(closing);
        open_.pop_back();
        return true;
    }

    const std::string_view text_;
    JsonText &out_;
    char *message_;
    size_t at_ = 0;
    Vector<Open> open_;
};

}  // namespace

bool json_from_dictionary_text(const char *text, JsonText &out, char *message) {
    return Converter(text, out, message).run();
}

}  // namespace kiv
