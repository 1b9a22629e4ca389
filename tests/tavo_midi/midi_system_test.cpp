#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <stdexcept>

#include "tavo_midi/midi_message_dispatcher.h"
#include "tavo_midi/midi_ports.h"
#include "tavo_midi/midi_time_code_controller.h"
#include "tests/support/exception_log.h"
#include "tests/support/fake_midi_ports.h"
#include "tests/support/log_of_lines.h"
#include "tests/support/temporary_directory.h"

namespace {

using tavo_midi::MidiPortReport;
using test_support::Patience;

const std::vector<unsigned char> Start{0xFA};
constexpr const char* Connected = "The MIDI input \"pedal\" is connected.";
constexpr const char* Gone = "The MIDI input \"pedal\" was lost; it will reconnect when it returns.";
constexpr const char* Back = "The MIDI input \"pedal\" is back.";

/// The process's MIDI system over ports of the test's.
class TheMidiSystem : public testing::Test {
protected:
    ~TheMidiSystem() override {
        tavo_midi::SetMidiPortListener({});
        tavo_midi::SetMidiPorts(nullptr);
    }
    void Install() { tavo_midi::SetMidiPorts(ports_); }
    void WriteReportsDown() {
        tavo_midi::SetMidiPortListener([this](const MidiPortReport& report) { reports_.Add(report.sentence); });
    }

