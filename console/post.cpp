// Posting: every function formats into a buffer of its own and hands the text to the store. Any
// thread. cpost alone works where no console exists yet.
#include <kiv/jbox.h>
#include <kiv/jpatcher.h>
#include <kiv/object.h>

#include <cstdarg>
#include <cstdio>

#include "console/store.h"
#include "kernel/internal.h"
#include "platform/platform.h"

namespace kiv {

namespace {

constexpr int default_level = 7;

// The formatted text, cut to what fits; after a format error, the text formatted so far.
class Formatted {
  public:
    Formatted(const char *format, std::va_list values) noexcept {
        if (format) {
            std::vsnprintf(text_, sizeof text_, format, values);
            text_[sizeof text_ - 1] = '\0';
        }
    }
    const char *text() const noexcept { return text_; }

  private:
    char text_[console_text_size] = "";
};

// Formats the arguments that follow `format` of a variadic function.
#define KIV_FORMAT(name, format)                 \
    std::va_list name##_values;                  \
    va_start(name##_values, format);             \
    const Formatted name(format, name##_values); \
    va_end(name##_values)

void post_error(void *x, const char *text) noexcept {
    console_post(x, PostError, default_level, text);
    console_count_error(x, text);
}

// The box that stands for an object in a patcher: its own, or the object itself when it is one.
Object *shown_box(void *x) noexcept {
    if (!object_valid(x)) {
        return nullptr;
    }
    Object *box = object_box(static_cast<Object *>(x));
    return box ? box : static_cast<Object *>(x);
}

// Without a window nobody can answer, so the last button, which changes nothing, is the answer.
int32_t ask(const char *text, int32_t button_count) noexcept {
    console_post(nullptr, PostPlain, default_level, text);
    return button_count;
}

}  // namespace

}  // namespace kiv

using kiv::console_post;
using kiv::default_level;
using kiv::Formatted;

void post(const char *format, ...) noexcept {
    KIV_FORMAT(message, format);
    console_post(nullptr, PostPlain, default_level, message.text());
}

void error(const char *format, ...) noexcept {
    KIV_FORMAT(message, format);
    kiv::post_error(nullptr, message.text());
}

void object_post(void *x, const char *format, ...) noexcept {
    KIV_FORMAT(message, format);
    console_post(x, PostPlain, default_level, message.text());
}

void object_error(void *x, const char *format, ...) noexcept {
    KIV_FORMAT(message, format);
    kiv::post_error(x, message.text());
}

void object_warn(void *x, const char *format, ...) noexcept {
    KIV_FORMAT(message, format);
    console_post(x, PostWarning, default_level, message.text());
}

void object_bug(void *x, const char *format, ...) noexcept {
    KIV_FORMAT(message, format);
    console_post(x, PostBug, default_level, message.text());
}

void object_error_obtrusive(void *x, const char *format, ...) noexcept {
    KIV_FORMAT(message, format);
    Object *box = kiv::shown_box(x);
    if (Object *patcher = box ? jbox_get_patcher(box) : nullptr) {
        jpatcher_error_obtrusive(patcher, box, message.text());
    } else {
        kiv::post_error(x, message.text());
    }
}

void cpost(const char *format, ...) noexcept {
    KIV_FORMAT(message, format);
    kiv::platform::debug_output(message.text());
}

void poststring(const char *text) noexcept {
    console_post(nullptr, PostPlain, default_level, text ? text : "");
}

void object_poststring(void *x, int32_t kind, int32_t level, const char *text) noexcept {
    console_post(x, kind, level, text ? text : "");
}

int32_t post_getpos(int32_t *row, int32_t *column) noexcept {
    if (row) {
        *row = 0;
    }
    if (column) {
        *column = 0;
    }
    return 0;
}

void post_displayrecent() noexcept {
    post("post_displayrecent: deprecated and no longer supported");
}

void xsetpost() noexcept {
    console_post(nullptr, PostPlain, default_level, "");
}

int32_t advise(const char *format, ...) noexcept {
    KIV_FORMAT(message, format);
    return kiv::ask(message.text(), 3);  // "Yes", "No" and "Cancel"
}

int32_t advise_explain(const char *text, const char *explanation, const char *button1,
                       const char *button2, const char *button3) noexcept {
    char question[kiv::console_text_size];
    std::snprintf(question, sizeof question, "%s%s%s", text ? text : "",
                  explanation && *explanation ? " " : "", explanation ? explanation : "");
    const auto offered = [](const char *button) { return button && *button; };
    const int32_t buttons = offered(button3) ? 3 : offered(button2) ? 2 : offered(button1) ? 1 : 0;
    return kiv::ask(question, buttons);
}

void ouchstring(const char *format, ...) noexcept {
    KIV_FORMAT(message, format);
    console_post(nullptr, PostError, default_level, message.text());
}
