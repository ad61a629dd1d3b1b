// Documents for the tests of creation and loading, and a folder to put them in.
#pragma once

#include <kiv/atom.h>
#include <kiv/class.h>
#include <kiv/jbox.h>
#include <kiv/jpatcher.h>
#include <kiv/load.h>
#include <kiv/newobject.h>
#include <kiv/object.h>
#include <kiv/path.h>
#include <kiv/symbol.h>

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "files/internal.h"
#include "support/console.h"

namespace kiv::test {

// An object box.
inline std::string box(const std::string &id, const std::string &text,
                       const std::string &more = "") {
    return R"({"box":{"kivclass":"newobj","id":")" + id + R"(","text":")" + text +
           R"(","numinlets":1,"numoutlets":1)" + more + "}}";
}
inline std::string line(const std::string &from, const std::string &to) {
    return R"({"patchline":{"source":[")" + from + R"(",0],"destination":[")" + to + R"(",0]}})";
}
inline std::string joined(const std::vector<std::string> &parts) {
    std::string out;
    for (const std::string &part : parts) {
        out += (out.empty() ? "" : ",") + part;
    }
    return "[" + out + "]";
}
// A patcher dictionary.
inline std::string patcher(const std::vector<std::string> &boxes,
                           const std::vector<std::string> &lines = {}) {
    return "{\"boxes\":" + joined(boxes) + ",\"lines\":" + joined(lines) + "}";
}
inline std::string document(const std::vector<std::string> &boxes,
                            const std::vector<std::string> &lines = {}) {
    return "{\"patcher\":" + patcher(boxes, lines) + "}";
}

// Has a folder of its own as the default path, with a name that the process has not used before: a
// module is loaded once from a file.
class DocumentTest : public testing::Test {
  protected:
    void SetUp() override {
        static int made = 0;
        const auto *info = testing::UnitTest::GetInstance()->current_test_info();
        root = std::filesystem::temp_directory_path() /
               (std::string("kiv_") + info->test_suite_name() + "_" + info->name() + "_" +
                std::to_string(++made));
        std::filesystem::remove_all(root);
        std::filesystem::create_directories(root);
        path_setdefault(id(), 0);
        take_posts();
    }
    void TearDown() override {
        path_setdefault(0, 0);
        std::error_code held;  // a module that is loaded: SetUp removes it the next time
        std::filesystem::remove_all(root, held);
    }
    void put(const std::string &name, const std::string &text) const {
        std::ofstream(root / name, std::ios::binary) << text;
    }
    std::string file(const std::string &name) const { return (root / name).generic_string(); }
    int16_t id() const { return path_frompathname(root.string().c_str()); }
    static Object *load_text(const std::string &text) {
        return static_cast<Object *>(
            lowload_jpatcher_frombuffer(text.c_str(), static_cast<int64_t>(text.size())));
    }
    static Object *empty_patcher() {
        return static_cast<Object *>(jpatcher_load_frombuffer(nullptr, 0, nullptr, 0, 0, nullptr));
    }
    std::filesystem::path root;
};

inline std::string class_in(Object *box) {
    return box ? object_classname(jbox_get_object(box))->name : "(none)";
}

using Texts = std::vector<std::string>;

}  // namespace kiv::test