    std::shared_ptr<test_support::FakeMidiPorts> ports_ = std::make_shared<test_support::FakeMidiPorts>();
    test_support::LogOfLines reports_;
};

TEST_F(TheMidiSystem, MessageIsSent_NobodyElseWaitsForTheDevice) {
    std::future<std::size_t> listed;
    bool isSent = false;
    bool isListedBeforeTheEnd = false;
    ports_->onSend = [&](std::span<const unsigned char>) {
        isSent = true;
        listed = std::async(std::launch::async, [] { return GetNonTavoMidiDestinations().size(); });
        return true;
    };
    ports_->onCloseOutput = [&] { isListedBeforeTheEnd = listed.wait_for(Patience) == std::future_status::ready; };
    Install();
    tavo_midi::SendMidiMessage("desk", Start);
    EXPECT_TRUE(isSent);
    EXPECT_TRUE(isListedBeforeTheEnd);
    EXPECT_EQ(listed.get(), 1U);
}

TEST_F(TheMidiSystem, DeviceOpensSlowly_NobodyElseWaitsForIt) {
    bool isListedMeanwhile = false;
    std::future<std::size_t> listed;
    ports_->onOpen = [&] {
        listed = std::async(std::launch::async, [] { return GetNonTavoMidiSources().size(); });
        isListedMeanwhile = listed.wait_for(Patience) == std::future_status::ready;
    };
    Install();
    tavo_midi::SendMidiMessage("desk", Start);
    EXPECT_TRUE(isListedMeanwhile);
}

TEST_F(TheMidiSystem, SystemDoesNotRespond_WhoOnlyAsksDoesNotWait) {
    std::promise<void> hangs;
    std::promise<void> mayGoOn;
    std::shared_future<void> goesOn = mayGoOn.get_future().share();
    ports_->onOpen = [&] {
        hangs.set_value();
        goesOn.wait();
    };
    WriteReportsDown();
    Install();
    const test_support::TemporaryDirectory directory;
    MidiTimeCodeController timeCode(directory / "midiTimeCodeSettings");
    timeCode.SetOutputPortName("desk");
    MidiMessageDispatcher dispatcher;
    auto connected = std::async(std::launch::async, [&] { dispatcher.ConnectSourceByName("pedal"); });
    hangs.get_future().wait();
    auto asked = std::async(std::launch::async, [&] {
        EXPECT_FALSE(dispatcher.GetIsConnected());
        EXPECT_EQ(dispatcher.GetPortIndex(), 0);
        EXPECT_EQ(GetNonTavoMidiSources().size(), 1U);
        EXPECT_TRUE(timeCode.GetHasOutputPortIndex());
        EXPECT_EQ(timeCode.GetOutputPortIndex(), 0U);
        EXPECT_EQ(tavo_midi::GetMidiSystemName(), "fake");
    });
    EXPECT_EQ(asked.wait_for(Patience), std::future_status::ready);
    mayGoOn.set_value();
    connected.get();
    asked.get();
    EXPECT_TRUE(dispatcher.GetIsConnected());
}

TEST_F(TheMidiSystem, ConnectionGoneThoughThePortIsThere_IsReportedAndMadeAgain) {
    WriteReportsDown();
    Install();
    MidiMessageDispatcher dispatcher;
    dispatcher.ConnectSourceByName("pedal");
    ASSERT_TRUE(reports_.WaitFor(Connected));
    ports_->isConnected = false;
    EXPECT_TRUE(reports_.WaitFor(Gone));
    EXPECT_TRUE(reports_.WaitFor(Back));
    EXPECT_TRUE(dispatcher.GetIsConnected());
}

TEST_F(TheMidiSystem, MessageIsSentBesideAConnection_TheConnectionIsWatchedAsBefore) {
    WriteReportsDown();
    Install();
    MidiMessageDispatcher dispatcher;
    dispatcher.ConnectSourceByName("pedal");
    ASSERT_TRUE(reports_.WaitFor(Connected));
    tavo_midi::SendMidiMessage("desk", Start);
    EXPECT_TRUE(dispatcher.GetIsConnected());
    ports_->isConnected = false;
    EXPECT_TRUE(reports_.WaitFor(Gone));
    EXPECT_TRUE(reports_.WaitFor(Back));
}

TEST_F(TheMidiSystem, PortsTakenAwayWhileAMessageIsSent_StayUntilItHasLeft) {
    const std::weak_ptr<test_support::FakeMidiPorts> watched = ports_;
    bool isThereAtTheEnd = false;
    ports_->onSend = [&](std::span<const unsigned char>) {
        tavo_midi::SetMidiPorts(nullptr);
        ports_.reset();
        return true;
    };
    ports_->onCloseOutput = [&] { isThereAtTheEnd = !watched.expired(); };
    Install();
    tavo_midi::SendMidiMessage("desk", Start);
    EXPECT_TRUE(isThereAtTheEnd);
    EXPECT_TRUE(watched.expired());
}

TEST_F(TheMidiSystem, NoSuchOutputOrItTakesNothingOrTheMessageDoesNotLeave_IsOneSentence) {
    const auto problemOf = [](const char* port) {
        try {
            tavo_midi::SendMidiMessage(port, Start);
        } catch (const std::runtime_error& problem) {
            return std::string(problem.what());
        }
        return std::string();
    };
    ports_->onSend = [](std::span<const unsigned char>) { return false; };
    Install();
    EXPECT_EQ(problemOf("drum"), "there is no MIDI output \"drum\"");
    EXPECT_EQ(problemOf("desk"), "the MIDI output \"desk\" does not take the message");
    ports_->onSend = [](std::span<const unsigned char>) { return true; };
    EXPECT_EQ(problemOf("desk"), "");
    ports_->onWaitUntilSent = [] { return false; };
    EXPECT_EQ(problemOf("desk"), "the message to the MIDI output \"desk\" did not leave in time: send it again");
}

TEST_F(TheMidiSystem, ListenerReplacesItselfAndWaitsForAThreadThatReplacesItAgain_NothingHangs) {
    std::atomic<bool> isDone{false};
    std::future<void> another;
    tavo_midi::SetMidiPortListener([&](const MidiPortReport&) {
        tavo_midi::SetMidiPortListener({});
        another = std::async(std::launch::async, [&] { WriteReportsDown(); });
        isDone = another.wait_for(Patience) == std::future_status::ready;
        reports_.Add("replaced");
    });
    Install();
    MidiMessageDispatcher dispatcher;
    dispatcher.ConnectSourceByName("pedal");
    ASSERT_TRUE(reports_.WaitFor("replaced"));
    EXPECT_TRUE(isDone);
    ports_->isPlugged = false;
    EXPECT_TRUE(reports_.WaitFor(Gone));
}

TEST_F(TheMidiSystem, ListenerTakenAwayWhileItRuns_WaitsForItsEnd) {
    for (int round = 0; round < 10; ++round) {
        std::promise<void> entered;
        std::atomic<bool> mayEnd{false};
        std::atomic<bool> hasEnded{false};
        tavo_midi::SetMidiPortListener([&](const MidiPortReport&) {
            entered.set_value();
            while (!mayEnd)
                std::this_thread::yield();
            hasEnded = true;
        });
        Install();
        MidiMessageDispatcher dispatcher;
        dispatcher.ConnectSourceByName("pedal");
        entered.get_future().wait();
        std::thread host([&] {
            mayEnd = true;
            tavo_midi::SetMidiPortListener({});
            EXPECT_TRUE(hasEnded);
        });
        host.join();
    }
}

TEST_F(TheMidiSystem, ListenerThrows_IsLoggedAndHearsTheNextReport) {
    const test_support::ExceptionLog log;
    std::atomic<int> calls{0};
    tavo_midi::SetMidiPortListener([&](const MidiPortReport& report) {
        const int call = ++calls;
        if (call == 1) throw std::runtime_error("No lamp for this.");
        if (call == 2) throw 7;
        reports_.Add(report.sentence);
    });
    Install();
    MidiMessageDispatcher dispatcher;
    dispatcher.ConnectSourceByName("pedal");
    EXPECT_TRUE(log.WaitFor("No lamp for this."));
    ports_->isPlugged = false;
    EXPECT_TRUE(log.WaitFor("Unknown exception."));
    EXPECT_NE(log.Read().find("MIDI ports"), std::string::npos) << log.Read();
    ports_->isPlugged = true;
    EXPECT_TRUE(reports_.WaitFor(Back));
}

TEST_F(TheMidiSystem, PortsThrowWhenLookedAt_IsLoggedOnceAndTheNextLookFindsThem) {
    const test_support::ExceptionLog log;
    std::atomic<int> throws{0};
    std::atomic<int> looks{0};
    ports_->onList = [&] {
        ++looks;
        if (throws == 1) throw std::runtime_error("The ports are on strike.");
        if (throws == 2) throw 7;
    };
    WriteReportsDown();
    Install();
    MidiMessageDispatcher dispatcher;
    dispatcher.ConnectSourceByName("pedal");
    ASSERT_TRUE(reports_.WaitFor(Connected));
    for (int kind = 1; kind <= 2; ++kind) {
        throws = kind;
        EXPECT_TRUE(log.WaitFor(kind == 1 ? "The ports are on strike." : "Unknown exception."));
        const int before = looks;
        while (looks < before + 2)
            std::this_thread::yield();
        EXPECT_TRUE(dispatcher.GetIsConnected());
        ports_->isPlugged = false;
        throws = 0;
        EXPECT_TRUE(reports_.WaitFor(Gone));
        ports_->isPlugged = true;
        EXPECT_TRUE(reports_.WaitFor(Back));
    }
    const std::string lines = log.Read();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 2) << lines;
    EXPECT_NE(lines.find("MIDI ports"), std::string::npos) << lines;
}

