#include "stage/control/take.h"

#include <gtest/gtest.h>

#include <fstream>

#include "kit/file.h"
#include "stage/control/script.h"
#include "stage/session/show_session.h"
#include "tavo_core/event_codes.h"
#include "tests/stage/small_show.h"

namespace {

using namespace std::chrono_literals;
using stage::CommandRecord;
using stage::Door;
using stage::TakeLine;
using stage::Verb;

class TakeTest : public test_support::SmallShow {
protected:
    TakeTest() : data_(LoadData()) {}

    static CommandRecord MakeRecord(stage::Command command, std::int64_t frame) {
        CommandRecord record;
        record.command = std::move(command);
        record.place = {"1", 1920, frame};
        return record;
    }
    [[nodiscard]] std::string Path() const { return directory_ / "evening.take"; }
    [[nodiscard]] tavo_midi::ShowData LoadData() const { return tavo_midi::ShowData(Show() + "/show.showdata"); }

    tavo_midi::ShowData data_;
    const stage::TakeSettings settings_{44100, 64, 64, "my show-1.0.logdata"};
};

TEST_F(TakeTest, WrittenTake_IsReadAsItWasNoted) {
    FlowState state;
    state.song = "1";
    state.tick = 1920;
    state.loops = {{codes::Vamp, 0, 1920, 0, 3, false}};
    {
        stage::TakeWriter writer(Path(), settings_, data_);
        writer.NoteCommand(MakeRecord({Verb::Load, {std::string("1")}, {Door::Automatic, "start"}, 1, {}}, 0), {});
        writer.NoteCommand(MakeRecord({Verb::Tempo, {0.9}, {Door::Terminal, "input"}, 2, {}}, 640), {});
        writer.NoteState(704, state);
        CommandRecord refused = MakeRecord({Verb::Exit, {}, {Door::MidiPort, "pedal; # 1"}, 3, {}}, 768);
        refused.outcome = CommandRecord::Outcome::Refused;
        refused.sentence = "it came twice; once is enough";
        writer.NoteCommand(refused, {});
        writer.NoteDevice(800, "The JACK server\nhas gone.");
        writer.NoteCommand(MakeRecord({Verb::NextMarker, {}, {Door::Terminal, "key"}, 4, {}}, 832), 3840);
        writer.NoteCommand(MakeRecord({Verb::Quit, {}, {Door::Terminal, "key"}, 5, {}}, 896), {});
    }
    const stage::Take take = stage::ReadTake(Path());
    EXPECT_EQ(settings_, take.settings);
    EXPECT_TRUE(take.isFinished);
    ASSERT_EQ(7U, take.lines.size());
    EXPECT_EQ("load 1", take.lines[0].text);
    EXPECT_EQ("tempo 90%", take.lines[1].text);
    EXPECT_EQ(640, take.lines[1].frame);
    EXPECT_EQ("terminal input", take.lines[1].door);
    EXPECT_EQ("song 1, 2", take.lines[1].place);
    EXPECT_EQ(TakeLine::Kind::State, take.lines[2].kind);
    ASSERT_TRUE(take.lastState);
    EXPECT_EQ(state, *take.lastState);
    EXPECT_EQ(TakeLine::Kind::Refused, take.lines[3].kind);
    EXPECT_EQ("exit", take.lines[3].text);
    EXPECT_EQ("it came twice; once is enough", take.lines[3].sentence);
    EXPECT_EQ("MIDI port pedal, # 1", take.lines[3].door);
    EXPECT_EQ("song 1, 2", take.lines[3].place);
    EXPECT_EQ(TakeLine::Kind::Device, take.lines[4].kind);
    EXPECT_EQ("The JACK server has gone.", take.lines[4].text);
    EXPECT_EQ("seek tick 3840", take.lines[5].text) << "where a replay goes without a display";
}

TEST_F(TakeTest, Take_IsAScriptOfItsCommands) {
    {
        stage::TakeWriter writer(Path(), settings_, data_);
        writer.NoteCommand(MakeRecord({Verb::Seek, {std::uint32_t{960}}, {Door::Page, "#2"}, 1, {}}, 64), {});
        writer.NoteDevice(65, "nothing");
        writer.NoteCommand(
            MakeRecord({Verb::Edit, {std::string("{\"text\":\"a  # b\"}")}, {Door::Automatic, "edit"}, 2, {}}, 128),
            {});
    }
    const auto lines = stage::ParseShowScript(kit::ReadFile(Path(), 1U << 20U), "take", data_, "1");
    ASSERT_EQ(2U, lines.size());
    EXPECT_EQ(64, lines[0].frame);
    EXPECT_EQ(960U, lines[0].command.GetTick());
    EXPECT_EQ("{\"text\":\"a  \\u0023 b\"}", lines[1].command.GetText()) << "blanks are kept, and what follows is not";
}

TEST_F(TakeTest, TornLastLine_IsLeftOut) {
    {
        stage::TakeWriter writer(Path(), settings_, data_);
        writer.NoteCommand(MakeRecord({Verb::Play, {}, {Door::Terminal, ""}, 1, {}}, 64), {});
    }
    std::ofstream(Path(), std::ios::app) << "at frame 12";
    const stage::Take take = stage::ReadTake(Path());
    EXPECT_EQ(1U, take.lines.size());
    EXPECT_FALSE(take.isFinished);
}

TEST_F(TakeTest, NotATake_IsRefusedWithTheLine) {
    const auto refusalOf = [&](const std::string& text) -> std::string {
        test_support::WriteAll(Path(), text);
        try {
            static_cast<void>(stage::ReadTake(Path()));
        } catch (const std::runtime_error& problem) {
            return problem.what();
        }
        return "";
    };
    EXPECT_NE(std::string::npos, refusalOf("at 3 exit\n").find("line 1: this is not a take"));
    EXPECT_NE(std::string::npos, refusalOf("take rate x block 64 advance 64 log a\n").find("line 1: the rate must be"));
    EXPECT_NE(std::string::npos, refusalOf("take rate 48000 block 0 advance 64 log a\n").find("line 1: "));
    const std::string good = "take rate 48000 block 64 advance 64 log a\n";
    EXPECT_NE(std::string::npos, refusalOf(good + "at frame -1 play\n").find("line 2: the frame"));
    EXPECT_NE(std::string::npos, refusalOf(good + "#: frame 1 dance\n").find("line 2: a take does not note \"dance\""));
    EXPECT_NE(std::string::npos, refusalOf(good + "#: frame 1 state {\n").find("line 2: "));
    EXPECT_NE(std::string::npos, refusalOf("").find("is empty"));
}

TEST_F(TakeTest, ExistingFile_IsNotOverwritten) {
    test_support::WriteAll(Path(), "precious");
    EXPECT_THROW(stage::TakeWriter(Path(), settings_, data_), kit::FileExistsError);
    EXPECT_EQ("precious", test_support::ReadAll(Path()));
}

}  // namespace
