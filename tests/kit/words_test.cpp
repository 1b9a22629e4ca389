#include "kit/words.h"

#include <gtest/gtest.h>

#include <array>

#include "kit/utf8.h"

namespace {

TEST(Words, LongWord_IsQuotedInSixtyColumnsWithAnEllipsis) {
    EXPECT_EQ("\"vampp\"", kit::Quote("vampp"));
    const std::string sixty(60, 'x');
    EXPECT_EQ('"' + sixty + '"', kit::Quote(sixty));
    EXPECT_EQ('"' + std::string(59, 'x') + "…\"", kit::Quote(sixty + 'x'));
}

TEST(Words, ControlCharacters_AreQuotedAsBlanks) {
    EXPECT_EQ("\"a b c\"", kit::Quote("a\nb\x1b"
                                      "c"));
}

TEST(Words, WideAndMultiByteCharacters_AreCutBetweenCharacters) {
    EXPECT_EQ("Fü…", kit::CutToColumns("Füße und Hände", 3));
    EXPECT_EQ("序…", kit::CutToColumns("序曲序曲", 4));
    EXPECT_EQ("序曲", kit::CutToColumns("序曲", 4));
    EXPECT_EQ("", kit::CutToColumns("x", 0));
    EXPECT_EQ(3U, kit::CountColumns(kit::CutToColumns("序曲序曲", 4)));
}

struct NearestRow {
    const char* typed;
    const char* meant;
};

class NearestWord : public testing::TestWithParam<NearestRow> {};

TEST_P(NearestWord, IsTheOneMeant_OrNone) {
    constexpr std::array<std::string_view, 7> known{"vamp", "repeat", "cut", "caesura", "marker", "remove", "move"};
    EXPECT_EQ(GetParam().meant, kit::FindNearest(GetParam().typed, known));
}

INSTANTIATE_TEST_SUITE_P(Rows, NearestWord,
                         testing::Values(NearestRow{"vampp", "vamp"}, NearestRow{"VAMP", "vamp"},
                                         NearestRow{"vmap", "vamp"}, NearestRow{"ceasura", "caesura"},
                                         NearestRow{"caes", "caesura"}, NearestRow{"repaet", "repeat"},
                                         NearestRow{"mov", "move"}, NearestRow{"remov", "remove"},
                                         NearestRow{"cu", "cut"}, NearestRow{"xyz", ""}, NearestRow{"", ""},
                                         NearestRow{"banana", ""}));

}  // namespace
