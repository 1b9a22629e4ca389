#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace stage {

/// How a show is set up in one theatre: `settings.json` in the show directory, a JSON object (RFC 8259). Every key may
/// be left out and then has the value given here. A plain value.
struct Settings {
    enum class Backend { Auto, Jack, RtAudio, None };
    enum class Transport { Udp, Tcp, Midi };

    struct Output {
        std::string name = "main";
        /// "auto" takes JACK where its server runs, else RtAudio.
        Backend backend = Backend::Auto;
        /// Name of the device or of the JACK ports to connect to; empty takes the system's default.
        std::string device;
    };
    /// Factors on the amplitude, 0 to 1.
    struct Volumes {
        double master = 1.0;
        double synth = 1.0;
        double click = 1.0;
        double effects = 1.0;
        double ambience = 1.0;
    };
    /// A sound of the show that is louder or softer than the rest.
    struct SoundTrim {
        std::string name;     ///< its file, relative to the show directory, as the edits name it
        double decibels = 0;  ///< -60 to 12, on top of what the edits say
    };
    /// Instruments that are mixed together, on top of the music's volume.
    struct Group {
        enum class Output : std::uint8_t { Main, Own };

        /// One word: a verb's argument, and the beginning of the names of its ports.
        std::string name;
        /// Names of the songs' parts, upper and lower case alike; '*' is any text, '?' any character.
        std::vector<std::string> parts;
        /// Numbers from 1, over all ports of 16.
        std::vector<int> channels;
        double volume = 1.0;
        double trimDb = 0;  ///< -60 to 12
        bool isMuted = false;
        Output output = Output::Main;
        /// Name of a MIDI port that its music leaves by as well; empty for none.
        std::string midiPort;
        /// Path of its own SoundFont, as Settings::soundFont; empty takes the show's.
        std::string soundFont;
        /// How loud it is sent into the reverb, -60 to 12; nothing sends nothing.
        std::optional<double> reverbDb;
    };
    /// The room that the groups' reverb comes from, each 0 to 1.
    struct Reverb {
        double roomSize = 0.5;
        double damping = 0.5;
    };
    struct OscTarget {
        std::string name;
        std::string host = "127.0.0.1";
        std::uint16_t port = 0;
        Transport transport = Transport::Udp;
        /// Of Midi, instead of host and port: the name of the port.
        std::string midiPort{};
        /// Messages leave when they are rendered, in bundles that say when they are heard.
        bool timeTags = false;
    };
    /// Where presses are taken from as OSC.
    struct OscIn {
        bool isOn = true;
        std::string address = "127.0.0.1";
        /// 0 takes one that is free.
        std::uint16_t port = 7770;
        /// What other machines say first; empty asks for nothing.
        std::string passcode;
    };

    /// Path of a SoundFont 2 file, absolute or relative to the show directory; empty takes the system's default one.
    std::string soundFont;
    std::vector<Output> outputs{Output{}};
    Volumes volumes;
    /// Names are unique.
    std::vector<SoundTrim> sounds;
    /// The click is part of what the main output plays.
    bool clickInMain = false;
    /// Beats that are counted in on the click when playback is started; 0 to 16.
    int countIn = 0;
    /// Names are unique. A channel is in the first group that names it or a part that plays on it, and in none where
    /// no group does.
    std::vector<Group> groups;
    Reverb reverb;
    /// Names are unique. An OSC edit without a target goes to the first.
    std::vector<OscTarget> oscTargets;
    OscIn osc;
    /// Presses that follow each other faster are one press; 0 to 10000.
    int pressGuardMs = 250;
    /// Bare name of the change log that opens; empty takes the highest version.
    std::string changeLog;
    /// Text of the version that opens in its place as soon as its log is there: it is being saved.
    std::string nextVersion;
};

/// Reads the file; one that does not exist gives the defaults. Throws std::runtime_error with one sentence that names
/// the file, the key and what is wrong: not JSON, a wrong type, a value out of range, a key that is unknown or there
/// twice.
[[nodiscard]] Settings ReadSettings(const std::string& path);
/// The same from memory; `name` stands for the file in the sentences.
[[nodiscard]] Settings ParseSettings(const std::string& text, const std::string& name);

/// Reads "off", "8000", "192.168.1.5:8000" or "[::1]:8000" into `in`; an address is written in numbers, and a port
/// alone is that of 127.0.0.1. Throws std::invalid_argument with one sentence without a full stop.
void ReadListening(const std::string& text, Settings::OscIn& in);
/// The text that ReadListening reads again as the same.
[[nodiscard]] std::string DescribeListening(const Settings::OscIn& in);

/// The text of the file, all keys written, a line end after it.
[[nodiscard]] std::string AsText(const Settings& settings);

/// Writes `logName` into the file as the change log that opens, in place of any announced version, and leaves
/// everything else in it as it is; a file that does not exist is made. An empty name lets the highest version open
/// again, and makes no file. Durable; throws as ReadSettings does, and std::runtime_error where the file cannot be
/// written.
void ChooseChangeLog(const std::string& path, const std::string& logName);

/// Writes into the file that `version` opens as soon as its log is there: with the log's appearing the choice is made.
/// Everything else stays. Durable; throws as ChooseChangeLog does.
void AnnounceVersion(const std::string& path, const std::string& version);

/// Whether an OSC edit may name this target: a name of the list, or empty while the list has a first.
[[nodiscard]] bool HasOscTarget(const Settings& settings, const std::string& name);
/// That target; null where there is none.
[[nodiscard]] const Settings::OscTarget* FindOscTarget(const Settings& settings, const std::string& name);

}  // namespace stage
