// A show that is performed, driven and watched over OSC by programs of others.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "tests/live/live_program.h"
#include "tests/midi_ports/pedal.h"
#include "tests/osc/osc_client.h"
#include "tests/stage/small_show.h"

namespace {

using test_support::AsLine;
using test_support::Child;
using test_support::LiveProgram;
using test_support::OscClient;
using test_support::OscSocket;
using testing::Each;
using Json = nlohmann::json;

class OscPlay : public test_support::SmallShow {
protected:
    [[nodiscard]] std::vector<std::string> Words(const std::string& osc = "0") const {
        return {Show(), "--output", "null", "--no-take", "--osc", osc};
    }
    /// The port that the program has chosen.
    static std::uint16_t PortOf(LiveProgram& play) {
        const std::string address = play.Status()["osc"]["address"];
        return static_cast<std::uint16_t>(std::stoi(address.substr(address.rfind(':') + 1)));
    }
    /// Nothing was too late because of something that we did.
    static void ExpectUntouched(LiveProgram& play) {
        const Json status = play.Status();
        EXPECT_EQ("playing", status["motion"]);
        // A flood that reached the rendering would be there in hundreds of blocks; a stall of the machine makes one
        // slow or two. Without real-time rights any program may hold a thread up.
        EXPECT_LE(status["slowBlocks"], 2);
        if (status["realTime"]) {
            EXPECT_LE(status["heldUpBlocks"], 2);
        }
        // On a machine that others keep busy a device is late by itself.
        testing::Test::RecordProperty("latePeriods", status["latePeriods"].dump());
    }
};

class OscPlayOver : public OscPlay, public testing::WithParamInterface<const char*> {};

TEST_P(OscPlayOver, Client_DrivesTheShowAndSeesWhatItDoes) {
    LiveProgram play(Words());
    play.WaitFor("song", {{"song", "1"}});
    OscClient client(GetParam(), PortOf(play));
    client.Send({"/tavo/subscribe", 20});
    client.WaitFor("/tavo/reply", {"/tavo/subscribe"});
    EXPECT_EQ("Evening", client.WaitFor("/tavo/display/show")[1]);
    client.WaitFor("/tavo/display/song", {"1", "First"});

    client.Send({"/tavo/load", "2"});
    EXPECT_EQ("load 2", client.WaitFor("/tavo/reply", {"/tavo/load"})[2]);
    client.WaitFor("/tavo/display/song", {"2", "Second"});
    client.Send({"/go", 1.0});
    client.WaitFor("/tavo/display/motion", {"playing"});
    client.WaitFor("/tavo/display/place", {"1", "2"});
    client.Send({"/tavo/tempo", 0.5});
    client.WaitFor("/tavo/display/tempo", {60.0, 0.5, "50%"});
    client.Send({"/tavo/seek", "5:1"});
    EXPECT_EQ("seek tick 7680", client.WaitFor("/tavo/reply", {"/tavo/seek"})[2]);
    client.WaitFor("/tavo/display/place", {"5"});
    client.Send({"/tavo/volume", 0.25, "music"});
    client.WaitFor("/tavo/display/volumes", {"master", 1.0, "music", 0.25});
    client.Send({"/tavo/edit", "add vamp 6 7"});
    EXPECT_EQ("edit add vamp 6 7", client.WaitFor("/tavo/reply", {"/tavo/edit"})[2]);
    client.Send({"/tavo/edit", "add vamp"});
    EXPECT_NE("", client.WaitFor("/tavo/error", {"/tavo/edit"})[2]);
    client.Send({"/stop"});
    client.WaitFor("/tavo/display/motion", {"stopped"});
    client.Send({"/tavo/seek", 99});
    EXPECT_NE(std::string::npos,
              client.WaitFor("/tavo/error", {"/tavo/seek"})[2].get<std::string>().find("in song 2, "));
    // What was pressed is what the desk has logged.
    const Json press = play.WaitFor("press", {{"press", "load 2"}});
    EXPECT_EQ("OSC", press["door"]);
    EXPECT_TRUE(press["source"].get<std::string>().starts_with(GetParam() == std::string("udp") ? "udp 127.0.0.1:"
                                                                                                : "tcp 127.0.0.1:"))
        << press;
    play.WaitFor("press", {{"press", "stop"}, {"outcome", "taken"}});
    play.Quit();
}

INSTANTIATE_TEST_SUITE_P(Every, OscPlayOver, testing::Values("udp", "tcp", "slip"),
                         [](const auto& which) { return std::string(which.param); });

TEST_F(OscPlay, OscsendPresses_AndOscdumpShowsWhatHappens) {
    LiveProgram play(Words());
    play.WaitFor("song", {{"song", "1"}});
    const std::string port = std::to_string(PortOf(play));
    std::string dumpPort;
    {
        const OscSocket free;
        dumpPort = std::to_string(free.GetPort());
    }
    Child dump({"stdbuf", "-oL", "oscdump", "-L", dumpPort});
    dump.CollectLines();
    const auto send = [&](const std::string& url, std::vector<std::string> words) {
        words.insert(words.begin(), {"/usr/bin/oscsend", url});
        EXPECT_EQ(0, test_support::RunProgram(words).exitCode);
    };
    const auto waitFor = [&](const std::string& wanted) {
        std::string seen;
        while (const auto line = dump.NextLine(std::chrono::seconds(20))) {
            if (line->find(wanted) != std::string::npos) return true;
            seen += *line + "\n";
        }
        ADD_FAILURE() << wanted << " was not dumped, but:\n" << seen;
        return false;
    };
    // It prints nothing before it listens, and what is sent before is lost.
    do {
        send("osc.udp://127.0.0.1:" + port, {"/tavo/subscribe", "ii", "20", dumpPort});
    } while (!dump.NextLine(std::chrono::milliseconds(500)));
    send("osc.udp://127.0.0.1:" + port, {"/go"});
    waitFor("/tavo/press sssss \"go\" \"OSC\"");
    waitFor("/tavo/display/motion s \"playing\"");
    send("osc.tcp://127.0.0.1:" + port, {"/tavo/tempo", "f", "0.75"});
    waitFor("/tavo/press sssss \"tempo 75%\" \"OSC\"");
    send("osc.tcp://127.0.0.1:" + port, {"/pause"});
    waitFor("/tavo/display/motion s \"paused\"");
    dump.End(SIGINT);
    play.Quit();
}

TEST_F(OscPlay, MalformedPacketsHugeOnesAndFloods_LeavePlaybackUntouched) {
    LiveProgram play(Words());
    play.WaitFor("song", {{"song", "1"}});
    const std::uint16_t port = PortOf(play);
    play.Press("play");
    play.WaitFor("bar", {{"bar", "1"}});
    OscClient stream("tcp", port);
    std::int64_t expected = 0;
    std::int64_t refused = 0;
    const auto countRefusals = [&](std::int64_t atLeast) {
        while (refused < atLeast) {
            const Json error = stream.WaitFor("/tavo/error");
            ASSERT_EQ(4U, error.size());
            EXPECT_NE("", error[2]);
            refused += error[3].get<std::int64_t>();
        }
    };
    stream.Do({{"malformed", 10000}, {"seed", 11}});
    expected += 10000;
    countRefusals(expected);
    EXPECT_EQ(expected, refused);
    // Wrong types, one after the other so that none comes too fast.
    for (const Json& message : {Json{"/tavo/tempo", "quick"}, Json{"/tavo/seek", true}, Json{"/tavo/go", "now"},
                                Json{"/tavo/nothing", 1}, Json{"/tavo/load", 99}, Json{"/tavo/fade", -1.0}}) {
        stream.Send(message);
        countRefusals(++expected);
    }
    // As large as a datagram can be, and a text of that length.
    OscClient datagrams("udp", port);
    datagrams.Do({{"raw", std::string(2 * std::size_t{65504}, '1')}});
    datagrams.WaitFor("/tavo/error", {"", "the packet is not OSC: its address does not end"});
    datagrams.Send({"/tavo/edit", std::string(65000, 'x')});
    datagrams.WaitFor("/tavo/error", {"/tavo/edit"});
    datagrams.Do({{"malformed", 10000}, {"seed", 12}});
    datagrams.WaitFor("done", {10000});
    datagrams.WaitFor("/tavo/error", {""});
    // Presses that would each do something.
    datagrams.Do({{"flood", 20000}, {"send", {"/tavo/tempo", 1.0}}});
    stream.Do({{"flood", 20000}, {"send", {"/tavo/tempo", 1.0}}});
    std::int64_t answered = 0;
    while (answered < 20000) {
        const Json message = stream.Next();
        ASSERT_NE("nothing", message[0]);
        if (message[0] == "/tavo/reply") ++answered;
        if (message[0] == "/tavo/error") answered += message[3].get<std::int64_t>();
    }
    EXPECT_EQ(20000, answered);
    datagrams.WaitFor("/tavo/error", {"/tavo/tempo"});
    const std::int64_t before = play.Status()["tick"];
    play.WaitFor("bar");
    EXPECT_GT(play.Status()["tick"], before);
    ExpectUntouched(play);
    EXPECT_GT(play.Status()["osc"]["refused"], 30000);
    OscClient after("udp", port);
    after.Send({"/pause"});
    after.WaitFor("/tavo/reply", {"/pause", "pause"});
    play.Quit();
}

/// Reads what comes to many sockets as it comes: the system keeps little of what nobody reads.
class StatusReader {
public:
    explicit StatusReader(const std::vector<OscSocket>& sockets)
        : sockets_(sockets), seen_(sockets.size()), thread_([this](const std::stop_token& stop) { Read_(stop); }) {}

