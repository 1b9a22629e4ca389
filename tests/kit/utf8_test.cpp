#include "kit/utf8.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

using namespace std::string_view_literals;

TEST(Utf8, IllFormedBytes_AreFoundAtTheirOffset) {
    struct Row {
        std::string_view text;
        std::size_t offset;
    };
    constexpr std::size_t None = std::string_view::npos;
    const Row rows[] = {{"", None},
                        {"plain", None},
                        {"No\xC3\xABl", None},
                        {"\0"sv, None},
                        {"\xEF\xBF\xBF", None},
                        {"\xF4\x8F\xBF\xBF", None},
                        {"a\x80", 1},
                        {"ab\xC3", 2},
                        {"\xC0\xAF", 0},
                        {"\xE0\x80\x80", 0},
                        {"a\xED\xA0\x80", 1},
                        {"\xF0\x80\x80\x80", 0},
                        {"\xF4\x90\x80\x80", 0},
                        {"\xFF", 0}};
    for (const Row& row : rows) {
        EXPECT_EQ(row.offset, kit::FindIllFormedUtf8(row.text)) << row.text;
        EXPECT_EQ(row.offset == None, kit::IsUtf8(row.text)) << row.text;
    }
}

TEST(Utf8, Cut_NeverCutsACharacter) {
    const std::string text = "a\u00EB\u6B4C\U0001F3B5";  // 1, 2, 3 and 4 bytes
    const std::size_t expected[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 10};
    for (std::size_t longest = 0; longest < std::size(expected); ++longest)
        EXPECT_EQ(expected[longest], kit::CutUtf8(text, longest)) << longest;
    EXPECT_EQ(0U, kit::CutUtf8("\x80\x80\x80", 2));
}

TEST(Utf8, Columns_AreCountedNotBytes) {
    EXPECT_EQ(0U, kit::CountColumns(""));
    EXPECT_EQ(4U, kit::CountColumns("No\u00EBl"));
    EXPECT_EQ(4U, kit::CountColumns("Noe\u0308l")) << "a combining mark";
    EXPECT_EQ(4U, kit::CountColumns("\u6B4C\u5531")) << "wide characters";
    EXPECT_EQ(2U, kit::CountColumns("\U0001F3B5")) << "a picture";
    EXPECT_EQ(2U, kit::CountColumns("\xFF\x80")) << "no UTF-8";
    EXPECT_EQ(3U, kit::CountColumns("a\tb")) << "a control character";
}

TEST(Utf8, Character_IsReadWithItsBytesOrAsOneThatIsNone) {
    const kit::Character note = kit::ReadCharacter("\u266Dx");
    EXPECT_EQ(0x266DU, note.value);
    EXPECT_EQ(3U, note.bytes);
    EXPECT_TRUE(note.isWellFormed);
    const kit::Character torn = kit::ReadCharacter("\xE2\x99");
    EXPECT_EQ(0xE2U, torn.value);
    EXPECT_EQ(1U, torn.bytes);
    EXPECT_FALSE(torn.isWellFormed);
}

TEST(Utf8, LineOfAMusicFile_IsTrimmedAndTakenAsLatin1WhereItIsNotUtf8) {
    EXPECT_EQ("No\u00EBl", kit::ToUtf8Line(" No\u00EBl\r\n"));
    EXPECT_EQ("No\u00EBl", kit::ToUtf8Line("No\xEBl"));
    EXPECT_EQ("a b", kit::ToUtf8Line("a\tb\x7F"));
    EXPECT_EQ("", kit::ToUtf8Line(" \n"));
}
