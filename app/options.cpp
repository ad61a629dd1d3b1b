#include "app/options.h"

#include <CLI/CLI.hpp>

#include "app/version.h"

namespace kiv::app {

std::optional<int> read_options(int argc, char **argv, Options &options) {
    CLI::App cli{"Runs patcher documents.", "kiv"};
    cli.set_version_flag("--version", "kiv " KIV_VERSION_TEXT);
    cli.add_option("DOCUMENT", options.documents,
                   "Patcher documents, run side by side; - reads one from standard input")
        ->required();
    cli.add_option("--for", options.run_seconds,
                   "Run that many seconds, then quit; 0: load, deliver loadbang, empty the queues "
                   "once, quit")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber);
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
    cli.add_option("--console", options.console, "The form of console output: text or json")
        ->type_name("FORM")
        ->transform(CLI::CheckedTransformer(std::map<std::string, ConsoleForm>{
            {"text", ConsoleForm::text}, {"json", ConsoleForm::json}}));
    cli.add_option("--save", options.save_file,
                   "After loadbang, write the first document's patcher to FILE")
        ->type_name("FILE");
    cli.add_flag("--verbose", options.verbose, "Post what the runtime does");
    try {
        cli.parse(argc, argv);
        if (options.interactive && std::find(options.documents.begin(), options.documents.end(),
                                             "-") != options.documents.end()) {
            throw CLI::ValidationError("--interactive", "standard input holds the document (-)");
        }
    } catch (const CLI::ParseError &stop) {
        return cli.exit(stop) == 0 ? 0 : 2;
    }
    return std::nullopt;
}

}  // namespace kiv::app
