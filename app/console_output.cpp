#include "app/console_output.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "console/internal.h"
#include "platform/platform.h"

namespace kiv::app {

namespace {

struct Kind {
    const char *name;
    const char *colour;  // terminal escape sequence
};
constexpr std::array<Kind, 4> kinds{
    {{"post", ""}, {"error", "\x1b[31m"}, {"warning", "\x1b[33m"}, {"bug", "\x1b[35m"}}};

const Kind &kind_of(const ConsoleEntry &entry) {
    return kinds[entry.kind < kinds.size() ? entry.kind : size_t{PostPlain}];
}

const char *text_of(const Symbol *symbol) {
    return symbol ? symbol->name : "";
}

bool colour_wanted() {
    return platform::stderr_is_terminal() && platform::environment("NO_COLOR").empty();
}

void print_text(const ConsoleEntry *entry, void *) {
    if (entry->kind == PostPlain) {
        std::printf("%s\n", entry->text);
        std::fflush(stdout);
        return;
    }
    static const bool colour = colour_wanted();
    const Kind &kind = kind_of(*entry);
    const char *const class_name = text_of(entry->origin.class_name);
    std::fprintf(stderr, "%s%s: %s%s%s%s\n", colour ? kind.colour : "", kind.name, class_name,
                 *class_name ? ": " : "", entry->text, colour ? "\x1b[0m" : "");
    std::fflush(stderr);
}

void print_json(const ConsoleEntry *entry, void *) {
    const nlohmann::ordered_json line = {{"kind", kind_of(*entry).name},
                                         {"text", entry->text},
                                         {"class", text_of(entry->origin.class_name)},
                                         {"box", text_of(entry->origin.box_id)},
                                         {"patcher", text_of(entry->origin.patcher_name)},
                                         {"stamp", entry->stamp}};
    // Text that is not UTF-8 (file names, say) is shown with replacement characters.
    const std::string text =
        line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

}  // namespace

void console_output_start(ConsoleForm form) {
    console_set_display(form == ConsoleForm::json ? print_json : print_text, nullptr);
}

}  // namespace kiv::app
