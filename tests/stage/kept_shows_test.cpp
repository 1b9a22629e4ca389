// Shows that earlier versions wrote are read as they were meant.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/run_program.h"

using test_support::ProgramResult;
using test_support::RunStage;
using testing::HasSubstr;
using Json = nlohmann::json;

namespace {

/// A copy of the show that the version wrote.
class KeptShow : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override { std::filesystem::copy(Kept(), Show(), std::filesystem::copy_options::recursive); }

    [[nodiscard]] static std::string Kept() { return std::string(SOURCE_DIR) + "/tests/shows/" + GetParam(); }
    [[nodiscard]] std::string Show() const { return directory_ / "show"; }
    [[nodiscard]] Json Ask(std::vector<std::string> words) const {
        const ProgramResult result = RunStage(std::move(words));
        EXPECT_EQ(0, result.exitCode) << result.err;
        return Json::parse(result.out, nullptr, false);
    }

    test_support::TemporaryDirectory directory_;
};

TEST_P(KeptShow, IsWholeAndHasItsVersionsWithWhoSavedThem) {
    const ProgramResult check = RunStage({"check", Show()});
    EXPECT_EQ(
        "a session that ended early left 1 unsaved change to version 1.2; `stage log SHOW recover 1.2` saves it\n",
        check.out + check.err.substr(0, check.err.find("stage: the show has 1 problem")));
    const Json versions = Ask({"log", Show(), "list", "--json"});
    ASSERT_EQ(3U, versions.size()) << versions;
    EXPECT_EQ("before the first rehearsal", versions[1]["comment"].get<std::string>());
    EXPECT_EQ("ada@pit", versions[2]["by"].get<std::string>());
    EXPECT_EQ(21, versions[2]["edits"].get<int>());
    EXPECT_TRUE(versions[2]["inUse"].get<bool>());
}

TEST_P(KeptShow, EditThatWasNeverSaved_IsOfferedAndRecovered) {
    const ProgramResult offer = RunStage({"log", Show(), "list"});
    EXPECT_THAT(offer.err, HasSubstr("left 1 unsaved change to version 1.2"));
    const ProgramResult recovered = RunStage({"log", Show(), "recover", "1.2"});
    EXPECT_EQ(0, recovered.exitCode) << recovered.err;
    EXPECT_THAT(RunStage({"edit", Show(), "list"}).out, HasSubstr("\"Late\""));
}

TEST_P(KeptShow, TakeOfItsPerformance_GoesAsItWent) {
    const std::string trace = directory_ / "trace";
    const ProgramResult render = RunStage({"render", Show(), "--script", Show() + "/takes/evening.take", "--out",
                                           directory_ / "evening.wav", "--trace", trace});
    EXPECT_EQ(0, render.exitCode) << render.err;
    EXPECT_EQ(test_support::ReadAll(Kept() + ".trace"), test_support::ReadAll(trace));
}

INSTANTIATE_TEST_SUITE_P(Versions, KeptShow, testing::Values("0.1.0"), [](const auto& version) {
    std::string name = version.param;
    std::replace(name.begin(), name.end(), '.', '_');
    return name;
});

}  // namespace
