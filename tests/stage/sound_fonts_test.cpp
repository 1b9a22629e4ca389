// SoundFonts at the command line: which are installed, and what a performance says of those that it plays with.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/stage/small_show.h"
#include "tests/support/sound_font_file.h"

namespace {

using test_support::ProgramResult;
using test_support::RunStage;
using testing::HasSubstr;
using testing::Not;

class StageSoundFonts : public test_support::SmallShow {
protected:
    [[nodiscard]] ProgramResult Render() const { return RunStage({"render", Show(), "--song", "2", "--out", "none"}); }
    void Set(const std::string& settings) const { test_support::WriteAll(Show() + "/settings.json", settings); }
};

TEST_F(StageSoundFonts, InstalledOnes_AreListedAsATableAndAsJson) {
    std::filesystem::create_directories(directory_ / "data/soundfonts");
    test_support::WriteSineFont(directory_ / "data/soundfonts/sine.sf2", {{0, 0}, {128, 0}, {8, 4}});
    setenv("XDG_DATA_HOME", std::string(directory_ / "data").c_str(), 1);
    const ProgramResult table = RunStage({"devices", "--sounds"});
    const ProgramResult json = RunStage({"devices", "--sounds", "--json"});
    unsetenv("XDG_DATA_HOME");
    EXPECT_EQ(0, table.exitCode) << table.err;
    EXPECT_THAT(table.out, HasSubstr(std::string(directory_ / "data/soundfonts/sine.sf2") + "\n"));
    ASSERT_EQ(0, json.exitCode) << json.err;
    bool isListed = false;
    int standard = 0;
    for (const nlohmann::json& font : nlohmann::json::parse(json.out)) {
        if (font.at("default").get<bool>()) ++standard;
        const std::string path = font.at("path").get<std::string>();
        EXPECT_EQ(std::filesystem::file_size(path), font.at("bytes").get<std::uintmax_t>()) << path;
        if (!path.ends_with("/data/soundfonts/sine.sf2")) continue;
        isListed = true;
        EXPECT_EQ("Sine", font.at("title").get<std::string>());
        EXPECT_EQ(3U, font.at("programs").get<unsigned int>());
    }
    EXPECT_TRUE(isListed) << json.out;
    EXPECT_EQ(1, standard);
}

TEST_F(StageSoundFonts, OfTheShowWithoutTheSongsProgram_IsNamedInARender) {
    test_support::WriteSineFont(Show() + "/sine.sf2", {{0, 40}});
    Set(R"({"soundfont": "sine.sf2"})");
    const ProgramResult render = Render();
    EXPECT_EQ(0, render.exitCode);
    EXPECT_THAT(render.err,
                HasSubstr("note: song 2 plays what the SoundFont does not have, and another instrument sounds "
                          "in its place: program 1 (channel 1)\n"));
    test_support::WriteSineFont(Show() + "/sine.sf2", {{0, 0}});
    EXPECT_THAT(Render().err, Not(HasSubstr("SoundFont")));
}

TEST_F(StageSoundFonts, OfAGroupThatCannotBeUsed_IsNamedAndTheShowsPlays) {
    std::filesystem::create_directory(Show() + "/folder.sf2");
    test_support::WriteAll(Show() + "/broken.sf2", "RIFFnothing");
    // Whole as far as its programs are read.
    const std::string whole = test_support::MakeSineFont("Sine", {{0, 0}});
    test_support::WriteAll(Show() + "/cut.sf2", whole.substr(0, whole.size() - 60));
    test_support::WriteSineFont(Show() + "/few.sf2", {{0, 40}});
    Set(R"({"groups": [{"name": "a", "soundfont": "missing.sf2"}, {"name": "b", "soundfont": "broken.sf2"},
                       {"name": "c", "soundfont": "folder.sf2"}, {"name": "d", "soundfont": "cut.sf2"},
                       {"name": "keys", "channels": [1], "soundfont": "few.sf2"}]})");
    const ProgramResult render = Render();
    EXPECT_EQ(0, render.exitCode);
    const std::string unread = "\", cannot be read as a SoundFont\n";
    for (const std::string& sentence :
         {std::string("\"a\" plays with the show's SoundFont: its own, \"missing.sf2\", is not there\n"),
          "\"b\" plays with the show's SoundFont: its own, \"broken.sf2" + unread,
          "\"c\" plays with the show's SoundFont: its own, \"folder.sf2" + unread,
          "\"d\" plays with the show's SoundFont: its own, \"cut.sf2" + unread})
        EXPECT_THAT(render.err, HasSubstr("note: the group " + sentence));
    EXPECT_THAT(render.err,
                HasSubstr("note: song 2 plays what the SoundFont of the group \"keys\" does not have, and the "
                          "show's SoundFont plays it: program 1 (channel 1)\n"));
    EXPECT_THAT(RunStage({"check", Show()}).out,
                HasSubstr("settings.json: the SoundFont \"missing.sf2\" of the group \"a\" is not there"));
}

}  // namespace
