// String objects: the value form of text in dictionaries.
//
// Invariant: `text` is null, or a zero-terminated text in a block of `capacity` bytes.
// Thread safety: none of its own.
#include <kiv/class.h>
#include <kiv/object.h>
#include <kiv/string.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "containers/families.h"
#include "containers/values.h"

namespace kiv {

namespace {

struct {
    Class *string_class = nullptr;
} state;

void destroy(String *string) noexcept {
    sysmem_freeptr(string->text);
    string->text = nullptr;
}

String *clone(const String *string) noexcept {
    return string_new(string->text);
}

// How a string shows among atoms; the caller frees the copy.
void value_text(const String *string, char **text) noexcept {
    const char *own = text_of(string);
    const auto bytes = static_cast<int64_t>(std::strlen(own)) + 1;
    *text = static_cast<char *>(sysmem_newptr(bytes));
    sysmem_copyptr(own, *text, bytes);
}

int64_t length_of(const String *string) noexcept {
    return string->text ? static_cast<int64_t>(std::strlen(string->text)) : 0;
}

bool grow(String *string, int64_t capacity) noexcept {
    capacity = std::min<int64_t>(capacity, INT32_MAX);
    const bool first = !string->text;
    void *block = first ? sysmem_newptr(capacity) : sysmem_resizeptr(string->text, capacity);
    if (!block) {
        return false;
    }
    string->text = static_cast<char *>(block);
    string->capacity = static_cast<int32_t>(capacity);
    if (first) {
        string->text[0] = '\0';
    }
    return true;
}

}  // namespace

void strings_start() noexcept {
    static const DirectMethod methods[] = {
        {"getptr", method(string_getptr)},
        {"append", method(string_append)},
        {"reserve", method(string_reserve)},
        {"chop", method(string_chop)},
        {"clone", method(clone)},
        {"object_clone", method(clone)},
        {"getvaluetext", method(value_text)},
    };
    Class *c = class_new("string", nullptr, method(destroy), static_cast<int32_t>(sizeof(String)),
                         nullptr, 0);
    class_obexoffset_set(c, static_cast<int32_t>(offsetof(String, obex)));
    add_direct_methods(c, methods);
    class_register(nullptr, c);
    state.string_class = c;
}

String *string_from(const char *text, size_t length) noexcept {
    auto *string = static_cast<String *>(object_alloc(state.string_class));
    if (!string || !text) {
        return string;
    }
    length = std::min<size_t>(length, INT32_MAX - 1);
    if (!grow(string, static_cast<int64_t>(length) + 1)) {
        object_free(string);
        return nullptr;
    }
    std::memcpy(string->text, text, length);
    string->text[length] = '\0';
    return string;
}

}  // namespace kiv

using namespace kiv;

String *string_new(const char *text) noexcept {
    return string_from(text, text ? std::strlen(text) : 0);
}

const char *string_getptr(const String *string) noexcept {
    return string ? string->text : nullptr;
}

ErrorCode string_append(String *string, const char *text) noexcept {
    if (!string || !text) {
        return ErrorGeneric;
    }
    const int64_t length = length_of(string);
    const auto added = static_cast<int64_t>(std::strlen(text));
    // The text may be part of the string's own, which growing moves.
    const std::less<> before;
    const bool own = string->text && !before(text, string->text) &&
                     before(text, string->text + string->capacity);
    const ptrdiff_t offset = own ? text - string->text : 0;
    if (length + added >= string->capacity &&
        !grow(string, string->capacity + int64_t{512} + added)) {
        return ErrorOutOfMemory;
    }
    const int64_t room = string->capacity - 1 - length;
    const int64_t copied = std::min(added, room);
    std::memmove(string->text + length, own ? string->text + offset : text,
                 static_cast<size_t>(copied));
    string->text[length + copied] = '\0';
    return copied == added ? ErrorNone : ErrorOutOfMemory;
}

ErrorCode string_reserve(String *string, int32_t capacity) noexcept {
    if (!string) {
        return ErrorGeneric;
    }
    if (capacity <= string->capacity) {
        return ErrorNone;
    }
    return grow(string, capacity) ? ErrorNone : ErrorOutOfMemory;
}

int32_t string_chop(String *string, int32_t count) noexcept {
    if (!string || !string->text) {
        return 0;
    }
    const int64_t length = length_of(string);
    const int64_t kept = std::clamp<int64_t>(length - count, 0, length);
    string->text[kept] = '\0';
    return static_cast<int32_t>(kept);
}
