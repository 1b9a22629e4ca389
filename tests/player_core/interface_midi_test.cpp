#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "tavo_midi/midi_ports.h"
#include "tests/player_core/support/test_interface.h"

namespace {

using test_support::TheFacade;

/// A MIDI system with 256 inputs and two outputs, "In 0" ... and "Out 0", "Out 1", that carry nothing.
class ManyPorts : public tavo_midi::MidiPorts {
public:
    std::string GetSystemName() const override { return "many"; }
    bool GetIsAlive() const override { return true; }
    std::vector<std::string> GetSourceNames() override { return MakeNames_("In ", 256); }
    std::vector<std::string> GetDestinationNames() override { return MakeNames_("Out ", 2); }
    std::unique_ptr<tavo_midi::MidiInput> OpenInput(const std::string&, tavo_midi::MidiByteSink&) override {
        return std::make_unique<tavo_midi::MidiInput>();
    }
    std::unique_ptr<tavo_midi::MidiOutput> OpenOutput(const std::string&) override {
        struct Output : tavo_midi::MidiOutput {
            bool Send(std::span<const unsigned char>) override { return true; }
        };
        return std::make_unique<Output>();
    }

private:
    static std::vector<std::string> MakeNames_(const std::string& kind, int count) {
        std::vector<std::string> names;
        for (int i = 0; i < count; ++i)
            names.push_back(kind + std::to_string(i));
        return names;
    }
};

class TheFacadesMidi : public TheFacade {
protected:
    void SetUp() override {
        tavo_midi::SetMidiPorts(std::make_shared<ManyPorts>());
        TheFacade::SetUp();
    }
    void TearDown() override {
        facade_.reset();
        tavo_midi::SetMidiPorts(nullptr);
    }
};

TEST_F(TheFacadesMidi, SetMidiSource_TakesIndicesUpTo255) {
    EXPECT_FALSE(facade_->HasMidiSource());
    for (const int index : {0, 7, 255}) {
        facade_->SetMidiSource(index);
        EXPECT_TRUE(facade_->HasMidiSource());
        EXPECT_EQ(index, facade_->GetConnectedSourceIndex());
    }
}

TEST_F(TheFacadesMidi, SetMidiSourceAbove255_ThrowsAndChangesNothing) {
    facade_->SetMidiSource(7);
    for (const int index : {256, 1000}) {
        try {
            facade_->SetMidiSource(index);
            FAIL() << index;
        } catch (const std::out_of_range& error) {
            EXPECT_EQ(std::to_string(index) + " is higher than max allowable source index (255)", error.what());
        }
    }
    EXPECT_EQ(7, facade_->GetConnectedSourceIndex());
}

TEST_F(TheFacadesMidi, NegativeSource_ConnectsTheOneOfItsLowByte) {
    facade_->SetMidiSource(-1);
    EXPECT_EQ(255, facade_->GetConnectedSourceIndex());
    facade_->SetMidiSource(-256);
    EXPECT_EQ(0, facade_->GetConnectedSourceIndex());
    facade_->SetMidiSource(-250);
    EXPECT_EQ(6, facade_->GetConnectedSourceIndex());
}

TEST_F(TheFacadesMidi, EndPoints_AreTheSystems) {
    ASSERT_EQ(256U, facade_->GetMidiSources().size());
    EXPECT_EQ((MidiEndPoint{255, "In 255"}), facade_->GetMidiSources().back());
    EXPECT_EQ((std::vector<MidiEndPoint>{{0, "Out 0"}, {1, "Out 1"}}), facade_->GetMidiDestinations());
}

TEST_F(TheFacadesMidi, ConductBeat_IsFalseWithoutASourceWhateverTheCommandsSay) {
    facade_->SetMidiCommand(midi_commands::ConductBeat, 0x90, 60, 0);
    EXPECT_FALSE(facade_->GetHasConductBeat()) << "no source";
    facade_->SetMidiSource(0);
    EXPECT_TRUE(facade_->GetHasConductBeat());
    facade_->UnsetMidiCommand(midi_commands::ConductBeat);
    EXPECT_FALSE(facade_->GetHasConductBeat()) << "no command";
}

TEST_F(TheFacadesMidi, Commands_AreLearnedSetAndUnset) {
    EXPECT_TRUE(facade_->GetLearnedCommands().empty());
    facade_->SetMidiCommand(midi_commands::Stop, 0xB3, 64, 127);
    ASSERT_EQ(1U, facade_->GetLearnedCommands().size());
    EXPECT_EQ((midi_commands::LearnedCommand{0xB3, 64, 127}), facade_->GetLearnedCommands().at(midi_commands::Stop));
    facade_->UnsetMidiCommand(midi_commands::Stop);
    EXPECT_TRUE(facade_->GetLearnedCommands().empty());

    facade_->LearnMidiCommand(midi_commands::Play);
    EXPECT_TRUE(facade_->IsMidiCommandLearning(midi_commands::Play));
    EXPECT_FALSE(facade_->IsMidiCommandLearning(midi_commands::Stop));
    const unsigned char note[] = {0x90, 36, 100};
    facade_->GetMidiMessageDispatcher().Deliver(note);
    EXPECT_FALSE(facade_->IsMidiCommandLearning(midi_commands::Play));
    const auto learned = facade_->GetLearnedCommands();
    ASSERT_EQ(1U, learned.count(midi_commands::Play));
    EXPECT_EQ(36, learned.at(midi_commands::Play).data1);
    EXPECT_FALSE(learned.at(midi_commands::Play).isAssigned);
}

TEST_F(TheFacadesMidi, MessageOfACommand_ReachesThePlayer) {
    facade_->SetMidiCommand(midi_commands::NextMarker, 0x90, 40, 0);
    const unsigned char note[] = {0x90, 40, 100};
    EXPECT_EQ("SeekRight", CallsOf([&] { facade_->GetMidiMessageDispatcher().Deliver(note); }));
}

TEST_F(TheFacadesMidi, CommandThatAFilterRefuses_DoesNotReachThePlayer) {
    facade_->SetMidiCommand(midi_commands::NextMarker, 0x90, 40, 0);
    facade_->SetMidiCommand(midi_commands::PreviousMarker, 0x90, 41, 0);
    facade_->GetMidiCommands().SetCommandFilter(
        [](const midi_commands::DeliveredCommand& command) { return command.command != midi_commands::NextMarker; });
    const unsigned char notes[] = {0x90, 40, 100, 0x90, 41, 100};
    EXPECT_EQ("SeekLeft", CallsOf([&] { facade_->GetMidiMessageDispatcher().Deliver(notes); }));
}

TEST_F(TheFacadesMidi, CommandsAndTimeCode_AreKeptInTheSettingsDirectory) {
    facade_->SetMidiCommand(midi_commands::Stop, 0xB3, 64, 127);
    facade_->SetFrameRate(1);
    EXPECT_TRUE(std::filesystem::exists(files_.Settings() + "/midiCommandSettings"));
    EXPECT_TRUE(std::filesystem::exists(files_.Settings() + "/midiTimeCodeSettings"));
    Open();
    EXPECT_EQ(1U, facade_->GetLearnedCommands().count(midi_commands::Stop));
    EXPECT_EQ(1, facade_->GetFrameRate());
}

TEST_F(TheFacadesMidi, NamesAndStatuses_AreCopiesOfTheLibrarys) {
    EXPECT_EQ(midi_commands::commandNames, facade_->GetCommandNames());
    const std::vector<int> statuses = facade_->GetAllowedCommandStatuses();
    EXPECT_TRUE(std::ranges::is_sorted(statuses));
    EXPECT_EQ(std::vector<int>(allowedStatuses.begin(), allowedStatuses.end()), statuses);
    EXPECT_TRUE(std::ranges::binary_search(statuses, 0x90));
}

TEST_F(TheFacadesMidi, TimeCode_IsTheControllers) {
    EXPECT_FALSE(facade_->GetMidiTimeCodeIsActive());
    facade_->ActivateMidiTimeCode();
    EXPECT_TRUE(facade_->GetMidiTimeCodeIsActive());
    facade_->CancelMidiTimeCode();
    EXPECT_FALSE(facade_->GetMidiTimeCodeIsActive());

    EXPECT_FALSE(facade_->GetHasMidiTimeCodeOutputPortIndex());
    facade_->SetMidiTimeCodeOutputPortIndex(1);
    EXPECT_TRUE(facade_->GetHasMidiTimeCodeOutputPortIndex());
    EXPECT_EQ(1U, facade_->GetMidiTimeCodeOutputPortIndex());
}

TEST_F(TheFacadesMidi, FrameRates_AreBytesAndTexts) {
    EXPECT_EQ(frameRateStrings, facade_->GetFrameRateStrings());
    for (unsigned char rate = 0; rate < frameRateStrings.size(); ++rate) {
        facade_->SetFrameRate(rate);
        EXPECT_EQ(rate, facade_->GetFrameRate());
        EXPECT_EQ(frameRateStrings[rate], facade_->GetFrameRateAsString());
    }
    for (const std::string& text : frameRateStrings) {
        facade_->SetFrameRateFromString(text);
        EXPECT_EQ(text, facade_->GetFrameRateAsString());
    }
    EXPECT_THROW(facade_->SetFrameRateFromString("48"), std::out_of_range);
}

}  // namespace
