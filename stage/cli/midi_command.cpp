#include <fmt/format.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <thread>

#include "kit/path.h"
#include "stage/cli/commands.h"
#include "stage/cli/text_table.h"
#include "tavo_midi/midi_commands.h"
#include "tavo_midi/midi_message_dispatcher.h"
#include "tavo_midi/midi_ports.h"
#include "tavo_midi_io/install_midi_ports.h"

namespace {

using namespace std::chrono_literals;
using Bytes = std::span<const unsigned char>;

struct MidiWords {
    std::string system = "auto";
    std::string port;
    std::string command;
    std::string settingsDirectory = ".";
    std::vector<std::string> bytes;
    double seconds = 0;
};

std::string ToHex(Bytes message) {
    std::string text;
    for (const unsigned char byte : message)
        text += fmt::format("{}{:02X}", text.empty() ? "" : " ", byte);
    return text;
}

// Only here: what a render hears must not depend on what is plugged in.
void ChooseSystem(const MidiWords& words) {
    tavo_midi_io::InstallMidiPorts();
    tavo_midi::SetMidiSystemChoice(tavo_midi::ConvertStringToMidiSystemChoice(words.system));
}

/// A number of the list or a name.
const MidiEndPoint& FindEndPoint(const std::vector<MidiEndPoint>& endPoints, const std::string& word) {
    for (const MidiEndPoint& endPoint : endPoints) {
        if (endPoint.name == word || std::to_string(endPoint.index) == word) return endPoint;
    }
    throw std::runtime_error(fmt::format("there is no MIDI port \"{}\": see `stage midi list`", word));
}

void List(const MidiWords& words) {
    ChooseSystem(words);
    // Keeps the MIDI system open from one look to the next.
    const MidiMessageDispatcher user;
    const std::string system = tavo_midi::GetMidiSystemName();
    if (system.empty()) {
        std::cout << "no MIDI system: neither a JACK server runs nor another one\n";
        return;
    }
    TextTable table({{system}, {"no", TextTable::Align::Right}, {"name"}});
    for (const MidiEndPoint& source : GetNonTavoMidiSources())
        table.AddRow({"input", std::to_string(source.index), source.name});
    for (const MidiEndPoint& destination : GetNonTavoMidiDestinations())
        table.AddRow({"output", std::to_string(destination.index), destination.name});
    std::cout << table.AsText();
}

/// Waits for the seconds, forever where they are 0, or until it is enough.
template <class IsEnough>
void Wait(double seconds, IsEnough isEnough) {
    const auto start = std::chrono::steady_clock::now();
    while (!isEnough()) {
        if (seconds > 0 && std::chrono::steady_clock::now() - start > std::chrono::duration<double>(seconds)) return;
        std::this_thread::sleep_for(10ms);
    }
}

void TellOfPorts() {
    tavo_midi::SetMidiPortListener(
        [](const tavo_midi::MidiPortReport& report) { std::cout << report.sentence << std::endl; });
}

void Monitor(const MidiWords& words) {
    ChooseSystem(words);
    TellOfPorts();
    MidiMessageDispatcher dispatcher;
    const auto start = std::chrono::steady_clock::now().time_since_epoch();
    dispatcher.AddListener(&words, [start](Bytes message, std::chrono::nanoseconds arrival) {
        const double seconds = std::chrono::duration<double>(arrival - start).count();
        std::cout << fmt::format("{:9.3f}  {}", seconds, ToHex(message)) << std::endl;
    });
    dispatcher.ConnectSourceByName(FindEndPoint(GetNonTavoMidiSources(), words.port).name);
    Wait(words.seconds, [] { return false; });
    dispatcher.Disconnect();
    tavo_midi::SetMidiPortListener({});
}

unsigned char FindCommand(const std::string& word) {
    std::string all;
    for (const auto& [command, name] : midi_commands::commandNames) {
        if (name == word) return command;
        all += (all.empty() ? "" : ", ") + name;
    }
    throw std::runtime_error(fmt::format("\"{}\" is not a MIDI command: choose one of {}", word, all));
}

void Learn(const MidiWords& words) {
    ChooseSystem(words);
    const unsigned char command = FindCommand(words.command);
    MidiMessageDispatcher dispatcher;
    midi_commands::MidiCommands commands(dispatcher, kit::path::Join(words.settingsDirectory, "midiCommandSettings"));
    for (const std::string& warning : commands.GetSettingsWarnings())
        std::cerr << "note: " << MakePrintable(warning) << '\n';
    commands.ConnectSourceByIndex(FindEndPoint(GetNonTavoMidiSources(), words.port).index);
    commands.LearnMidiCommand(command);
    std::cout << fmt::format("Press what is to give {}.", words.command) << std::endl;
    Wait(words.seconds, [&] { return !commands.IsMidiCommandLearning(command); });
    if (const std::string problem = commands.GetLearnProblem(); !problem.empty()) throw std::runtime_error(problem);
    if (commands.IsMidiCommandLearning(command)) throw std::runtime_error("nothing was pressed");
    std::cout << fmt::format("{} is given by {}.\n", words.command,
                             DescribeMessage(commands.GetLearnedCommands().at(command)));
}

void Send(const MidiWords& words) {
    ChooseSystem(words);
    std::vector<unsigned char> message;
    for (const std::string& word : words.bytes) {
        if (word.empty() || word.size() > 2 || word.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
            throw std::runtime_error(
                fmt::format("\"{}\" is not a byte: write two hexadecimal digits, such as 9F", word));
        message.push_back(static_cast<unsigned char>(std::stoul(word, nullptr, 16)));
    }
    tavo_midi::SendMidiMessage(FindEndPoint(GetNonTavoMidiDestinations(), words.port).name, message);
}

CLI::App* AddPart(CLI::App* midi, const char* name, const char* help, const std::shared_ptr<MidiWords>& words,
                  void (*work)(const MidiWords&)) {
    CLI::App* const part = midi->add_subcommand(name, help);
    part->add_option("--system", words->system, "auto, jack or rtmidi")->capture_default_str();
    part->callback([words, work] { work(*words); });
    return part;
}

}  // namespace

void AddMidiCommand(CLI::App& app, int&) {
    const auto words = std::make_shared<MidiWords>();
    CLI::App* const midi = app.add_subcommand("midi", "List MIDI ports, watch one, learn a pedal, send a message");
    midi->require_subcommand(1);
    midi->footer(
        "A port is named as `stage midi list` shows it, by its number or its name.\n\n"
        "Examples:\n"
        "  stage midi list\n"
        "  stage midi monitor \"pedal:out\"\n"
        "  stage midi learn \"Next Song\" \"pedal:out\" --settings ~/.config/stage\n"
        "  stage midi send \"desk:in\" 90 3C 40");
    AddPart(midi, "list", "The MIDI ports of the system, this program's own left out", words, &List);

    CLI::App* const monitor = AddPart(midi, "monitor", "Print what arrives at an input", words, &Monitor);
    monitor->add_option("input", words->port, "Number or name")->required();
    monitor->add_option("--seconds", words->seconds, "End after this long; 0 for never")->check(CLI::NonNegativeNumber);

    CLI::App* const learn = AddPart(midi, "learn", "Give a command the next message of an input", words, &Learn);
    learn->add_option("command", words->command, "Such as \"Play\" or \"Next Song\"")->required();
    learn->add_option("input", words->port, "Number or name")->required();
    learn->add_option("--settings", words->settingsDirectory, "Directory of midiCommandSettings")
        ->capture_default_str();
    learn->add_option("--seconds", words->seconds, "Give up after this long; 0 for never")
        ->check(CLI::NonNegativeNumber);

    CLI::App* const send = AddPart(midi, "send", "Send one message to an output", words, &Send);
    send->add_option("output", words->port, "Number or name")->required();
    send->add_option("bytes", words->bytes, "The message, two hexadecimal digits a byte")->required();
}
