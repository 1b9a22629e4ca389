// Which SoundFonts are installed, and what a song misses in one.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "stage/engine/instrument_fonts.h"
#include "stage/engine/sound_font.h"
#include "stage/engine/sound_font_list.h"
#include "tests/support/sound_font_file.h"
#include "tests/support/temporary_directory.h"

namespace {

using test_support::FontChunk;
using test_support::FontPreset;

/// A SoundFont's head and its list of programs.
std::string MakeFont(const std::string& programs) {
    return FontChunk("RIFF",
                     "sfbk" + FontChunk("LIST", "INFO" + FontChunk("INAM", "Test font\0") + FontChunk("isng", "abc")) +
                         FontChunk("LIST", "sdta" + FontChunk("smpl", std::string(101, 's'))) +
                         FontChunk("LIST", "pdta" + FontChunk("phdr", programs + FontPreset(0, 0))));
}

TEST(SoundFontList, DefaultFont_IsReadWithItsTitleAndPrograms) {
    const stage::SoundFontContents contents = stage::ReadSoundFontContents(stage::FindDefaultSoundFont());
    EXPECT_FALSE(contents.title.empty());
    EXPECT_GE(contents.programs.size(), 128U);
    EXPECT_TRUE(contents.programs.contains({0, 0}));
    EXPECT_TRUE(contents.programs.contains({128, 0}));
}

TEST(SoundFontList, InstalledFonts_AreListedOnceWithTheDefault) {
    const test_support::TemporaryDirectory directory;
    std::filesystem::create_directories(directory / "soundfonts");
    std::ofstream(directory / "soundfonts/mine.sf2", std::ios::binary)
        << MakeFont(FontPreset(0, 3) + FontPreset(128, 0));
    std::ofstream(directory / "soundfonts/broken.sf2", std::ios::binary) << "RIFF....sfbk";
    std::ofstream(directory / "soundfonts/notes.txt") << "nothing";
    std::filesystem::create_symlink("mine.sf2", directory / "soundfonts/also-mine.sf2");
    const char* const before = std::getenv("XDG_DATA_HOME");
    const std::string kept = before != nullptr ? before : "";
    setenv("XDG_DATA_HOME", directory.Path().c_str(), 1);
    const std::vector<stage::InstalledSoundFont> fonts = stage::ListSoundFonts();
    before != nullptr ? setenv("XDG_DATA_HOME", kept.c_str(), 1) : unsetenv("XDG_DATA_HOME");
    int mine = 0;
    int standard = 0;
    for (const stage::InstalledSoundFont& font : fonts) {
        EXPECT_EQ(std::string::npos, font.path.find("broken"));
        if (font.isDefault) ++standard;
        if (font.title != "Test font") continue;
        ++mine;
        EXPECT_EQ(2U, font.programs);
        EXPECT_GT(font.bytes, 200U);
    }
    EXPECT_EQ(1, mine);
    EXPECT_EQ(1, standard);
}

TEST(SoundFontList, NotASoundFont_IsRefusedInOneSentence) {
    const test_support::TemporaryDirectory directory;
    const std::string path = directory / "x.sf2";
    const std::string whole = MakeFont(FontPreset(0, 3));
    for (std::size_t length = 0; length < whole.size(); ++length) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << whole.substr(0, length);
        EXPECT_THROW(static_cast<void>(stage::ReadSoundFontContents(path)), std::runtime_error) << length;
    }
    std::ofstream(path, std::ios::binary | std::ios::trunc) << whole;
    EXPECT_EQ(1U, stage::ReadSoundFontContents(path).programs.size());
}

TEST(SoundFontList, ProgramThatIsMissing_IsNamedWithItsChannels) {
    tavo_midi::SongData song("4", TL::Timeline(0, 1920), 480);
    song.SetEvents({{0, 0xC0, 40, 0, 0},
                    {0, 0xC1, 3, 0, 0},
                    {0, 0xC2, 41, 0, 0},
                    {0, 0xB3, 0, 5, 0},
                    {0, 0xC3, 3, 0, 0},
                    {0, 0xC9, 25, 0, 0},
                    {0, 0x90, 60, 90, 0},
                    {0, 0x91, 60, 90, 0},
                    {0, 0x93, 60, 90, 0},
                    {0, 0x99, 36, 90, 0},
                    {0, 0x90, 60, 90, 1},
                    {0, 0x92, 60, 0, 0}});
    stage::InstrumentFonts fonts;
    fonts.contents.resize(2);
    fonts.contents[0].programs = {{0, 0}, {0, 3}, {128, 0}};
    const auto describe = [&](const stage::GroupPlan& plan = {}) {
        return stage::DescribeMissingPrograms(song, fonts, plan);
    };
    const char* const shows =
        "song 4 plays what the SoundFont does not have, and another instrument sounds in its place: program 41 "
        "(channel 1), drum kit 26 (channel 10)";
    EXPECT_EQ(std::vector<std::string>{shows}, describe());
    // With channels 1 and 4 in a group that has a SoundFont of its own.
    fonts.contents[1].programs = {{0, 40}};
    fonts.ofGroups = {1};
    stage::GroupPlan plan;
    plan.groups.resize(1);
    plan.groups[0].name = "keys";
    plan.stripsOfSongs[&song] = {1, 0, 0, 1, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ((std::vector<std::string>{
                  "song 4 plays what the SoundFont does not have, and another instrument sounds in its place: drum kit "
                  "26 (channel 10)",
                  "song 4 plays what the SoundFont of the group \"keys\" does not have, and the show's SoundFont plays "
                  "it: program 4 (channel 4)"}),
              describe(plan));
    fonts.contents[0].programs.insert({{0, 40}, {128, 25}});
    EXPECT_TRUE(describe().empty());
}

}  // namespace
