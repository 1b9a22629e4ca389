// A show that plays on a thread of its own, with a foot pedal and a time code receiver on a real server.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <fstream>
#include <functional>
#include <thread>

#include "stage/session/show_session.h"
#include "tavo_core/callback_dispatcher.h"
#include "tests/midi_ports/pedal.h"
#include "tests/midi_ports/time_code_receiver.h"
#include "tests/player_core/support/test_interface.h"

namespace {

using namespace std::chrono_literals;
using test_support::Address;
using test_support::Child;
using test_support::TicksPerBar;

constexpr std::uint32_t FramesPerSecond = 48000;
constexpr unsigned int TicksPerSecond = TicksPerBar / 2;
// A second that goes round from the song's first half second on.
constexpr unsigned int VampStart = TicksPerSecond / 2;
constexpr unsigned int VampEnd = VampStart + TicksPerSecond;

/// A session and whoever renders it, ten milliseconds at a time.
class RunningShow {
public:
    explicit RunningShow(const test_support::ShowFiles& files) : session(files.Show(), files.Settings()) {
        thread_ = std::thread([this] { Render_(); });
    }
    ~RunningShow() {
        mustEnd_ = true;
        thread_.join();
    }
    RunningShow(const RunningShow&) = delete;
    RunningShow& operator=(const RunningShow&) = delete;

    [[nodiscard]] std::int64_t GetPlayedFrames() { return session.GetStagePlayer().GetEngine().GetPlayedFrames(); }
    [[nodiscard]] unsigned int GetPosition() {
        unsigned int tick = 0;
        session.GetStagePlayer().ReportPosition(&tick);
        return tick;
    }
    [[nodiscard]] bool IsSilent() const { return peak_ < 1e-4F; }

    stage::ShowSession session;

private:
    void Render_() {
        float left[480];
        float right[480];
        auto due = std::chrono::steady_clock::now();
        while (!mustEnd_) {
            session.GetStagePlayer().GetEngine().Render(left, right, 480);
            float peak = 0;
            for (const float sample : left)
                peak = std::max(peak, std::abs(sample));
            peak_ = peak;
            std::this_thread::sleep_until(due += 10ms);
        }
    }

    std::atomic<bool> mustEnd_{false};
    std::atomic<float> peak_{0};
    std::thread thread_;
};

bool WaitUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + test_support::Patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

class ShowWithPedal : public testing::Test {
protected:
    void SetUp() override {
        if (test_support::IsSanitized) GTEST_SKIP() << "Music in real time needs a build without a sanitizer.";
        const std::string obstacle = test_support::PrepareJackServer(server_);
        if (!obstacle.empty()) GTEST_SKIP() << obstacle;
        pedal_ = test_support::StartPeer("pedal");
        ASSERT_NE(pedal_, nullptr);
        tavo_midi::SetMidiSystemChoice(tavo_midi::MidiSystemChoice::Jack);
        tavo_midi::SetMidiPortListener(
            [this](const tavo_midi::MidiPortReport& report) { ports_.Add(report.sentence); });
        files_.WriteMusic("evening.showdata",
                          {test_support::MakeShowSong("1", 16), test_support::MakeShowSong("2", 16)});
        WriteSetting("midiCommandSettings",
                     R"({"source": "pedal:out", "showControl": true, "machineControl": true, "commands": [)"
                     R"({"command": "Play", "status": 144, "data1": 60},)"
                     R"({"command": "Pause", "status": 144, "data1": 61},)"
                     R"({"command": "Stop", "status": 144, "data1": 62},)"
                     R"({"command": "Continue", "status": 144, "data1": 63},)"
                     R"({"command": "Next Song", "status": 144, "data1": 64},)"
                     R"({"command": "Previous Song", "status": 144, "data1": 65},)"
                     R"({"command": "Next Marker", "status": 144, "data1": 66},)"
                     R"({"command": "Previous Marker", "status": 144, "data1": 67},)"
                     R"({"command": "Conduct Beat", "status": 144, "data1": 68}]})");
    }
    void TearDown() override {
        show_.reset();
        tavo_midi::SetMidiPortListener({});
        tavo_midi::SetMidiSystemChoice(tavo_midi::MidiSystemChoice::None);
    }

