#include <fmt/format.h>
#include <fmt/ranges.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <ranges>
#include <stdexcept>
#include <thread>

#include "kit/path.h"
#include "kit/words.h"
#include "stage/cli/commands.h"
#include "stage/cli/midi_describer.h"
#include "stage/cli/text_table.h"
#include "stage/words/value_checks.h"
#include "tavo_midi/midi_commands.h"
#include "tavo_midi/midi_message_dispatcher.h"
#include "tavo_midi/midi_ports.h"
#include "tavo_midi/midi_status.h"
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
    throw std::runtime_error(fmt::format("there is no MIDI port {}: see `stage midi list`", kit::Quote(word)));
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
    MidiDescriber describer;
    dispatcher.AddListener(&words, [start, &describer](Bytes message, std::chrono::nanoseconds arrival) {
        const double seconds = std::chrono::duration<double>(arrival - start).count();
        const std::string meaning = describer.Describe(message);
        std::cout << fmt::format("{:9.3f}  {}{}{}", seconds, ToHex(message), meaning.empty() ? "" : "  ", meaning)
                  << std::endl;
    });
    dispatcher.ConnectSourceByName(FindEndPoint(GetNonTavoMidiSources(), words.port).name);
    Wait(words.seconds, [] { return false; });
    dispatcher.Disconnect();
    tavo_midi::SetMidiPortListener({});
}

unsigned char FindCommand(const std::string& word) {
    if (const auto command = midi_commands::FindCommand(word)) return *command;
    throw std::runtime_error(fmt::format("\"{}\" is not a MIDI command: choose one of {}", word,
                                         fmt::join(std::views::values(midi_commands::commandNames), ", ")));
}

void Learn(const MidiWords& words) {
    ChooseSystem(words);
    const unsigned char command = FindCommand(words.command);
    std::error_code error;
    std::filesystem::create_directories(words.settingsDirectory, error);
    if (error)
        throw std::runtime_error(
            fmt::format("the folder \"{}\" cannot be made: {}", words.settingsDirectory, error.message()));
    MidiMessageDispatcher dispatcher;
    midi_commands::MidiCommands commands(dispatcher, kit::path::Join(words.settingsDirectory, "midiCommandSettings"));
    for (const std::string& warning : commands.GetSettingsWarnings())
        std::cerr << "note: " << MakePrintable(warning) << '\n';
    commands.ConnectSourceByIndex(FindEndPoint(GetNonTavoMidiSources(), words.port).index);
    commands.LearnMidiCommand(command);
    std::cout << fmt::format("Press what is to give {}.", words.command) << std::endl;
    std::string told;
    Wait(words.seconds, [&] {
        // Learning goes on with another pedal.
        const std::string problem = commands.GetLearnProblem();
        if (!problem.empty() && problem != told) std::cerr << "stage: " << problem << std::endl;
        if (!problem.empty()) told = problem;
        return !commands.IsMidiCommandLearning(command);
    });
    if (commands.IsMidiCommandLearning(command))
        throw std::runtime_error(told.empty() ? "nothing was pressed" : "nothing was learned");
    std::cout << fmt::format("{} is given by {}.\n", words.command,
                             DescribeMessage(commands.GetLearnedCommands().at(command)));
}

/// A device would wait for the rest, and take the next message for it.
void RequireWholeMessage(const std::vector<unsigned char>& message) {
    const std::string text = kit::Quote(ToHex(message));
    const unsigned char status = message.front();
    if (status < 0x80)
        throw std::runtime_error(fmt::format("{} is not a message: it begins with no status byte", text));
    const bool isSysex = status == tavo_midi::status_byte::Sysex;
    const std::size_t length = tavo_midi::CountMessageBytes(status);
    if (length == 0 && !isSysex) throw std::runtime_error(fmt::format("{:02X} does not begin a message", status));
    const bool isEnded = !isSysex || (message.size() > 1 && message.back() == tavo_midi::status_byte::SysexEnd);
    if (!isEnded) throw std::runtime_error(fmt::format("{} is not a whole message: it does not end with F7", text));
    if (!isSysex && message.size() != length)
        throw std::runtime_error(fmt::format("{} is not a whole message: {:02X} has {} byte{} in all, not {}", text,
                                             status, length, length == 1 ? "" : "s", message.size()));
    for (std::size_t i = 1; i + (isSysex ? 1 : 0) < message.size(); ++i) {
        if (message[i] >= 0x80)
            throw std::runtime_error(
                fmt::format("{} is not one message: {:02X} is a status byte within it", text, message[i]));
    }
}

