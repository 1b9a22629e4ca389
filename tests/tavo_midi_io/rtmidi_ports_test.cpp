// MIDI devices that are pulled out and put in again, over RtMidi: the ports' own source over a library that stands in.

#include <alsa/asoundlib.h>
#include <gtest/gtest.h>

#include "platform/tavo_midi_io/src/alsa_subscriptions.h"
#include "tavo_midi/midi_message_dispatcher.h"
#include "tavo_midi/midi_ports.h"
#include "tests/support/log_of_lines.h"

// After all that has names of its own that are alike.
#include "tests/tavo_midi_io/stand_in_rtmidi.h"

namespace tavo_midi_io {

static bool IsStandInSubscribedTo(const std::string& address, bool isSource) {
    return test_support::StandInSequencer::Get().HasSubscriber(address, isSource);
}

}  // namespace tavo_midi_io

#include "platform/tavo_midi_io/src/rtmidi_ports.cpp"

#undef OpenRtMidiPorts
#undef IsSubscribedTo

namespace {

using test_support::StandInSequencer;
using Names = std::vector<std::string>;

std::string Lost(const std::string& name) {
    return "The MIDI input \"" + name + "\" was lost; it will reconnect when it returns.";
}
std::string Back(const std::string& name) {
    return "The MIDI input \"" + name + "\" is back.";
}

/// The process's MIDI system over RtMidi, with a pedal at 20:0, and what arrives from it.
class RtMidiDevices : public testing::Test {
protected:
    RtMidiDevices() {
        sequencer_.UnplugAll();
        sequencer_.Plug("Pedal", "20:0");
        tavo_midi::SetMidiPortListener(
            [this](const tavo_midi::MidiPortReport& report) { reports_.Add(report.sentence); });
        dispatcher_.AddListener(this, [this](std::span<const unsigned char> message, std::chrono::nanoseconds) {
            arrivals_.Add(std::to_string(message[1]));
        });
        tavo_midi::SetMidiPorts(std::make_shared<tavo_midi_io::RtMidiPorts>(RtMidi::LINUX_ALSA, nullptr));
    }
    ~RtMidiDevices() override {
        dispatcher_.Disconnect();
        tavo_midi::SetMidiPortListener({});
        tavo_midi::SetMidiPorts(nullptr);
    }
    void Connect(const std::string& name) {
        dispatcher_.ConnectSourceByName(name);
        ASSERT_TRUE(reports_.WaitFor("The MIDI input \"" + name + "\" is connected."));
    }
    /// Whether what the device at that address sends arrives.
    bool IsHeard(const std::string& address, unsigned char number) {
        sequencer_.Press(address, {0xC0, number});
        return arrivals_.WaitFor(std::to_string(number));
    }
    static Names ListSources() {
        Names names;
        for (const MidiEndPoint& source : GetNonTavoMidiSources())
            names.push_back(source.name);
        return names;
    }