    /// The first `count` that each of them has seen; fewer after a minute.
    std::vector<std::vector<std::string>> WaitFor(std::size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, std::chrono::minutes(1), [&] {
            return std::all_of(seen_.begin(), seen_.end(), [&](const auto& seen) { return seen.size() >= count; });
        });
        std::vector<std::vector<std::string>> first = seen_;
        for (auto& seen : first)
            seen.resize(std::min(seen.size(), count));
        return first;
    }

private:
    void Read_(const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            // All of them are sent the same at the same time.
            auto patience = std::chrono::milliseconds(20);
            for (std::size_t i = 0; i < sockets_.size(); ++i, patience = {})
                while (const auto packet = sockets_[i].ReceivePacket(patience))
                    Take_(seen_[i], stage::ReadOscPacket(*packet).front());
        }
    }
    void Take_(std::vector<std::string>& seen, const stage::OscMessage& message) {
        if (message.address != "/tavo/display/status") return;
        std::string line = AsLine(message).substr(message.address.size() + 1);
        if (seen.empty() && line == " 0") return;
        {
            const std::lock_guard lock(mutex_);
            seen.push_back(std::move(line));
        }
        changed_.notify_all();
    }

    const std::vector<OscSocket>& sockets_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::vector<std::string>> seen_;  // changed under mutex_
    std::jthread thread_;
};