    void WriteSetting(const std::string& name, const std::string& text) const {
        std::ofstream(files_.Settings() + "/" + name) << text;
    }
    void OpenShow(unsigned int vampStart = VampStart) {
        vampStart_ = vampStart;
        files_.WriteLog("evening-1.3.logdata", {1, 3}, [vampStart](CL::ChangeLog& log) {
            log.GetSongLog("1").GetVamps().Add(CL::Vamp(vampStart, VampEnd));
            log.GetSongLog("1").GetMarkers().Add(CL::Marker(2 * TicksPerBar, "Verse"));
        });
        show_ = std::make_unique<RunningShow>(files_);
        ASSERT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" is connected."));
        show_->session.LoadSong("1");
    }
    /// Time code on to the receiver, which has had the first full frame.
    void OpenShowWithTimeCode(const std::string& onJump) {
        receiver_ = test_support::StartPeer("receiver");
        ASSERT_NE(receiver_, nullptr);
        WriteSetting("midiTimeCodeSettings",
                     R"({"active": true, "frameRate": "30", "output": "receiver:in", "onJump": ")" + onJump + "\"}");
        OpenShow();
        ASSERT_TRUE(ports_.WaitFor("The MIDI output \"receiver:in\" is connected."));
    }
    /// The next full frame, counted in frames.
    std::optional<long> NextFullFrame() {
        auto received = test_support::Receive(*receiver_);
        while (received && received->bytes.size() != 10)
            received = test_support::Receive(*receiver_);
        if (!received) return std::nullopt;
        const auto& bytes = received->bytes;
        return ((bytes[5] & 0x1FU) * 3600L + bytes[6] * 60L + bytes[7]) * 30 + bytes[8];
    }
    void Press(int note) const {
        char line[32];
        std::snprintf(line, sizeof line, "send 90 %02X 40", static_cast<unsigned int>(note));
        pedal_->Write(line);
    }
    void PlayIntoTheVamp() {
        Press(60);
        ASSERT_TRUE(WaitUntil([&] { return show_->GetPlayedFrames() > 2 * FramesPerSecond; }));
        ASSERT_LT(show_->GetPosition(), VampEnd);
    }
    /// Whether the music has gone on for another second and is still in the vamp.
    bool GoesRound() {
        const std::int64_t before = show_->GetPlayedFrames();
        return WaitUntil([&] { return show_->GetPlayedFrames() > before + FramesPerSecond; }) &&
               show_->GetPosition() >= vampStart_ && show_->GetPosition() < VampEnd;
    }

    test_support::ShowFiles files_;
    unsigned int vampStart_ = 0;
    std::unique_ptr<Child> server_;
    std::unique_ptr<Child> pedal_;
    std::unique_ptr<Child> receiver_;
    test_support::LogOfLines ports_;
    std::unique_ptr<RunningShow> show_;
};

TEST_F(ShowWithPedal, EveryCommand_ReachesThePlayer) {
    // The commands follow each other faster than feet could press.
    files_.WriteText("settings.json", R"({"pressGuardMs": 0})");
    OpenShow();
    stage::ShowSession& session = show_->session;
    Press(60);
    EXPECT_TRUE(WaitUntil([&] { return session.GetIsPlaying(); })) << "Play";
    Press(61);
    EXPECT_TRUE(WaitUntil([&] { return session.GetIsPaused(); })) << "Pause";
    Press(60);
    EXPECT_TRUE(WaitUntil([&] { return session.GetIsPlaying() && show_->GetPosition() > VampStart; })) << "Play";
    Press(63);
    EXPECT_TRUE(WaitUntil([&] { return show_->GetPosition() > VampEnd; })) << "Continue";
    Press(66);
    EXPECT_TRUE(WaitUntil([&] { return show_->GetPosition() >= 2 * TicksPerBar; })) << "Next Marker";
    Press(67);
    EXPECT_TRUE(WaitUntil([&] { return show_->GetPosition() < 2 * TicksPerBar; })) << "Previous Marker";
    Press(64);
    EXPECT_TRUE(WaitUntil([&] { return session.GetCurrentSongNumber() == "2"; })) << "Next Song";
    Press(65);
    EXPECT_TRUE(WaitUntil([&] { return session.GetCurrentSongNumber() == "1"; })) << "Previous Song";
    Press(60);
    EXPECT_TRUE(WaitUntil([&] { return session.GetIsPlaying(); })) << "Play";
    Press(62);
    EXPECT_TRUE(WaitUntil([&] { return session.GetIsStopped(); })) << "Stop";
    std::atomic<bool> hasBeat{false};
    notify::callbackDispatcher.AddCallback(&hasBeat, midi_commands::names::conductBeat, [&](void*) { hasBeat = true; });
    Press(68);
    EXPECT_TRUE(WaitUntil([&] { return hasBeat.load(); })) << "Conduct Beat";
    notify::callbackDispatcher.RemoveCallbacksForTarget(&hasBeat);
}

