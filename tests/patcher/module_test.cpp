#include "documents.h"
#include "patcher/internal.h"

namespace kiv {
namespace {

using namespace test;

class ModuleTest : public DocumentTest {
  protected:
    void SetUp() override {
        DocumentTest::SetUp();
        parent = empty_patcher();
    }
    void TearDown() override {
        object_free(parent);
        class_free(class_getifloaded(gensym("box"), gensym("echoer")));
        nametab_add(gensym("echoer"), nullptr);
        DocumentTest::TearDown();
    }
    // Puts a module beside the document under a name.
    void install(const std::string &module, const std::string &name) const {
        std::filesystem::copy_file(std::filesystem::path(KIV_TEST_MODULES) / (module + ".kve64"),
                                   root / (name + ".kve64"),
                                   std::filesystem::copy_options::overwrite_existing);
    }
    std::string make(const char *text) const {
        return class_in(newobject_fromboxtext(parent, text));
    }
    Object *parent = nullptr;
};

TEST_F(ModuleTest, AModuleIsLoadedOnceAndFoundByItsAlias) {
    install("echoer", "echoer");
    EXPECT_EQ("echoer", make("echoer 5"));
    EXPECT_EQ(Texts{"echoer entered with its module"}, take_texts());
    EXPECT_EQ("echoer", make("ECHOER"));
    EXPECT_EQ("echoer", make("repeater 3"));
    EXPECT_EQ(Texts(), take_texts());
    int16_t path = 0;
    char name[KIV_FILENAME_SIZE] = "";
    class_getpath(class_findbyname(gensym("box"), gensym("echoer")), &path, name);
    EXPECT_EQ(id(), path);
    EXPECT_STREQ("echoer.kve64", name);
}

TEST_F(ModuleTest, TheNameTableLeadsToTheFile) {
    install("echoer", "library");
    nametab_add(gensym("echoer"), gensym("library"));
    EXPECT_NE(nullptr, class_findbyname(gensym("box"), gensym("echoer")));
    EXPECT_EQ("echoer", make("echoer"));
}

TEST_F(ModuleTest, AModuleThatMakesNoSuchClassIsEnteredOnce) {
    install("echoer", "other");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ("jbogus", make("other"));
        const Texts expected =
            i == 0 ? Texts{"echoer entered with its module", "other: No such object"}
                   : Texts{"other: No such object"};
        EXPECT_EQ(expected, take_texts());
    }
}

TEST_F(ModuleTest, ABadModuleIsReportedOnceUntilItChanges) {
    put("broken.kve64", "no library at all");
    install("noentry", "noentry");
    EXPECT_EQ("jbogus", make("noentry"));
    EXPECT_EQ(
        (Texts{"invalid external noentry, undefined ext_main or main", "noentry: No such object"}),
        take_texts());
    EXPECT_EQ("jbogus", make("noentry"));
    EXPECT_EQ(Texts{"noentry: No such object"}, take_texts());

    make("broken");
    const Texts texts = take_texts();
    ASSERT_EQ(2u, texts.size());
    EXPECT_EQ(0u, texts[0].find("Error "));
    EXPECT_NE(std::string::npos, texts[0].find(" loading external broken"));
    make("broken");
    EXPECT_EQ(1u, take_texts().size());
    put("broken.kve64", "no library yet, but longer");
    make("broken");
    EXPECT_EQ(2u, take_texts().size());
}

TEST_F(ModuleTest, SubpatcherNamesAreNeverFiles) {
    install("echoer", "p");
    install("echoer", "patcher");
    for (const char *name : {"p", "patcher", "P", "Patcher"}) {
        EXPECT_EQ("jpatcher", make(name));
    }
    EXPECT_EQ(nullptr, class_findbyname(gensym("box"), gensym("p")));
    EXPECT_EQ(nullptr, class_findbyname_casefree(nullptr, gensym("Patcher")));
    EXPECT_EQ(Texts(), take_texts());
}

TEST_F(ModuleTest, AModuleFurtherOnComesBeforeATextOrDocumentHere) {
    std::filesystem::create_directory(root / "later");
    install("echoer", "later/echoer");
    put("echoer.txt", "notes");
    put("echoer.kivpat", document({}));
    ASSERT_TRUE(search_path_add((root / "later").string().c_str(), false));
    EXPECT_EQ("echoer", make("echoer 5"));
    put("noted.txt", "notes");
    put("later/noted.kivpat", document({}));
    EXPECT_EQ("jpatcher", make("noted"));
}

}  // namespace
}  // namespace kiv
