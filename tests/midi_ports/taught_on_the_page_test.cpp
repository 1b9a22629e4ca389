// A pedal on a real server is taught from the page while the show is open.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/midi_ports/pedal.h"
#include "tests/support/temporary_directory.h"
#include "tests/web/served_show.h"

namespace {

using test_support::Child;
using test_support::Get;
using test_support::Json;
using test_support::ServedShow;
using test_support::Socket;
using testing::HasSubstr;

class TaughtOnThePage : public test_support::SmallShow {
protected:
    void SetUp() override {
        SmallShow::SetUp();
        const std::string obstacle = test_support::PrepareJackServer(server_, 128);
        if (!obstacle.empty()) GTEST_SKIP() << obstacle;
        tavo_midi::SetMidiSystemChoice(tavo_midi::MidiSystemChoice::Jack);
        pedal_ = test_support::StartPeer("pedal");
        ASSERT_NE(nullptr, pedal_);
        Open_();
    }
    void TearDown() override {
        client_.reset();
        show_.reset();
        tavo_midi::SetMidiSystemChoice(tavo_midi::MidiSystemChoice::None);
    }

    void Open_() {
        client_.reset();
        show_.reset();
        show_ = std::make_unique<ServedShow>(Show());
        client_ = std::make_unique<Socket>(show_->GetPort());
        EXPECT_FALSE(client_->WaitFor("state", {}).is_null());
    }
    /// The sentence of what is refused, empty for what is taken.
    std::string Set(const std::string& line) {
        client_->Send({{"type", "press"}, {"line", "set " + line}, {"id", ++id_}});
        return client_->WaitFor("answer", {{"id", id_}})["sentence"];
    }
    Json Pedals() { return Get(show_->GetPort(), "/api/state").AsJson()["pedals"]; }
    /// The change after which the pedals are at least these.
    Json WaitForPedals(const Json& pedals) { return client_->WaitFor("change", {{"state", {{"pedals", pedals}}}}); }
    bool Learns(const std::string& command, const std::string& message) {
        return !WaitForPedals({{"commands", {{command, message}}}, {"learning", ""}}).is_null();
    }

    std::unique_ptr<Child> server_;
    std::unique_ptr<Child> pedal_;
    std::unique_ptr<ServedShow> show_;
    std::unique_ptr<Socket> client_;
    int id_ = 0;
};

TEST_F(TaughtOnThePage, InputChosenAndPedalPressed_GivesTheCommandFromThenOnAndNextTime) {
    EXPECT_EQ(Json::array({"pedal:out"}), Get(show_->GetPort(), "/api/midi-inputs").AsJson()["inputs"]);
    EXPECT_EQ("no MIDI input is connected: choose one first", Set("midi-learn Play"));
    EXPECT_EQ("there is no MIDI input \"nobody\"", Set("midi-input nobody"));
    EXPECT_EQ("", Set("midi-input pedal:out"));
    EXPECT_THAT(Set("midi-learn Dance"), HasSubstr("there is no MIDI command \"Dance\": there are Play, Pause,"));
    EXPECT_EQ("", Set("midi-learn Play"));
    EXPECT_EQ("Play", Pedals()["learning"]);

    pedal_->Write("send 90 3C 40");
    ASSERT_TRUE(Learns("Play", "note 60 on channel 1"));
    // What is learned has done nothing.
    EXPECT_EQ("stopped", Get(show_->GetPort(), "/api/state").AsJson()["motion"]);

    Open_();
    EXPECT_EQ("note 60 on channel 1", Pedals()["commands"]["Play"]);
    pedal_->Write("send 90 3C 40");
    EXPECT_FALSE(client_->WaitFor("event", {{"event", "started"}}).is_null());
    // In a performance a pedal is for what it gives.
    EXPECT_EQ("a pedal is taught while the music stands", Set("midi-learn Stop"));
    EXPECT_EQ("", Set("midi-forget Play"));
    EXPECT_EQ("", Pedals()["commands"]["Play"]);
}

TEST_F(TaughtOnThePage, MessageOfAnotherCommand_IsRefusedAndLearningGoesOn_UntilTheMusicStarts) {
    EXPECT_EQ("", Set("midi-input pedal:out"));
    EXPECT_EQ("", Set("midi-learn Play"));
    pedal_->Write("send 90 3C 40");
    ASSERT_TRUE(Learns("Play", "note 60 on channel 1"));
    EXPECT_EQ("", Set("midi-learn Stop"));
    pedal_->Write("send 90 3C 40");
    EXPECT_FALSE(WaitForPedals({{"learning", "Stop"},
                                {"problem", "Stop cannot be given by note 60 on channel 1, which gives Play already."}})
                     .is_null());
    client_->Send({{"type", "press"}, {"line", "play"}, {"id", ++id_}});
    EXPECT_TRUE(Learns("Stop", ""));
    // The pedal gives again what it has given.
    EXPECT_EQ("note 60 on channel 1", Pedals()["commands"]["Play"]);
}

}  // namespace
