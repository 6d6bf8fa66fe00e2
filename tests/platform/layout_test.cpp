// Kv::Layout: the folder of the program and of a shared library that holds
// an address, and a piece found by its installed or build-tree path.
#include <dlog.h>
#include <gtest/gtest.h>
#include <kv-layout/Layout.h>

#include <filesystem>
#include <fstream>

#include "TestFiles.h"

namespace fs = std::filesystem;
using Kv::Layout::Place;

namespace {

void touch(const fs::path& file) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << "x";
}

}  // namespace

TEST(Layout, ProgramFolderIsWhereTheTestProgramLies) {
    EXPECT_EQ(Kv::Layout::programFolder(), fs::path(LAYOUT_TEST_FOLDER));
}

TEST(Layout, ModuleFolderOfTheProgramsOwnCodeIsTheProgramFolder) {
    static const int anchor = 0;
    EXPECT_EQ(Kv::Layout::moduleFolder(&anchor), fs::path(LAYOUT_TEST_FOLDER));
}

TEST(Layout, ModuleFolderOfALibrarysCodeIsTheLibrarysFolder) {
    EXPECT_EQ(Kv::Layout::moduleFolder(reinterpret_cast<const void*>(&__dlog_print)),
              fs::path(LAYOUT_DLOG_FOLDER));
}

TEST(Layout, ModuleFolderOfNoLoadedCodeIsEmpty) {
    int onTheStack = 0;
    EXPECT_TRUE(Kv::Layout::moduleFolder(&onTheStack).empty());
}

TEST(Layout, TheInstalledPieceComesFirst) {
    KvTest::TempDir tree;
    const fs::path looker = fs::path(tree.path()) / "bin";
    fs::create_directories(looker);
    touch(looker / "../lib/kv/plugins/a.so");
    touch(looker / "../plugins/a.so");
    const auto found = Kv::Layout::find(looker, Place{"../plugins", "../lib/kv/plugins"});
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(*found, fs::canonical(looker / "../lib/kv/plugins"));
}

TEST(Layout, TheBuildTreesPieceWhenNothingIsInstalled) {
    KvTest::TempDir tree;
    const fs::path looker = fs::path(tree.path()) / "runtime";
    fs::create_directories(looker);
    touch(looker / "../plugins/a.so");
    const auto found = Kv::Layout::find(looker, Place{"../plugins", "../lib/kv/plugins"});
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(*found, fs::canonical(looker / "../plugins"));
}

TEST(Layout, NothingWhenNeitherExistsOrTheFolderIsUnknown) {
    KvTest::TempDir tree;
    EXPECT_FALSE(Kv::Layout::find(tree.path(), Place{"../plugins", "plugins"}).has_value());
    EXPECT_FALSE(Kv::Layout::find(fs::path(), Place{".", "."}).has_value());
}
