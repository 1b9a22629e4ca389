#include "tavo_core/tavo_version.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

using cmn::TAVOVersion;

TEST(Version, FromText_PrintsBack) {
    struct Row {
        const char* text;
        TAVOVersion version;
        const char* printed;
    };
    for (const Row& row : {Row{"1.0", {1, 0}, "1.0"}, Row{"0.0", {0, 0}, "0.0"}, Row{"1.10", {1, 10}, "1.10"},
                           Row{"65535.65535", {65535, 65535}, "65535.65535"}, Row{"01.02", {1, 2}, "1.2"}}) {
        TAVOVersion version;
        version.SetWithString(row.text);
        EXPECT_EQ(row.version, version) << row.text;
        EXPECT_EQ(row.printed, version.GetAsString());
    }
}

TEST(Version, FromWhatIsNoVersion_ThrowsAndStaysAsItWas) {
    for (const char* text : {"", ".", "1", "1.", ".1", "1.2.3", "1.2 ", " 1.2", "+1.2", "-1.2", "1.-2", "65536.0",
                             "0.65536", "99999999999999999999.1", "1,2", "v1.2", "1.2a"}) {
        TAVOVersion version{3, 4};
        EXPECT_THROW(version.SetWithString(text), std::invalid_argument) << text;
        EXPECT_EQ((TAVOVersion{3, 4}), version) << text;
    }
}

TEST(Version, Order_IsByMajorThenMinorAsNumbers) {
    const std::vector<TAVOVersion> ascending{{0, 9}, {1, 0}, {1, 2}, {1, 10}, {2, 0}, {10, 0}};
    for (std::size_t i = 1; i < ascending.size(); ++i)
        EXPECT_LT(ascending[i - 1], ascending[i]);
}
