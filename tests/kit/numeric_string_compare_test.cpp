#include "kit/numeric_string_compare.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace {

bool IsLess(std::string_view left, std::string_view right) {
    return kit::NumericStringCompare{}(left, right);
}

/// All texts of at most four characters over an alphabet with digits, a leading-zero case and bytes on both sides of
/// the digits.
std::vector<std::string> MakeSmallTexts() {
    std::vector<std::string> texts = {""};
    std::size_t first = 0;
    for (int length = 1; length <= 4; ++length) {
        const std::size_t end = texts.size();
        for (; first < end; ++first)
            for (const char c : {'0', '1', '2', '-', 'a'})
                texts.push_back(texts[first] + c);
    }
    return texts;
}

}  // namespace

TEST(NumericStringCompare, TextsInRisingOrder) {
    const std::vector<std::string> rising = {"",
                                             "-",
                                             "0",
                                             "1",
                                             "01a",
                                             "1a",
                                             "02",
                                             "2",
                                             "2a",
                                             "2b",
                                             "10",
                                             "10-",
                                             "10-2",
                                             "10-10",
                                             "99999999999999999999999998",
                                             "99999999999999999999999999",
                                             "A",
                                             "a",
                                             "a2b",
                                             "a10",
                                             "b",
                                             "\xc3\xbc"};
    for (std::size_t left = 0; left < rising.size(); ++left)
        for (std::size_t right = 0; right < rising.size(); ++right)
            EXPECT_EQ(left < right, IsLess(rising[left], rising[right])) << rising[left] << " < " << rising[right];
}

TEST(NumericStringCompare, DistinctTexts_AreNeverEquivalentAndNeverBothLess) {
    const std::vector<std::string> texts = MakeSmallTexts();
    for (const std::string& left : texts)
        for (const std::string& right : texts)
            ASSERT_EQ(left != right, IsLess(left, right) != IsLess(right, left)) << left << " | " << right;
}

TEST(NumericStringCompare, Order_IsTransitive) {
    // Sort by counting how many texts are smaller: only a transitive order of distinct texts gives every rank once and
    // puts exactly the smaller ones before each text.
    std::vector<std::string> texts = MakeSmallTexts();
    std::vector<std::string> byRank(texts.size());
    for (const std::string& text : texts) {
        const auto rank = static_cast<std::size_t>(
            std::count_if(texts.begin(), texts.end(), [&](const std::string& other) { return IsLess(other, text); }));
        ASSERT_TRUE(rank == 0 || byRank[rank].empty()) << text << " shares its rank with " << byRank[rank];
        byRank[rank] = text;
    }
    for (std::size_t left = 0; left < byRank.size(); ++left)
        for (std::size_t right = left + 1; right < byRank.size(); ++right)
            ASSERT_TRUE(IsLess(byRank[left], byRank[right])) << byRank[left] << " < " << byRank[right];
}

TEST(NumericStringCompare, Map_IsSearchedWithoutMakingStrings) {
    const std::map<std::string, int, kit::NumericStringCompare> songs = {{"10", 10}, {"2", 2}, {"1", 1}};
    EXPECT_EQ("2", songs.upper_bound(std::string_view("1"))->first);
    EXPECT_EQ("10", songs.rbegin()->first);
}