void Send(const MidiWords& words) {
    std::vector<unsigned char> message;
    for (const std::string& word : words.bytes) {
        if (word.empty() || word.size() > 2 || word.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
            throw std::runtime_error(
                fmt::format("{} is not a byte: write two hexadecimal digits, such as 9F", kit::Quote(word)));
        message.push_back(static_cast<unsigned char>(std::stoul(word, nullptr, 16)));
    }
    RequireWholeMessage(message);
    ChooseSystem(words);
    tavo_midi::SendMidiMessage(FindEndPoint(GetNonTavoMidiDestinations(), words.port).name, message);
}

CLI::App* AddPart(CLI::App* midi, const char* help, const std::string& example, const std::shared_ptr<MidiWords>& words,
                  void (*work)(const MidiWords&)) {
    CLI::App* const part = midi->add_subcommand(example.substr(0, example.find(' ')), help);
    part->footer("Example:\n  stage midi " + example);
    part->add_option("--system", words->system, "auto, jack or rtmidi")->type_name("SYSTEM")->capture_default_str();
    part->callback([words, work] { work(*words); });
    return part;
}

}  // namespace

void AddMidiCommand(CLI::App& app, int&) {
    const auto words = std::make_shared<MidiWords>();
    CLI::App* const midi = app.add_subcommand("midi", "Lists MIDI ports, watches one, learns a pedal, sends a message");
    midi->require_subcommand(1);
    midi->footer(
        "A port is named as `stage midi list` shows it, by its number or its name.\n\n"
        "Examples:\n"
        "  stage midi list\n"
        "  stage midi monitor \"pedal:out\"\n"
        "  stage midi learn \"Next Song\" \"pedal:out\" --settings ~/.config/stage\n"
        "  stage midi send \"desk:in\" 90 3C 40");
    AddPart(midi, "Lists the MIDI ports of the system, this program's own left out", "list", words, &List);

    CLI::App* const monitor =
        AddPart(midi, "Prints what arrives at an input", "monitor \"pedal:out\" --seconds 60", words, &Monitor);
    monitor->add_option("INPUT", words->port, "Number or name of the port")->required();
    monitor->add_option("--seconds", words->seconds, "End after this long; 0 for never")
        ->type_name("SECONDS")
        ->check(stage::IsNumberFrom(0));

    CLI::App* const learn = AddPart(midi, "Gives a command the next message of an input",
                                    "learn \"Next Song\" \"pedal:out\" --settings ~/.config/stage", words, &Learn);
    learn->add_option("COMMAND", words->command, "Such as \"Play\" or \"Next Song\"")->required();
    learn->add_option("INPUT", words->port, "Number or name of the port")->required();
    learn->add_option("--settings", words->settingsDirectory, "Directory of midiCommandSettings")
        ->type_name("DIR")
        ->capture_default_str();
    learn->add_option("--seconds", words->seconds, "Give up after this long; 0 for never")
        ->type_name("SECONDS")
        ->check(stage::IsNumberFrom(0));

    CLI::App* const send = AddPart(midi, "Sends one message to an output", "send \"desk:in\" 90 3C 40", words, &Send);
    send->add_option("OUTPUT", words->port, "Number or name of the port")->required();
    send->add_option("BYTES", words->bytes, "The message, two hexadecimal digits a byte")->required();
}