TEST_F(ShowWithPedal, LearnedInTheMiddleOfAVamp_ThePedalLeavesIt) {
    OpenShow();
    PlayIntoTheVamp();
    show_->session.LearnMidiCommand(midi_commands::Continue);
    pedal_->Write("send B0 40 7F");
    ASSERT_TRUE(WaitUntil([&] { return !show_->session.IsMidiCommandLearning(midi_commands::Continue); }));
    EXPECT_TRUE(GoesRound());
    show_->session.SetMidiCommand(midi_commands::Continue, 0xB0, 0x40, 0x7F);
    pedal_->Write("send B0 40 7F");
    EXPECT_TRUE(WaitUntil([&] { return show_->GetPosition() > VampEnd; }));
}

TEST_F(ShowWithPedal, PedalUnpluggedInTheMiddleOfAVamp_TheVampGoesRoundAndThePedalComesBack) {
    OpenShow();
    PlayIntoTheVamp();
    pedal_.reset();
    EXPECT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" was lost; it will reconnect when it returns."));
    EXPECT_TRUE(GoesRound());
    pedal_ = test_support::StartPeer("pedal");
    EXPECT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" is back."));
    Press(63);
    EXPECT_TRUE(WaitUntil([&] { return show_->GetPosition() > VampEnd; }));
}

TEST_F(ShowWithPedal, ServerKilledInTheMiddleOfAVamp_TheVampGoesRoundAndNoNoteIsLeft) {
    // The song's note, which is as long as the song, begins with each pass.
    OpenShow(0);
    PlayIntoTheVamp();
    server_->End(SIGKILL);
    EXPECT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" was lost; it will reconnect when it returns."));
    EXPECT_TRUE(GoesRound());
    EXPECT_FALSE(show_->IsSilent());
    pedal_.reset();
    server_ = test_support::StartJackServer();
    ASSERT_NE(server_, nullptr);
    pedal_ = test_support::StartPeer("pedal");
    ASSERT_NE(pedal_, nullptr);
    EXPECT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" is back."));
    EXPECT_TRUE(GoesRound());
    Press(63);
    EXPECT_TRUE(WaitUntil([&] { return show_->GetPosition() > VampEnd; }));
    Press(62);
    EXPECT_TRUE(WaitUntil([&] { return show_->session.GetIsStopped(); }));
    EXPECT_TRUE(WaitUntil([&] { return show_->IsSilent(); })) << "a note hangs";
}

TEST_F(ShowWithPedal, ServerStandsStillInTheMiddleOfAVamp_TheVampGoesRoundAndThePedalComesBack) {
    OpenShow();
    PlayIntoTheVamp();
    server_->Signal(SIGSTOP);
    EXPECT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" was lost; it will reconnect when it returns."));
    EXPECT_TRUE(GoesRound());
    EXPECT_FALSE(show_->session.HasMidiSource());
    server_->Signal(SIGCONT);
    EXPECT_TRUE(ports_.WaitFor("The MIDI input \"pedal:out\" is back."));
    Press(63);
    EXPECT_TRUE(WaitUntil([&] { return show_->GetPosition() > VampEnd; }));
}

