// A program whose threads read the tables of the MIDI library and deliver messages while main returns and everything
// static is destroyed. It ends with 0, and no sanitizer reports anything.

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <unistd.h>

#include "tavo_core/callback_dispatcher.h"
#include "tavo_midi/midi_commands.h"
#include "tavo_midi/midi_time_code_controller.h"
#include "tests/support/fake_midi_ports.h"
#include "tests/support/temporary_directory.h"

namespace {

constexpr std::size_t ThreadCount = 4;
constexpr unsigned int RoundsAfterTheEnd = 200;
constexpr std::array<unsigned char, 6> Press{0x90, 60, 64, 0x80, 60, 64};

/// Rounds that each thread has done. Constant-initialised and trivial, so never destroyed.
std::array<std::atomic<unsigned int>, ThreadCount> rounds;
std::atomic<unsigned int> played;

void WaitForRounds(unsigned int more) {
    const auto wait = [more](const std::atomic<unsigned int>& count) {
        for (const unsigned int before = count; count - before < more;)
            std::this_thread::yield();
    };
    std::for_each(rounds.begin(), rounds.end(), wait);
    wait(played);
}

/// Registered before every static object is made, so it runs when all of them are destroyed.
__attribute__((constructor(101))) void KeepBusyBehindAllDestructors() {
    std::atexit([] { WaitForRounds(RoundsAfterTheEnd); });
}

void Check(bool isRight, const char* what) {
    if (isRight) return;
    std::fprintf(stderr, "%s is not what it was\n", what);
    ::_exit(1);
}

/// What a running show keeps for as long as the process lives.
struct Show {
    explicit Show(const std::string& directory)
        : commands(dispatcher, directory + "/midiCommandSettings"), timeCode(directory + "/midiTimeCodeSettings") {
        commands.SetMidiCommand(midi_commands::Play, 0x90, 60, 0);
        commands.SetCommandFilter([](const midi_commands::DeliveredCommand& command) {
            Check(command.callbackName == notify::names::midiCommandPlay, "the command");
            return true;
        });
        notify::callbackDispatcher.AddCallback(this, notify::names::midiCommandPlay, [](void*) { ++played; });
        tavo_midi::SetMidiPorts(ports);
        dispatcher.ConnectSourceByName("pedal");
        timeCode.SetOutputPortName("desk");
        timeCode.ActivateMidiTimeCode();
        timeCode.Start(std::chrono::seconds(0));
    }

    std::shared_ptr<test_support::FakeMidiPorts> ports = std::make_shared<test_support::FakeMidiPorts>();
    MidiMessageDispatcher dispatcher;
    midi_commands::MidiCommands commands;
    MidiTimeCodeController timeCode;
};

void ReadTables() {
    Check(midi_commands::commandNames.size() == 9 && midi_commands::commandNames.at(midi_commands::Play) == "Play" &&
              midi_commands::commandNames.rbegin()->second == "Conduct Beat",
          "commandNames");
    Check(
        std::count_if(allowedStatuses.begin(), allowedStatuses.end(), [](int status) { return status >= 0x90; }) == 51,
        "allowedStatuses");
    Check(frameRateStrings.size() == 4 && ConvertFrameRateToString(FrameRate::Fps2997Drop) == "29.97 drop" &&
              ConvertStringToFrameRate("25") == FrameRate::Fps25,
          "frameRateStrings");
    Check(midi_commands::names::loadSong == "midiLoadSong", "names");
}

template <class Work>
void StartThread(std::size_t index, Work work) {
    std::thread([index, work] {
        while (true) {
            work();
            ++rounds[index];
        }
    }).detach();
}

}  // namespace

int main() {
    const test_support::TemporaryDirectory directory;
    static Show& show = *new Show(directory.Path());
    StartThread(0, &ReadTables);
    StartThread(1, [] { show.dispatcher.Deliver(Press); });
    StartThread(2, [] {
        show.ports->Play(Press);
        std::this_thread::yield();
    });
    StartThread(3, [] {
        Check(GetNonTavoMidiSources().size() == 1, "the list of ports");
        Check(DescribeMessage(show.commands.GetLearnedCommands().at(midi_commands::Play)) == "note 60 on channel 1",
              "the learned message");
    });
    WaitForRounds(1);
    return 0;
}
