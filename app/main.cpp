// kiv: loads patcher documents and runs them.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "app/application.h"
#include "app/console_output.h"
#include "app/input.h"
#include "app/main_loop.h"
#include "app/options.h"
#include "app/preferences.h"
#include "console/internal.h"
#include "files/internal.h"
#include "kernel/internal.h"
#include "kernel/startup.h"
#include "patcher/internal.h"
#include "platform/platform.h"
#include "sched/internal.h"

namespace kiv::app {

namespace {

void add_search_folders(const Options &options) {
    for (const std::string &folder : options.paths) {
        if (!search_path_add(folder.c_str(), true)) {
            error("--path: %s is no folder", folder.c_str());
        }
    }
    const std::string more = platform::environment("KIV_PATH");
    for (std::string_view rest = more; !rest.empty();) {
        const size_t end = rest.find(platform::path_list_separator);
        const std::string folder(rest.substr(0, end));
        if (!folder.empty() && !search_path_add(folder.c_str(), true)) {
            error("KIV_PATH: %s is no folder", folder.c_str());
        }
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
}

Object *load(const std::string &document) {
    if (document != "-") {
        return document_load(document.c_str(), nullptr);
    }
    const std::string text = read_standard_input();
    if (text.empty()) {
        error("standard input: not a patcher document");
        return nullptr;
    }
    return document_load_text(text.c_str(), static_cast<int64_t>(text.size()));
}

bool save(Object *patcher, const std::string &file) {
    if (!object_isvalid(patcher)) {
        error("%s: not written: there is no patcher of the first document", file.c_str());
        return false;
    }
    if (const int32_t failure = patcher_save(patcher, file.c_str(), 0)) {
        error("%s: cannot be written: error %d", file.c_str(), failure);
        return false;
    }
    return true;
}

struct Loaded {
    size_t count;
    bool fine;  // all of them, and the first was saved if that was asked for
};

Loaded load_documents(const Options &options) {
    Loaded loaded{0, true};
    Object *first = nullptr;
    for (const std::string &document : options.documents) {
        Object *const patcher = load(document);
        loaded.count += patcher ? 1 : 0;
        first = &document == options.documents.data() ? patcher : first;
    }
    loaded.fine = loaded.count == options.documents.size();
    if (!options.save_file.empty()) {
        loaded.fine &= save(first, options.save_file);
    }
    return loaded;
}

int run(const Options &options) {
    startup();
    verbose_set(options.verbose);
    console_output_start(options.console);
    application_start();
    platform::on_quit_request(quit_request);
    if (options.offline) {
        time_offline_begin();
        kernel_random_seed(1);  // unique names, too, are the same every time
    }
    overdrive_set(options.overdrive);
    add_search_folders(options);
    preferences_read();
    const Loaded loaded = load_documents(options);
    for (const std::string &text : options.sends) {
        evaluate(text);
    }
    if (options.interactive) {
        interactive_start(options.until_idle);
    }
    Options running = options;
    if (loaded.count == 0 && !options.interactive) {
        running.run_seconds = 0.0;  // there is nothing to run, nor anybody to load something
    }
    main_loop(running);
    shutdown();
    std::fflush(nullptr);
    return loaded.fine ? 0 : 1;
}

}  // namespace

}  // namespace kiv::app

int main(int argc, char **argv) {
    kiv::platform::standard_streams_start();
    argv = kiv::platform::command_line(&argc, argv);
    kiv::app::Options options;
    if (const auto status = kiv::app::read_options(argc, argv, options)) {
        return *status;
    }
    const int status = kiv::app::run(options);
    // Straight out: a thread may still wait for standard input, and objects live to the end.
    std::_Exit(status);
}