TEST_F(ShowWithPedal, ShowControlAndMachineControl_LoadSongsAndLocate) {
    OpenShow();
    pedal_->Write("send F0 7F 00 02 7F 05 32 F7");
    EXPECT_TRUE(WaitUntil([&] { return show_->session.GetCurrentSongNumber() == "2"; })) << "LOAD 2";
    pedal_->Write("send F0 7F 00 02 7F 01 31 F7");
    EXPECT_TRUE(WaitUntil([&] { return show_->session.GetCurrentSongNumber() == "1"; })) << "GO 1";
    EXPECT_TRUE(WaitUntil([&] { return show_->session.GetIsPlaying(); })) << "GO 1";
    // There is no song 9; the time is beyond every song.
    pedal_->Write("send F0 7F 00 02 7F 01 39 F7");
    pedal_->Write("send F0 7F 00 06 44 06 01 77 00 00 00 00 F7");
    // 20.5 s at 30 frames a second.
    pedal_->Write("send F0 7F 00 06 44 06 01 60 00 14 0F 00 F7");
    EXPECT_TRUE(WaitUntil([&] { return show_->GetPosition() >= 41 * TicksPerSecond / 2; }));
    EXPECT_LT(show_->GetPosition(), 23 * TicksPerSecond);
    EXPECT_TRUE(show_->session.GetIsPlaying());
    EXPECT_EQ(show_->session.GetCurrentSongNumber(), "1");
}

TEST_F(ShowWithPedal, TwoHundredJumps_TheNextFullFrameIsWhereThePlayerIs) {
    OpenShowWithTimeCode("locate");
    show_->session.LoadSong("2");
    show_->session.Play();
    // Playback has begun: a seek before that is both where it is put and its first jump.
    while (show_->session.GetElapsedTime() == 0)
        std::this_thread::yield();
    std::optional<long> frame;
    unsigned int seed = 1;
    for (int jump = 0; jump < 200; ++jump) {
        seed = seed * 1103515245U + 12345U;
        const unsigned int tick = seed / 65536U % (15 * TicksPerBar);
        // No two that are taken for one.
        const long expected = static_cast<long>(tick) * 30 / TicksPerSecond;
        const auto asked = std::chrono::steady_clock::now();
        show_->session.Seek(tick);
        long longest = 1;
        do {
            frame = NextFullFrame();
            ASSERT_TRUE(frame) << "jump " << jump << " to tick " << tick;
            // The player goes on while a busy machine has the message wait.
            const std::chrono::duration<double> took = std::chrono::steady_clock::now() - asked;
            longest = 1 + static_cast<long>(took.count() * 30);
        } while (jump == 0 && (*frame < expected - 1 || *frame > expected + longest));
        ASSERT_GE(*frame, expected - 1) << "jump " << jump;
        ASSERT_LE(*frame, expected + longest) << "jump " << jump;
    }
}

TEST_F(ShowWithPedal, VampWithTimeCodeThatLocates_EachPassBeginsAtTheVampsTime) {
    OpenShowWithTimeCode("locate");
    PlayIntoTheVamp();
    // What came before: the port opened, the song loaded, playback begun.
    std::optional<long> frame = NextFullFrame();
    while (frame && *frame == 0)
        frame = NextFullFrame();
    for (int pass = 0; pass < 3; ++pass) {
        ASSERT_TRUE(frame);
        EXPECT_NEAR(static_cast<double>(*frame), 15, 1) << "pass " << pass;
        frame = NextFullFrame();
    }
}

TEST_F(ShowWithPedal, VampWithTimeCodeThatRunsOn_NoBreakForThreePasses) {
    OpenShowWithTimeCode("runOn");
    PlayIntoTheVamp();
    auto received = test_support::Receive(*receiver_);
    while (received && received->bytes != std::vector<unsigned int>{0xF1, 0x00})
        received = test_support::Receive(*receiver_);
    ASSERT_TRUE(received) << "no quarter frame";
    for (int piece = 1; piece < 8; ++piece)
        ASSERT_TRUE(test_support::Receive(*receiver_));
    std::vector<std::uint32_t> stamps;
    auto address = test_support::ReadAddress(*receiver_, stamps);
    ASSERT_TRUE(address);
    for (int pair = 0; pair < 45; ++pair) {
        const auto next = test_support::ReadAddress(*receiver_, stamps);
        ASSERT_TRUE(next);
        ASSERT_EQ(*next, test_support::TwoFramesOn(*address)) << "pair " << pair;
        address = next;
    }
    EXPECT_GT(address->seconds, 2U) << "beyond the vamp's end, which the music has not left";
}

}  // namespace
