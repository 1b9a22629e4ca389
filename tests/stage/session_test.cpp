#include <gtest/gtest.h>

#include <filesystem>

#include "stage/cli/text_table.h"
#include "stage/import/song_file_reader.h"
#include "stage/import/text_song.h"
#include "stage/show/settings.h"
#include "stage/show/show_directory.h"
#include "tests/support/run_program.h"

namespace {

using test_support::WriteAll;

std::string RefusalOfSettings(const std::string& text) {
    try {
        static_cast<void>(stage::ParseSettings(text, "s"));
    } catch (const std::runtime_error& problem) {
        return problem.what();
    }
    return "";
}

TEST(Settings, AnEmptyObject_GivesTheDefaults) {
    const stage::Settings settings = stage::ParseSettings("{}", "s");
    EXPECT_EQ("", settings.soundFont);
    EXPECT_EQ(250, settings.pressGuardMs);
    ASSERT_EQ(1U, settings.outputs.size());
    EXPECT_EQ(stage::Settings::Backend::Auto, settings.outputs[0].backend);
    EXPECT_EQ(1.0, settings.volumes.master);
    EXPECT_FALSE(stage::HasOscTarget(settings, ""));
}

TEST(Settings, WhatIsWritten_IsReadBack) {
    stage::Settings settings;
    settings.soundFont = "big.sf2";
    settings.outputs = {{"hall", stage::Settings::Backend::Jack, "system"},
                        {"pit", stage::Settings::Backend::None, ""}};
    settings.volumes.click = 0.25;
    settings.oscTargets = {{"lights", "desk.local", 8000, stage::Settings::Transport::Tcp}};
    settings.groups.resize(2);
    settings.groups[0].name = "band";
    settings.groups[0].parts = {"Reed*"};
    settings.groups[0].channels = {1, 256};
    settings.groups[0].volume = 0.5;
    settings.groups[0].trimDb = -3;
    settings.groups[0].isMuted = true;
    settings.groups[0].output = stage::Settings::Group::Output::Own;
    settings.groups[0].midiPort = "keys";
    settings.groups[0].soundFont = "piano.sf2";
    settings.groups[0].reverbDb = -7.5;
    settings.reverb = {0.75, 0.25};
    settings.groups[1].name = "singers";
    settings.pressGuardMs = 0;
    settings.changeLog = "show-1.3.logdata";
    const stage::Settings read = stage::ParseSettings(stage::AsText(settings), "s");
    EXPECT_EQ(stage::AsText(settings), stage::AsText(read));
    EXPECT_EQ("pit", read.outputs[1].name);
    EXPECT_EQ("piano.sf2", read.groups[0].soundFont);
    EXPECT_EQ(-7.5, read.groups[0].reverbDb);
    EXPECT_FALSE(read.groups[1].reverbDb);
    EXPECT_EQ(0.75, read.reverb.roomSize);
    EXPECT_EQ(0.25, read.reverb.damping);
    EXPECT_EQ("show-1.3.logdata", read.changeLog);
    EXPECT_EQ(stage::Settings::Transport::Tcp, read.oscTargets[0].transport);
    EXPECT_EQ(0.25, read.volumes.click);
    ASSERT_EQ(2U, read.groups.size());
    EXPECT_EQ((std::vector<int>{1, 256}), read.groups[0].channels);
    EXPECT_TRUE(read.groups[0].isMuted);
    EXPECT_EQ(stage::Settings::Group::Output::Own, read.groups[0].output);
    EXPECT_EQ("keys", read.groups[0].midiPort);
    EXPECT_TRUE(stage::HasOscTarget(read, ""));
    EXPECT_TRUE(stage::HasOscTarget(read, "lights"));
    EXPECT_FALSE(stage::HasOscTarget(read, "sound"));
}

TEST(Settings, KeyThatImportsOnceWrote_IsPassedOverAndNotWritten) {
    const stage::Settings read =
        stage::ParseSettings(R"({"countIn": 2, "midiPorts": {"inputs": ["Pedal"], "outputs": []}})", "s");
    EXPECT_EQ(2, read.countIn);
    EXPECT_EQ(std::string::npos, stage::AsText(read).find("midiPorts"));
}

TEST(Settings, AFileThatIsNotThere_GivesTheDefaults) {
    const test_support::TemporaryDirectory directory;
    EXPECT_EQ(250, stage::ReadSettings(directory / "settings.json").pressGuardMs);
}

TEST(Settings, AFileThatCannotBeLookedAt_IsNotTakenForOneThatIsNotThere) {
    const test_support::TemporaryDirectory directory;
    EXPECT_THROW(static_cast<void>(stage::ReadSettings(directory / std::string(300, 's'))), std::runtime_error);
}

struct SettingsRow {
    const char* text;
    const char* problem;
};

TEST(Settings, BadTexts_AreRefusedWithTheirPlace) {
    const std::string file = "s";
    for (const SettingsRow& row : {
             SettingsRow{"{\n\n!", ", line 3: the text is not JSON"},
             SettingsRow{"", ", line 1: the text is not JSON"},
             SettingsRow{"[]", ": the outermost value must be an object, not a list"},
             SettingsRow{"{\"volumes\":{\"click\":1e999}}", ", line 1: the number 1e999 is too large"},
             SettingsRow{"{\"x\":1}", ": x is not a known key"},
             SettingsRow{R"({"x\n":1})", R"(: "x\n" is not a known key)"},
             SettingsRow{"{\"soundfont\":1}", ": soundfont must be text, not 1"},
             SettingsRow{"{\"pressGuardMs\":10001}",
                         ": pressGuardMs must be a whole number from 0 to 10000, not 10001"},
             SettingsRow{"{\"pressGuardMs\":18446744073709551615}",
                         ": pressGuardMs must be a whole number from 0 to 10000, not 18446744073709551615"},
             SettingsRow{"{\"pressGuardMs\":1.5}", ": pressGuardMs must be a whole number from 0 to 10000, not 1.5"},
             SettingsRow{"{\"volumes\":{\"click\":1.1}}", ": volumes.click must be a number from 0 to 1, not 1.1"},
             SettingsRow{"{\"outputs\":{}}", ": outputs must be a list, not an object"},
             SettingsRow{"{\"outputs\":[{\"backend\":\"tape\"}]}",
                         ": outputs[0].backend must be one of \"auto\", \"jack\", \"rtaudio\", \"none\", not \"tape\""},
             SettingsRow{"{\"oscTargets\":[{\"name\":\"a\",\"port\":1},{\"name\":\"a\",\"port\":2}]}",
                         ": oscTargets[1] has the name of another target, \"a\""},
             SettingsRow{"{\"oscTargets\":[{\"name\":\"a\"}]}", ": oscTargets[0].port is missing"},
             SettingsRow{"{\"oscTargets\":[{\"name\":\"a\",\"port\":65536}]}",
                         ": oscTargets[0].port must be a whole number from 1 to 65535, not 65536"},
             SettingsRow{"{\"changeLog\":\"../a-1.0.logdata\"}",
                         ": changeLog must be the name of a file without a directory, not \"../a-1.0.logdata\""},
             SettingsRow{R"({"pressGuardMs":1,"pressGuardMs":2})", ": pressGuardMs is there twice"},
             SettingsRow{R"({"volumes":{"door":1}})", ": volumes.door is not a known key"},
             SettingsRow{R"({"groups":[{}]})", ": groups[0].name is missing"},
             SettingsRow{R"({"groups":[{"name":"two words"}]})",
                         ": groups[0].name must be one word of letters, digits, - and _, at most 40 bytes, not \"two "
                         "words\""},
             SettingsRow{R"({"groups":[{"name":"click"}]})",
                         ": groups[0].name must not be \"click\", which means another sound"},
             SettingsRow{R"({"groups":[{"name":"a"},{"name":"a"}]})",
                         ": groups[1] has the name of another group, \"a\""},
             SettingsRow{R"({"groups":[{"name":"a","channels":[0]}]})",
                         ": groups[0].channels[0] must be a whole number from 1 to 256, not 0"},
             SettingsRow{R"({"groups":[{"name":"a","trimDb":13}]})",
                         ": groups[0].trimDb must be a number from -60 to 12, not 13"},
             SettingsRow{R"({"groups":[{"name":"a","midiPort":"a:b"}]})",
                         ": groups[0].midiPort must be one word of letters, digits, - and _, at most 40 bytes, not "
                         "\"a:b\""},
             SettingsRow{R"({"groups":[{"name":"a","reverbDb":"on"}]})",
                         ": groups[0].reverbDb must be \"off\" or a number from -60 to 12, not \"on\""},
             SettingsRow{R"({"groups":[{"name":"a","reverbDb":13}]})",
                         ": groups[0].reverbDb must be \"off\" or a number from -60 to 12, not 13"},
             SettingsRow{R"({"reverb":{"roomSize":2}})", ": reverb.roomSize must be a number from 0 to 1, not 2"},
             SettingsRow{R"({"reverb":{"size":1}})", ": reverb.size is not a known key"},
             SettingsRow{R"({"groups":[{"name":"a","output":"left"}]})",
                         ": groups[0].output must be one of \"main\", \"own\", not \"left\""},
             SettingsRow{R"({"oscTargets":[{"name":"","port":1}]})", ": oscTargets[0].name must not be empty"},
         })
        EXPECT_EQ(file + row.problem, RefusalOfSettings(row.text)) << row.text;
}

class ShowDirectoryScan : public testing::Test {
protected:
    void Touch(const std::string& name) const { WriteAll(directory_ / name, ""); }
    test_support::TemporaryDirectory directory_;
};

TEST_F(ShowDirectoryScan, TheHighestVersionIsTheNewest_ByNumberNotByText) {
    for (const char* name : {"a.showdata", "a-1.2.logdata", "a-1.10.logdata", "a-b-0.9.logdata"})
        Touch(name);
    const stage::ShowDirectory show = stage::ScanShowDirectory(directory_.Path());
    EXPECT_EQ(directory_ / "a-1.10.logdata", show.NewestLogPath());
    EXPECT_EQ("a-b-0.9.logdata", (show.logNames.at(cmn::TAVOVersion{0, 9})));
}

TEST_F(ShowDirectoryScan, AVersionWithoutADash_IsTheWholeName) {
    Touch("a.showdata");
    Touch("2.5.logdata");
    EXPECT_EQ(directory_ / "2.5.logdata", stage::ScanShowDirectory(directory_.Path()).NewestLogPath());
}

TEST_F(ShowDirectoryScan, ExtensionsCountWholeAndWithCase) {
    for (const char* name : {"a.showdata", "a-1.0.logdata", "a-9.0.LOGDATA", "a-8.0.logdata.bak", "z.ShowData"})
        Touch(name);
    const stage::ShowDirectory show = stage::ScanShowDirectory(directory_.Path());
    EXPECT_EQ(1U, show.logNames.size());
    EXPECT_EQ("a.showdata", show.showDataName);
}

TEST_F(ShowDirectoryScan, OfTwoFiles_TheLaterNameIsUsed) {
    for (const char* name : {"a.showdata", "b.showdata", "a.score", "c.score", "x-1.0.logdata", "y-1.0.logdata"})
        Touch(name);
    const stage::ShowDirectory show = stage::ScanShowDirectory(directory_.Path());
    EXPECT_EQ("b.showdata", show.showDataName);
    EXPECT_EQ("c.score", show.scoreName);
    EXPECT_EQ(directory_ / "y-1.0.logdata", show.NewestLogPath());
}

TEST_F(ShowDirectoryScan, ALogWithoutAVersion_IsRefused) {
    for (const char* name : {"a.showdata", "a-1.0.logdata", "a-new.logdata"})
        Touch(name);
    EXPECT_THROW(static_cast<void>(stage::ScanShowDirectory(directory_.Path())), std::invalid_argument);
}

TEST(SongFileName, NumberAndTitle_ComeFromTheName) {
    struct Row {
        const char* path;
        const char* number;
        const char* title;
    };
    for (const Row& row : {Row{"songs/01_Noel.mid", "1", "Noel"}, Row{"12a_The_Ferry.mid", "12a", "The Ferry"},
                           Row{"12abc.mid", "12", "abc"}, Row{"007.mid", "7", "007"}, Row{"00.mid", "0", "00"},
                           Row{"5 - Waltz.mid", "5", "Waltz"}, Row{"Encore.mid", "", "Encore"},
                           Row{"3b.mid", "3b", "3b"}, Row{"2_1_1_Aria.mid", "2", "1 1 Aria"}}) {
        const stage::SongFileName name = stage::ParseSongFileName(row.path);
        EXPECT_EQ(row.number, name.number) << row.path;
        EXPECT_EQ(row.title, name.title) << row.path;
    }
}

TEST(TextTable, ColumnsAreCountedNotBytes) {
    TextTable table({{"title"}, {"bars", TextTable::Align::Right}});
    table.AddRow({"Noël", "8"});
    table.AddRow({"a\tb\n", "12"});
    EXPECT_EQ("title  bars\nNoël      8\na b      12\n", table.AsText());
}

std::string RefusalOfScore(const std::string& lines) {
    try {
        static_cast<void>(stage::ParseTextSong("number 1\ntitle x\n" + lines, "t"));
    } catch (const std::runtime_error& problem) {
        return problem.what();
    }
    return "";
}

TEST(TextSong, NotesLengthsAndTies_BecomeMidi) {
    const stage::TextSong score = stage::ParseTextSong(
        "number 12a\ntitle Test\nat 1 meter 3/4\nat 1 key F# minor\nat 2 tempo 90\nat 2 marker B\n"
        "part Flute program 74\n| f c4/4 d#4+bb4/8. r/16 e4/4~ | e4/2 r/4' |\npart Kit drums\n| bd/2. | %1 |\n",
        "t");
    EXPECT_EQ("12a", score.number);
    const tavo_midi::Smf& smf = score.smf;
    ASSERT_EQ(3U, smf.tracks.size());
    EXPECT_EQ(-1 + 4, smf.tracks[0].keys[0].sharps());
    EXPECT_TRUE(smf.tracks[0].keys[0].minor());
    EXPECT_EQ(1440U, smf.tracks[0].tempos[0].abs_time());
    EXPECT_EQ(666667U, smf.tracks[0].tempos[0].microseconds_per_quarter());
    EXPECT_EQ(2880U, smf.tracks[0].endTick);
    std::vector<std::string> notes;
    for (const tavo_midi::MidiEvent& event : smf.events) {
        if ((event.status & 0xE0) != 0x80) continue;
        notes.push_back(((event.status & 0xF0) == 0x90 ? "on " : "off ") + std::to_string(event.data1) + " " +
                        std::to_string(event.tick) + " ch " + std::to_string(event.status & 15));
    }
    EXPECT_EQ((std::vector<std::string>{"on 60 0 ch 0", "off 60 450 ch 0", "on 63 480 ch 0", "on 70 480 ch 0",
                                        "off 63 810 ch 0", "off 70 810 ch 0", "on 64 960 ch 0", "off 64 2370 ch 0",
                                        "on 36 0 ch 9", "off 36 1410 ch 9", "on 36 1440 ch 9", "off 36 2850 ch 9"}),
              notes);
}

TEST(TextSong, APickup_HasAMeterOfItsOwn) {
    const stage::TextSong score =
        stage::ParseTextSong("number 1\ntitle x\npickup 1/4\nat 1 meter 3/4\npart P\n| c4/4 | c4/2. |\n", "t");
    const auto& meters = score.smf.tracks[0].meters;
    ASSERT_EQ(2U, meters.size());
    EXPECT_EQ(1U, meters[0].numerator());
    EXPECT_EQ(480U, meters[1].abs_time());
    EXPECT_EQ(3U, meters[1].numerator());
}

TEST(TextSong, BadTexts_AreRefusedWithTheirLine) {
    struct Row {
        const char* lines;
        const char* problem;
    };
    for (const Row& row : {
             Row{"", "t: there is no part"},
             Row{"part P\n| c4/4 |\n", "t, line 4: the bar \"c4/4\" lasts 480 ticks instead of 1920"},
             Row{"part P\n| c4/1\n", "t, line 4: the line of music does not end with a bar line"},
             Row{"part P\n| h4/1 |\n", "t, line 4: \"h4\" is not a note"},
             Row{"part P\n| c4/7 |\n", "t, line 4: /7 is not a length"},
             Row{"part P\n| c4/1 |\npart Q\n| c4/1 | d4 |\n", "t, line 5: the part Q has 2 bars, but P has 1"},
             Row{"part P drums\n| c4/1 |\n", "t, line 4: there is no drum \"c4\""},
             Row{"part P program 129\n", "t, line 3: \"129\" is not a whole number from 1 to 128"},
             Row{"at 2 meter 3/4\npart P\n| c4/1 |\n", "t, line 3: there is no bar 2, the bars are 1 to 1"},
             Row{"at 1 meter 3/5\npart P\n| c4/1 |\n", "t, line 3: 5 is not a note value: 1, 2, 4 ... 64"},
             Row{"at 1 key H major\npart P\n| c4/1 |\n", "t, line 3: there is no key signature of H major"},
             Row{"at 1 tempo fast\npart P\n| c4/1 |\n",
                 "t, line 3: a tempo is a number of quarter notes a minute from 10 to 500"},
             Row{"| c4/1 |\n", "t, line 3: music comes after the line of its part"},
             Row{"part P\n| % |\n", "t, line 4: there is no bar to repeat"},
             Row{"tune x\n", "t, line 3: the word \"tune\" is not known"},
         })
        EXPECT_EQ(row.problem, RefusalOfScore(row.lines)) << row.lines;
}

}  // namespace
