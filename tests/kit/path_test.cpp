#include "kit/path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/support/temporary_directory.h"

namespace path = kit::path;

TEST(PathJoin, TwoPieces_GetExactlyOneSeparator) {
    struct Row {
        const char *first, *second, *joined;
    };
    const Row rows[] = {
        {"show", "settings.json", "show/settings.json"},
        {"show/", "settings.json", "show/settings.json"},
        {"show//", "/settings.json", "show/settings.json"},
        {"/", "show", "/show"},
        {"/", "/", "/"},
        {"", "show", "show"},
        {"show", "", "show"},
        {"", "/show", "/show"},
        {"", "", ""},
        {"show", "/", "show/"},
        {"a/b", "c/d", "a/b/c/d"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.joined, path::Join(row.first, row.second)) << row.first << " + " << row.second;
}

TEST(PathJoin, List_IsJoinedPieceByPiece) {
    EXPECT_EQ("a/b/c.json", path::Join({"a", "b", "c.json"}));
    EXPECT_EQ("a/c", path::Join(std::vector<std::string>{"a", "", "c"}));
    EXPECT_EQ("", path::Join(std::vector<std::string>{}));
}

TEST(PathNames, ExtensionAndBaseNames_SplitAtTheLastDotOfTheName) {
    struct Row {
        const char *path, *base, *withoutExtension, *extension;
    };
    const Row rows[] = {
        {"show-1.2.logdata", "show-1.2.logdata", "show-1.2", ".logdata"},
        {"a.b/c", "c", "c", ""},
        {"/a/b/Song.MID", "Song.MID", "Song", ".MID"},
        {"name.", "name.", "name", "."},
        {".hidden", ".hidden", ".hidden", ""},
        {".hidden.json", ".hidden.json", ".hidden", ".json"},
        {"..", "..", "..", ""},
        {".", ".", ".", ""},
        {"a/", "", "", ""},
        {"", "", "", ""},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.base, path::basename(row.path)) << row.path;
        EXPECT_EQ(row.withoutExtension, path::basename_no_ext(row.path)) << row.path;
        EXPECT_EQ(row.extension, path::extension(row.path)) << row.path;
    }
}

TEST(ListDir, Entries_AreSortedBareNames) {
    const test_support::TemporaryDirectory directory;
    for (const char* name : {"b.logdata", "a", "B", "c.showdata"})
        std::ofstream(directory / name) << "x";
    std::filesystem::create_directory(directory / "d");
    EXPECT_THAT(kit::listdir(directory.Path()), testing::ElementsAre("B", "a", "b.logdata", "c.showdata", "d"));
}

TEST(ListDir, MissingDirectory_IsNamedInOneSentence) {
    const test_support::TemporaryDirectory directory;
    try {
        (void)kit::listdir(directory / "absent");
        FAIL() << "a missing directory was listed";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ("the directory \"" + (directory / "absent") + "\" cannot be read: No such file or directory",
                  error.what());
    }
}