TEST_F(OscPlay, SixtyFourPrograms_EachSeeEveryStatus) {
    ASSERT_EQ(0, Edit("add repeat --song 2 --from 1 --to 1 --times 4").exitCode);
    std::vector<std::string> words = Words();
    words.insert(words.end(), {"--song", "2"});
    LiveProgram play(words);
    play.WaitFor("song", {{"song", "2"}});
    const std::uint16_t port = PortOf(play);
    const std::vector<OscSocket> sockets(64);
    for (const OscSocket& socket : sockets)
        socket.Send(port, {"/tavo/subscribe", {std::int64_t{10000}}});
    for (const OscSocket& socket : sockets)
        EXPECT_EQ("/tavo/display/volumes", socket.WaitFor("/tavo/display/volumes").address);
    EXPECT_EQ(64, play.Status()["osc"]["subscribers"]);
    StatusReader reader(sockets);
    play.Press("tempo 200%");
    play.Press("play");
    // What the program itself has told, until the repeat is over.
    std::vector<std::string> told;
    do {
        const Json status = play.WaitFor("status");
        ASSERT_FALSE(status.is_null());
        told.push_back(status["status"].get<std::string>() + " " + std::to_string(status["count"].get<int>()));
    } while (told.back().starts_with("Repeat") || told.size() < 3);
    EXPECT_EQ(5U, told.size());
    ExpectUntouched(play);
    EXPECT_THAT(reader.WaitFor(told.size()), Each(told));
    play.Quit();
}

TEST_F(OscPlay, PortThatIsTaken_IsASentenceAndTheShowGoesOn) {
    LiveProgram first(Words());
    first.WaitFor("song");
    const std::string address = first.Status()["osc"]["address"];
    LiveProgram second(Words(address));
    const std::string sentence = "OSC is not taken: " + address + " cannot be listened on: Address already in use.";
    second.WaitFor("message", {{"sentence", sentence}});
    EXPECT_EQ(sentence, second.Status()["osc"]["problem"].get<std::string>());
    second.Press("play");
    second.WaitFor("bar");
    second.Quit();
    first.Quit();
}

