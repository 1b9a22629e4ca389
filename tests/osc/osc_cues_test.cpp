// Cues on their way out: each when it is heard, whatever becomes of the others.

#include "stage/osc/osc_cues.h"

#include <gtest/gtest.h>

#include "stage/osc/stream_framing.h"
#include "stage/show/cue_check.h"
#include "stage/show/midi_cue.h"
#include "tests/live/live_program.h"
#include "tests/midi_ports/pedal.h"
#include "tests/osc/osc_client.h"
#include "tests/stage/small_show.h"

namespace {

using namespace std::chrono_literals;
using stage::OscCues;
using stage::Settings;
using std::chrono::steady_clock;
using test_support::AsLine;
using test_support::Child;
using test_support::LiveProgram;
using test_support::OscSocket;
using Json = nlohmann::json;

Settings::OscTarget MakeTarget(const std::string& name, std::uint16_t port,
                               Settings::Transport transport = Settings::Transport::Udp) {
    Settings::OscTarget target;
    target.name = name;
    target.port = port;
    target.transport = transport;
    return target;
}

stage::Cue MakeCue(const std::string& target, const std::string& address, std::vector<CL::OscArgument> arguments = {}) {
    stage::Cue cue{};
    cue.edit = CL::Osc(0, target, address, std::move(arguments));
    return cue;
}

/// Takes one connection and what comes over it.
class StreamReceiver {
public:
    StreamReceiver() {
        const auto here = *stage::ReadNumericAddress("127.0.0.1", 0);
        listener_ = stage::OpenSocket(here, SOCK_STREAM);
        stage::Bind(listener_, here, SOCK_STREAM);
    }
    [[nodiscard]] std::uint16_t GetPort() const { return stage::GetOwnAddress(listener_).GetPort(); }
    /// Ends the connection; another one may come.
    void Close() { connection_ = stage::Socket(); }
    /// "/a 1"; empty after 20 seconds.
    std::string Receive() {
        const auto end = steady_clock::now() + 20s;
        std::vector<char> bytes(4096);
        for (;;) {
            if (const auto packet = reader_.Next()) return AsLine(stage::ReadOscPacket(*packet).front());
            const int waited = connection_.IsOpen() ? connection_.Get() : listener_.Get();
            pollfd polled{waited, POLLIN, 0};
            if (steady_clock::now() > end || ::poll(&polled, 1, 20000) <= 0) return "";
            if (!connection_.IsOpen()) {
                connection_ = stage::Socket(::accept(listener_.Get(), nullptr, nullptr));
                continue;
            }
            const ssize_t size = ::recv(connection_.Get(), bytes.data(), bytes.size(), 0);
            if (size <= 0) return "";
            reader_.Take(std::span(bytes).first(static_cast<std::size_t>(size)));
        }
    }

private:
    stage::Socket listener_;
    stage::Socket connection_;
    stage::StreamReader reader_;
};

/// Waits until the state of a target is as it should be.
template <class Condition>
bool WaitForState(const OscCues& cues, std::size_t target, Condition condition) {
    const auto end = steady_clock::now() + 20s;
    while (!condition(cues.GetState().at(target))) {
        if (steady_clock::now() > end) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

TEST(OscCues, LeaveWhenTheyAreHeardAndInOrder) {
    const OscSocket lights;
    OscCues cues({MakeTarget("lights", lights.GetPort())});
    const auto heard = steady_clock::now() + 80ms;
    for (int i = 0; i < 50; ++i)
        cues.Take(MakeCue(i % 2 == 0 ? "" : "lights", "/cue", {i, 0.5F, std::string("go")}),
                  (heard + std::chrono::milliseconds(i)).time_since_epoch());
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ("/cue " + std::to_string(i) + " 0.5 go", AsLine(lights.Receive()));
        EXPECT_GE(steady_clock::now(), heard + std::chrono::milliseconds(i)) << "cue " << i << " came too early";
    }
    cues.Take(MakeCue("", "/now"), std::nullopt);
    EXPECT_EQ("/now", AsLine(lights.Receive()));
    stage::Cue effect{};
    effect.edit = CL::Sfx();
    cues.Take(effect, std::nullopt);
    cues.Take(MakeCue("nobody", "/lost"), std::nullopt);
    cues.Take(MakeCue("", "/last"), std::nullopt);
    EXPECT_EQ("/last", AsLine(lights.Receive()));
    EXPECT_TRUE(WaitForState(cues, 0, [](const auto& state) { return state.sent == 52 && state.lost == 0; }));
}

TEST(OscCues, TargetsThatCannotBeReached_DelayNoOtherAndAreReported) {
    const OscSocket lights;
    std::uint16_t closed = 0;
    {
        const StreamReceiver gone;
        closed = gone.GetPort();
    }
    Settings::OscTarget silent = MakeTarget("silent", 9, Settings::Transport::Tcp);
    silent.host = "192.0.2.77";
    Settings::OscTarget unknown = MakeTarget("unknown", 9);
    unknown.host = "no-such-machine.invalid";
    OscCues cues({silent, unknown, MakeTarget("closed", closed, Settings::Transport::Tcp),
                  MakeTarget("lights", lights.GetPort())});
    const auto begin = steady_clock::now();
    for (int i = 0; i < 20; ++i)
        for (const char* target : {"silent", "unknown", "closed", "lights"})
            cues.Take(MakeCue(target, "/cue", {i}), std::nullopt);
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ("/cue " + std::to_string(i), AsLine(lights.Receive()));
    EXPECT_LT(steady_clock::now() - begin, 900ms) << "no second is waited for the others";
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_TRUE(WaitForState(cues, i, [](const auto& state) { return state.lost == 20 && state.sent == 0; })) << i;
    EXPECT_TRUE(WaitForState(
        cues, 2, [](const auto& state) { return state.problem == "it cannot be reached: Connection refused"; }));
    std::string reports;
    for (const std::string& report : cues.TakeReports())
        reports += report + "\n";
    EXPECT_NE(std::string::npos, reports.find("The OSC target \"closed\" (tcp 127.0.0.1:" + std::to_string(closed) +
                                              ") gets no cues: it cannot be reached: Connection refused.\n"))
        << reports;
}

TEST(OscCues, StreamThatIsLost_IsOpenedAgainAndSaysSo) {
    StreamReceiver sound;
    OscCues cues({MakeTarget("sound", sound.GetPort(), Settings::Transport::Tcp)});
    cues.Take(MakeCue("", "/one"), std::nullopt);
    EXPECT_EQ("/one", sound.Receive());
    sound.Close();
    ASSERT_TRUE(WaitForState(cues, 0, [](const auto& state) { return !state.problem.empty(); }));
    EXPECT_EQ("it cannot be reached: it has closed the connection", cues.GetState()[0].problem);
    ASSERT_TRUE(WaitForState(cues, 0, [](const auto& state) { return state.problem.empty(); }));
    cues.Take(MakeCue("", "/two"), std::nullopt);
    EXPECT_EQ("/two", sound.Receive());
    const std::vector<std::string> reports = cues.TakeReports();
    ASSERT_EQ(2U, reports.size());
    EXPECT_TRUE(reports[1].ends_with(" is reached again.")) << reports[1];
}

TEST(OscCues, WithTimeTags_LeaveAtOnceInOneBundleForEachMoment) {
    const OscSocket lights;
    Settings::OscTarget target = MakeTarget("lights", lights.GetPort());
    target.timeTags = true;
    OscCues cues({target});
    const auto heard = steady_clock::now() + 30s;
    const auto onTheWall = std::chrono::system_clock::now() + 30s;
    cues.Take(MakeCue("", "/warm"), steady_clock::now().time_since_epoch());
    ASSERT_TRUE(lights.ReceivePacket());
    cues.Take(MakeCue("", "/a", {1}), heard.time_since_epoch());
    cues.Take(MakeCue("", "/b", {2}), heard.time_since_epoch());
    std::vector<std::string> lines;
    while (lines.size() < 2) {
        const auto packet = lights.ReceivePacket();
        ASSERT_TRUE(packet);
        ASSERT_EQ(std::string_view("#bundle"), packet->data());
        std::uint64_t seconds = 0;
        for (int i = 8; i < 12; ++i)
            seconds = seconds << 8U | static_cast<unsigned char>((*packet)[static_cast<std::size_t>(i)]);
        const auto expected = std::chrono::duration_cast<std::chrono::seconds>(onTheWall.time_since_epoch()).count();
        EXPECT_NEAR(static_cast<double>(expected), static_cast<double>(seconds) - 2208988800.0, 2.0);
        for (const stage::OscMessage& message : stage::ReadOscPacket(*packet))
            lines.push_back(AsLine(message));
    }
    EXPECT_EQ((std::vector<std::string>{"/a 1", "/b 2"}), lines);
    EXPECT_LT(steady_clock::now(), heard);
}

std::string MidiBytes(const CL::Osc& edit) {
    try {
        std::string text;
        for (const unsigned char byte : stage::MakeMidiCue(edit)) {
            char hex[4];
            std::snprintf(hex, sizeof hex, "%02X ", byte);
            text += hex;
        }
        text.pop_back();
        return text;
    } catch (const std::invalid_argument& problem) {
        return problem.what();
    }
}

TEST(MidiCue, EditMeansAMessage_OrIsRefusedInASentence) {
    using A = std::vector<CL::OscArgument>;
    const auto make = [](const char* address, A arguments) {
        return MidiBytes(CL::Osc(0, "desk", address, std::move(arguments)));
    };
    EXPECT_EQ("C0 05", make("/midi/program", {1, 5}));
    EXPECT_EQ("CF 7F", make("/midi/program", {16, 127.0F}));
    EXPECT_EQ("B9 07 64", make("/midi/control", {10, 7, 100}));
    EXPECT_EQ("F0 7F 7F 02 01 01 F7", make("/midi/show-control", {std::string("go"), 127, std::string("lighting")}));
    EXPECT_EQ("F0 7F 05 02 10 01 31 32 2E 35 00 33 00 31 F7",
              make("/midi/show-control", {std::string("go"), 5, std::string("sound"), std::string("12.5"), 3, 1}));
    EXPECT_EQ("F0 7F 05 02 7F 08 F7", make("/midi/show-control", {std::string("all-off"), 5, std::string("all")}));
    EXPECT_EQ("the channel must be a whole number from 1 to 16", make("/midi/program", {0, 5}));
    EXPECT_EQ("the program must be a whole number from 0 to 127", make("/midi/program", {1, 128}));
    EXPECT_EQ("the program must be a whole number from 0 to 127", make("/midi/program", {1, std::string("5")}));
    EXPECT_EQ("its arguments must be the channel and the program", make("/midi/program", {1}));
    EXPECT_EQ("its arguments must be the channel, the controller and its value", make("/midi/control", {1, 2}));
    EXPECT_EQ("\"/midi/note\" is none of /midi/program, /midi/control and /midi/show-control",
              make("/midi/note", {1, 60}));
    EXPECT_EQ("the show control command \"reset\" takes no cue",
              make("/midi/show-control", {std::string("reset"), 5, std::string("all"), 1}));
    EXPECT_EQ("the cue must be digits and dots, 32 at most",
              make("/midi/show-control", {std::string("go"), 5, std::string("all"), std::string("12a")}));
    EXPECT_EQ(
        "the kind of device \"horns\" is none of lighting, moving-lights, sound, machinery, video, projection, "
        "process-control, pyrotechnics, all",
        make("/midi/show-control", {std::string("go"), 5, std::string("horns")}));
}

class CuePlay : public test_support::SmallShow {
protected:
    void WriteTargets(const Json& targets) const {
        test_support::WriteAll(Show() + "/settings.json", Json{{"oscTargets", targets}}.dump());
    }
    void AddCue(const std::string& rest) const {
        const auto result = Edit("add osc --song 1 " + rest);
        EXPECT_EQ(0, result.exitCode) << result.err;
    }
};

TEST_F(CuePlay, CuesOfAShow_LeaveInEveryPassAndNotWhereACutOrASeekLeavesThemOut) {
    const OscSocket lights;
    StreamReceiver sound;
    std::uint16_t closed = 0;
    {
        const StreamReceiver gone;
        closed = gone.GetPort();
    }
    WriteTargets({{{"name", "lights"}, {"port", lights.GetPort()}},
                  {{"name", "sound"}, {"port", sound.GetPort()}, {"transport", "tcp"}},
                  {{"name", "dead"}, {"port", closed}, {"transport", "tcp"}}});
    ASSERT_EQ(0, Edit("add vamp --song 1 --from 2 --to 2").exitCode);
    ASSERT_EQ(0, Edit("add cut --song 1 --from 4 --to 4").exitCode);
    AddCue("--at 1 --address /first --arg i:1");
    AddCue("--at 2 --address /vamp --arg s:round");
    AddCue("--at 2 --address /vamp --target sound");
    AddCue("--at 2:3 --address /dead --target dead");
    AddCue("--at 3 --address /after");
    AddCue("--at 4 --address /cut");
    AddCue("--at 5 --address /one");
    AddCue("--at 5 --address /two --arg f:0.5");
    AddCue("--at 6 --address /skipped");
    AddCue("--at 8 --address /sought --target sound");
    LiveProgram play({Show(), "--output", "null", "--no-take"});
    play.WaitFor("song", {{"song", "1"}});
    play.Press("tempo 200%");
    play.Press("play");
    EXPECT_EQ("/first 1", AsLine(lights.Receive()));
    for (int pass = 1; pass <= 3; ++pass) {
        EXPECT_EQ("/vamp round", AsLine(lights.Receive()));
        EXPECT_EQ("/vamp", sound.Receive());
    }
    play.Press("exit");
    int jumps = 2;
    stage::OscMessage next = lights.Receive();
    for (; AsLine(next) == "/vamp round"; next = lights.Receive())
        ++jumps;
    EXPECT_EQ("/after", AsLine(next));
    for (int i = 0; i < jumps; ++i)
        play.WaitFor("jump", {{"reason", "loop"}});
    EXPECT_EQ("/one", AsLine(lights.Receive()));
    EXPECT_EQ("/two 0.5", AsLine(lights.Receive()));
    play.Press("seek 7");
    play.WaitFor("jump", {{"reason", "seek"}});
    std::string heard = sound.Receive();
    for (; heard == "/vamp"; heard = sound.Receive())
        --jumps;
    EXPECT_EQ(2, jumps) << "the other target had as many";
    EXPECT_EQ("/sought", heard);
    EXPECT_TRUE(lights.Receive(0ms).address.empty()) << "what was cut or skipped is not sent";
    const Json status = play.Status();
    EXPECT_EQ("it cannot be reached: Connection refused", status["oscTargets"][2]["problem"]);
    EXPECT_EQ("", status["oscTargets"][0]["problem"]);
    EXPECT_EQ("playing", status["motion"]);
    // What a cue costs would be there in each of its passes; a stall of the machine makes one block slow or two.
    EXPECT_LE(status["slowBlocks"], 2);
    play.Quit();
}

TEST_F(CuePlay, MidiCues_ReachThePortWhenTheyAreHeard) {
    std::unique_ptr<Child> server;
    const std::string obstacle = test_support::PrepareJackServer(server);
    if (!obstacle.empty()) GTEST_SKIP() << obstacle;
    const auto desk = test_support::StartPeer("desk");
    ASSERT_NE(nullptr, desk);
    WriteTargets({{{"name", "desk"}, {"transport", "midi"}, {"midiPort", "desk:in"}},
                  {{"name", "gone"}, {"transport", "midi"}, {"midiPort", "gone:in"}}});
    AddCue("--at 1:2 --address /midi/program --arg i:2 --arg i:17 --target desk");
    AddCue("--at 1:3 --address /midi/program --arg i:2 --arg i:18 --target gone");
    AddCue("--at 1:4 --address /midi/show-control --arg s:go --arg i:127 --arg s:lighting --arg s:12.5");
    const auto wrong = Edit("add osc --song 1 --at 3 --address /midi/note --target desk");
    EXPECT_NE(std::string::npos, (wrong.out + wrong.err).find("the message at 3 is not a MIDI message")) << wrong.err;
    LiveProgram play({Show(), "--output", "null", "--no-take"});
    play.WaitFor("song", {{"song", "1"}});
    play.Press("play");
    for (const char* bytes : {"C1 11", "F0 7F 7F 02 01 01 31 32 2E 35 F7"}) {
        const auto line = desk->NextLine(20s);
        ASSERT_TRUE(line);
        EXPECT_TRUE(line->ends_with(bytes)) << *line;
    }
    // Another message may say that the device was late.
    const std::string wanted = "The OSC target \"gone\" (MIDI port \"gone:in\") gets no cues: ";
    Json message;
    do
        message = play.WaitFor("message");
    while (!message.is_null() && !message["sentence"].get<std::string>().starts_with(wanted));
    EXPECT_FALSE(message.is_null());
    play.Quit();
}

}  // namespace