TEST_F(TheMidiSystem, PortsThrowWhenAPortIsChosen_TheChoiceStandsAndIsConnectedLater) {
    const test_support::ExceptionLog log;
    std::atomic<bool> throws{true};
    ports_->onList = [&] {
        if (throws) throw std::runtime_error("The ports are on strike.");
    };
    WriteReportsDown();
    Install();
    const test_support::TemporaryDirectory directory;
    MidiTimeCodeController timeCode(directory / "midiTimeCodeSettings");
    timeCode.SetOutputPortName("desk");
    timeCode.ActivateMidiTimeCode();
    MidiMessageDispatcher dispatcher;
    dispatcher.ConnectSourceByName("pedal");
    EXPECT_FALSE(dispatcher.GetIsConnected());
    throws = false;
    EXPECT_TRUE(reports_.WaitFor(Connected));
}

TEST_F(TheMidiSystem, PortThrowsWhenItIsOpened_IsOpenedByALaterLook) {
    std::atomic<int> opens{0};
    ports_->onOpen = [&] {
        const int open = ++opens;
        if (open == 1) throw std::runtime_error("Not ready.");
        if (open == 2) throw 7;
    };
    WriteReportsDown();
    Install();
    MidiMessageDispatcher dispatcher;
    dispatcher.ConnectSourceByName("pedal");
    EXPECT_TRUE(reports_.WaitFor(Connected));
    EXPECT_EQ(opens, 3);
}

TEST_F(TheMidiSystem, TimeCodeOutputThrows_IsLoggedAndTheNextMessagesAreSent) {
    const test_support::ExceptionLog log;
    std::atomic<int> messages{0};
    std::promise<void> sentAll;
    ports_->onSend = [&](std::span<const unsigned char>) {
        const int message = ++messages;
        if (message == 1) throw std::runtime_error("The cable is out.");
        if (message == 3 || message == 4) throw 7;
        if (message == 6) sentAll.set_value();
        return true;
    };
    Install();
    const test_support::TemporaryDirectory directory;
    MidiTimeCodeController timeCode(directory / "midiTimeCodeSettings");
    timeCode.SetOutputPortName("desk");
    timeCode.ActivateMidiTimeCode();
    timeCode.Start(std::chrono::seconds(1));
    EXPECT_EQ(sentAll.get_future().wait_for(Patience), std::future_status::ready);
    timeCode.Shutdown();
    const std::string lines = log.Read();
    EXPECT_NE(lines.find("The cable is out."), std::string::npos) << lines;
    EXPECT_NE(lines.find("Unknown exception."), std::string::npos) << lines;
    EXPECT_NE(lines.find("MIDI time code"), std::string::npos) << lines;
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 2) << lines;
}

}  // namespace
