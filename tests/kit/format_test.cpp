#include "kit/format.h"

#include <gtest/gtest.h>

TEST(Format, NumberIsPrintedInItsPlace) {
    EXPECT_EQ("300 is higher than 255", kit::format("%d is higher than %d", 300, 255));
}

TEST(Format, EmptyPattern_GivesEmptyText) {
    const char* empty = "";
    EXPECT_EQ("", kit::format("%s", empty));
}

TEST(Format, LongText_IsNotCut) {
    const std::string longText(100'000, 'x');
    EXPECT_EQ(longText + "!", kit::format("%s!", longText.c_str()));
}