TEST_F(OscPlay, OscOff_ListensNowhere) {
    LiveProgram play(Words("off"));
    play.WaitFor("song");
    EXPECT_EQ("", play.Status()["osc"]["address"]);
    play.Quit();
    const auto wrong = test_support::RunStage({"play", Show(), "--osc", "here:1"});
    EXPECT_NE(0, wrong.exitCode);
    EXPECT_NE(std::string::npos, wrong.err.find("\"here\" is not an address in numbers")) << wrong.err;
}

/// Presses the same at once through all doors, and expects that one of them is taken.
void PressEverywhere(LiveProgram& play, const std::string& verb, std::vector<std::function<void()>> doors,
                     const std::multiset<std::string>& names) {
    for (const auto& door : doors)
        door();
    std::multiset<std::string> seen;
    std::size_t taken = 0;
    for (std::size_t i = 0; i < doors.size(); ++i) {
        const Json press = play.WaitFor("press", {{"press", verb}});
        ASSERT_FALSE(press.is_null());
        seen.insert(press["door"].get<std::string>());
        if (press["outcome"] == "taken") {
            ++taken;
        } else {
            EXPECT_NE(std::string::npos, press["sentence"].get<std::string>().find("one press")) << press;
        }
    }
    EXPECT_EQ(1U, taken) << verb;
    EXPECT_EQ(names, seen);
}

TEST_F(OscPlay, TwoDesksAPedalAndAKeyAtOnce_TheDeskTakesOnePress) {
    std::unique_ptr<Child> server;
    const std::string obstacle = test_support::PrepareJackServer(server);
    if (!obstacle.empty()) GTEST_SKIP() << obstacle;
    const auto pedal = test_support::StartPeer("pedal");
    ASSERT_NE(nullptr, pedal);
    // As long as it can be: a busy machine may take its time between two doors.
    test_support::WriteAll(Show() + "/settings.json", R"({"pressGuardMs": 10000})");
    test_support::WriteAll(Show() + "/midiCommandSettings",
                           R"({"source": "pedal:out", "commands": [)"
                           R"({"command": "Next Song", "status": 144, "data1": 64},)"
                           R"({"command": "Previous Song", "status": 144, "data1": 65},)"
                           R"({"command": "Next Marker", "status": 144, "data1": 66},)"
                           R"({"command": "Play", "status": 144, "data1": 60}]})");
    LiveProgram play(Words());
    play.WaitFor("song", {{"song", "1"}});
    // Until the pedal is connected.
    do
        pedal->Write("send 90 42 40");
    while (play.Status()["tick"] == 0);
    const std::uint16_t port = PortOf(play);
    OscClient one("tcp", port);
    OscClient two("udp", port);
    const std::multiset<std::string> names{"MIDI port", "OSC", "OSC", "terminal"};
    const auto pressEverywhere = [&](const std::string& verb, const std::string& note) {
        PressEverywhere(play, verb,
                        {[&] { one.Send({"/tavo/" + verb}); }, [&] { pedal->Write("send 90 " + note + " 40"); },
                         [&] { play.Press(verb); }, [&] { two.Send({"/tavo/" + verb}); }},
                        names);
    };
    pressEverywhere("next", "40");
    EXPECT_EQ("2", play.Status()["song"]);
    pressEverywhere("previous", "41");
    EXPECT_EQ("1", play.Status()["song"]);
    pressEverywhere("play", "3C");
    EXPECT_EQ("playing", play.Status()["motion"]);
    play.Quit();
}

TEST_F(OscPlay, ButtonThatRepeatsItself_IsOnePressUntilItIsReleased) {
    test_support::WriteAll(Show() + "/settings.json", R"({"pressGuardMs": 0})");
    LiveProgram play(Words());
    play.WaitFor("song", {{"song", "1"}});
    OscClient desk("udp", PortOf(play));
    // From its first release on the desk knows that this one reports them.
    desk.Send({"/next", 1.0});
    play.WaitFor("press", {{"press", "next"}, {"outcome", "taken"}});
    desk.Send({"/next", 0.0});
    desk.Send({"/next", 1.0});
    play.WaitFor("press", {{"press", "next"}, {"outcome", "taken"}});
    desk.Send({"/next", 1.0});
    EXPECT_EQ("\"next\" is refused: its key was not released yet", desk.WaitFor("/tavo/error", {"/next"})[2]);
    desk.Send({"/next", 0.0});
    desk.Send({"/next", 1.0});
    play.WaitFor("press", {{"press", "next"}, {"outcome", "refused"}});
    play.WaitFor("press", {{"press", "next"}, {"outcome", "taken"}});
    play.Quit();
}

}  // namespace
