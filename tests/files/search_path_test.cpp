#include <kiv/path.h>
#include <kiv/symbol.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "files/internal.h"

namespace kiv {
namespace {

namespace fs = std::filesystem;

// A folder of its own for each test.
class FilesTest : public testing::Test {
  protected:
    void SetUp() override {
        const auto *info = testing::UnitTest::GetInstance()->current_test_info();
        root = fs::temp_directory_path() / (std::string("kiv_files_") + info->name());
        fs::remove_all(root);
        fs::create_directories(root);
        root = fs::canonical(root);
    }
    void TearDown() override {
        path_setdefault(0, 0);
        files_fault_at(0, FileFault::fail);
        fs::remove_all(root);
    }
    void put(const std::string &name, const std::string &text = "x") const {
        fs::create_directories((root / name).parent_path());
        std::ofstream(root / name, std::ios::binary) << text;
    }
    std::string get(const std::string &name) const {
        std::ifstream in(root / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    // False where there are no symbolic links.
    bool link(const fs::path &target, const std::string &name, bool to_folder) const {
        std::error_code failed;
        if (to_folder) {
            fs::create_directory_symlink(target, root / name, failed);
        } else {
            fs::create_symlink(target, root / name, failed);
        }
        return !failed;
    }
    size_t entries() const {
        return static_cast<size_t>(
            std::distance(fs::directory_iterator(root), fs::directory_iterator()));
    }
    int16_t id(const std::string &folder = "") const {
        return path_frompathname((root / folder).string().c_str());
    }
    // "found/path type" below the root, or "" when nothing is found.
    std::string locate(const std::string &name, std::vector<uint32_t> types = {}) const {
        char found[KIV_FILENAME_SIZE];
        std::strcpy(found, name.c_str());
        int16_t path = 0;
        uint32_t type = 0;
        if (locatefile_extended(found, &path, &type, types.data(),
                                static_cast<int16_t>(types.size())) != 0) {
            EXPECT_EQ(name, found) << "a failed search changes nothing";
            return "";
        }
        char full[KIV_PATH_SIZE];
        path_topathname(path, found, full);
        std::string shown = fs::path(full).lexically_relative(root).generic_string() + " ";
        for (int shift = 24; shift >= 0 && type != 0; shift -= 8) {
            shown.push_back(static_cast<char>(type >> shift));
        }
        return shown;
    }
    fs::path root;
};

constexpr uint32_t module_type = file_type("kv64");
constexpr uint32_t json_type = file_type("JSON");
constexpr uint32_t text_type = file_type("TEXT");

TEST_F(FilesTest, OneIdentifierForOneFolder) {
    put("a/b/file");
    EXPECT_NE(0, id("a"));
    EXPECT_EQ(id("a"), id("a/./b/.."));
    EXPECT_EQ(id("a"), id("a/"));
    EXPECT_NE(id("a"), id("a/b"));
    EXPECT_EQ(0, id("none"));
    EXPECT_EQ(0, id("a/b/file"));
    EXPECT_EQ(0, path_frompathname(nullptr));
    char full[KIV_PATH_SIZE];
    EXPECT_EQ(ErrorNone, path_topathname(id("a"), "x.txt", full));
    EXPECT_EQ((root / "a/x.txt").generic_string(), full);
    EXPECT_EQ(ErrorNone, path_topathname(id("a"), nullptr, full));
    EXPECT_EQ((root / "a").generic_string(), full);
    EXPECT_EQ(ErrorGeneric, path_topathname(id("a"), std::string(3000, 'n').c_str(), full));
    EXPECT_STREQ("", full);
    EXPECT_EQ(ErrorGeneric, path_topathname(32000, "x", full));
}

TEST_F(FilesTest, ExtensionsAreTriedInTheOrderOfTheTypes) {
    path_setdefault(id(), 0);
    put("both.kivpat");
    put("both.kve64");
    put("notes.txt");
    put("Case.json");
    put("plain");
    put("dotted.name.kivpat");
    fs::create_directories(root / "folder.kivpat");
    const struct {
        const char *name;
        std::vector<uint32_t> types;
        const char *found;
    } cases[] = {
        {"both", {module_type, json_type}, "both.kve64 kv64"},
        {"both", {json_type, module_type}, "both.kivpat JSON"},
        {"both.kivpat", {module_type, json_type}, "both.kivpat JSON"},
        {"both.kivpat", {module_type}, ""},
        {"notes", {module_type, text_type}, "notes.txt TEXT"},
        {"case", {json_type}, ""},
        {"Case", {json_type}, "Case.json JSON"},
        {"plain", {}, "plain "},
        {"plain", {json_type}, ""},
        {"both", {}, ""},
        {"dotted.name", {json_type}, "dotted.name.kivpat JSON"},
        {"folder", {json_type}, ""},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(c.found, locate(c.name, c.types)) << c.name;
    }
}

TEST_F(FilesTest, FoldersAreSearchedInOrderEachOnce) {
    put("document/own.json");
    put("document/below/deep.json");
    put("first/own.json");
    put("first/b/nested.json");
    put("first/a/nested.json");
    put("first/.hidden/secret.json");
    put("second/nested.json");
    ASSERT_TRUE(search_path_add((root / "first").string().c_str(), true));
    ASSERT_TRUE(search_path_add((root / "second").string().c_str(), false));
    EXPECT_FALSE(search_path_add((root / "third").string().c_str(), true));
    EXPECT_EQ("first/own.json JSON", locate("own", {json_type}));
    EXPECT_EQ("first/a/nested.json JSON", locate("nested", {json_type}));
    EXPECT_EQ("", locate("secret", {json_type}));
    EXPECT_EQ("first/b/nested.json JSON", locate("b/nested", {json_type}));
    path_setdefault(id("document"), 0);
    EXPECT_EQ("document/own.json JSON", locate("own", {json_type}));
    path_setdefault(id("second"), 0);
    {
        const DefaultPath inner(id("document"));
        EXPECT_EQ(id("document"), path_getdefault());
    }
    EXPECT_EQ(id("second"), path_getdefault());
    const std::string absolute = (root / "document/below/deep").generic_string();
    EXPECT_EQ("document/below/deep.json JSON", locate(absolute, {json_type}));
}

TEST_F(FilesTest, ChangesInAFolderAreNoticed) {
    path_setdefault(id(), 1);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ("", locate("late", {json_type}));
        put("new/late.json");
        EXPECT_EQ("new/late.json JSON", locate("late", {json_type}));
        fs::remove_all(root / "new");
    }
}

TEST_F(FilesTest, BadNamesFindNothing) {
    path_setdefault(id(), 0);
    EXPECT_EQ("", locate(""));
    EXPECT_EQ("", locate(std::string(KIV_FILENAME_SIZE - 1, 'n'), {json_type}));
    EXPECT_EQ("", locate("../../../../../../..", {json_type}));
    EXPECT_EQ(-1, locatefile_extended(nullptr, nullptr, nullptr, nullptr, 0));
}

TEST_F(FilesTest, WholeFilesComeBack) {
    const std::string data("a\0b\xff", 4);
    for (const std::string &text : {data, std::string(), std::string(100000, 'z')}) {
        ASSERT_EQ(0, file_write_all("f", id(), text.data(), static_cast<int64_t>(text.size())));
        Text read;
        ASSERT_EQ(0, file_read_all("f", id(), read));
        EXPECT_EQ(text, std::string(read.data(), read.size()));
    }
    Text read;
    EXPECT_NE(0, file_read_all("missing", id(), read));
    EXPECT_NE(0, file_write_all("no/such/folder", id(), "x", 1));
    char head[2];
    int64_t count = 0;
    EXPECT_EQ(0, file_read_head("f", id(), head, 2, &count));
    EXPECT_EQ(2, count);
}

TEST_F(FilesTest, AnInterruptedWriteLeavesTheOldFile) {
    for (const FileFault fault : {FileFault::fail, FileFault::stop}) {
        bool done = false;
        for (int64_t n = 1; !done; ++n) {
            put("f", "old");
            files_fault_at(n, fault);
            done = file_write_all("f", id(), "the new text", 12) == 0;
            files_fault_at(0, fault);
            EXPECT_EQ(done ? "the new text" : "old", get("f")) << n;
            if (fault == FileFault::fail) {
                EXPECT_EQ(1u, entries()) << "the temporary file stays after step " << n;
            }
            ASSERT_LT(n, 20);
        }
    }
}

TEST_F(FilesTest, LinksInACircleAreSearchedOnce) {
    put("first/a/nested.json");
    if (!link(root, "first/loop", true)) {
        GTEST_SKIP() << "the system makes no symbolic links here";
    }
    ASSERT_TRUE(search_path_add((root / "first").string().c_str(), true));
    EXPECT_EQ("first/a/nested.json JSON", locate("nested", {json_type}));
    EXPECT_EQ("", locate("none", {json_type}));
}

TEST_F(FilesTest, SavingThroughALinkKeepsTheLink) {
    put("real/f", "old");
    if (!link(root / "real/f", "link", false)) {
        GTEST_SKIP() << "the system makes no symbolic links here";
    }
    ASSERT_EQ(0, file_write_all("link", id(), "new", 3));
    EXPECT_TRUE(fs::is_symlink(root / "link"));
    EXPECT_EQ("new", get("real/f"));
}

TEST_F(FilesTest, PackagesTellTheirExternals) {
    ASSERT_TRUE(search_path_add(root.string().c_str(), true));
    const auto package = [&](const char *name, const char *external) {
        put(std::string(name) + "/package-info.json", std::string("{\"name\":\"") + name +
                                                          "\",\"filelist\":{\"externals\":[\"" +
                                                          external + ".kve64\",5]}}");
    };
    package("Waves", "ripple");
    put("broken/package-info.json", "{\"name\":");
    const Symbol *found = package_of_external(gensym("ripple"));
    ASSERT_NE(nullptr, found);
    EXPECT_STREQ("Waves", found->name);
    EXPECT_EQ(nullptr, package_of_external(gensym("surge")));
    package("Waves", "surge-of-water");
    EXPECT_NE(nullptr, package_of_external(gensym("surge-of-water")));
}

}  // namespace
}  // namespace kiv