    StandInSequencer& sequencer_ = StandInSequencer::Get();
    test_support::LogOfLines reports_;
    test_support::LogOfLines arrivals_;
    MidiMessageDispatcher dispatcher_;
};

TEST_F(RtMidiDevices, ConnectedOneOfTwoOfOneNameIsPulledOut_IsLostAndTheOtherKeepsItsName) {
    sequencer_.Plug("Pedal", "24:0");
    Connect("Pedal");
    EXPECT_TRUE(IsHeard("20:0", 1));
    sequencer_.Unplug("20:0");
    EXPECT_TRUE(reports_.WaitFor(Lost("Pedal")));
    EXPECT_FALSE(dispatcher_.GetIsConnected());
    EXPECT_EQ(ListSources(), Names{"Pedal (2)"});
    sequencer_.Plug("Pedal", "28:0");
    EXPECT_TRUE(reports_.WaitFor(Back("Pedal")));
    EXPECT_EQ(ListSources(), (Names{"Pedal (2)", "Pedal"}));
    EXPECT_TRUE(IsHeard("28:0", 2));
    sequencer_.Press("24:0", {0xC0, 3});
    EXPECT_TRUE(IsHeard("28:0", 4));
    EXPECT_TRUE(arrivals_.GetLines().empty()) << "the other one is heard, too";
}

TEST_F(RtMidiDevices, OtherOneOfTwoOfOneNameIsPulledOut_TheConnectedOneStays) {
    sequencer_.Plug("Pedal", "24:0");
    Connect("Pedal (2)");
    EXPECT_TRUE(IsHeard("24:0", 1));
    sequencer_.Unplug("20:0");
    EXPECT_EQ(ListSources(), Names{"Pedal (2)"});
    // A device that comes is seen by a later look than the one that goes.
    Connect("Pedal (2)");
    EXPECT_TRUE(IsHeard("24:0", 2));
    EXPECT_TRUE(dispatcher_.GetIsConnected());
    for (const std::string& line : reports_.GetLines())
        EXPECT_EQ(line.find("was lost"), std::string::npos) << line;
}

TEST_F(RtMidiDevices, OneGoesWhilePortsAreListed_NoOtherSeemsToBeGoneWithIt) {
    sequencer_.Plug("Pedal", "24:0");
    tavo_midi_io::RtMidiPorts ports(RtMidi::LINUX_ALSA, nullptr);
    ASSERT_EQ(ports.GetSourceNames(), (Names{"Pedal", "Pedal (2)"}));
    sequencer_.UnplugAfterNames("20:0", 1);
    EXPECT_EQ(ports.GetSourceNames(), Names{"Pedal (2)"});
}

TEST_F(RtMidiDevices, BackBeforeAnybodyLooked_AtItsAddressOrAnother_IsHeardAgain) {
    Connect("Pedal");
    const char* const addresses[] = {"20:0", "20:0", "36:0", "40:0", "40:0"};
    std::string address = "20:0";
    unsigned char number = 1;
    for (const char* const next : addresses) {
        sequencer_.Replug(address, next);
        address = next;
        EXPECT_TRUE(reports_.WaitFor(Lost("Pedal"))) << next;
        EXPECT_TRUE(reports_.WaitFor(Back("Pedal"))) << next;
        EXPECT_TRUE(IsHeard(address, number++)) << next;
    }
}

TEST_F(RtMidiDevices, OutputIsBackBeforeAnybodyLooked_IsNotConnectedAnyMore) {
    tavo_midi_io::RtMidiPorts ports(RtMidi::LINUX_ALSA, nullptr);
    ASSERT_EQ(ports.GetDestinationNames(), Names{"Pedal"});
    const auto output = ports.OpenOutput("Pedal");
    EXPECT_TRUE(output->IsConnected());
    EXPECT_TRUE(output->Send(std::vector<unsigned char>{0xFA}));
    EXPECT_EQ(sequencer_.GetReceived("20:0").size(), 1U);
    sequencer_.Replug("20:0", "20:0");
    EXPECT_FALSE(output->IsConnected());
    const auto again = ports.OpenOutput("Pedal");
    EXPECT_TRUE(again->IsConnected());
    EXPECT_TRUE(again->Send(std::vector<unsigned char>{0xFA}));
    EXPECT_EQ(sequencer_.GetReceived("20:0").size(), 1U);
}

TEST_F(RtMidiDevices, DeviceThatNobodyListed_IsRefusedInASentence) {
    tavo_midi_io::RtMidiPorts ports(RtMidi::LINUX_ALSA, nullptr);
    try {
        static_cast<void>(ports.OpenOutput("Drum"));
        ADD_FAILURE();
    } catch (const std::runtime_error& problem) {
        EXPECT_STREQ(problem.what(), "there is no MIDI port \"Drum\"");
    }
}

/// A device on the real sequencer: a client with one port that sends.
class SequencerDevice {
public:
    explicit SequencerDevice(const char* name) {
        if (snd_seq_open(&sequencer_, "default", SND_SEQ_OPEN_DUPLEX, 0) < 0) return;
        snd_seq_set_client_name(sequencer_, name);
        port_ = snd_seq_create_simple_port(sequencer_, name, SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ,
                                           SND_SEQ_PORT_TYPE_MIDI_GENERIC);
    }
    ~SequencerDevice() {
        if (sequencer_ != nullptr) snd_seq_close(sequencer_);
    }
    SequencerDevice(const SequencerDevice&) = delete;
    SequencerDevice& operator=(const SequencerDevice&) = delete;
    [[nodiscard]] std::string GetAddress() const {
        return std::to_string(snd_seq_client_id(sequencer_)) + ":" + std::to_string(port_);
    }

private:
    snd_seq_t* sequencer_ = nullptr;
    int port_ = -1;
};

TEST(AlsaSubscriptions, OnTheRealSequencer_AreThereWhileTheDeviceIs) {
    if (::access("/dev/snd/seq", R_OK | W_OK) != 0) GTEST_SKIP() << "There is no ALSA sequencer here.";
    auto device = std::make_unique<SequencerDevice>("tavotest");
    const std::string address = device->GetAddress();
    EXPECT_FALSE(tavo_midi_io::IsSubscribedTo(address, true));
    snd_seq_t* reader = nullptr;
    ASSERT_EQ(snd_seq_open(&reader, "default", SND_SEQ_OPEN_INPUT, 0), 0);
    const int port = snd_seq_create_simple_port(reader, "in", SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
                                                SND_SEQ_PORT_TYPE_MIDI_GENERIC);
    ASSERT_EQ(snd_seq_connect_from(reader, port, std::stoi(address), 0), 0);
    EXPECT_TRUE(tavo_midi_io::IsSubscribedTo(address, true));
    EXPECT_FALSE(tavo_midi_io::IsSubscribedTo(address, false));
    device.reset();
    EXPECT_FALSE(tavo_midi_io::IsSubscribedTo(address, true));
    snd_seq_close(reader);
}

}  // namespace
