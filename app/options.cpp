#include "app/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>

#include "app/version.h"

namespace kiv::app {

namespace {

// Each answers what is wrong with an argument, or the empty text.
std::string wrong_seconds(const std::string &text) {
    double seconds = 0.0;
    const char *const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, seconds);
    const bool right =
        failure == std::errc() && stop == end && std::isfinite(seconds) && seconds >= 0.0;
    return right ? "" : "\"" + text + "\" is no number of seconds";
}

std::string wrong_form(const std::string &text) {
    return text == "text" || text == "json" ? "" : "\"" + text + "\" is neither text nor json";
}

// Standard input can be read for one purpose only.
void check_standard_input(const Options &options) {
    const auto count = std::count(options.documents.begin(), options.documents.end(), "-");
    if (count > 0 && options.interactive) {
        throw CLI::ValidationError("--interactive", "standard input holds the document (-)");
    }
    if (count > 1) {
        throw CLI::ValidationError("DOCUMENT", "standard input (-) holds one document only");
    }
}

}  // namespace

std::optional<int> read_options(int argc, char **argv, Options &options) {
    CLI::App cli{"Runs patcher documents.", "kiv"};
    cli.allow_windows_style_options(false);  // a name may begin with a slash
    cli.set_version_flag("--version", "kiv " KIV_VERSION_TEXT);
    cli.add_option("DOCUMENT", options.documents,
                   "Patcher documents, run side by side; - reads one from standard input")
        ->type_name("")
        ->required();
    cli.add_option("--for", options.run_seconds,
                   "Run that many seconds, then quit; 0: load, deliver loadbang, empty the queues "
                   "once, quit")
        ->type_name("SECONDS")
        ->check(wrong_seconds, "");
    cli.add_flag("--until-idle", options.until_idle,
                 "Quit as soon as no clock waits and every queue is empty");
    cli.add_flag("--offline", options.offline,
                 "Logical time jumps from clock to clock instead of waiting for the wall clock");
    cli.add_option("--send", options.sends,
                   "After loadbang, evaluate TEXT as message text (name 1 2; other bang)")
        ->type_name("TEXT")
        ->allow_extra_args(false);
    cli.add_flag("--interactive", options.interactive,
                 "Evaluate each line of standard input as message text; its end quits");
    cli.add_option("--path", options.paths, "Add a folder and its sub-folders to the search path")
        ->type_name("FOLDER")
        ->allow_extra_args(false);
    cli.add_flag("--overdrive", options.overdrive, "Run the scheduler on the timer thread");
    std::string form = "text";
    cli.add_option("--console", form, "The form of console output: text (the default) or json")
        ->type_name("FORM")
        ->check(wrong_form, "");
    cli.add_option("--save", options.save_file,
                   "After loadbang, write the first document's patcher to FILE")
        ->type_name("FILE");
    cli.add_flag("--verbose", options.verbose, "Post what the runtime does");
    try {
        cli.parse(argc, argv);
        check_standard_input(options);
    } catch (const CLI::ParseError &stop) {
        return cli.exit(stop) == 0 ? 0 : 2;
    }
    options.console = form == "json" ? ConsoleForm::json : ConsoleForm::text;
    return std::nullopt;
}

}  // namespace kiv::app
